// DNS on loopback: a real server with zones of the test's own, and one that answers as a test says (RFC 1035).
#pragma once

#include <mutex>

#include "support/servers.h"

namespace yinet::test {

inline constexpr std::uint16_t kDnsA = 1;
inline constexpr std::uint16_t kDnsMx = 15;

// A query as a server sees it.
struct DnsQuery {
  std::uint16_t id = 0;
  std::string name = {};  // of the first question, with dots between the labels and none at the end
  std::uint16_t type = 0;
};

struct DnsRecord {
  std::string name;
  std::uint16_t type;
  std::string data;
};
DnsRecord a_record(const std::string& name, const std::string& address);
DnsRecord cname_record(const std::string& name, const std::string& target);
DnsRecord mx_record(const std::string& name, std::uint16_t preference, const std::string& exchange);

inline constexpr unsigned kDnsTruncated = 0x200;
// `flags` hold the response code: 2 server failure, 3 no such name ... Names go out uncompressed, nothing is checked or cut.
std::string dns_reply(const DnsQuery& query, const std::vector<DnsRecord>& answers = {}, unsigned flags = 0);

struct DnsZone {
  std::string domain;                  // "x.test"
  std::optional<std::string> records;  // lines below SOA and NS; absent: the zone fails (server failure)
};

// Knot DNS, authoritative for the given zones and nothing else: other names are refused.
class KnotServer : public ServerProcess {
 public:
  explicit KnotServer(const std::vector<DnsZone>& zones);
};

// The bytes of the reply, or none at all for silence. Called on the server's thread, for one query at a time.
using DnsHandler = std::function<std::string(const DnsQuery&)>;

// Answers on a free UDP port of 127.0.0.1; over TCP it refuses.
class ScriptedDnsServer {
 public:
  explicit ScriptedDnsServer(DnsHandler handler);
  ScriptedDnsServer(const ScriptedDnsServer&) = delete;
  ScriptedDnsServer& operator=(const ScriptedDnsServer&) = delete;
  ~ScriptedDnsServer();

  [[nodiscard]] std::string target() const { return "127.0.0.1:" + std::to_string(local_port(socket_.get())); }
  [[nodiscard]] std::vector<DnsQuery> queries() const;  // so far, in the order of their arrival

 private:
  void serve();
  const DnsHandler handler_;
  FileDescriptor socket_;
  Signal ending_;
  mutable std::mutex mutex_;
  std::vector<DnsQuery> queries_;  // guarded by the mutex
  std::thread thread_;
};

}  // namespace yinet::test
