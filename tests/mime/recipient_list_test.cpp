#include "yinet/mime/recipient_list.h"

#include <gtest/gtest.h>

#include <chrono>

namespace yinet {
namespace {

std::string shown(std::string_view list) {
  std::string text;
  for (const Recipient& recipient : parse_recipients(list)) text += "[" + recipient.name + "|" + recipient.address + "]";
  return text;
}

TEST(RecipientList, IsSplitIntoNamesAndAddresses) {
  struct Case {
    const char *list, *recipients;
  };
  const Case cases[] = {
      {"", ""},
      {"a@x.de", "[|a@x.de]"},
      {"Eva Meier <eva@x.de>;max@x.de", "[Eva Meier|<eva@x.de>][|max@x.de]"},
      {" a@x.de , <b@x.de>\t;\r\nc@x.de", "[|a@x.de][|<b@x.de>][|c@x.de]"},
      {";,; ,", ""},
      {"\"Meier, Eva\" <eva@x.de>", "[|\"Meier][Eva\"|<eva@x.de>]"},  // quotes protect nothing
      {"Eva <eva@x.de> <old@x.de>", "[Eva|<eva@x.de> <old@x.de>]"},
      {"=?iso-8859-1?Q?J=FCrgen?= <j@x.de>", "[J\xFCrgen|<j@x.de>]"},
      {"=?iso-8859-1?Q?a=40x.de=2C_b=40x.de?=", "[|a@x.de][|b@x.de]"},  // the whole list as one word
      {"=?utf-8?B?w4Q=?= <a@x.de>, =?utf-8?B?w5w=?= <b@x.de>", "[\xC4|<a@x.de>][\xDC|<b@x.de>]"},
  };
  for (const Case& c : cases) EXPECT_EQ(shown(c.list), c.recipients) << c.list;
}

TEST(RecipientList, CostStaysFlat) {
  std::string list;
  for (int i = 0; i < 100'000; ++i) list += "Name <name@example.org>, ";
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(parse_recipients(list).size(), 100'000U);
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5));
}

}  // namespace
}  // namespace yinet
