// nginx on loopback, in clear and with TLS, for any user. Tests need YINET_REQUIRE_PROGRAM("nginx").
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

#include "support/server_process.h"
#include "support/temp_dir.h"

namespace yinet::test {

// One nginx with two ports that serve the same, in clear and over TLS, on 127.0.0.1.
//
//   /NAME              the document of that name; "/" is kIndex; a missing one gives nginx's own 404 page
//   /chunked/NAME      the same document, always as a chunked body (with has_echo())
//   /status/CODE       that code with the body "status CODE"; CODE is one of kStatusCodes
//   /redirect/CODE     301, 302, 303, 307 or 308 to /hello.txt, as an absolute URL
//   /post/NAME         the document of that name, also for POST; /fault/NAME: the same with status 500
//   /empty             200 with Content-Length 0
//   /cookies           200 with three Set-Cookie lines: kCookies
//   /echo              the body of the request, in chunks, whatever its size (with has_echo())
//   /request           request line and header lines of the request as they came (with has_echo())
class NginxServer {
 public:
  static constexpr std::string_view kIndex = "<html><body>It serves.</body></html>\n";
  static constexpr std::string_view kHello = "Hello from nginx\n";  // the document hello.txt
  static constexpr int kStatusCodes[] = {200, 400, 401, 403, 404, 410, 500, 502, 503};
  static constexpr std::string_view kCookies[] = {"session=abc123; Path=/; HttpOnly", "lang=de; Max-Age=3600",
                                                  "empty="};

  NginxServer();

  [[nodiscard]] std::uint16_t port() const { return server_->port(0); }
  [[nodiscard]] std::uint16_t tls_port() const { return server_->port(1); }
  [[nodiscard]] std::string url(std::string_view path = "/") const;
  [[nodiscard]] std::string tls_url(std::string_view path = "/") const;

  void add_document(std::string_view name, std::string_view content) const { documents_.write(name, content); }

  [[nodiscard]] const std::filesystem::path& documents() const { return documents_.path(); }
  void stop() { server_->stop(); }
  [[nodiscard]] static bool has_echo();  // whether the module for /echo and its kin is installed

 private:
  TempDir folder_{"nginx"};
  TempDir documents_{"www"};
  std::optional<ServerProcess> server_;
};

}  // namespace yinet::test
