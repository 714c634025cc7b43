#include "support/ports.h"

#include <arpa/inet.h>
#include <poll.h>
#include <signal.h>
#include <sys/eventfd.h>
#include <sys/un.h>
#include <unistd.h>

#include <stdexcept>
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

FileDescriptor listen_on(const std::string& address, std::uint16_t port, int backlog, int receive_buffer) {
  const SocketAddress target(address, port);
  FileDescriptor listener(::socket(target.get()->sa_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  const int on = 1;
  ::setsockopt(listener.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on));
  if (receive_buffer > 0)  // must come before listen() to reach the accepted sockets
    ::setsockopt(listener.get(), SOL_SOCKET, SO_RCVBUF, &receive_buffer, sizeof(receive_buffer));
  if (::bind(listener.get(), target.get(), target.size()) != 0 || ::listen(listener.get(), backlog) != 0)
    throw std::system_error(errno, std::generic_category(), "listen on " + address);
  return listener;
}

void block_all_signals() {
  sigset_t all;
  sigfillset(&all);
  ::pthread_sigmask(SIG_SETMASK, &all, nullptr);
}

namespace {

constexpr unsigned kLowestPort = 15000;
constexpr unsigned kHighestPort = 32000;  // the kernel's own range begins at 32768

// An address in the abstract namespace is a lock that the kernel takes back with the process and that leaves no file
// behind. All users of the machine share it.
FileDescriptor claim(unsigned port) {
  const std::string name = "yinet-test-port-" + std::to_string(port);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  name.copy(address.sun_path + 1, sizeof(address.sun_path) - 1);  // a leading zero byte: abstract
  FileDescriptor lock(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + name.size());
  if (::bind(lock.get(), reinterpret_cast<const sockaddr*>(&address), size) != 0) lock.close();
  return lock;
}

}  // namespace

ReservedPorts::ReservedPorts(std::size_t count) {
  // Neighbouring processes start far apart, so that they rarely compete for the same numbers.
  const unsigned span = kHighestPort - kLowestPort;
  const unsigned start = static_cast<unsigned>(::getpid()) * 97U;
  for (unsigned step = 0; step < span && claims_.size() < count; ++step) {
    const unsigned port = kLowestPort + (start + step) % span;
    FileDescriptor lock = claim(port);
    const bool is_free = lock.valid() && !port_is_open(static_cast<std::uint16_t>(port));
    if (!is_free || port == kLowestPort) claims_.clear();  // a row doesn't go round the end
    if (!is_free) continue;
    if (claims_.empty()) first_ = port;
    claims_.push_back(std::move(lock));
  }
  if (claims_.size() < count) throw std::runtime_error("no " + std::to_string(count) + " free ports in a row");
}

std::uint16_t refused_port() {
  static const ReservedPorts kept;
  return kept[0];
}

bool port_is_open(std::uint16_t port, const std::string& address) {
  const SocketAddress target(address, port);
  const FileDescriptor probe(::socket(target.get()->sa_family, SOCK_STREAM | SOCK_CLOEXEC, 0));
  return ::connect(probe.get(), target.get(), target.size()) == 0;
}

FullListener::FullListener() : listener_(listen_on("127.0.0.1", 0, 0)) {
  const SocketAddress address("127.0.0.1", port());
  // A queue of length 0 still takes a connection or two; the first one that stays pending fills it.
  for (int i = 0; i < 8; ++i) {
    FileDescriptor& client = waiting_.emplace_back(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    ::connect(client.get(), address.get(), address.size());
    pollfd connected{client.get(), POLLOUT, 0};
    if (::poll(&connected, 1, 200) == 0) return;
  }
  throw std::runtime_error("the queue of a listener did not fill");
}

}  // namespace yinet::test
