#include "yinet/charset/charset.h"

#include <gmock/gmock.h>

#include <numeric>
#include <set>
#include <thread>
#include <vector>

#include "support/log_capture.h"
#include "yinet/charset/charset_label.h"
#include "yinet/charset/converter_names.h"
#include "yinet/host/message_numbers.h"
#include "yinet/host/settings.h"
#include "yinet/host/text.h"

namespace yinet {
namespace {

constexpr const char* kAnsi = "ibm-5348_P100-1997";

TEST(ConverterNames, OddRowsStayAsTheyAre) {
  const std::pair<int, const char*> rows[] = {
      {936, "gb2313"},           {871, "ibm-870_P100-1995"}, {872, "ibm-871_P100-1995"}, {20865, "iso-8859-15"},
      {28605, "iso-8859-15"},    {423, "ibm-424_P100-1995"}, {1160, "ibm-838_P100-1995"}, {1168, "koi-ru"},
      {50221, "csiso2022jp"},    {65001, "utf-8"},           {1208, "UTF-8"},             {1257, "ibm-9449_P100-2002"},
      {62250, "ibm-420_X120-1999"}, {37, "ibm-37_P100-1995"}, {932, "ibm-943_P15A-2003"}, {5348, kAnsi},
  };
  LogCapture log;
  for (const auto& [code, name] : rows) EXPECT_EQ(charset.get_converter_name(code), name);
  EXPECT_THAT(log.numbers(), testing::IsEmpty());
}

// Sums over the whole table: one wrong digit or letter anywhere shows.
TEST(ConverterNames, TableIsComplete) {
  const auto names = converter_names();
  ASSERT_EQ(names.size(), 177U);
  std::set<int> codes;
  std::size_t letters = 0;
  std::uint32_t checksum = 0;
  for (const auto& [code, name] : names) {
    codes.insert(code);
    letters += name.size();
    for (const char c : std::to_string(code) + " " + std::string(name) + ";")
      checksum = checksum * 31 + static_cast<unsigned char>(c);
    EXPECT_EQ(converter_name(code), name);
  }
  EXPECT_EQ(codes.size(), names.size());
  EXPECT_EQ(std::accumulate(codes.begin(), codes.end(), 0LL), 2876708);
  EXPECT_EQ(letters, 2675U);
  EXPECT_EQ(checksum, 0xaa19d7f9U);
}

TEST(Charset, UnknownIdentifierIsLoggedAndNameless) {
  LogCapture log;
  EXPECT_EQ(charset.get_converter_name(12345), "");
  EXPECT_THAT(log.numbers(), testing::ElementsAre(message::kCharsetUnknown));
  EXPECT_EQ(log.last(message::kCharsetUnknown).level, 2);
  EXPECT_EQ(log.last(message::kCharsetUnknown).text, "The charset 12345 is unknown.");
}

TEST(Charset, ListHoldsWhatIcuOffersAndNoMore) {
  const YObject keys = charset.get_convert_charset_as_keys();
  EXPECT_GT(keys.GetStringKeyCount(), 200);
  EXPECT_EQ(keys.GetType("UTF-8"), kTypeAny);
  EXPECT_TRUE(keys.Exist("utf-8") && keys.Exist(kAnsi));
  EXPECT_FALSE(keys.Exist("iso-8859-15")) << "only an alias";
  EXPECT_EQ(charset.get_convert_charset_list().GetItemCount(), keys.GetStringKeyCount());
  EXPECT_EQ(charset.get_convert_charset_list().GetItem(0), keys.GetStringKey(0));
}

TEST(Charset, Converts) {
  struct Case {
    std::string text;
    const char *from, *to;
    std::string result;
  };
  const Case cases[] = {
      {"\xE4", kAnsi, "UTF-8", "\xC3\xA4"},
      {"\x80", kAnsi, "utf-8", "\xE2\x82\xAC"},
      {"\xE2\x82\xAC", "UTF-8", kAnsi, "\x80"},
      {"\xE4", "ISO-8859-1", "iso-8859-1", "\xE4"},
      {"same", "no such name", "NO SUCH NAME", "same"},  // equal names are never looked up
      {"same", "", "", "same"},
      {"", "UTF-8", kAnsi, ""},
      {"x", "UTF-8", "no such name", ""},
      {"x", "no such name", "UTF-8", ""},
      {"x", "", "UTF-8", ""},
      {"x", "UTF-8", "", ""},
      {"x", "iso-8859-15", "UTF-8", ""},                      // ICU knows it, but does not list it
      {"\xE4\xB8\xAD", "UTF-8", kAnsi, "\x1A"},               // ICU's substitute
      {"a\xC3", "UTF-8", "ISO-8859-1", "a\x1A"},              // cut in a character
      {"A", "UTF-8", "UTF-16LE", "A"},                        // ends at the first zero byte
      {"A", "UTF-8", "UTF-16BE", ""},
      {"A", "UTF-8", "UTF-16", "\xFF\xFE" "A"},
      {std::string("a\0b", 3), "UTF-8", kAnsi, "a"},
      {"\x81\x40", "ibm-943_P15A-2003", "UTF-8", "\xE3\x80\x80"},
      {"\xEF\xBB\xBF" "a", "UTF-8", "UTF-8 ", ""},
  };
  for (const Case& c : cases)
    EXPECT_EQ(charset.Convert(c.text, c.from, c.to, 0), YString(c.result)) << c.from << " to " << c.to << ": " << c.text;
}

TEST(Charset, FormsAgree) {
  EXPECT_EQ(charset.ConvertFromANSI("\xE4", "UTF-8", 0), "\xC3\xA4");
  EXPECT_EQ(charset.ConvertFromANSI("\xE4", 65001, 1), "\xC3\xA4");
  EXPECT_EQ(charset.ConvertToANSI("\xC3\xA4", "UTF-8", 2), "\xE4");
  EXPECT_EQ(charset.ConvertToANSI("\xC3\xA4", 1208, 3), "\xE4");
  EXPECT_EQ(charset.Convert("\x84", 437, 1208, 0), "\xC3\xA4");
  LogCapture log;
  EXPECT_EQ(charset.Convert("x", 936, 1208, 0), "") << "gb2313 is no converter";
  EXPECT_THAT(log.numbers(), testing::IsEmpty());
  EXPECT_EQ(charset.Convert("x", 1, 1208, 0), "");
  EXPECT_EQ(charset.Convert("same", 1, 2, 0), "same") << "both names are empty, so equal";
  EXPECT_EQ(log.numbers().size(), 3U);
  const charset_class copy = charset;
  EXPECT_EQ(copy.ConvertFromANSI("\xE4", "UTF-8", 0), "\xC3\xA4");
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

TEST(Charset, TextThatOutgrowsItsRoomIsAnError) {
  // GB18030 takes four bytes for most characters, UTF-7 eight for one between others.
  const std::string umlauts(3, '\xE4');
  EXPECT_EQ(charset.ConvertFromANSI("\xE4", "UTF-7", 0), "") << "five bytes for one";
  EXPECT_EQ(charset.ConvertFromANSI(umlauts, "UTF-7", 0), "+AOQA5ADk-");
  EXPECT_EQ(charset.ConvertFromANSI("a", "UTF-32", 0), "") << "the mark and the character need eight bytes";
}

TEST(CharsetLabel, BecomesAListedName) {
  const std::pair<std::string, std::string> cases[] = {
      {"iso-8859-15", "ibm-923_P100-1998"},
      {"koi8-r", "ibm-878_P100-1996"},
      {"windows-1250", "ibm-5346_P100-1998"},
      {"Windows-1252", kAnsi},
      {"iso-8859-1", kAnsi},
      {"latin1", kAnsi},
      {"us-ascii", kAnsi},
      {"utf8", "UTF-8"},
      {"UTF-8", "UTF-8"},
      {"no-such-charset", "no-such-charset"},
      {"", ""},
      {"utf-8,version=1", "utf-8,version=1"},
      {std::string(100, 'x'), std::string(100, 'x')},
      {std::string("utf-8\0x", 7), std::string("utf-8\0x", 7)},
  };
  const YObject keys = charset.get_convert_charset_as_keys();
  for (const auto& [label, name] : cases) {
    EXPECT_EQ(converter_for_label(label), name);
    EXPECT_EQ(keys.Exist(converter_for_label(label)), label != name || label == "UTF-8") << label;
  }
}

TEST(CharsetLabel, StaysAsItIsWhenTurnedOff) {
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
        EXPECT_EQ(charset.ConvertToANSI("\xC3\xA4", 65001, 0), "\xE4");
        EXPECT_EQ(converter_for_label("koi8-r"), "ibm-878_P100-1996");
      }
    });
  for (std::thread& thread : threads) thread.join();
}

}  // namespace
}  // namespace yinet
