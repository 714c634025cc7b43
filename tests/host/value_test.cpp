// Texts: letter case, numbers, ranges, item lists, placeholders, code pages; bytes; dates and times.

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <tuple>

#include "yinet/yinet.h"

namespace yinet {
namespace {

using namespace std::string_view_literals;
using Items = std::vector<std::string_view>;

TEST(Text, LetterCaseIsThatOfTheCodePage) {
  EXPECT_EQ(compare_ignoring_case("\xC4nderung \x8A\x8C\x8E\x9F", "\xE4NDERUNG \x9A\x9C\x9E\xFF"), 0);
  // Multiplication and division signs are no letters.
  for (const auto& [a, b] : {std::pair("\xD7", "\xF7"), {"\xDF", "\xFF"}, {"[", "{"}, {"a", "ab"}})
    EXPECT_TRUE(!equal_ignoring_case(a, b) && compare_ignoring_case(a, b) != 0) << a;
  EXPECT_TRUE(YString("abc").Compare("ABD", 1, 2) == 0 && YString("abc").Compare("ABD", 1, -1) < 0);
}

TEST(Text, NumbersSaturateAndPlaceholdersAreFilledInOnePass) {
  for (const auto& [text, number] : {std::pair("12abc", 12), {"+7", 7}, {" 7", 0}, {"--5", 0}})
    EXPECT_TRUE(leading_int64(text) == number && leading_int32(text) == number) << text;
  const char *low = "-9223372036854775809", *high = "9999999999999999999";
  EXPECT_TRUE(leading_int64(low) == INT64_MIN && leading_int64(high) == INT64_MAX);
  EXPECT_TRUE(leading_int32(low) == INT32_MIN && leading_int32(high) == INT32_MAX);
  EXPECT_EQ(formatted("$1$:$2$ $9$|$2:012$ $3:03$", std::string("a$2$"), "7", "-5"), "a$2$:7 |000000000007 -05");
  EXPECT_EQ(formatted("$0$ $x$ $$1$ $2:4$ $2:0$ $2:0x$", "a", "7"), "$0$ $x$ $a $2:4$ $2:0$ $2:0x$");
}

TEST(Text, ItemListsHaveOneItemMoreThanDelimiters) {
  YString list;
  EXPECT_EQ(list.GetItemCount(), 0);
  for (const char* item : {"one", "", " three "}) list.AddItem(item);
  EXPECT_EQ(list, "one\x01\x01 three ");
  for (const auto& [index, item] : {std::pair(2, " three "), {3, ""}, {-1, ""}}) EXPECT_EQ(list.GetItem(index), item);
  YString set(" a;b,,\tc;");
  set.ItemDelimiter(";,");
  EXPECT_EQ(set.Items(), (Items{" a", "b", "", "\tc", ""}));
  set.ItemDeleteBlanks(true);
  EXPECT_EQ(set.Items(), (Items{"a", "b", "", "c", ""}));
}

TEST(Text, RangesNameBothEndsAndClip) {
  const std::tuple<int, int, const char*, const char*> rows[] = {
      {4, -1, "ef", "abcd"}, {-3, 1, "ab", "cdef"}, {6, 9, "", "abcdef"}, {3, 1, "", "abcdef"}};
  for (const auto& [first, last, copied, left] : rows) {
    YString text("abcdef");
    EXPECT_EQ(text.Copy(first, last), copied) << first;
    EXPECT_EQ((text.Delete(first, last), text), left) << first;
  }
  YString text = "aXaxa";
  EXPECT_TRUE(text.Replace("x", "xx", true) == 2 && text == "axxaxxa" && text.Find("") == -1);
  YBuffer buffer("abc");
  buffer.SetSize(1);
  buffer.SetSize(4);
  EXPECT_EQ(buffer.toString(), YString("a\0\0\0", 4)) << "new bytes are zero";
  for (int i = 0; i < 5; ++i) buffer.Add(buffer);
  buffer.Move(126, 0, 99);
  EXPECT_EQ(buffer.toString(124, -1), YString("a\0a\0", 4));
  text = "QUJDQUI\r\n";  // the fuzzer compares with a decoder that takes one character at a time
  EXPECT_TRUE(YBase64::Decode(text, text) && text == "ABCAB");
}

TEST(Base64, EveryByteCountsAtEveryPlaceOfABlock) {
  for (unsigned i = 0; i < 256 * 40; ++i) {
    std::string block(80, 'x'), decoded;
    const char c = block[i / 256] = static_cast<char>(i % 256);
    const bool is_character = (is_alphanumeric(c) && i % 256 < 128) || c == '+' || c == '/';
    EXPECT_EQ(base64_decode(block, decoded), is_character || is_blank(c)) << i % 256;
    EXPECT_TRUE(!is_character || base64_encoded(decoded) == block) << c;
  }
}

TEST(CodePage, EveryByteSurvivesAndMalformedOrForeignTextIsToldApart) {
  std::string all;
  for (int byte = 0; byte < 256; ++byte) all += static_cast<char>(byte);
  EXPECT_EQ(ansi_from_utf8(utf8_from_ansi(all)), all);
  YString text = "\x80\x9F\x81";
  EXPECT_TRUE(text.ConvertCharset(0, 5) && !text.ConvertCharset(0, 77));
  EXPECT_EQ(text, "\xE2\x82\xAC\xC5\xB8\xC2\x81");
  // A letter that the code page lacks; overlong, a surrogate, above U+10FFFF, cut.
  const std::pair<const char*, const char*> rows[] = {{"\xD0\x96", "?"},       {"\xC0\x80", "??"},
                                                      {"\xED\xA0\x80", "???"}, {"\xF4\x90\x80\x80", "????"},
                                                      {"a\xE2\x82", "a??"},    {"12345678\xC3", "12345678?"}};
  for (const auto& [utf8, lossy] : rows) {
    EXPECT_EQ(ansi_from_utf8_lossy(utf8), lossy) << printable(utf8);
    EXPECT_TRUE(is_valid_utf8(utf8) == (lossy == "?"sv) && !ansi_from_utf8(utf8)) << printable(utf8);
  }
}

TEST(DateAndTime, LocalTimesDateNumbersAndIsoTextsBecomeInstants) {
  setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3", 1);  // the rules written out, so that no zone files are needed
  tzset();
  YDateAndTime value;
  // A time that the clock skips shows as if it had not been moved; of one that comes twice the earlier counts.
  const std::tuple<YDate, YTime, const char*> local[] = {{{2026, 7, 1}, {0, 0, 0, 7}, "2026-07-01T00:00:00.007+02:00"},
                                                         {{2026, 3, 29}, {2, 30, 0}, "2026-03-29T03:30:00+02:00"},
                                                         {{2026, 10, 25}, {2, 0, 0}, "2026-10-25T02:00:00+02:00"}};
  for (const auto& [date, time, iso] : local) EXPECT_EQ((value.Set(date, time), value.toIso()), iso);
  const std::pair<double, const char*> days_since_1899[] = {{-1.25, "1899-12-29T06:00:00+01:00"},
                                                            {46346.999999999, "2026-11-21T00:00:00+01:00"},
                                                            {-693594, ""},
                                                            {HUGE_VAL, ""}};
  for (const auto& [number, iso] : days_since_1899) EXPECT_EQ((value.Set(number), value.toIso()), iso) << number;
  value.Set(YDateAndTime::kNow);
  EXPECT_NEAR(static_cast<double>(value.EpochMilliseconds()) / 1000, static_cast<double>(std::time(nullptr)), 2);
  YDate date(2024, 2, 28);
  date.AddDays(2);
  EXPECT_EQ(date, YDate(2024, 3, 1));
  date.AddDays(INT32_MAX);
  EXPECT_FALSE(date.IsSet() || date.Set(1900, 2, 29) || date.Set(2026, 257, 1) || date.Set(2026, 1, 257));
  // The fuzzer proves that what is taken comes back as the same instant.
  for (const char* good : {"1969-12-31t19:00:00.5-05:00", "1970-01-01T01:00:00.5", "1970-01-01T00:00:00.500999999z"})
    EXPECT_TRUE(value.SetIso(good) && value.EpochMilliseconds() == 500) << good;
  for (const char* bad :
       {"1970-01-01T00:00:00.Z", "1970-1-01T00:00:00Z", "1970-02-30T00:00:00Z", "1970-01-01T24:00:00Z",
        "1970-01-01T00:00:00ZZ", "1970-01-01T00:00:00+24:00", "0001-01-01T00:00:00+23:59"})
    EXPECT_TRUE(!value.SetIso(bad) && value.EpochMilliseconds() == 500) << bad;
}

}  // namespace
}  // namespace yinet
