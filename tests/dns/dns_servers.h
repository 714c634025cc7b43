// DNS on loopback: a real server with zones of the test's own, and one that answers as a test says (RFC 1035).
#pragma once

#include <arpa/inet.h>
#include <poll.h>

#include <array>
#include <mutex>
#include <sstream>
#include <system_error>

#include "support/servers.h"

namespace yinet::test {

inline constexpr std::uint16_t kDnsA = 1;
inline constexpr std::uint16_t kDnsMx = 15;

struct DnsQuery {
  std::uint16_t id = 0;
  std::string name = {};  // of the first question, with dots between the labels and none at the end
  std::uint16_t type = 0;
};

inline std::string two_bytes(unsigned number) {
  return {static_cast<char>(number >> 8 & 0xFF), static_cast<char>(number & 0xFF)};
}
inline const std::string kInternet = two_bytes(1);

inline unsigned byte_at(std::string_view bytes, std::size_t at) { return static_cast<unsigned char>(bytes.at(at)); }

// A query with no readable question ends the test program: only the library asks here.
inline DnsQuery parse(std::string_view bytes) {
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
inline std::string labels(const std::string& dotted) {
  std::string result;
  std::istringstream names(dotted);
  for (std::string label; std::getline(names, label, '.');) result += static_cast<char>(label.size()) + label;
  return result + '\0';
}

struct DnsRecord {
  std::string name;
  std::uint16_t type;
  std::string data;
};

inline DnsRecord a_record(const std::string& name, const std::string& address) {
  const in_addr number{::inet_addr(address.c_str())};
  return {name, kDnsA, {reinterpret_cast<const char*>(&number), sizeof(number)}};
}

inline DnsRecord mx_record(const std::string& name, std::uint16_t preference, const std::string& exchange) {
  return {name, kDnsMx, two_bytes(preference) + labels(exchange)};
}

inline constexpr unsigned kDnsTruncated = 0x200;
// `flags` hold the response code: 2 server failure, 3 no such name ... Names go out uncompressed, nothing is checked or cut.
inline std::string dns_reply(const DnsQuery& query, const std::vector<DnsRecord>& answers = {}, unsigned flags = 0) {
  std::string bytes = two_bytes(query.id) + two_bytes(0x8180 | flags) + two_bytes(1) +
                      two_bytes(static_cast<unsigned>(answers.size())) + std::string(4, '\0') + labels(query.name) +
                      two_bytes(query.type) + kInternet;
  const std::string seconds_to_live = two_bytes(0) + two_bytes(60);
  for (const auto& [name, type, data] : answers)
    bytes += labels(name) + two_bytes(type) + kInternet + seconds_to_live +
             two_bytes(static_cast<unsigned>(data.size())) + data;
  return bytes;
}

struct DnsZone {
  std::string domain;                  // "x.test"
  std::optional<std::string> records;  // lines below SOA and NS; absent: the zone fails (server failure)
};

// Knot DNS, authoritative for the given zones and nothing else: other names are refused.
class KnotServer : public ServerProcess {
 public:
  explicit KnotServer(const std::vector<DnsZone>& zones) : ServerProcess("knot") {
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
};

// The bytes of the reply, or none at all for silence. Called on the server's thread, for one query at a time.
using DnsHandler = std::function<std::string(const DnsQuery&)>;

// Answers on a free UDP port of 127.0.0.1; over TCP it refuses.
class ScriptedDnsServer {
 public:
  explicit ScriptedDnsServer(DnsHandler handler)
      : handler_(std::move(handler)), socket_(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
    const SocketAddress any("127.0.0.1", 0);
    if (::bind(socket_.get(), any.get(), any.size()) != 0)
      throw std::system_error(errno, std::generic_category(), "bind");
    thread_ = std::jthread([this] { serve(); });
  }
  ~ScriptedDnsServer() { ending_.set(); }

  [[nodiscard]] std::string target() const { return "127.0.0.1:" + std::to_string(local_port(socket_.get())); }
  [[nodiscard]] std::vector<DnsQuery> queries() const {  // so far, in the order of their arrival
    const std::lock_guard lock(mutex_);
    return queries_;
  }

 private:
  void serve() {
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

  const DnsHandler handler_;
  FileDescriptor socket_;
  Signal ending_;
  mutable std::mutex mutex_;
  std::vector<DnsQuery> queries_;  // guarded by the mutex
  std::jthread thread_;
};

}  // namespace yinet::test
