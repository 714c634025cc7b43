#include "yinet/host/yscript.h"

#include <exception>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>

#include "yinet/host/message_numbers.h"
#include "yinet/host/text.h"
#include "yinet/host/ylog.h"

YScriptClass YScript;

namespace yinet {

namespace {

struct Registry {
  std::mutex mutex;
  std::unordered_map<std::string, std::shared_ptr<const ScriptClassFunction>> functions;  // by key_of
};

// Never destroyed: a host's thread may still call while the process ends.
Registry& registry() {
  static auto* const instance = new Registry;
  return *instance;
}

std::string key_of(std::string_view class_name, std::string_view function_name) {
  std::string key = to_lower(class_name);
  key.push_back('\0');
  return key += to_lower(function_name);
}

// A share of the function, so that it may be replaced while it runs.
std::shared_ptr<const ScriptClassFunction> find_function(std::string_view class_name, std::string_view function_name) {
  const std::string key = key_of(class_name, function_name);
  const std::lock_guard guard(registry().mutex);
  const auto found = registry().functions.find(key);
  return found == registry().functions.end() ? nullptr : found->second;
}

}  // namespace

void register_script_function(std::string_view class_name, std::string_view function_name,
                              ScriptClassFunction function) {
  auto next = function ? std::make_shared<const ScriptClassFunction>(std::move(function)) : nullptr;
  const std::string key = key_of(class_name, function_name);
  {
    const std::lock_guard guard(registry().mutex);
    if (next) {
      registry().functions[key].swap(next);
    } else if (const auto found = registry().functions.find(key); found != registry().functions.end()) {
      found->second.swap(next);
      registry().functions.erase(found);
    }
  }
  // The replaced function is released here, outside the lock.
}

}  // namespace yinet

bool YScriptClass::ExecuteFunction(std::string_view class_name, std::string_view function_name, int /*reserved*/,
                                   YObject* parameters) noexcept {
  using namespace yinet;
  const char* reason = "";
  try {
    const auto function = find_function(class_name, function_name);
    if (!function) {
      YLog.Event(message::kErrorLevel, message::kScriptClassUnknown, class_name, function_name);
      return false;
    }
    if (parameters != nullptr) {
      (*function)(*parameters);
      return true;
    }
    reason = "no parameters";
  } catch (const std::exception& error) {
    YLog.Event(message::kErrorLevel, message::kScriptClassFailed, class_name, function_name, error.what());
    return false;
  } catch (...) {
    reason = "unknown exception";
  }
  YLog.Event(message::kErrorLevel, message::kScriptClassFailed, class_name, function_name, reason);
  return false;
}
