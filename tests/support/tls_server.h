// The TLS server of the openssl program. Tests need YINET_REQUIRE_PROGRAM("openssl").
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "support/certificates.h"
#include "support/server_process.h"

namespace yinet::test {

// For sessions with a TLS stack in another process. It has the shared good certificate and serves one connection after
// the other.
class TlsServer {
 public:
  enum class Mode { terminal };  // prints what comes

  struct Options {
    Mode mode = Mode::terminal;
    std::vector<std::string> arguments = {};  // more of "openssl s_server", such as "-tls1_2"
  };

  explicit TlsServer(const Options& options);

  [[nodiscard]] std::uint16_t port() const { return server_->port(); }
  // What has come from clients, between its own remarks about their sessions.
  [[nodiscard]] std::string received() const { return server_->process().output(); }
  [[nodiscard]] bool wait_for_received(std::string_view text) { return server_->process().wait_for_output(text); }

 private:
  std::optional<ServerProcess> server_;
};

}  // namespace yinet::test
