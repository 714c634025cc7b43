// Descriptors, waiting with a limit, and ports: for servers that must be told theirs, and where connecting fails. What the
// system refuses throws std::system_error.
#pragma once

#include <netinet/in.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace yinet::test {

using std::chrono::milliseconds;

// How long anything that should happen at once may take on a loaded machine under a sanitizer. Such limits are never a way
// to synchronise: they only decide how long a test that has already failed may take to say so.
inline constexpr milliseconds kPatience{30000};

// For what can't be waited for with poll(): looks again and again; returns whether the predicate became true in time.
template <class Predicate>
bool eventually(Predicate predicate, milliseconds patience = kPatience) {
  const auto end = std::chrono::steady_clock::now() + patience;
  for (milliseconds nap{1}; !predicate(); nap = std::min(nap * 2, milliseconds(10))) {
    if (std::chrono::steady_clock::now() > end) return false;
    std::this_thread::sleep_for(nap);
  }
  return true;
}

class FileDescriptor {
 public:
  explicit FileDescriptor(int number) : number_(number) {}
  FileDescriptor(FileDescriptor&& other) noexcept : number_(std::exchange(other.number_, -1)) {}
  FileDescriptor& operator=(FileDescriptor&& other) noexcept { return std::swap(number_, other.number_), *this; }
  ~FileDescriptor() { close(); }

  [[nodiscard]] int get() const { return number_; }
  [[nodiscard]] bool valid() const { return number_ >= 0; }
  void close();

 private:
  int number_;
};

// Poll-able yes/no that starts as "no" and can be turned to "yes" once, from any thread.
class Signal {
 public:
  Signal();
  void set();
  [[nodiscard]] bool is_set() const;
  [[nodiscard]] int descriptor() const { return event_.get(); }  // readable (POLLIN) from set() on

 private:
  FileDescriptor event_;
};

// A numeric IPv4 or IPv6 address with a port, for bind() and connect().
class SocketAddress {
 public:
  SocketAddress(const std::string& address, std::uint16_t port);
  [[nodiscard]] const sockaddr* get() const { return reinterpret_cast<const sockaddr*>(&storage_); }
  [[nodiscard]] socklen_t size() const { return sizeof(storage_); }

 private:
  sockaddr_in6 storage_{};
};
std::uint16_t local_port(int socket);

// TCP sockets. A bound one takes a free port for 0. Until it listens the port refuses connections, and the kernel gives it to
// nobody who takes any; but with SO_REUSEADDR, which every server sets, one that is told the number can listen there.
FileDescriptor bound_socket(const std::string& address = "127.0.0.1", std::uint16_t port = 0);
FileDescriptor listening_socket(int backlog = 128);  // on a free port of 127.0.0.1
FileDescriptor connected_socket(std::uint16_t port,
                                const std::string& address = "127.0.0.1");  // invalid where nobody listens

// A port that refuses connections for the rest of the process, and costs it a descriptor: take it before counting those.
std::uint16_t refused_port();

// Connects never come about here: a listener that accepts nobody and whose queue is full.
class FullListener {
 public:
  FullListener();
  [[nodiscard]] std::uint16_t port() const { return local_port(listener_.get()); }

 private:
  FileDescriptor listener_;
  std::vector<FileDescriptor> waiting_;
};

}  // namespace yinet::test
