#pragma once

// Header values with parameters, as mail and HTTP share them ("text/html; charset=utf-8"). Pure, linear.

#include <string_view>
#include <vector>

namespace yinet {

// One parameter of a structured header value; quotes around the value are gone.
struct HeaderParameter {
  std::string_view name;
  std::string_view value;
};

// A "Content-Type" or "Content-Disposition" value taken apart: what stands before the first ";" and the parameters
// behind it. ";" and "=" inside double quotes do not split. A parameter with no or with several "=" is left out, unless
// `first_equals_splits`. Views into `value`.
struct StructuredValue {
  std::string_view first;
  std::vector<HeaderParameter> parameters;
};
StructuredValue split_structured_value(std::string_view value, bool first_equals_splits);

}  // namespace yinet
