// Loopback addresses, listeners and the start of threads, for the test support itself.
#pragma once

#include <sys/socket.h>

#include <cstdint>
#include <string>

#include "support/file_descriptor.h"

namespace yinet::test {

// A numeric IPv4 or IPv6 address with a port.
class SocketAddress {
 public:
  SocketAddress(const std::string& address, std::uint16_t port);  // throws std::invalid_argument
  static SocketAddress local_of(int socket);

  [[nodiscard]] const sockaddr* get() const { return reinterpret_cast<const sockaddr*>(&storage_); }
  [[nodiscard]] socklen_t size() const { return size_; }
  [[nodiscard]] int family() const { return storage_.ss_family; }
  [[nodiscard]] std::uint16_t port() const;
  [[nodiscard]] std::string text() const;  // "127.0.0.1:80", "[::1]:80"

 private:
  SocketAddress() = default;
  sockaddr_storage storage_{};
  socklen_t size_ = sizeof(storage_);
};

// A TCP listener with SO_REUSEADDR; port 0 takes a free one. `receive_buffer` (bytes, 0: the system's)
// is inherited by the accepted connections. Throws std::system_error.
FileDescriptor listen_on(const std::string& address, std::uint16_t port, int backlog = 128, int receive_buffer = 0);

// For every thread of the support: the host's signals belong to the host's threads.
void block_all_signals();

}  // namespace yinet::test
