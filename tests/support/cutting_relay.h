// A way to a server on loopback whose n-th connection ends once n * `step` bytes of the server's went through, wherever that
// is: a client that is used again and again meets a lost connection at each of its steps.
#pragma once

#include <cstdint>
#include <string>

#include "support/servers.h"

namespace yinet::test {

class CuttingRelay : public ServerProcess {
 public:
  CuttingRelay(std::uint16_t server, unsigned step) : ServerProcess("relay") {
    start({.command = "python3 {CONFIG} {PORT} " + std::to_string(server) + " " + std::to_string(step),
           .configuration = kProgram});
  }

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
};

}  // namespace yinet::test
