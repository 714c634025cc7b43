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

// For handshakes with a TLS stack in another process: certificates, versions, ciphers, client
// certificates. It serves one connection after the other.
class TlsServer {
 public:
  enum class Mode {
    web,       // answers any HTTP request with a page about the session, then closes
    reverse,   // sends each line back reversed
    terminal,  // prints what comes (received()) and sends what send() is given
  };

  struct Options {
    std::optional<PemPair> certificate = {};  // default: the shared good one
    Mode mode = Mode::web;
    std::vector<std::string> arguments = {};  // more of "openssl s_server", such as "-tls1_2"
  };

  TlsServer() : TlsServer(Options()) {}
  explicit TlsServer(const Options& options);

  [[nodiscard]] std::uint16_t port() const { return server_->port(); }
  void send(std::string_view bytes) { server_->process().send_input(bytes); }
  // All it has printed: what came from clients, between its own remarks about their sessions.
  [[nodiscard]] std::string received() const { return server_->process().output(); }
  [[nodiscard]] bool wait_for_received(std::string_view text, milliseconds patience = kPatience) {
    return server_->process().wait_for_output(text, patience);
  }
  void stop() { server_->stop(); }

 private:
  std::optional<ServerProcess> server_;
};

}  // namespace yinet::test
