#include "yinet/host/text.h"

#include <gtest/gtest.h>

#include <limits>
#include <random>

#include "yinet/host/codepage.h"

namespace yinet {
namespace {

TEST(Text, LetterCaseIsThatOfTheCodePage) {
  const struct { std::string_view a, b; bool equal; } kRows[] = {
      {"Content-Length", "CONTENT-length", true},
      {"\xC4nderung", "\xE4NDERUNG", true},
      {"\x8A\x8C\x8E\x9F", "\x9A\x9C\x9E\xFF", true},
      {"\xD7", "\xF7", false},  // multiplication and division signs are no letters
      {"\xDF", "\xFF", false},
      {"[", "{", false},
      {"a", "ab", false},
  };
  for (const auto& row : kRows) {
    EXPECT_EQ(equal_ignoring_case(row.a, row.b), row.equal) << row.a;
    EXPECT_EQ(compare_ignoring_case(row.a, row.b) == 0, row.equal) << row.a;
    EXPECT_EQ(find_ignoring_case(row.a, row.b) == 0, row.equal) << row.a;
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
    std::size_t expected = std::string::npos;
    for (std::size_t i = from; i + what.size() <= text.size(); ++i) {
      if (equal_ignoring_case(std::string_view(text).substr(i, what.size()), what)) {
        expected = i;
        break;
      }
    }
    ASSERT_EQ(find_ignoring_case(text, what, from), expected) << text << " / " << what << " / " << from;
  }
}

TEST(Text, NumbersSaturateAndStopAtTheFirstOtherCharacter) {
  constexpr auto kMax = std::numeric_limits<std::int64_t>::max();
  constexpr auto kMin = std::numeric_limits<std::int64_t>::min();
  const struct { std::string_view text; std::int64_t wide; std::int32_t narrow; } kRows[] = {
      {"", 0, 0},     {"12abc", 12, 12}, {" +7", 7, 7},
      {"--5", 0, 0},  {"0x10", 0, 0},    {"2147483647", 2147483647, 2147483647},
      {"2147483648", 2147483648, 2147483647}, {"-2147483649", -2147483649, -2147483647 - 1},
      {"-9223372036854775808", kMin, -2147483647 - 1}, {"9223372036854775808", kMax, 2147483647},
      {"99999999999999999999999999", kMax, 2147483647}};
  for (const auto& row : kRows) {
    EXPECT_EQ(leading_int64(row.text), row.wide) << row.text;
    EXPECT_EQ(leading_int32(row.text), row.narrow) << row.text;
  }
}

TEST(Text, PlaceholdersAreFilledInOnePass) {
  const struct { std::string_view text, expected; } kRows[] = {
      {"$1$:$2$", "a$2$:7"},                // an inserted placeholder stays
      {"$9$|$2:04$|$2:012$", "|0007|000000000007"},
      {"$3:03$", "-05"},
      {"$0$ $x$ $$1$", "$0$ $x$ $a$2$"},
      {"$2:4$ $2:0$ $2:0x$", "$2:4$ $2:0$ $2:0x$"},
  };
  for (const auto& row : kRows) {
    EXPECT_EQ(formatted(row.text, std::string("a$2$"), "7", "-5"), row.expected) << row.text;
  }
}

TEST(Text, SplitGivesOneItemMoreThanDelimiters) {
  using Items = std::vector<std::string_view>;
  EXPECT_EQ(split("", ";"), Items{});
  EXPECT_EQ(split("a;b,,c;", ";,"), (Items{"a", "b", "", "c", ""}));
}

TEST(Text, PrintableTextIsOneHarmlessLine) {
  EXPECT_EQ(printable("a\r\nb\t\x1B[31m\x7F\x81\xE4"), "a\\r\\nb\\t\\x1b[31m\\x7f\\x81\xE4");
  EXPECT_TRUE(breaks_protocol_line(std::string_view("a\0b", 3)));
  EXPECT_FALSE(breaks_protocol_line("a\tb\x0B"));
}

TEST(CodePage, EveryByteSurvivesTheRoundTrip) {
  std::string all;
  for (int byte = 0; byte < 256; ++byte) all += static_cast<char>(byte);
  EXPECT_TRUE(is_valid_utf8(utf8_from_ansi(all)));
  EXPECT_EQ(ansi_from_utf8(utf8_from_ansi(all)), all);
  EXPECT_EQ(utf8_from_ansi("\x80\x9F\x81"), "\xE2\x82\xAC\xC5\xB8\xC2\x81");
}

TEST(CodePage, MalformedAndForeignTextIsToldApart) {
  const struct { std::string_view utf8; bool valid; std::string_view lossy; } kRows[] = {
      {"\xC3\xA4", true, "\xE4"},
      {"\xD0\x96", true, "?"},                      // a letter that the code page lacks
      {"\xC0\x80", false, "??"},                    // overlong
      {"\xED\xA0\x80", false, "???"},               // surrogate
      {"\xF4\x90\x80\x80", false, "????"},          // above U+10FFFF
      {"a\xE2\x82", false, "a??"},                  // cut
      {"\x80", false, "?"},
      {"12345678\xC3", false, "12345678?"},
  };
  for (const auto& row : kRows) {
    EXPECT_EQ(is_valid_utf8(row.utf8), row.valid) << printable(row.utf8);
    EXPECT_EQ(ansi_from_utf8_lossy(row.utf8), row.lossy) << printable(row.utf8);
    EXPECT_EQ(ansi_from_utf8(row.utf8).has_value(), row.lossy.find('?') == std::string_view::npos);
  }
}

TEST(CodePage, NamesFindTheirFileAgain) {
  for (const std::string_view on_disk : {"plain", "\xC3\xA4", "\xD0\x96", "\xC3\x83\xC2\xA4", "\xC3\x83\xC3\xA4"})
    EXPECT_EQ(name_to_utf8(name_from_utf8(on_disk)), on_disk) << printable(on_disk);
  EXPECT_EQ(name_from_utf8("\xC3\xA4"), "\xE4");
  EXPECT_EQ(name_to_utf8("M\xFCller"), "M\xC3\xBCller");
}

}  // namespace
}  // namespace yinet
