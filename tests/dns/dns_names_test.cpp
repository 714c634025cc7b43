#include "yinet/dns/dns_names.h"

#include <arpa/inet.h>
#include <gmock/gmock.h>

namespace yinet {
namespace {

using testing::ElementsAre;
using namespace std::string_view_literals;

TEST(DottedAddress, IsFourNumbersInNetworkOrder) {
  EXPECT_EQ(parse_dotted_address("192.0.2.7"), htonl(0xC0000207));
  EXPECT_EQ(parse_dotted_address("255.255.255.255"), 0xFFFFFFFFU);
  EXPECT_EQ(parse_dotted_address("0.0.0.0"), 0U);
}

TEST(DottedAddress, IsNothingElse) {
  for (const std::string_view text : {"", "1.2.3", "1.2.3.4.5", "1.2.3.256", "1.2.3.-4", "01.2.3.4", " 1.2.3.4",
                                      "1.2.3.4 ", "0x1.2.3.4", "1.2.3.4.", "1..3.4", "12345", "::1"})
    EXPECT_EQ(parse_dotted_address(text), std::nullopt) << text;
  EXPECT_EQ(parse_dotted_address("1.2.3.4\0"sv), std::nullopt);
  EXPECT_EQ(parse_dotted_address(std::string(1000, '1')), std::nullopt);
}

TEST(AskableName, HasOrdinaryLabels) {
  const std::string longest_label(63, 'a');
  const std::string longest = longest_label + "." + longest_label + "." + longest_label + "." + std::string(61, 'a');
  for (const std::string& name : {std::string("a"), std::string("www.x.test"), std::string("x.test."),
                                  std::string("_sip.x"), std::string("m\xC3\xBCller.test"), longest, longest + "."})
    EXPECT_TRUE(is_askable_name(name)) << name;
}

TEST(AskableName, IsNoHostileText) {
  const std::string too_long_label = std::string(64, 'a') + ".test";
  std::string too_long = "a";
  while (too_long.size() < 254) too_long += ".a";
  for (const std::string_view name :
       {""sv, "."sv, ".."sv, "a..b"sv, ".a"sv, "a b"sv, " a"sv, "a\tb"sv, "a\r\nb"sv, "a\0b"sv, "a\\b"sv, "a:53"sv,
        "::1"sv, "\x7F"sv, std::string_view(too_long_label), std::string_view(too_long)})
    EXPECT_FALSE(is_askable_name(name)) << name;
  EXPECT_FALSE(is_askable_name(std::string(300, 'a')));
}

TEST(SearchList, IsForNamesWithFewDots) {
  const std::vector<std::string> domains = {"one.test", "two.test"};
  EXPECT_THAT(names_to_ask("www", domains, 1), ElementsAre("www.one.test", "www.two.test", "www"));
  EXPECT_THAT(names_to_ask("www", {}, 1), ElementsAre("www"));
  EXPECT_THAT(names_to_ask("www.", domains, 1), ElementsAre("www."));
  EXPECT_THAT(names_to_ask("www.x", domains, 1), ElementsAre("www.x"));
  EXPECT_THAT(names_to_ask("www.x", domains, 2), ElementsAre("www.x.one.test", "www.x.two.test", "www.x"));
}

TEST(SearchList, LeavesOutWhatIsTooLong) {
  const std::vector<std::string> domains = {
      std::string(60, 'd') + "." + std::string(60, 'd') + "." + std::string(60, 'd') + "." + std::string(60, 'd'),
      "ok"};
  EXPECT_THAT(names_to_ask("hostname-hostname", domains, 1), ElementsAre("hostname-hostname.ok", "hostname-hostname"));
}

}  // namespace
}  // namespace yinet
