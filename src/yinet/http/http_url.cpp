#include "yinet/http/http_url.h"

#include <algorithm>

#include "yinet/host/text.h"

namespace yinet {
namespace {

constexpr std::size_t kPlainSchemeLength = std::string_view("http://").size();
constexpr std::size_t kTlsSchemeLength = std::string_view("https://").size();
constexpr unsigned kPlainPort = 80;
constexpr unsigned kTlsPort = 443;

}  // namespace

HttpUrl parse_http_url(std::string_view url, bool tls_otherwise) {
  constexpr std::string_view kScheme = "HTTP";
  HttpUrl parts{.host = {}, .port = 0, .path = {}, .tls = tls_otherwise};

  std::size_t position = 0;
  if (starts_with_ignoring_case(url, kScheme)) {
    const bool secure = url.size() > kScheme.size() && lower_case(url[kScheme.size()]) == 's';
    parts.tls = parts.tls || secure;
    position = secure ? kTlsSchemeLength : kPlainSchemeLength;
  }
  // "http:" ends before its host would begin.
  const std::string_view rest = url.substr(std::min(position, url.size()));

  const std::size_t path_at = std::min(rest.find('/'), rest.size());
  parts.host = rest.substr(0, path_at);
  parts.path = rest.substr(path_at);

  if (const std::size_t colon = parts.host.find(':'); colon != std::string_view::npos) {
    // A negative number turns into one far above 65535.
    parts.port = static_cast<unsigned>(leading_int32(parts.host.substr(colon + 1)));
    parts.host = parts.host.substr(0, colon);
  } else {
    parts.port = parts.tls ? kTlsPort : kPlainPort;
  }
  return parts;
}

}  // namespace yinet
