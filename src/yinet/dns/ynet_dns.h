#pragma once

#include <cstdint>
#include <memory>

#include "yinet/host/export.h"
#include "yinet/host/yobject.h"
#include "yinet/host/ystring.h"

namespace yinet {
struct DnsRecords;
enum class RecordType : unsigned short;
}  // namespace yinet

// Finds the IPv4 address of a host and the mail servers of a domain. Every lookup asks a server, never a cache; which
// servers, how often and how long is the business of the settings "DNS"/... (yinet/host/setting_table.h).
//
// Has no fields: all objects are alike, and any number of threads may use one at the same time. A call blocks for at
// most the settable limit. Failures are raised as messages: 21500 when the resolver cannot be set up, 21502 with the
// name and the status number of the platform's DNS service otherwise. Nothing is thrown.
class YINET_API YnetDNS_Class {
 public:
  // The address in network byte order, 0 when there is none. A dotted address is its own answer, "localhost" is
  // 127.0.0.1, then the hosts file counts, then the servers; names of one label go through the system's search list. When
  // an answer holds several addresses, the last one counts.
  std::uint32_t GetIPAdressForDomain(const YString& domain) const noexcept;  // (sic)

  // Records with "SERVER" (text) and "PRIO" (integer), lowest preference first, equal ones in the order of the answer.
  // Empty when there are none.
  YObjectArray GetMailServerForDomain(const YString& domain) const noexcept;

 private:
  // The records of the answer; null after a failure, which has been raised.
  static std::unique_ptr<yinet::DnsRecords> GetServerForDomain(const YString& domain, yinet::RecordType type);
};
YINET_API extern YnetDNS_Class YInetDNS;
