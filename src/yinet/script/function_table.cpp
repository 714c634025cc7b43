#include "yinet/script/function_table.h"

#include <array>
#include <vector>

#include "yinet/host/text.h"
#include "yinet/host/yobject.h"
#include "yinet/script/families.h"

namespace yinet {
namespace {

// In the order of lists and documentation. A new family adds its line here and its declaration in families.h.
constexpr std::array kFamilies{&ftps_functions,     &ftp_functions,          &http_functions,
                               &internet_functions, &soap_functions,         &mime_functions,
                               &ssh_functions,      &filetransfer_functions, &tls_functions};

std::vector<ScriptFunction> put_together() {
  std::vector<ScriptFunction> functions;
  for (const auto family : kFamilies) {
    const auto rows = family();
    functions.insert(functions.end(), rows.begin(), rows.end());
  }
  return functions;
}

}  // namespace

std::span<const ScriptFunction> all_script_functions() {
  static const std::vector<ScriptFunction> functions = put_together();
  return functions;
}

const ScriptFunction* find_script_function(std::string_view name) {
  for (const ScriptFunction& function : all_script_functions())
    if (equal_ignoring_case(function.name, name)) return &function;
  return nullptr;
}

const ScriptParameter* find_parameter(const ScriptFunction& function, std::string_view key) {
  for (const ScriptParameter& parameter : function.parameters)
    if (equal_ignoring_case(parameter.key, key)) return &parameter;
  return nullptr;
}

std::string_view type_name(std::uint8_t type) {
  switch (type) {
    case kTypeBool: return "bool";
    case kTypeInteger: return "integer";
    case kTypeString: return "text";
    case kTypeBuffer: return "buffer";
    case kTypeDateTime: return "date-time";
    case kTypeObject: return "record";
    case kTypeObjectArray: return "records";
    default: return "any";
  }
}

}  // namespace yinet
