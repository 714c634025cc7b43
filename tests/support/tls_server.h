// The TLS server of the openssl program. Tests need YINET_REQUIRE_PROGRAM("openssl").
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "support/certificates.h"
#include "support/server_process.h"

namespace yinet::test {

// For sessions with a TLS stack in another process. It has the shared good certificate, serves one connection after
// the other and prints what comes.
class TlsServer {
 public:
  explicit TlsServer(const std::vector<std::string>& arguments);  // more of "openssl s_server", such as "-tls1_2"

  [[nodiscard]] std::uint16_t port() const { return server_.port(); }
  // What has come from clients, between its own remarks about their sessions.
  [[nodiscard]] std::string received() const { return server_.process().output(); }
  [[nodiscard]] bool wait_for_received(std::string_view text) const {
    return eventually([&] { return received().find(text) != std::string::npos; });
  }

 private:
  ServerProcess server_;
};

}  // namespace yinet::test
