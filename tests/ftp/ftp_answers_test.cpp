#include "yinet/ftp/ftp_answers.h"

#include <gtest/gtest.h>

#include <string>

namespace yinet {
namespace {

TEST(FtpAnswers, PassiveAnswersAreReadWithTheirOddities) {
  const struct {
    std::string answer;
    const char* address;  // as read
    int port;
    const char* usable;   // "host port", "" when nothing may be connected to
  } cases[] = {
      {"227 Entering Passive Mode (192,168,1,10,19,137).\r\n", "192.168.1.10", 5001, "192.168.1.10 5001"},
      {"227 ok (010,0,0,1,1,0)\r\n", "010.0.0.1", 256, "10.0.0.1 256"},
      {"227 =127,0,0,1,1,0\r\n", "", 256, ""},
      {"227 (1,2,3,4)\r\n", "", 3 * 256 + 4, ""},
      {"227 (1,2,3,4,5)\r\n", "1.2.3.4", 4 * 256 + 5, "1.2.3.4 1029"},
      {"227 (300,1,1,1,1,1)\r\n", "300.1.1.1", 257, ""},
      {"227 (1,1,1,1,256,1)\r\n", "1.1.1.1", 65537, ""},
      {"227 (1,1,1,1,1,256)\r\n", "1.1.1.1", 512, ""},
      {"227 (1,1,1,1,0,0)\r\n", "1.1.1.1", 0, ""},
      {"227 (1,1,1,1,1,)\r\n", "1.1.1.1", 256, ""},
      {"227 (1,,1,1,1,1)\r\n", "1..1.1", 257, ""},
      {"227 (-1,1,1,1,1,1)\r\n", "-1.1.1.1", 257, ""},
      {"227 (1,2,3,4,5,6,7,8)\r\n", "1.2.3.4.5.6", 7 * 256 + 8, ""},
      {"227 (1,1,1,1,1,99999999999999999999)\r\n", "1.1.1.1", 256 + 65536, ""},
      {"227 (" + std::string(1000, ',') + ")\r\n", ".....", 0, ""},
      {"500 no\r\n", "", 0, ""},
      {"227 (", "", 0, ""},
      {",", "", 0, ""},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(passive_address(c.answer), c.address) << c.answer;
    EXPECT_EQ(passive_port(c.answer), c.port) << c.answer;
    const auto usable = usable_passive_address(c.answer);
    EXPECT_EQ(usable ? usable->host + " " + std::to_string(usable->port) : "", c.usable) << c.answer;
  }
  EXPECT_EQ(passive_port_text("227 Entering Passive Mode (192,168,1,10,19,137).\r\n"), "19,137");
  EXPECT_EQ(passive_port_text("1,2"), "");
}

TEST(FtpAnswers, ExtendedPassiveAnswersNeedAPort) {
  const std::pair<const char*, int> cases[] = {
      {"229 Entering Extended Passive Mode (|||6446|)\r\n", 6446}, {"229 ok (!!!1!)", 1}, {"229 ok (|||0|)", 0},
      {"229 ok (|||65536|)", 0}, {"229 ok (|||99999999999999999|)", 0}, {"229 ok (|||12x|)", 0}, {"229 ok (|||12", 0},
      {"229 ok (||", 0}, {"229 ok (11112345)", 0}, {"229 ok", 0}};
  for (const auto& [answer, port] : cases) {
    const auto found = usable_extended_address(answer);
    EXPECT_EQ(found ? found->port : 0, port) << answer;
  }
}

TEST(FtpAnswers, SizesAreSixtyFourBitAndNeverNegative) {
  const std::pair<const char*, std::int64_t> cases[] = {
      {"213 5368709120\r\n Letzter Befehl: SIZE x", 5368709120}, {"213  7", 7},
      {"213 9223372036854775807", 9223372036854775807}, {"213 9223372036854775808", -1}, {"213 -5", -1},
      {"213 x", 0}, {"213", 0}};
  for (const auto& [answer, size] : cases) EXPECT_EQ(size_in_answer(answer, 4), size) << answer;
}

TEST(FtpAnswers, HostsAreSplitFromTheirPorts) {
  const struct {
    const char* text;
    const char* host;
    int port;
  } cases[] = {{"host", "host", 0}, {"host:0", "host", 0}, {"host:2121", "host", 2121}, {"host:x", "host", 0}, {"", "", 0},
               {"a:1:2", "a", 1}, {"[::1]:21", "::1", 21}, {"[fe80::1%lo]", "fe80::1%lo", 0}, {"[::1", "[", 0}};
  for (const auto& c : cases) {
    const auto parts = split_host_and_port(c.text);
    EXPECT_EQ(parts.host, c.host) << c.text;
    EXPECT_EQ(parts.port, c.port) << c.text;
  }
}

}  // namespace
}  // namespace yinet
