// URLs as the HTTP client reads them, and the request heads made of them.

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "yinet/http/http.h"
#include "yinet/http/http_request.h"
#include "yinet/http/http_url.h"

namespace {

void require(bool condition) {
  if (!condition) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view url(reinterpret_cast<const char*>(data), size);
  const yinet::HttpUrl parts = yinet::parse_http_url(url);
  require(parts.host.find_first_of(":/") == std::string_view::npos);
  require(parts.path.empty() || parts.path.front() == '/');
  require(url.ends_with(parts.path));
  require(url.find(parts.host) != std::string_view::npos);

  const yinet::RequestHead head{
      .method = EREQUST_TYPE::post, .host = parts.host, .path = parts.path, .content_type = parts.path};
  if (line_breaking_value(head)) return 0;
  const std::string text = request_head_text(head);
  constexpr int kLines = 9;  // the empty one included
  require(std::count(text.begin(), text.end(), '\n') == kLines);
  require(std::count(text.begin(), text.end(), '\r') == kLines);
  require(text.find('\0') == std::string::npos);
  require(text.find("\r\n\r\n") == text.size() - 4);
  return 0;
}
