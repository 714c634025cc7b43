#include "yinet/dns/dns_reply.h"

#include <arpa/inet.h>
#include <gmock/gmock.h>

#include "support/dns_message.h"

namespace yinet {
namespace {

using test::DnsMessage;
using test::kDnsA;
using test::kDnsMx;

DnsMessage reply_about(std::string_view name, std::uint16_t type) {
  return DnsMessage::reply_to({.id = 7, .name = std::string(name), .type = type});
}

TEST(DnsReply, HundredsOfAddressesKeepTheirOrder) {
  DnsMessage message = reply_about("x.test", kDnsA);
  for (int i = 0; i < 600; ++i) message.a("x.test", "10.0." + std::to_string(i / 256) + "." + std::to_string(i % 256));
  DnsRecords records;
  EXPECT_EQ(read_reply(RecordType::a, message.bytes(), records), LookupStatus::found);
  ASSERT_EQ(records.addresses.size(), 600U);
  EXPECT_EQ(records.addresses.front(), htonl(0x0A000000));
  EXPECT_EQ(records.addresses.back(), htonl(0x0A000257));
}

TEST(DnsReply, EveryTruncationIsAServerFailure) {
  const std::string addresses =
      reply_about("www.x.test", kDnsA).cname("www.x.test", "b.x.test").a("b.x.test", "192.0.2.9").bytes();
  const std::string servers =
      reply_about("x.test", kDnsMx).mx("x.test", 20, "a.test").mx("x.test", 9, "b.test").bytes();
  for (const auto& [type, whole] : {std::pair(RecordType::a, addresses), std::pair(RecordType::mx, servers)}) {
    for (std::size_t kept = 0; kept <= whole.size(); ++kept) {
      const std::vector<char> exact(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(kept));
      DnsRecords records;
      EXPECT_EQ(read_reply(type, {exact.data(), exact.size()}, records),
                kept < whole.size() ? LookupStatus::server_failure : LookupStatus::found)
          << kept;
    }
  }
}

TEST(DnsReply, ABadNameInsideTheAnswerIsAServerFailure) {
  std::string reply = reply_about("a.test", kDnsA).a("a.test", "192.0.2.1").bytes();
  const std::size_t answer = reply.size() - 4 - 10 - test::dns_name("a.test").size();
  reply[answer] = '\xC0';  // a name that points at itself
  reply[answer + 1] = static_cast<char>(answer);
  DnsRecords records;
  EXPECT_EQ(read_reply(RecordType::a, reply, records), LookupStatus::server_failure);
}

}  // namespace
}  // namespace yinet
