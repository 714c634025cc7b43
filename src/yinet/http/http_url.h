#pragma once

// The simple URL reader of the HTTP client: it counts where others parse, and takes every text. Pure.

#include <string_view>

namespace yinet {

struct HttpUrl {
  std::string_view host;  // all views point into the text that was read
  unsigned port = 0;      // not checked: 0 and numbers above 65535 fail when it comes to connecting
  std::string_view path;  // from the first "/" on, query included; empty when there is none
  bool tls = false;
};

// "HTTP" at the start, in any letter case, makes a scheme of 7 characters, and of 8 with TLS when an "S" follows; the
// characters that stand in for "://" are not looked at. A text without it is read from its first character, and TLS is
// then what `tls_otherwise` says. The host ends at the first "/", the port is the number behind its first ":".
HttpUrl parse_http_url(std::string_view url, bool tls_otherwise = false);

}  // namespace yinet
