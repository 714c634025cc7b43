#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <list>
#include <mutex>
#include <stdexcept>
#include <system_error>
#include <thread>

#include "support/bytes.h"
#include "support/dns_server.h"
#include "support/socket_address.h"

namespace yinet::test {
namespace {

// A resolver's TCP connection; queries on it come one after the other.
struct TcpClient {
  FileDescriptor socket;
  std::string received{};  // not yet a whole query
};

// UDP and TCP on the same port: rarely the number that was free for one is taken for the other.
std::pair<FileDescriptor, FileDescriptor> listen_on_both() {
  for (int attempt = 0; attempt < 20; ++attempt) {
    FileDescriptor udp(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    const SocketAddress any("127.0.0.1", 0);
    if (!udp.valid() || ::bind(udp.get(), any.get(), any.size()) != 0)
      throw std::system_error(errno, std::generic_category(), "bind");
    try {
      FileDescriptor listener = listen_on("127.0.0.1", SocketAddress::local_of(udp.get()).port());
      return {std::move(udp), std::move(listener)};
    } catch (const std::system_error&) {
    }
  }
  throw std::runtime_error("no port is free for both UDP and TCP");
}

}  // namespace

struct ScriptedDnsServer::Impl {
  explicit Impl(DnsHandler given) : handler(std::move(given)) { std::tie(udp, listener) = listen_on_both(); }

  void loop();
  void take_udp();
  void accept_client();
  bool take_tcp(TcpClient& client);  // false when the connection is to be dropped
  bool handle(std::string_view bytes, const sockaddr_in& to, TcpClient* client);  // false as above
  void send(std::string bytes, const sockaddr_in& to, const TcpClient* client) const;

  const DnsHandler handler;
  FileDescriptor udp;
  FileDescriptor listener;
  Signal ending;
  std::list<TcpClient> clients;  // belong to the thread

  std::mutex mutex;  // guards what follows
  std::vector<DnsQuery> queries;
  std::string failures;

  std::thread thread;
};

void ScriptedDnsServer::Impl::loop() {
  for (;;) {
    std::vector<pollfd> watched{{ending.descriptor(), POLLIN, 0}, {udp.get(), POLLIN, 0}, {listener.get(), POLLIN, 0}};
    for (const TcpClient& client : clients) watched.push_back({client.socket.get(), POLLIN, 0});
    ::poll(watched.data(), watched.size(), -1);
    if (watched[0].revents != 0) return;
    if (watched[1].revents != 0) take_udp();
    auto event = watched.begin() + 3;
    clients.remove_if([&](TcpClient& client) { return (event++)->revents != 0 && !take_tcp(client); });
    if (watched[2].revents != 0) accept_client();
  }
}

void ScriptedDnsServer::Impl::take_udp() {
  std::array<char, 65536> buffer;
  sockaddr_in from{};
  socklen_t size = sizeof(from);
  const ssize_t count =
      ::recvfrom(udp.get(), buffer.data(), buffer.size(), 0, reinterpret_cast<sockaddr*>(&from), &size);
  if (count >= 0) handle({buffer.data(), static_cast<std::size_t>(count)}, from, nullptr);
}

void ScriptedDnsServer::Impl::accept_client() {
  FileDescriptor socket(::accept4(listener.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
  if (socket.valid()) clients.push_back({std::move(socket)});
}

bool ScriptedDnsServer::Impl::take_tcp(TcpClient& client) {
  std::array<char, 65536> buffer;
  const ssize_t count = ::recv(client.socket.get(), buffer.data(), buffer.size(), 0);
  if (count <= 0) return count < 0 && errno == EAGAIN;
  client.received.append(buffer.data(), static_cast<std::size_t>(count));
  while (client.received.size() >= 2) {
    const std::size_t length = static_cast<unsigned char>(client.received[0]) * std::size_t{256} +
                               static_cast<unsigned char>(client.received[1]);
    if (client.received.size() < 2 + length) break;
    if (!handle(std::string_view(client.received).substr(2, length), {}, &client)) return false;
    client.received.erase(0, 2 + length);
  }
  return true;
}

bool ScriptedDnsServer::Impl::handle(std::string_view bytes, const sockaddr_in& to, TcpClient* client) {
  bool stays = true;
  try {
    const DnsQuery query = parse_dns_query(bytes, client != nullptr);
    {
      const std::lock_guard lock(mutex);
      queries.push_back(query);
    }
    for (const DnsReply& reply : handler(query)) {
      send(reply.bytes, to, client);
      stays = stays && !reply.then_close;
    }
  } catch (const std::exception& error) {
    const std::lock_guard lock(mutex);
    failures += std::string(error.what()) + " at the query \"" + printable(bytes) + "\"\n";
  }
  return stays;
}

// A receiver that is gone has given up waiting: nothing to report.
void ScriptedDnsServer::Impl::send(std::string bytes, const sockaddr_in& to, const TcpClient* client) const {
  if (client == nullptr) {
    ::sendto(udp.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL, reinterpret_cast<const sockaddr*>(&to), sizeof(to));
    return;
  }
  const std::uint16_t size = htons(static_cast<std::uint16_t>(bytes.size()));
  bytes.insert(0, reinterpret_cast<const char*>(&size), sizeof(size));
  ::send(client->socket.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
}

ScriptedDnsServer::ScriptedDnsServer(DnsHandler handler) : impl_(std::make_unique<Impl>(std::move(handler))) {
  impl_->thread = std::thread([impl = impl_.get()] {
    sigset_t all;
    sigfillset(&all);
    ::pthread_sigmask(SIG_SETMASK, &all, nullptr);
    impl->loop();
  });
}

ScriptedDnsServer::~ScriptedDnsServer() {
  impl_->ending.set();
  impl_->thread.join();
  if (!impl_->failures.empty()) ADD_FAILURE() << "scripted DNS server: " << impl_->failures;
}

std::uint16_t ScriptedDnsServer::port() const { return SocketAddress::local_of(impl_->udp.get()).port(); }

std::vector<DnsQuery> ScriptedDnsServer::queries() const {
  const std::lock_guard lock(impl_->mutex);
  return impl_->queries;
}

// ---------------------------------------------------------------- handlers

namespace {

DnsMessage address_for(const DnsQuery& query) { return DnsMessage::reply_to(query).a(query.name, "192.0.2.7"); }

}  // namespace

DnsHandler ScriptedDnsServer::silent() {
  return [](const DnsQuery&) { return std::vector<DnsReply>(); };
}

DnsHandler ScriptedDnsServer::always(std::function<DnsMessage(const DnsQuery&)> reply) {
  return [reply = std::move(reply)](const DnsQuery& query) {
    return std::vector<DnsReply>{{reply(query).bytes()}};
  };
}

DnsHandler ScriptedDnsServer::wrong_id() {
  return always([](const DnsQuery& query) { return address_for(query).id(static_cast<std::uint16_t>(query.id + 1)); });
}

DnsHandler ScriptedDnsServer::cut(std::size_t kept) {
  return [kept](const DnsQuery& query) { return std::vector<DnsReply>{{address_for(query).bytes().substr(0, kept)}}; };
}

DnsHandler ScriptedDnsServer::truncated_on_udp() {
  return always([](const DnsQuery& query) {
    return query.over_tcp ? address_for(query) : DnsMessage::reply_to(query).truncated();
  });
}

DnsHandler ScriptedDnsServer::cname_loop() {
  return always([](const DnsQuery& query) {
    const std::string next = "loop." + query.name;
    return DnsMessage::reply_to(query).cname(query.name, next).cname(next, query.name);
  });
}

DnsHandler ScriptedDnsServer::cname_only() {
  return always([](const DnsQuery& query) { return DnsMessage::reply_to(query).cname(query.name, "elsewhere.test"); });
}

}  // namespace yinet::test
