#include "support/dns_server.h"

#include <sys/socket.h>
#include <sys/time.h>

#include <array>

#include "support/socket_address.h"

namespace yinet::test {
namespace {

std::string zone_file(const DnsZone& zone) {
  return "$ORIGIN " + zone.domain + ".\n$TTL 60\n@ SOA ns hostmaster 1 3600 900 86400 60\n@ NS ns\nns A 127.0.0.1\n" +
         *zone.records;
}

std::string configuration(const ReservedPorts& ports, const TempDir& folder, const std::vector<DnsZone>& zones) {
  const std::string here = folder.path().string();
  std::string text = "server:\n  listen: 127.0.0.1@" + std::to_string(ports.first()) + "\n  rundir: \"" + here +
                     "\"\n  udp-workers: 1\n  tcp-workers: 1\n  background-workers: 1\n"
                     "log:\n- target: stderr\n  any: info\n"
                     "database:\n  storage: \"" +
                     here +
                     "\"\n"
                     "template:\n- id: default\n  storage: \"" +
                     here +
                     "\"\n  file: \"%s.zone\"\n  zonefile-sync: -1\n  journal-content: none\n"
                     "zone:\n";
  for (const DnsZone& zone : zones) text += "- domain: " + zone.domain + "\n";
  return text;
}

// One query over UDP; empty when there is no answer within 0.2 s.
std::string ask(std::uint16_t port, const std::string& message) {
  const SocketAddress server("127.0.0.1", port);
  const FileDescriptor socket(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  const timeval limit{0, 200'000};
  ::setsockopt(socket.get(), SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof(limit));
  if (::connect(socket.get(), server.get(), server.size()) != 0) return {};
  if (::send(socket.get(), message.data(), message.size(), MSG_NOSIGNAL) < 0) return {};
  std::array<char, 65536> buffer;
  const ssize_t count = ::recv(socket.get(), buffer.data(), buffer.size(), 0);
  return count > 0 ? std::string(buffer.data(), static_cast<std::size_t>(count)) : std::string();
}

// Every zone that has a file must have been loaded; until then they answer "server failure".
bool answers(std::uint16_t port, const std::vector<DnsZone>& zones) {
  for (const DnsZone& zone : zones) {
    const std::string reply = ask(port, DnsMessage::query(1, zone.domain, kDnsSoa).bytes());
    if (reply.empty() || (zone.records && DnsMessage::code_of(reply) != 0)) return false;
  }
  return true;
}

}  // namespace

KnotServer::KnotServer(const std::vector<DnsZone>& zones) {
  for (const DnsZone& zone : zones)
    if (zone.records) folder_.write(zone.domain + ".zone", zone_file(zone));
  ServerSetup setup;
  setup.name = "knotd";
  setup.prepare = [&](const ReservedPorts& ports) {
    ChildOptions child;
    child.argv = {"knotd", "-c", folder_.write("knot.conf", configuration(ports, folder_, zones)).string()};
    return child;
  };
  setup.ready = [&](ChildProcess&, const ReservedPorts& ports) { return answers(ports.first(), zones); };
  server_.emplace(std::move(setup));
}

}  // namespace yinet::test
