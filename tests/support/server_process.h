// How the tests start any daemon: ports of their own, a configuration written for them, and a wait until
// it serves. The classes for single servers (nginx_server.h, dns_server.h, tls_server.h ...) stand on this.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "support/child_process.h"
#include "support/ports.h"

namespace yinet::test {

struct ServerSetup {
  std::string name;           // for failure texts
  std::size_t ports = 1;      // to reserve, in a row: passive ranges and the like included
  std::size_t listening = 1;  // how many of them, from the first on, accept TCP connections once it serves
  // Writes the configuration for these ports and says how to start the daemon in the foreground. Called
  // again, with other ports, should one of them have been taken meanwhile.
  std::function<ChildOptions(const ReservedPorts&)> prepare;
  // Takes the place of the look at the listening ports.
  std::function<bool(ChildProcess&, const ReservedPorts&)> ready = {};
  std::filesystem::path log = {};  // shown, besides its output, when it doesn't start
};

// A running daemon. Ends with this object: SIGTERM, then SIGKILL, to all its processes; make it in a
// thread that lives as long (see ChildProcess).
class ServerProcess {
 public:
  // Returns when it serves. Throws std::runtime_error with its output and log when it doesn't.
  explicit ServerProcess(const ServerSetup& setup);

  [[nodiscard]] std::uint16_t port(std::size_t index = 0) const { return (*ports_)[index]; }
  [[nodiscard]] const ChildProcess& process() const { return *child_; }
  void stop() { child_->stop(); }  // in mid-test: what it served is gone, its ports stay reserved

 private:
  bool serves(const ServerSetup& setup);
  std::optional<ReservedPorts> ports_;
  std::unique_ptr<ChildProcess> child_;
};

}  // namespace yinet::test
