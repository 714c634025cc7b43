#include "support/socket_address.h"

#include <netdb.h>
#include <signal.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <system_error>

namespace yinet::test {

SocketAddress::SocketAddress(const std::string& address, std::uint16_t port) {
  addrinfo hints{};
  hints.ai_flags = AI_NUMERICHOST | AI_NUMERICSERV;
  addrinfo* found = nullptr;
  if (::getaddrinfo(address.c_str(), std::to_string(port).c_str(), &hints, &found) != 0)
    throw std::invalid_argument("not a numeric address: " + address);
  size_ = found->ai_addrlen;
  std::memcpy(&storage_, found->ai_addr, size_);
  ::freeaddrinfo(found);
}

SocketAddress SocketAddress::local_of(int socket) {
  SocketAddress address;
  if (::getsockname(socket, reinterpret_cast<sockaddr*>(&address.storage_), &address.size_) != 0)
    throw std::system_error(errno, std::generic_category(), "getsockname");
  return address;
}

std::uint16_t SocketAddress::port() const {
  const std::string all = text();
  return static_cast<std::uint16_t>(std::stoi(all.substr(all.rfind(':') + 1)));
}

std::string SocketAddress::text() const {
  std::array<char, NI_MAXHOST> host{};
  std::array<char, NI_MAXSERV> port{};
  ::getnameinfo(get(), size_, host.data(), host.size(), port.data(), port.size(), NI_NUMERICHOST | NI_NUMERICSERV);
  const std::string name(host.data());
  return (family() == AF_INET6 ? "[" + name + "]:" : name + ":") + port.data();
}

FileDescriptor listen_on(const std::string& address, std::uint16_t port, int backlog, int receive_buffer) {
  const SocketAddress target(address, port);
  FileDescriptor listener(::socket(target.family(), SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  const int on = 1;
  ::setsockopt(listener.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on));
  if (receive_buffer > 0)  // must come before listen() to reach the accepted sockets
    ::setsockopt(listener.get(), SOL_SOCKET, SO_RCVBUF, &receive_buffer, sizeof(receive_buffer));
  if (::bind(listener.get(), target.get(), target.size()) != 0 || ::listen(listener.get(), backlog) != 0)
    throw std::system_error(errno, std::generic_category(), "listen on " + target.text());
  return listener;
}

void block_all_signals() {
  sigset_t all;
  sigfillset(&all);
  ::pthread_sigmask(SIG_SETMASK, &all, nullptr);
}

}  // namespace yinet::test
