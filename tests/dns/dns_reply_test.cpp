#include "yinet/dns/dns_reply.h"

#include <ares.h>
#include <arpa/inet.h>
#include <gmock/gmock.h>

#include "support/dns_message.h"

namespace yinet {
namespace {

using test::dns_name;
using test::DnsMessage;
using test::kDnsA;
using test::kDnsMx;
using testing::ElementsAre;

DnsMessage reply_about(std::string_view name, std::uint16_t type) {
  return DnsMessage::reply_to({.id = 7, .name = std::string(name), .type = type});
}

std::string alias_with_two_addresses() {
  return reply_about("www.x.test", kDnsA)
      .cname("www.x.test", "a.x.test")
      .cname("a.x.test", "b.x.test")
      .a("b.x.test", "192.0.2.9")
      .a("b.x.test", "192.0.2.1")
      .bytes();
}

std::string three_mail_servers() {
  return reply_about("x.test", kDnsMx)
      .mx("x.test", 20, "slow.x.test")
      .mx("x.test", 10, "fast.x.test")
      .mx("x.test", 65535, "last.x.test")
      .bytes();
}

TEST(DnsReply, AddressesKeepTheOrderOfTheAnswer) {
  DnsRecords records;
  EXPECT_EQ(read_reply(RecordType::a, alias_with_two_addresses(), records), LookupStatus::found);
  EXPECT_THAT(records.addresses, ElementsAre(htonl(0xC0000209), htonl(0xC0000201)));
}

TEST(DnsReply, MailServersKeepTheOrderOfTheAnswer) {
  DnsRecords records;
  EXPECT_EQ(read_reply(RecordType::mx, three_mail_servers(), records), LookupStatus::found);
  ASSERT_EQ(records.mail_servers.size(), 3U);
  EXPECT_EQ(records.mail_servers[0].name, "slow.x.test");
  EXPECT_EQ(records.mail_servers[1].preference, 10);
  EXPECT_EQ(records.mail_servers[2].preference, 65535);
}

TEST(DnsReply, HundredsOfAddressesAllCount) {
  DnsMessage message = reply_about("x.test", kDnsA);
  for (int i = 0; i < 600; ++i) message.a("x.test", "10.0." + std::to_string(i / 256) + "." + std::to_string(i % 256));
  DnsRecords records;
  EXPECT_EQ(read_reply(RecordType::a, message.bytes(), records), LookupStatus::found);
  ASSERT_EQ(records.addresses.size(), 600U);
  EXPECT_EQ(records.addresses.back(), htonl(0x0A000257));
}

TEST(DnsReply, AnswersWithoutSuchARecordHaveNoRecords) {
  DnsRecords records;
  const std::string loop = reply_about("a.test", kDnsA).cname("a.test", "b.test").cname("b.test", "a.test").bytes();
  EXPECT_EQ(read_reply(RecordType::a, loop, records), LookupStatus::no_records);
  const std::string alias = reply_about("a.test", kDnsMx).cname("a.test", "b.test").bytes();
  EXPECT_EQ(read_reply(RecordType::mx, alias, records), LookupStatus::no_records);
  EXPECT_EQ(read_reply(RecordType::a, reply_about("a.test", kDnsA).bytes(), records), LookupStatus::no_records);
}

TEST(DnsReply, EveryTruncationIsAServerFailure) {
  for (const auto& [type, whole] :
       {std::pair(RecordType::a, alias_with_two_addresses()), std::pair(RecordType::mx, three_mail_servers())}) {
    for (std::size_t kept = 0; kept < whole.size(); ++kept) {
      const std::vector<char> exact(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(kept));
      DnsRecords records;
      EXPECT_EQ(read_reply(type, {exact.data(), exact.size()}, records), LookupStatus::server_failure) << kept;
    }
  }
}

TEST(DnsReply, ANameThatPointsAtItselfIsAServerFailure) {
  std::string reply = reply_about("a.test", kDnsA).a("a.test", "192.0.2.1").bytes();
  const std::size_t answer = reply.size() - 4 - 10 - dns_name("a.test").size();
  reply[answer] = '\xC0';
  reply[answer + 1] = static_cast<char>(answer);
  DnsRecords records;
  EXPECT_EQ(read_reply(RecordType::a, reply, records), LookupStatus::server_failure);
}

TEST(DnsReply, StatusNumbersAreThePlatforms) {
  for (const auto& [library, platform] :
       {std::pair(ARES_ENOTFOUND, 9003), std::pair(ARES_ENODATA, 9501), std::pair(ARES_ESERVFAIL, 9002),
        std::pair(ARES_EREFUSED, 9005), std::pair(ARES_ETIMEOUT, 1460), std::pair(ARES_EBADNAME, 123),
        std::pair(ARES_EFORMERR, 9002), std::pair(ARES_ECONNREFUSED, 9002)})
    EXPECT_EQ(static_cast<int>(status_from_ares(library)), platform) << library;
}

}  // namespace
}  // namespace yinet
