#include "support/dns_server.h"

#include <arpa/inet.h>
#include <poll.h>

#include <array>
#include <sstream>
#include <system_error>

namespace yinet::test {
namespace {

std::string two_bytes(unsigned number) {
  return {static_cast<char>(number >> 8 & 0xFF), static_cast<char>(number & 0xFF)};
}
const std::string kInternet = two_bytes(1);

unsigned byte_at(std::string_view bytes, std::size_t at) { return static_cast<unsigned char>(bytes.at(at)); }

// A query with no readable question ends the test program: only the library asks here.
DnsQuery parse(std::string_view bytes) {
  const auto number_at = [&](std::size_t at) {
    return static_cast<std::uint16_t>(byte_at(bytes, at) << 8 | byte_at(bytes, at + 1));
  };
  DnsQuery query{.id = number_at(0)};
  std::size_t at = 12;  // behind the header
  for (std::size_t length = 0; (length = byte_at(bytes, at)) != 0; at += 1 + length)
    query.name.append(query.name.empty() ? "" : ".").append(bytes.substr(at + 1, length));
  query.type = number_at(at + 1);
  return query;
}

// "mail.x.test" or "mail.x.test." as labels with their lengths.
std::string labels(const std::string& dotted) {
  std::string result;
  std::istringstream names(dotted);
  for (std::string label; std::getline(names, label, '.');) result += static_cast<char>(label.size()) + label;
  return result + '\0';
}

}  // namespace

DnsRecord a_record(const std::string& name, const std::string& address) {
  const in_addr number{::inet_addr(address.c_str())};
  return {name, kDnsA, {reinterpret_cast<const char*>(&number), sizeof(number)}};
}

DnsRecord cname_record(const std::string& name, const std::string& target) { return {name, 5, labels(target)}; }

DnsRecord mx_record(const std::string& name, std::uint16_t preference, const std::string& exchange) {
  return {name, kDnsMx, two_bytes(preference) + labels(exchange)};
}

std::string dns_reply(const DnsQuery& query, const std::vector<DnsRecord>& answers, unsigned flags) {
  std::string bytes = two_bytes(query.id) + two_bytes(0x8180 | flags) + two_bytes(1) +
                      two_bytes(static_cast<unsigned>(answers.size())) + std::string(4, '\0') + labels(query.name) +
                      two_bytes(query.type) + kInternet;
  const std::string seconds_to_live = two_bytes(0) + two_bytes(60);
  for (const auto& [name, type, data] : answers)
    bytes += labels(name) + two_bytes(type) + kInternet + seconds_to_live +
             two_bytes(static_cast<unsigned>(data.size())) + data;
  return bytes;
}

KnotServer::KnotServer(const std::vector<DnsZone>& zones) : ServerProcess("knot") {
  std::string domains;
  for (const DnsZone& zone : zones) {
    domains += "- domain: " + zone.domain + "\n";
    const std::string head = "$TTL 60\n@ SOA ns hostmaster 1 3600 900 86400 60\n@ NS ns\nns A 127.0.0.1\n";
    if (zone.records) folder_.write(zone.domain + ".zone", head + *zone.records);
  }
  // It starts to answer when all zones are loaded or have failed.
  start({.command = "knotd -c {CONFIG}",
         .configuration =
             "server:\n  listen: 127.0.0.1@{PORT}\n  rundir: \"{DIR}\"\n  udp-workers: 1\n  tcp-workers: 1\n"
             "  background-workers: 1\nlog:\n- target: stderr\n  any: info\ndatabase:\n  storage: \"{DIR}\"\n"
             "template:\n- id: default\n  storage: \"{DIR}\"\n  file: \"%s.zone\"\n  zonefile-sync: -1\n"
             "  journal-content: none\nzone:\n" +
             domains,
         .says = "server started"});
}

ScriptedDnsServer::ScriptedDnsServer(DnsHandler handler)
    : handler_(std::move(handler)), socket_(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
  const SocketAddress any("127.0.0.1", 0);
  if (::bind(socket_.get(), any.get(), any.size()) != 0)
    throw std::system_error(errno, std::generic_category(), "bind");
  thread_ = std::thread([this] { serve(); });
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
    sockaddr_storage from{};
    socklen_t size = sizeof(from);
    auto* const sender = reinterpret_cast<sockaddr*>(&from);
    const ssize_t count = ::recvfrom(socket_.get(), buffer.data(), buffer.size(), 0, sender, &size);
    if (count < 0) continue;  // what an earlier reply has met
    const std::string_view bytes(buffer.data(), static_cast<std::size_t>(count));
    const DnsQuery query = parse(bytes);
    {
      const std::lock_guard lock(mutex_);
      queries_.push_back(query);
    }
    const std::string reply = handler_(query);
    if (!reply.empty()) ::sendto(socket_.get(), reply.data(), reply.size(), MSG_NOSIGNAL, sender, size);
  }
}

}  // namespace yinet::test
