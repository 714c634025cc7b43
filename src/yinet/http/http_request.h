#pragma once

// The head of an HTTP request as bytes. Pure: the clock, the settings and the cookies come in.

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

class YObject;
enum class EREQUST_TYPE : int;

namespace yinet {

// Everything must stay alive while the head is made.
struct RequestHead {
  EREQUST_TYPE method = {};
  std::string_view host = {};  // without the port
  std::string_view path = {};  // empty stands for "/"
  std::string_view user_agent = {};
  std::chrono::sys_seconds time = {};
  const YObject* cookies = nullptr;    // of this host: records with the text "VALUE" under the cookie's name
  const YObject* fields = nullptr;     // further fields: texts by name
  std::int64_t content_length = 0;     // these two for POST only
  std::string_view content_type = {};  // empty stands for "text/plain"
};

// The request line and all header lines with the empty line that closes them. English names in the date whatever the
// locale; every cookie has a line of its own.
std::string request_head_text(const RequestHead& head);

// The first value of the head that holds CR, LF or NUL and so would become a line of its own on the wire; of cookies
// and further fields, the name. Such a head must not be sent. Empty when there is none.
std::optional<std::string> line_breaking_value(const RequestHead& head);

}  // namespace yinet
