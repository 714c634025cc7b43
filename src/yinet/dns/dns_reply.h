#pragma once

// Answers of DNS servers, from their bytes to records. Does no I/O; safe from several threads.

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace yinet {

enum class RecordType : unsigned short { a = 1, mx = 15 };

// How a lookup ended, by the numbers of the original platform's DNS service: scripts compare them.
enum class LookupStatus : int {
  found = 0,
  bad_name = 123,
  timed_out = 1460,
  server_failure = 9002,
  no_such_name = 9003,
  refused = 9005,
  no_records = 9501,
};

// The status for a result code of the resolver library; whatever has no row is a server failure.
LookupStatus status_from_ares(int ares_status);

struct MailServer {
  std::string name;
  int preference = 0;  // 16 bits, lowest first
};

// Records in the order of the answer; only those of the type that was asked for.
struct DnsRecords {
  std::vector<std::uint32_t> addresses;  // network byte order
  std::vector<MailServer> mail_servers;
};

// Reads an answer to a question of that type into `records`. An answer that holds other records only, such as an alias
// that leads nowhere, has no_records; a cut or contradictory one is a server failure.
LookupStatus read_reply(RecordType type, std::string_view reply, DnsRecords& records);

}  // namespace yinet
