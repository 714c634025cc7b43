#include "yinet/charset/charset.h"

#include <gmock/gmock.h>

#include <set>
#include <thread>
#include <vector>

#include "support/log_capture.h"
#include "yinet/charset/charset_label.h"
#include "yinet/charset/converter_names.h"
#include "yinet/host/settings.h"

namespace yinet {
namespace {

constexpr const char* kAnsi = "ibm-5348_P100-1997";

// Sums over the whole table: one wrong digit or letter anywhere shows.
TEST(ConverterNames, TableIsCompleteWithItsOddRows) {
  std::set<int> codes;
  std::uint32_t checksum = 0;
  for (const auto& [code, name] : converter_names()) {
    codes.insert(code);
    for (const char c : std::to_string(code) + " " + std::string(name) + ";")
      checksum = checksum * 31 + static_cast<unsigned char>(c);
    EXPECT_EQ(charset.get_converter_name(code), YString(name));
  }
  EXPECT_EQ(codes.size(), 177U);
  EXPECT_EQ(checksum, 0xaa19d7f9U);
  for (const auto& [code, name] : {std::pair{936, "gb2313"}, std::pair{872, "ibm-871_P100-1995"}, std::pair{5348, kAnsi}})
    EXPECT_EQ(converter_name(code), name);
  LogCapture log;
  EXPECT_EQ(charset.get_converter_name(12345), "");
  ASSERT_THAT(log.numbers(), testing::ElementsAre(21080));
  EXPECT_EQ(log.last(21080).text + std::to_string(log.last(21080).level), "The charset 12345 is unknown.2");
}

TEST(Charset, Converts) {
  const struct { std::string text; const char *from, *to; std::string result; } kRows[] = {
      {"\xE4\x80", kAnsi, "utf-8", "\xC3\xA4\xE2\x82\xAC"},
      {"\xE4", "ISO-8859-1", "iso-8859-1", "\xE4"},
      {"same", "no such name", "NO SUCH NAME", "same"}, {"same", "", "", "same"},  // equal names are never looked up
      {"", "UTF-8", kAnsi, ""}, {"x", "UTF-8", "no such name", ""}, {"x", "", "UTF-8", ""}, {"x", "UTF-8", "", ""},
      {"x", "iso-8859-15", "UTF-8", ""},                      // ICU knows it, but does not list it
      {"\xE4\xB8\xAD", "UTF-8", kAnsi, "\x1A"},               // ICU's substitute
      {"a\xC3", "UTF-8", "ISO-8859-1", "a\x1A"},              // cut in a character
      {"A", "UTF-8", "UTF-16LE", "A"},                        // ends at the first zero byte
      {"A", "UTF-8", "UTF-16", "\xFF\xFE" "A"},
      {std::string("a\0b", 3), "UTF-8", kAnsi, "a"},
      {"\x81\x40", "ibm-943_P15A-2003", "UTF-8", "\xE3\x80\x80"},
      // More than four bytes for one are an error.
      {"\xE4", kAnsi, "UTF-7", ""},
      {"\xE4\xE4\xE4", kAnsi, "UTF-7", "+AOQA5ADk-"},
      {"a", kAnsi, "UTF-32", ""},
  };
  for (const auto& row : kRows)
    EXPECT_EQ(charset.Convert(row.text, row.from, row.to, 0), YString(row.result)) << row.from << " to " << row.to;
}

TEST(Charset, FormsAgree) {
  EXPECT_GT(charset.get_convert_charset_as_keys().GetStringKeyCount(), 200);
  EXPECT_TRUE(charset.get_convert_charset_list().str().starts_with(charset.get_convert_charset_as_keys().GetStringKey(0).str()));
  EXPECT_EQ(charset.ConvertFromANSI("\xE4", "UTF-8", 0), "\xC3\xA4");
  EXPECT_EQ(charset.ConvertFromANSI("\xE4", 65001, 1), "\xC3\xA4");
  EXPECT_EQ(charset.ConvertToANSI("\xC3\xA4", 1208, 3), "\xE4");
  EXPECT_EQ(charset.Convert("\x84", 437, 1208, 0), "\xC3\xA4");
  LogCapture log;
  EXPECT_EQ(charset.Convert("x", 936, 1208, 0), "") << "gb2313 is no converter";
  EXPECT_EQ(charset.Convert("same", 1, 2, 0), "same") << "both names are empty, so equal";
  EXPECT_THAT(log.numbers(), testing::ElementsAre(21080, 21080));
}

// Every character at every place of the piece borders of the conversion.
TEST(Charset, LongTextsComeThroughWhole) {
  for (std::size_t shift = 0; shift < 5; ++shift) {
    std::string ansi(shift, 'x');
    std::string utf8 = ansi;
    for (int i = 0; i < 9000; ++i) {
      ansi += "\xE4\x80";
      utf8 += "\xC3\xA4\xE2\x82\xAC";
    }
    EXPECT_TRUE(charset.ConvertToANSI(utf8, "UTF-8", 0) == YString(ansi));
    EXPECT_TRUE(charset.ConvertFromANSI(ansi, "UTF-8", 0) == YString(utf8));
  }
}

TEST(CharsetLabel, BecomesAListedName) {
  const std::pair<std::string, std::string> kRows[] = {
      {"iso-8859-15", "ibm-923_P100-1998"}, {"koi8-r", "ibm-878_P100-1996"}, {"Windows-1252", kAnsi}, {"latin1", kAnsi},
      {"us-ascii", kAnsi}, {"utf8", "UTF-8"}, {"no-such-charset", "no-such-charset"}, {"utf-8,version=1", "utf-8,version=1"},
      {std::string(100, 'x'), std::string(100, 'x')}, {std::string("utf-8\0x", 7), std::string("utf-8\0x", 7)}};
  for (const auto& [label, name] : kRows) EXPECT_EQ(converter_for_label(label), name);
  set_setting("Mail", "ZeichensatzAliase", "0");
  EXPECT_EQ(converter_for_label("iso-8859-1"), "iso-8859-1");
  set_setting("Mail", "ZeichensatzAliase", std::nullopt);
}

TEST(CharsetThreads, ConvertSideBySide) {
  std::vector<std::thread> threads;
  for (int t = 0; t < 8; ++t)
    threads.emplace_back([] {
      for (int i = 0; i < 200; ++i) {
        EXPECT_EQ(charset.ConvertFromANSI("\xE4", "UTF-8", 0), "\xC3\xA4");
        EXPECT_EQ(converter_for_label("koi8-r"), "ibm-878_P100-1996");
      }
    });
  for (std::thread& thread : threads) thread.join();
}

}  // namespace
}  // namespace yinet
