#include "support/socket_address.h"

#include <arpa/inet.h>
#include <netinet/in.h>

#include <array>
#include <cerrno>
#include <stdexcept>
#include <system_error>

namespace yinet::test {
namespace {

std::system_error socket_error(const char* call) { return {errno, std::generic_category(), call}; }

}  // namespace

SocketAddress::SocketAddress(const std::string& address, std::uint16_t port) {
  auto* v4 = reinterpret_cast<sockaddr_in*>(&storage_);
  auto* v6 = reinterpret_cast<sockaddr_in6*>(&storage_);
  if (::inet_pton(AF_INET, address.c_str(), &v4->sin_addr) == 1) {
    v4->sin_family = AF_INET;
    v4->sin_port = htons(port);
    size_ = sizeof(*v4);
  } else if (::inet_pton(AF_INET6, address.c_str(), &v6->sin6_addr) == 1) {
    v6->sin6_family = AF_INET6;
    v6->sin6_port = htons(port);
    size_ = sizeof(*v6);
  } else {
    throw std::invalid_argument("not a numeric address: " + address);
  }
}

SocketAddress SocketAddress::local_of(int socket) {
  SocketAddress address;
  if (::getsockname(socket, reinterpret_cast<sockaddr*>(&address.storage_), &address.size_) != 0)
    throw socket_error("getsockname");
  return address;
}

SocketAddress SocketAddress::peer_of(int socket) {
  SocketAddress address;
  if (::getpeername(socket, reinterpret_cast<sockaddr*>(&address.storage_), &address.size_) != 0)
    throw socket_error("getpeername");
  return address;
}

std::uint16_t SocketAddress::port() const {
  return ntohs(family() == AF_INET6 ? reinterpret_cast<const sockaddr_in6*>(&storage_)->sin6_port
                                    : reinterpret_cast<const sockaddr_in*>(&storage_)->sin_port);
}

std::string SocketAddress::text() const {
  std::array<char, INET6_ADDRSTRLEN> buffer{};
  if (family() == AF_INET6) {
    const auto* v6 = reinterpret_cast<const sockaddr_in6*>(&storage_);
    ::inet_ntop(AF_INET6, &v6->sin6_addr, buffer.data(), buffer.size());
    return "[" + std::string(buffer.data()) + "]:" + std::to_string(port());
  }
  const auto* v4 = reinterpret_cast<const sockaddr_in*>(&storage_);
  ::inet_ntop(AF_INET, &v4->sin_addr, buffer.data(), buffer.size());
  return std::string(buffer.data()) + ":" + std::to_string(port());
}

FileDescriptor listen_on(const std::string& address, std::uint16_t port, int backlog, int receive_buffer) {
  const SocketAddress target(address, port);
  FileDescriptor listener(::socket(target.family(), SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  if (!listener.valid()) throw socket_error("socket");
  const int on = 1;
  ::setsockopt(listener.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on));
  if (receive_buffer > 0)  // must come before listen() to reach the accepted sockets
    ::setsockopt(listener.get(), SOL_SOCKET, SO_RCVBUF, &receive_buffer, sizeof(receive_buffer));
  if (::bind(listener.get(), target.get(), target.size()) != 0) throw socket_error("bind");
  if (::listen(listener.get(), backlog) != 0) throw socket_error("listen");
  return listener;
}

}  // namespace yinet::test
