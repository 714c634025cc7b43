// Descriptors, loopback addresses, and ports: for servers that must be told theirs, and where connecting fails.
#pragma once

#include <sys/socket.h>

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace yinet::test {

// An open descriptor and its owner.
class FileDescriptor {
 public:
  FileDescriptor() = default;
  explicit FileDescriptor(int number) : number_(number) {}
  FileDescriptor(FileDescriptor&& other) noexcept : number_(std::exchange(other.number_, -1)) {}
  FileDescriptor& operator=(FileDescriptor&& other) noexcept { return std::swap(number_, other.number_), *this; }
  ~FileDescriptor() { close(); }

  [[nodiscard]] int get() const { return number_; }
  [[nodiscard]] bool valid() const { return number_ >= 0; }
  void close();

 private:
  int number_ = -1;
};

// Poll-able yes/no that starts as "no" and can be turned to "yes" once, from any thread.
class Signal {
 public:
  Signal();  // throws std::system_error without descriptors
  void set();
  [[nodiscard]] bool is_set() const;
  [[nodiscard]] int descriptor() const { return event_.get(); }  // readable (POLLIN) from set() on

 private:
  FileDescriptor event_;
};

// A numeric IPv4 or IPv6 address with a port, for bind() and connect(). Throws std::invalid_argument.
class SocketAddress {
 public:
  SocketAddress(const std::string& address, std::uint16_t port);
  [[nodiscard]] const sockaddr* get() const { return reinterpret_cast<const sockaddr*>(&storage_); }
  [[nodiscard]] socklen_t size() const { return size_; }

 private:
  sockaddr_storage storage_{};
  socklen_t size_ = 0;
};
std::uint16_t local_port(int socket);

// A TCP listener with SO_REUSEADDR; port 0 takes a free one. `receive_buffer` (bytes, 0: the system's) is inherited by
// the accepted connections. Throws std::system_error.
FileDescriptor listen_on(const std::string& address, std::uint16_t port, int backlog = 128, int receive_buffer = 0);

// For every thread of the support: the host's signals belong to the host's threads.
void block_all_signals();

// Ports in a row where nobody listened a moment ago and that no other ReservedPorts on this machine holds, in this process
// or in another one. They lie below the range from which the kernel takes the source ports of outgoing connections. A
// program outside the tests could still take one: servers are started with a retry. Holds one descriptor per port.
class ReservedPorts {
 public:
  explicit ReservedPorts(std::size_t count = 1);  // throws std::runtime_error when none are left

  [[nodiscard]] std::uint16_t operator[](std::size_t index) const { return static_cast<std::uint16_t>(first_ + index); }
  [[nodiscard]] std::uint16_t last() const { return (*this)[claims_.size() - 1]; }

 private:
  unsigned first_ = 0;
  std::vector<FileDescriptor> claims_;
};

// A port that refuses connections: nobody listens there, and it stays reserved for the rest of the process (and costs
// it one descriptor: take it before counting descriptors).
std::uint16_t refused_port();

// Whether somebody accepts connections there. Makes one and closes it at once.
bool port_is_open(std::uint16_t port, const std::string& address = "127.0.0.1");

// Connects never come about here: a listener that accepts nobody and whose queue is full, so that the kernel drops every
// further attempt unanswered.
class FullListener {
 public:
  FullListener();  // throws std::runtime_error
  [[nodiscard]] std::uint16_t port() const { return local_port(listener_.get()); }

 private:
  FileDescriptor listener_;
  std::vector<FileDescriptor> waiting_;
};

}  // namespace yinet::test
