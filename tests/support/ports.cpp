#include "support/ports.h"

#include <arpa/inet.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <system_error>

namespace yinet::test {

void FileDescriptor::close() {
  if (number_ >= 0) ::close(std::exchange(number_, -1));
}

Signal::Signal() : event_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
  if (!event_.valid()) throw std::system_error(errno, std::generic_category(), "eventfd");
}

void Signal::set() { ::eventfd_write(event_.get(), 1); }

bool Signal::is_set() const {
  pollfd event{event_.get(), POLLIN, 0};
  return ::poll(&event, 1, 0) == 1;
}

SocketAddress::SocketAddress(const std::string& address, std::uint16_t port) {
  const bool is_ipv6 = address.find(':') != std::string::npos;
  storage_.sin6_family = is_ipv6 ? AF_INET6 : AF_INET;
  storage_.sin6_port = htons(port);  // for IPv4 at the same place, and the address where IPv6 has its flow
  ::inet_pton(storage_.sin6_family, address.c_str(),
              is_ipv6 ? static_cast<void*>(&storage_.sin6_addr) : &storage_.sin6_flowinfo);
}

std::uint16_t local_port(int socket) {
  sockaddr_in6 address{};
  socklen_t size = sizeof(address);
  ::getsockname(socket, reinterpret_cast<sockaddr*>(&address), &size);
  return ntohs(address.sin6_port);
}

FileDescriptor bound_socket(const std::string& address, std::uint16_t port) {
  const SocketAddress own(address, port);
  FileDescriptor socket(::socket(own.get()->sa_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  const int on = 1;
  ::setsockopt(socket.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on));
  if (::bind(socket.get(), own.get(), own.size()) != 0)
    throw std::system_error(errno, std::generic_category(), "bind to " + address);
  return socket;
}

FileDescriptor listening_socket(int backlog) {
  FileDescriptor listener = bound_socket();
  ::listen(listener.get(), backlog);
  return listener;
}

FileDescriptor connected_socket(std::uint16_t port, const std::string& address) {
  const SocketAddress target(address, port);
  FileDescriptor socket(::socket(target.get()->sa_family, SOCK_STREAM | SOCK_CLOEXEC, 0));
  if (::connect(socket.get(), target.get(), target.size()) != 0) socket.close();
  return socket;
}

std::uint16_t refused_port() {
  static const FileDescriptor kept = bound_socket();
  return local_port(kept.get());
}

FullListener::FullListener() : listener_(listening_socket(0)) {
  const SocketAddress address("127.0.0.1", port());
  pollfd connected{-1, POLLOUT, 0};
  do {  // a queue of length 0 still takes a connection or two; the first one that stays pending fills it
    waiting_.emplace_back(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    connected.fd = waiting_.back().get();
    ::connect(connected.fd, address.get(), address.size());
  } while (::poll(&connected, 1, 200) != 0);
}

}  // namespace yinet::test
