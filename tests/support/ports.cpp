#include "support/ports.h"

#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <mutex>
#include <stdexcept>

#include "support/socket_address.h"

namespace yinet::test {
namespace {

constexpr unsigned kLowestPort = 15000;
constexpr unsigned kHighestPort = 32000;  // the kernel's own range begins at 32768

// An address in the abstract namespace is a lock that the kernel takes back with the process and that
// leaves no file behind. All users of the machine share it.
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

// Any result but "in use" counts as free: IPv6 may be switched off.
bool nobody_listens(unsigned port, const char* host) {
  const SocketAddress address(host, static_cast<std::uint16_t>(port));
  const FileDescriptor probe(::socket(address.family(), SOCK_STREAM | SOCK_CLOEXEC, 0));
  return ::bind(probe.get(), address.get(), address.size()) == 0 || errno != EADDRINUSE;
}

}  // namespace

ReservedPorts::ReservedPorts(std::size_t count) {
  // Neighbouring processes start far apart, so that they rarely compete for the same numbers.
  const unsigned span = kHighestPort - kLowestPort;
  const unsigned start = static_cast<unsigned>(::getpid()) * 97U;
  for (unsigned step = 0; step < span && claims_.size() < count; ++step) {
    const unsigned port = kLowestPort + (start + step) % span;
    FileDescriptor lock = claim(port);
    const bool is_free = lock.valid() && nobody_listens(port, "127.0.0.1") && nobody_listens(port, "::1");
    if (!is_free || port == kLowestPort) claims_.clear();  // a row doesn't go round the end
    if (!is_free) continue;
    if (claims_.empty()) first_ = static_cast<std::uint16_t>(port);
    claims_.push_back(std::move(lock));
  }
  if (claims_.size() < count) throw std::runtime_error("no " + std::to_string(count) + " free ports in a row");
}

std::uint16_t refused_port() {
  static std::mutex mutex;
  static std::vector<ReservedPorts> kept;
  const std::lock_guard lock(mutex);
  return kept.emplace_back().first();
}

bool port_is_open(std::uint16_t port, const std::string& address) {
  const SocketAddress target(address, port);
  const FileDescriptor probe(::socket(target.family(), SOCK_STREAM | SOCK_CLOEXEC, 0));
  return probe.valid() && ::connect(probe.get(), target.get(), target.size()) == 0;
}

FullListener::FullListener() {
  listener_ = listen_on("127.0.0.1", 0, 0);
  const SocketAddress address = SocketAddress::local_of(listener_.get());
  port_ = address.port();
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
