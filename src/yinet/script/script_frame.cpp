#include "yinet/script/script_frame.h"

#include <exception>
#include <string>

#include "yinet/host/messages.h"
#include "yinet/host/yerror.h"
#include "yinet/script/function_table.h"
#include "yinet/script/parameter_keys.h"

namespace yinet {
namespace {

YObject* parameters_of(YObject* arguments) { return arguments ? arguments->FindAt<YObject>(0) : nullptr; }

void store_failure(YObject& parameters, std::string_view name) {
  const ScriptFunction* function = find_script_function(name);
  switch (function ? function->result_type : kTypeBool) {
    case kTypeAny: return;
    case kTypeInteger: return store_result(parameters, std::int32_t{0});
    case kTypeString: return store_result(parameters, std::string_view());
    default: return store_result(parameters, false);
  }
}

// What the running exception says. Only inside a catch block.
const char* current_cause() noexcept {
  try {
    throw;
  } catch (const std::exception& error) {
    return error.what();  // lives as long as the exception, which our caller still holds
  } catch (...) {
    return "unknown exception";
  }
}

}  // namespace

void run_guarded(std::string_view name, void (*body)()) noexcept {
  try {
    body();
  } catch (...) {
    raise_message(message::kErrorLevel, message::kScriptFunctionFailed, name, current_cause());
  }
}

void run_script_function(std::string_view name, YObject* arguments, void (*body)(YObject& parameters)) noexcept {
  YObject* const parameters = parameters_of(arguments);
  if (!parameters) return;
  try {
    body(*parameters);
  } catch (...) {
    raise_message(message::kErrorLevel, message::kScriptFunctionFailed, name, current_cause());
    try {
      store_failure(*parameters, name);
    } catch (...) {  // no memory even for the failure value: the script sees what was there before the call
    }
  }
}

YString& live_text(YObject& parameters, std::string_view key) { return parameters.Ensure<YString>(key); }

void store_result(YObject& parameters, bool result) { parameters.Store<bool>(key::kResult, result); }
void store_result(YObject& parameters, std::int32_t result) { parameters.Store<std::int32_t>(key::kResult, result); }
void store_result(YObject& parameters, std::string_view result) { parameters.StoreText(key::kResult, result); }

}  // namespace yinet
