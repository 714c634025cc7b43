// What servers answer, taken apart without a connection.

#include <gtest/gtest.h>

#include <string>
#include <utility>

#include "yinet/ftp/ftp_answers.h"

namespace yinet {
namespace {

TEST(FtpAnswers, PassiveAnswersAreReadWithTheirOddities) {
  const struct {
    std::string answer;
    const char* address;  // as read
    int port;
    const char* usable;  // "host port", "" when nothing may be connected to
  } cases[] = {
      {"227 Entering Passive Mode (192,168,1,10,19,137).\r\n", "192.168.1.10", 5001, "192.168.1.10 5001"},
      {"227 ok (010,0,0,1,1,0)\r\n", "010.0.0.1", 256, "10.0.0.1 256"},
      {"227 (1,2,3,4)\r\n", "", 3 * 256 + 4, ""},
      {"227 (300,1,1,1,1,1)\r\n", "300.1.1.1", 257, ""},
      {"227 (1,1,1,1,1,256)\r\n", "1.1.1.1", 512, ""},
      {"227 (1,1,1,1,0,0)\r\n", "1.1.1.1", 0, ""},
      {"227 (1,2,3,4,5,6,7,8)\r\n", "1.2.3.4.5.6", 7 * 256 + 8, ""},
      {"227 (1,1,1,1,1,99999999999999999999)\r\n", "1.1.1.1", 256 + 65536, ""},
      {"227 (" + std::string(1000, ',') + ")\r\n", ".....", 0, ""},
      {"500 no\r\n", "", 0, ""},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(passive_address(c.answer), c.address) << c.answer;
    EXPECT_EQ(passive_port(c.answer), c.port) << c.answer;
    const auto usable = usable_passive_address(c.answer);
    EXPECT_EQ(usable ? usable->host + " " + std::to_string(usable->port) : "", c.usable) << c.answer;
  }
  EXPECT_EQ(passive_port_text(cases[0].answer), "19,137");
}

TEST(FtpAnswers, NumbersStayInTheirRange) {
  const std::pair<const char*, int> ports[] = {{"229 (|||6446|)\r\n", 6446}, {"229 (!!!1!)", 1},   {"229 (|||0|)", 0},
                                               {"229 (|||65536|)", 0},       {"229 (|||12x|)", 0}, {"229 (|||12", 0},
                                               {"229 (11112345)", 0}};
  for (const auto& [answer, port] : ports) {
    const auto found = usable_extended_address(answer);
    EXPECT_EQ(found ? found->port : 0, port) << answer;
  }
  const std::pair<const char*, std::int64_t> sizes[] = {{"213 5368709120\r\n SIZE x", 5368709120},
                                                        {"213 9223372036854775808", -1},
                                                        {"213 -5", -1},
                                                        {"213 x", 0},
                                                        {"213", 0}};
  for (const auto& [answer, size] : sizes) EXPECT_EQ(size_in_answer(answer, 4), size) << answer;
  const std::pair<const char*, int> hosts[] = {{"h", 0},     {"h:0", 0},     {"h:2121", 2121}, {"h:x", 0},
                                               {"h:1:2", 1}, {"[h]:21", 21}, {"[h]", 0}};
  for (const auto& [text, port] : hosts) {
    EXPECT_EQ(split_host_and_port(text).host, "h") << text;
    EXPECT_EQ(split_host_and_port(text).port, port) << text;
  }
}

}  // namespace
}  // namespace yinet
