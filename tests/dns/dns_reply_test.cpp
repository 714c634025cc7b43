// Names as they are asked for, and answers byte by byte.

#include "yinet/dns/dns_reply.h"

#include <arpa/inet.h>
#include <gmock/gmock.h>

#include "support/dns_message.h"
#include "yinet/dns/dns_names.h"

namespace yinet {
namespace {

using testing::ElementsAre;
using test::DnsMessage;
using test::kDnsA;
using test::kDnsMx;
using namespace std::string_view_literals;

DnsMessage reply_about(std::string_view name, std::uint16_t type) {
  return DnsMessage::reply_to({.id = 7, .name = std::string(name), .type = type});
}

TEST(DottedAddress, IsFourNumbersInNetworkOrderAndNothingElse) {
  EXPECT_EQ(parse_dotted_address("192.0.2.7"), htonl(0xC0000207));
  EXPECT_EQ(parse_dotted_address("255.255.255.255"), 0xFFFFFFFFU);
  for (const std::string_view text : {""sv, "1.2.3"sv, "1.2.3.4.5"sv, "1.2.3.256"sv, "01.2.3.4"sv, " 1.2.3.4"sv,
                                      "0x1.2.3.4"sv, "1.2.3.4."sv, "12345"sv, "::1"sv, "1.2.3.4\0"sv})
    EXPECT_EQ(parse_dotted_address(text), std::nullopt) << text;
}

TEST(AskableName, HasOrdinaryLabelsOfOrdinaryLength) {
  const std::string label(63, 'a');
  const std::string longest = label + "." + label + "." + label + "." + std::string(61, 'a');
  for (const std::string& name : {std::string("_sip.x"), std::string("m\xC3\xBCller.test"), longest, longest + "."})
    EXPECT_TRUE(is_askable_name(name)) << name;
  const std::string too_long = longest + "a", too_long_label = label + "a.test";
  for (const std::string_view name : {""sv, "."sv, "a..b"sv, ".a"sv, "a b"sv, "a\r\nb"sv, "a\0b"sv, "a\\b"sv, "a:53"sv,
                                      "\x7F"sv, std::string_view(too_long_label), std::string_view(too_long)})
    EXPECT_FALSE(is_askable_name(name)) << name;
}

TEST(SearchList, IsForNamesWithFewDotsAndLeavesOutWhatIsTooLong) {
  const std::vector<std::string> domains = {"one.test", std::string(250, 'd'), "two.test"};
  EXPECT_THAT(names_to_ask("www", domains, 1), ElementsAre("www.one.test", "www.two.test", "www"));
  EXPECT_THAT(names_to_ask("www.", domains, 1), ElementsAre("www."));
  EXPECT_THAT(names_to_ask("www.x", domains, 1), ElementsAre("www.x"));
  EXPECT_THAT(names_to_ask("www.x", domains, 2), ElementsAre("www.x.one.test", "www.x.two.test", "www.x"));
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

}  // namespace
}  // namespace yinet
