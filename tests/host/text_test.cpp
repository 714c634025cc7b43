#include "yinet/host/text.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <tuple>

#include "yinet/host/codepage.h"

namespace yinet {
namespace {

TEST(Text, LetterCaseIsThatOfTheCodePage) {
  const std::tuple<std::string_view, std::string_view, bool> kRows[] = {
      {"\xC4nderung", "\xE4NDERUNG", true}, {"\x8A\x8C\x8E\x9F", "\x9A\x9C\x9E\xFF", true},
      {"\xD7", "\xF7", false},  // multiplication and division signs are no letters
      {"\xDF", "\xFF", false},  {"[", "{", false}, {"a", "ab", false}};
  for (const auto& [a, b, equal] : kRows) {
    EXPECT_EQ(equal_ignoring_case(a, b), equal) << a;
    EXPECT_EQ(compare_ignoring_case(a, b) == 0, equal) << a;
  }
}

TEST(Text, FindIgnoringCaseAgreesWithANaiveSearch) {
  std::mt19937 random(1);
  for (int round = 0; round < 3000; ++round) {
    const auto make = [&](std::size_t longest) {
      std::string text;
      for (std::size_t i = random() % (longest + 1); i > 0; --i) text += "aAbB\xE4\xC4"[random() % 6];
      return text;
    };
    const std::string text = make(20), what = make(3);
    const std::size_t from = random() % 22;
    ASSERT_EQ(find_ignoring_case(text, what, from), to_lower(text).find(to_lower(what), from))
        << text << " / " << what << " / " << from;
  }
}

TEST(Text, NumbersSaturateAndStopAtTheFirstOtherCharacter) {
  const std::tuple<std::string_view, std::int64_t, std::int32_t> kRows[] = {
      {"12abc", 12, 12},
      {"+7", 7, 7},
      {" 7", 0, 0},
      {"--5", 0, 0},
      {"2147483648", 2147483648, INT32_MAX},
      {"-2147483649", -2147483649, INT32_MIN},
      {"-9223372036854775808", INT64_MIN, INT32_MIN},
      {"9223372036854775808", INT64_MAX, INT32_MAX},
      {"99999999999999999999999999", INT64_MAX, INT32_MAX}};
  for (const auto& [text, wide, narrow] : kRows) {
    EXPECT_EQ(leading_int64(text), wide) << text;
    EXPECT_EQ(leading_int32(text), narrow) << text;
  }
}

TEST(Text, PlaceholdersAreFilledInOnePass) {
  EXPECT_EQ(formatted("$1$:$2$ $9$|$2:012$ $3:03$", std::string("a$2$"), "7", "-5"), "a$2$:7 |000000000007 -05");
  EXPECT_EQ(formatted("$0$ $x$ $$1$ $2:4$ $2:0$ $2:0x$", "a", "7"), "$0$ $x$ $a $2:4$ $2:0$ $2:0x$");
}

TEST(Text, SplitGivesOneItemMoreThanDelimiters) {
  EXPECT_EQ(split("a;b,,c;", ";,"), (std::vector<std::string_view>{"a", "b", "", "c", ""}));
  EXPECT_TRUE(split("", ";").empty());
  EXPECT_TRUE(breaks_protocol_line(std::string_view("a\0b", 3)));
}

TEST(CodePage, EveryByteSurvivesTheRoundTrip) {
  std::string all;
  for (int byte = 0; byte < 256; ++byte) all += static_cast<char>(byte);
  EXPECT_TRUE(is_valid_utf8(utf8_from_ansi(all)));
  EXPECT_EQ(ansi_from_utf8(utf8_from_ansi(all)), all);
  EXPECT_EQ(utf8_from_ansi("\x80\x9F\x81"), "\xE2\x82\xAC\xC5\xB8\xC2\x81");
}

TEST(CodePage, MalformedAndForeignTextIsToldApart) {
  const std::tuple<std::string_view, bool, std::string_view> kRows[] = {
      {"\xD0\x96", true, "?"},              // a letter that the code page lacks
      {"\xC0\x80", false, "??"},            // overlong
      {"\xED\xA0\x80", false, "???"},       // surrogate
      {"\xF4\x90\x80\x80", false, "????"},  // above U+10FFFF
      {"a\xE2\x82", false, "a??"},          // cut
      {"12345678\xC3", false, "12345678?"}};
  for (const auto& [utf8, valid, lossy] : kRows) {
    EXPECT_EQ(is_valid_utf8(utf8), valid) << printable(utf8);
    EXPECT_EQ(ansi_from_utf8_lossy(utf8), lossy) << printable(utf8);
    EXPECT_EQ(ansi_from_utf8(utf8), std::nullopt) << printable(utf8);
  }
}

}  // namespace
}  // namespace yinet
