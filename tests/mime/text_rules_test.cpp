// Pure routines over the text of mails, by tables of what goes in and what comes out, worked out by hand. What generated
// texts prove beside literal models, here and in the fuzzers, is not repeated.

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "yinet/host/text.h"
#include "yinet/mime/fold_lines.h"
#include "yinet/mime/header_decoding.h"
#include "yinet/mime/header_encoding.h"
#include "yinet/mime/html_to_text.h"
#include "yinet/mime/mail_parser.h"
#include "yinet/mime/recipient_list.h"

namespace yinet {
namespace {

struct Row {
  std::string given, expected;
};

void expect_rows(const std::function<std::string(const std::string&)>& routine, const std::vector<Row>& rows) {
  for (const auto& [given, expected] : rows) EXPECT_EQ(printable(routine(given)), printable(expected)) << printable(given);
}

TEST(TextRules, HeaderValuesAreDecoded) {
  expect_rows(decode_header_value, {
      {"=?iso-8859-1?Q?Gr=FC=DFe_aus_K=F6ln?=", "Gr\xFC\xDF" "e aus K\xF6ln"},
      {"=?iso-8859-15?Q?=A4?=", "\xA4"},                 // not converted
      {"Re: =?utf-8?Q?Test?=", "Re:Test"},               // glued: the blanks go
      {"=?utf-8?Q?Hallo?= Welt", "HalloWelt"},           // no blank behind a word
      {"=?utf-8?B?w6Q=?==?utf-8?B?w7w=?=", "\xE4\xFC"},  // merged, padding in the middle
      {"ISO-8859-15''M%FCller.pdf", "M\xFCller.pdf"},
      {"utf-8'de'M%C3%BCller", "utf-8'de'M%C3%BCller"},  // a language is not recognised
      {"utf-8''100%", std::string("100\0", 4)},
      {"=?utf-8?B?###?=", "###"},                        // no base64: the payload stays
      {"a=?utf-8?Q?x?=c=?rest", "axc"},                  // no "?" behind the charset: dropped
  });
}

TEST(TextRules, HeaderLinesAreEncodedAndHoldNoLineBreaks) {
  const auto encoded = [](int length) { return [=](const std::string& text) { return encoded_header_line(text, length); }; };
  const std::string a36(36, 'a');
  const std::string word36 = "=?iso-8859-1?B?YWFhYWFhYWFhYWFhYWFhYWFhYWFhYWFhYWFhYWFhYWFhYWFh?=";
  expect_rows(encoded(76), {{a36, word36}, {a36 + "aaaa", word36 + "\r\n\t=?iso-8859-1?B?YWFhYQ==?="}});
  expect_rows(encoded(10), {{"ab", "=?iso-8859-1?B?YQ==?=\r\n\t=?iso-8859-1?B?Yg==?="}});  // one character at least
  expect_rows(one_header_line, {{"a\r\nBcc: b\rc\t", "a Bcc: b c\t"}, {std::string("a\0b", 3), "a b"}, {"\n\r", "  "}});
  const auto stuffed = [](std::string text) { return stuff_dots(text), text; };
  expect_rows(stuffed, {{".\r\n.\r\n", "..\r\n..\r\n"}, {".x\r\n.y", ".x\r\n..y"},  // the first line: a lone dot only
                        {"x\r\n..y\r\n.", "x\r\n...y\r\n.."}, {".", "."}, {"x\n.y", "x\n.y"}});
}

// The literal model could share a misreading with the routine.
TEST(TextRules, LinesAreFolded) {
  const std::string a77(77, 'a');
  expect_rows(fold_lines, {
      {std::string(1000, 'x'), std::string(998, 'x') + "\r\nxx"},
      {std::string(76, 'a') + " b", std::string(76, 'a') + "\r\nb"},  // the 78th character makes a fold due
      {std::string(75, 'a') + " b", std::string(75, 'a') + " b"},
      {" " + a77 + "\tb", " " + a77 + "\tb"},         // neither a space at the very start nor a tab is a place to fold
      {"one two\r\n" + a77, "one\r\ntwo\r\n" + a77},  // the space may stand on an earlier line
  });
}

TEST(TextRules, HtmlBecomesText) {
  expect_rows(html_to_text, {
      {"<br>one<br>two<BR>three<br/>", "one\r\ntwo\r\nthree"},  // only the bare form is a line end
      {"a <b <br> c> d", "a  d"},
      {"&auml;&Auml;&euro;&#228;&#XE4;&#8364;&#x201E;&#150;", "\xE4\xC4\x80\xE4\xE4\x80\x84\x96"},
      {"&amp;auml;&a<b>uml;&&auml;", "&auml;\xE4&\xE4"},  // resolved once, and behind the tags
      {"&AUML;&;&#;&#x;&#12a;&#0;&#1234567;&#99999999999999999999;&auml",
       "&AUML;&;&#;&#x;&#12a;&#0;&#1234567;&#99999999999999999999;&auml"},
  });
}

TEST(TextRules, AddressesAreTakenApart) {
  const auto taken_apart = [](const std::string& list) {
    std::string text;
    for (const Recipient& recipient : parse_recipients(list)) text += "[" + recipient.name + "|" + recipient.address + "]";
    return text;
  };
  expect_rows(taken_apart, {
      {" a@x.de , <b@x.de>\t;\r\nc@x.de;, ,", "[|a@x.de][|<b@x.de>][|c@x.de]"},
      {"\"Meier, Eva\" <eva@x.de>", "[|\"Meier][Eva\"|<eva@x.de>]"},  // quotes protect nothing
      {"Eva <eva@x.de> <old@x.de>", "[Eva|<eva@x.de> <old@x.de>]"},
      {"=?iso-8859-1?Q?a=40x.de=2C_b=40x.de?=", "[|a@x.de][|b@x.de]"},  // the whole list as one word
      {"=?utf-8?B?w4Q=?= <a@x.de>, =?utf-8?B?w5w=?= <b@x.de>", "[\xC4|<a@x.de>][\xDC|<b@x.de>]"},
  });
  expect_rows([](const std::string& text) { return MailParser.ExtractDisplayName(text).str(); }, {
      {"\"Meier, Eva\" <eva@example.org>", "Meier, Eva"}, {"<eva@example.org>", ""},
      {"\"\"Eva\"\" <e@x>", "\"Eva\""},  // one pair only
      {"\"Eva <e@x>", "\"Eva"}, {"\" <e@x>", "\""}});
  expect_rows([](const std::string& list) { return MailParser.ExtractMailAddress(list, ";").str(); }, {
      {"Eva <e@x.de>,\"Max\" <m@x.de>", "e@x.de;m@x.de"}, {"e@x.de, m@x.de", "e@x.de; m@x.de"},
      {"\"Meier, Eva\" <e@x.de>", "\"Meier;e@x.de"}, {"Eva <e@x.de", "Eva <e@x.de"}, {"> <e@x.de>", "e@x.de"},
      {"a,,b,", "a;;b;"}});
}

TEST(TextRules, HeadersAreTakenApart) {
  const auto fields = [](const std::string& header) {
    const YObject record = MailParser.ParseMailHeader(header);
    std::string text;
    for (int i = 0; i < record.GetStringKeyCount(); ++i)
      text += record.GetStringKey(i).str() + "=" + record.FindAt<YString>(i)->str() + "|";
    return text;
  };
  expect_rows(fields, {
      {"Subject:  two blanks \r\n  more: text\r\n\tWelt\r\n", "Subject= two blanks   more: text\tWelt|"},
      {"A: 1\r\nB:2\r\nC: 3", "A=1B:2|C=3|"},
      {"Received: one\r\nTo: x\r\nReceived: two\r\nreceived: three", "Received=one\r\ntwo\r\nthree|To=x|"},
      {"no field yet\r\n folded: x\r\nA: b: c", "A=b: c|"},
      {": nameless\r\nlost\r\nA: \r\nB: x", "A=|B=x|"},
      {"A: one\x01two: three\nC: x\rD: y", "A=one\x01two: three\nC: x\rD: y|"},  // only CRLF ends a line
  });
}

}  // namespace
}  // namespace yinet
