#include "support/ports.h"

#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstddef>
#include <mutex>
#include <stdexcept>
#include <system_error>

#include "support/socket_address.h"

namespace yinet::test {
namespace {

constexpr int kLowestPort = 15000;
constexpr int kHighestPort = 32000;  // the kernel's own range begins at 32768

// An address in the abstract namespace is a lock that the kernel takes back with the process and that
// leaves no file behind. All users of the machine share it.
FileDescriptor claim(int port) {
  const std::string name = "yinet-test-port-" + std::to_string(port);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  name.copy(address.sun_path + 1, sizeof(address.sun_path) - 1);  // a leading zero byte: abstract
  FileDescriptor lock(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  if (!lock.valid()) throw std::system_error(errno, std::generic_category(), "socket");
  const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + name.size());
  if (::bind(lock.get(), reinterpret_cast<const sockaddr*>(&address), size) != 0) lock.close();
  return lock;
}

// Any result but "in use" counts as free: IPv6 may be switched off.
bool nobody_listens(int port, const char* host) {
  const SocketAddress address(host, static_cast<std::uint16_t>(port));
  const FileDescriptor probe(::socket(address.family(), SOCK_STREAM | SOCK_CLOEXEC, 0));
  if (!probe.valid()) return true;
  return ::bind(probe.get(), address.get(), address.size()) == 0 || errno != EADDRINUSE;
}

// Neighbouring processes start far apart, so that they rarely compete for the same numbers.
int next_candidate(std::size_t count) {
  static std::atomic<unsigned> steps{0};
  const unsigned span = kHighestPort - kLowestPort - static_cast<unsigned>(count);
  const unsigned start = static_cast<unsigned>(::getpid()) * 97U;
  return kLowestPort + static_cast<int>((start + steps.fetch_add(static_cast<unsigned>(count))) % span);
}

std::vector<FileDescriptor> claim_row(int first, std::size_t count) {
  std::vector<FileDescriptor> claims;
  for (std::size_t i = 0; i < count; ++i) {
    const int port = first + static_cast<int>(i);
    FileDescriptor lock = claim(port);
    if (!lock.valid() || !nobody_listens(port, "127.0.0.1") || !nobody_listens(port, "::1")) return {};
    claims.push_back(std::move(lock));
  }
  return claims;
}

}  // namespace

ReservedPorts::ReservedPorts(std::size_t count) {
  for (int attempt = 0; attempt < kHighestPort - kLowestPort; ++attempt) {
    const int candidate = next_candidate(count);
    claims_ = claim_row(candidate, count);
    if (claims_.size() != count) continue;
    first_ = static_cast<std::uint16_t>(candidate);
    return;
  }
  throw std::runtime_error("no " + std::to_string(count) + " free ports in a row");
}

std::uint16_t refused_port() {
  static std::mutex mutex;
  static std::vector<ReservedPorts> kept;
  const std::lock_guard lock(mutex);
  return kept.emplace_back(ReservedPorts()).first();
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
    FileDescriptor client(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    ::connect(client.get(), address.get(), address.size());
    waiting_.push_back(std::move(client));
    pollfd connected{waiting_.back().get(), POLLOUT, 0};
    if (::poll(&connected, 1, 200) == 0) return;
  }
  throw std::runtime_error("the queue of a listener did not fill");
}

}  // namespace yinet::test
