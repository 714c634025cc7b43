// DNS servers on loopback: a real one with zones of the test's own, and one that answers as a test says.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "support/dns_message.h"
#include "support/server_process.h"
#include "support/temp_dir.h"

namespace yinet::test {

struct DnsZone {
  std::string domain;                  // "x.test"
  std::optional<std::string> records;  // lines below SOA and NS; absent: the zone fails (server failure)
};

// Knot DNS, authoritative for the given zones and nothing else: other names are refused. UDP and TCP.
// Tests need YINET_REQUIRE_PROGRAM("knotd").
//   KnotServer dns({{"x.test", "www A 192.0.2.1\n@ MX 10 mail\n"}});
class KnotServer {
 public:
  explicit KnotServer(const std::vector<DnsZone>& zones);

  [[nodiscard]] std::uint16_t port() const { return server_->port(); }
  [[nodiscard]] std::string target() const { return "127.0.0.1:" + std::to_string(port()); }

 private:
  TempDir folder_{"knot"};
  std::optional<ServerProcess> server_;
};

// One message from a ScriptedDnsServer.
struct DnsReply {
  std::string bytes;
  bool then_close = false;  // ends the TCP connection
};

// Called on the server's thread, for one query at a time. No reply at all is silence.
using DnsHandler = std::function<std::vector<DnsReply>(const DnsQuery&)>;

// Answers on a free port of 127.0.0.1, UDP and TCP alike. Bytes that
// can't be read as a query, and exceptions of the handler, become failures of the test at its end.
class ScriptedDnsServer {
 public:
  explicit ScriptedDnsServer(DnsHandler handler);
  ScriptedDnsServer(const ScriptedDnsServer&) = delete;
  ScriptedDnsServer& operator=(const ScriptedDnsServer&) = delete;
  ~ScriptedDnsServer();

  [[nodiscard]] std::uint16_t port() const;
  [[nodiscard]] std::string target() const { return "127.0.0.1:" + std::to_string(port()); }
  [[nodiscard]] std::vector<DnsQuery> queries() const;  // so far, in the order of their arrival

  // Handlers for the usual lies.
  static DnsHandler silent();
  static DnsHandler always(std::function<DnsMessage(const DnsQuery&)> reply);
  static DnsHandler wrong_id();             // an address, under another id
  static DnsHandler cut(std::size_t kept);  // an address, of which only so many bytes come
  static DnsHandler truncated_on_udp();     // TC over UDP, 192.0.2.7 over TCP
  static DnsHandler cname_loop();           // NAME -> loop.NAME -> NAME
  static DnsHandler cname_only();           // NAME -> elsewhere.test, and no address

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace yinet::test
