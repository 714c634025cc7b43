#pragma once

#include <span>
#include <string_view>

namespace yinet {

struct ConverterName {
  int code;               // code page identifier
  std::string_view name;  // of a converter, not necessarily one that exists
};

// The fixed table of code page identifiers, each once. Some rows look odd (872, 423, names that ICU never had); callers
// rely on every one of them.
std::span<const ConverterName> converter_names();

// Empty when the table lacks the identifier.
std::string_view converter_name(int code);

}  // namespace yinet
