#pragma once

#include <string>
#include <string_view>

class YObject;

namespace yinet {

// Bodies of HTTP messages into records: see HttpHelper_class::ParseBody, which this does. No I/O, linear.
bool parse_http_body(std::string_view content_type, std::string_view body, YObject& fields);

// The part of a content type that counts when types are compared: lower case, without parameters.
std::string media_type(std::string_view content_type);

// The parameter "charset" of a content type; empty without one.
std::string charset_parameter(std::string_view content_type);

}  // namespace yinet
