// DNS servers on loopback: a real one with zones of the test's own, and one that answers as a test says.
#pragma once

#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
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

  [[nodiscard]] std::string target() const { return "127.0.0.1:" + std::to_string(server_->port()); }

 private:
  TempDir folder_{"knot"};
  std::optional<ServerProcess> server_;
};

// The bytes of the reply, or none at all for silence. Called on the server's thread, for one query at a time.
using DnsHandler = std::function<std::string(const DnsQuery&)>;

// Answers on a free UDP port of 127.0.0.1; over TCP it refuses. Bytes that can't be read as a query, and exceptions of
// the handler, become failures of the test.
class ScriptedDnsServer {
 public:
  explicit ScriptedDnsServer(DnsHandler handler);
  ScriptedDnsServer(const ScriptedDnsServer&) = delete;
  ScriptedDnsServer& operator=(const ScriptedDnsServer&) = delete;
  ~ScriptedDnsServer();

  [[nodiscard]] std::string target() const { return target_; }
  [[nodiscard]] std::vector<DnsQuery> queries() const;  // so far, in the order of their arrival

 private:
  void serve();
  const DnsHandler handler_;
  FileDescriptor socket_;
  std::string target_;
  Signal ending_;
  mutable std::mutex mutex_;
  std::vector<DnsQuery> queries_;  // guarded by the mutex
  std::thread thread_;
};

}  // namespace yinet::test
