#include "support/dns_server.h"

#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>

#include <array>
#include <system_error>

#include "support/bytes.h"
#include "support/socket_address.h"

namespace yinet::test {
namespace {

std::string configuration(std::uint16_t port, const std::string& folder, const std::vector<DnsZone>& zones) {
  std::string text = "server:\n  listen: 127.0.0.1@" + std::to_string(port) + "\n  rundir: \"" + folder +
                     "\"\n  udp-workers: 1\n  tcp-workers: 1\n  background-workers: 1\n"
                     "log:\n- target: stderr\n  any: info\n"
                     "database:\n  storage: \"" +
                     folder + "\"\ntemplate:\n- id: default\n  storage: \"" + folder +
                     "\"\n  file: \"%s.zone\"\n  zonefile-sync: -1\n  journal-content: none\nzone:\n";
  for (const DnsZone& zone : zones) text += "- domain: " + zone.domain + "\n";
  return text;
}

// The response code to one query over UDP; empty when there is no answer within 0.2 s.
std::optional<int> ask(std::uint16_t port, const std::string& domain) {
  const SocketAddress server("127.0.0.1", port);
  const FileDescriptor socket(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  const std::string message = DnsMessage::query({.id = 1, .name = domain, .type = kDnsSoa}).bytes();
  if (::connect(socket.get(), server.get(), server.size()) != 0) return {};
  if (::send(socket.get(), message.data(), message.size(), MSG_NOSIGNAL) < 0) return {};
  pollfd answered{socket.get(), POLLIN, 0};
  std::array<char, 4> start{};
  if (::poll(&answered, 1, 200) != 1 || ::recv(socket.get(), start.data(), start.size(), 0) != 4) return {};
  return start[3] & 15;
}

}  // namespace

KnotServer::KnotServer(const std::vector<DnsZone>& zones) {
  for (const DnsZone& zone : zones)
    if (zone.records)
      folder_.write(zone.domain + ".zone", "$ORIGIN " + zone.domain + ".\n$TTL 60\n@ SOA ns hostmaster 1 3600 900 86400 60\n"
                                           "@ NS ns\nns A 127.0.0.1\n" + *zone.records);
  ServerSetup setup;
  setup.name = "knotd";
  setup.prepare = [&](const ReservedPorts& ports) {
    const std::string text = configuration(ports.first(), folder_.path().string(), zones);
    return ChildOptions{.argv = {"knotd", "-c", folder_.write("knot.conf", text).string()}};
  };
  // Every zone that has a file must have been loaded; until then they answer "server failure".
  setup.ready = [&](ChildProcess&, const ReservedPorts& ports) {
    return std::all_of(zones.begin(), zones.end(), [&](const DnsZone& zone) {
      const std::optional<int> code = ask(ports.first(), zone.domain);
      return code && (!zone.records || *code == 0);
    });
  };
  server_.emplace(setup);
}

ScriptedDnsServer::ScriptedDnsServer(DnsHandler handler)
    : handler_(std::move(handler)), socket_(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
  const SocketAddress any("127.0.0.1", 0);
  if (::bind(socket_.get(), any.get(), any.size()) != 0) throw std::system_error(errno, std::generic_category(), "bind");
  target_ = SocketAddress::local_of(socket_.get()).text();
  thread_ = std::thread([this] {
    block_all_signals();
    serve();
  });
}

ScriptedDnsServer::~ScriptedDnsServer() {
  ending_.set();
  thread_.join();
}

std::vector<DnsQuery> ScriptedDnsServer::queries() const {
  const std::lock_guard lock(mutex_);
  return queries_;
}

void ScriptedDnsServer::serve() {
  for (;;) {
    std::array<pollfd, 2> watched{{{socket_.get(), POLLIN, 0}, {ending_.descriptor(), POLLIN, 0}}};
    ::poll(watched.data(), watched.size(), -1);  // ends with the object
    if (watched[1].revents != 0) return;
    std::array<char, 65536> buffer;
    sockaddr_in from{};
    socklen_t size = sizeof(from);
    auto* const sender = reinterpret_cast<sockaddr*>(&from);
    const ssize_t count = ::recvfrom(socket_.get(), buffer.data(), buffer.size(), 0, sender, &size);
    if (count < 0) continue;  // what an earlier reply has met
    const std::string_view bytes(buffer.data(), static_cast<std::size_t>(count));
    try {
      const DnsQuery query = parse_dns_query(bytes);
      {
        const std::lock_guard lock(mutex_);
        queries_.push_back(query);
      }
      const std::string reply = handler_(query);
      if (!reply.empty()) ::sendto(socket_.get(), reply.data(), reply.size(), MSG_NOSIGNAL, sender, size);
    } catch (const std::exception& error) {
      ADD_FAILURE() << error.what() << " at the query " << printable(bytes);
    }
  }
}

}  // namespace yinet::test
