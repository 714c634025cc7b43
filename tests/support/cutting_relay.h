// A way to a server on loopback whose n-th connection ends once n * `step` bytes of the server's went through, wherever that
// is: a client that is used again and again meets a lost connection at each of its steps.
#pragma once

#include <cstdint>
#include <string>

#include "support/server_process.h"

namespace yinet::test {

class CuttingRelay {
 public:
  CuttingRelay(std::uint16_t server, unsigned step) : server_(setup(server, step)) {}
  [[nodiscard]] std::uint16_t port() const { return server_.port(); }

 private:
  static constexpr const char* kProgram = R"(
import socket, sys, threading
port, to, step = map(int, sys.argv[1:])
def pump(source, target, left):
    try:
        while data := source.recv(min(left, 65536)):
            target.sendall(data)
            left -= len(data)
    except OSError: pass
    for end in (source, target):
        try: end.shutdown(socket.SHUT_RDWR)
        except OSError: pass
listener = socket.create_server(('127.0.0.1', port))
left = 0
while True:
    ends = listener.accept()[0], socket.create_connection(('127.0.0.1', to))
    left += step
    for end in ends: end.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
    for source, target, most in ((*ends, 1 << 60), (*reversed(ends), left)):
        threading.Thread(target=pump, args=(source, target, most), daemon=True).start()
)";
  static ServerSetup setup(std::uint16_t server, unsigned step) {
    ServerSetup setup;
    setup.name = "relay";
    setup.prepare = [=](const ReservedPorts& ports) {
      return ChildOptions{.argv = {"python3", "-c", kProgram, std::to_string(ports[0]), std::to_string(server), std::to_string(step)}};
    };
    return setup;
  }
  ServerProcess server_;
};

}  // namespace yinet::test
