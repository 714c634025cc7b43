#include <gmock/gmock.h>

#include <thread>

#include "support/log_capture.h"
#include "yinet/charset/charset_label.h"
#include "yinet/charset/converter_names.h"
#include "yinet/yinet.h"

namespace yinet {
namespace {

using namespace std::string_literals;
constexpr const char* kAnsi = "ibm-5348_P100-1997";

// A sum over the whole table, its odd rows included: one wrong digit or letter anywhere shows.
TEST(Charset, TableOfCodesIsComplete) {
  std::uint32_t checksum = 0;
  for (const auto& [code, name] : converter_names()) {
    for (const char c : std::to_string(code) + " " + std::string(name) + ";")
      checksum = checksum * 31 + static_cast<unsigned char>(c);
    EXPECT_EQ(charset.get_converter_name(code), YString(name));
  }
  EXPECT_EQ(checksum, 0xaa19d7f9U);
  const LogCapture log;
  EXPECT_EQ(charset.get_converter_name(12345), "");
  EXPECT_EQ(charset.Convert("x", 936, 1208, 0), "") << "gb2313 is no converter";
  EXPECT_EQ(charset.Convert("same", 1, 2, 0), "same") << "both names are empty, so equal";
  EXPECT_TRUE(log.numbers() == std::vector(3, 21080) && log.records()[0].level == 2);
}

TEST(Charset, ConvertsInEveryFormFromSeveralThreads) {
  // Equal names are never looked up. ICU's substitute; the first zero byte ends; more than four bytes for one fail.
  const std::tuple<std::string, const char*, const char*, std::string> rows[] = {
      {"\xE4\x80", kAnsi, "utf-8", "\xC3\xA4\xE2\x82\xAC"},
      {"same", "no name", "NO NAME", "same"},
      {"x", "UTF-8", "no name", ""},
      {"x", "", "UTF-8", ""},
      {"\xE4\xB8\xAD", "UTF-8", kAnsi, "\x1A"},
      {"a\xC3", "UTF-8", "ISO-8859-1", "a\x1A"},
      {"A", "UTF-8", "UTF-16LE", "A"},
      {"a\0b"s, "UTF-8", kAnsi, "a"},
      {"\xE4", kAnsi, "UTF-7", ""},
      {"\xE4\xE4\xE4", kAnsi, "UTF-7", "+AOQA5ADk-"}};
  for (const auto& [text, from, to, result] : rows)
    EXPECT_EQ(charset.Convert(text, from, to, 0), YString(result)) << from << " to " << to;
  const YObject keys = charset.get_convert_charset_as_keys();
  EXPECT_GT(keys.GetStringKeyCount(), 200);
  EXPECT_EQ(charset.get_convert_charset_list().GetItem(200), keys.GetStringKey(200));
  EXPECT_EQ(charset.Convert("\x84", 437, 1208, 0), "\xC3\xA4");
  std::vector<std::jthread> threads;
  for (std::size_t shift = 0; shift < 5; ++shift)  // every character at every place of the borders between pieces
    threads.emplace_back([shift] {
      std::string ansi(shift, 'x'), utf8(shift, 'x');
      for (int i = 0; i < 9000; ++i) ansi += "\xE4\x80", utf8 += "\xC3\xA4\xE2\x82\xAC";
      EXPECT_TRUE(charset.ConvertToANSI(utf8, "UTF-8", 0) == ansi && charset.ConvertToANSI(utf8, 1208, 3) == ansi);
      EXPECT_TRUE(charset.ConvertFromANSI(ansi, "UTF-8", 0) == utf8 && charset.ConvertFromANSI(ansi, 65001, 1) == utf8);
      for (int i = 0; i < 200; ++i) EXPECT_EQ(converter_for_label("koi8-r"), "ibm-878_P100-1996");
    });
}

TEST(CharsetLabel, BecomesAListedNameOrStays) {
  for (const char* label : {"latin1", "us-ascii", "Windows-1252"}) EXPECT_EQ(converter_for_label(label), kAnsi);
  EXPECT_EQ(converter_for_label("iso-8859-15") + converter_for_label("utf8"), "ibm-923_P100-1998UTF-8");
  for (const std::string& label : {"none"s, "utf-8,version=1"s, std::string(100, 'x'), "utf-8\0x"s})
    EXPECT_EQ(converter_for_label(label), label);
  set_setting("Mail", "ZeichensatzAliase", "0");
  EXPECT_EQ(converter_for_label("iso-8859-1"), "iso-8859-1");
}

}  // namespace
}  // namespace yinet
