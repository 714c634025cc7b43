// Pure routines over the text of mails, by tables of what goes in and what comes out. What generated texts prove beside
// literal models is not repeated here.

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "support/bytes.h"
#include "yinet/host/structured_value.h"
#include "yinet/host/text.h"
#include "yinet/host/ybase64.h"
#include "yinet/mime/base64_lines.h"
#include "yinet/mime/fold_lines.h"
#include "yinet/mime/header_decoding.h"
#include "yinet/mime/header_encoding.h"
#include "yinet/mime/html_to_text.h"
#include "yinet/mime/mail_parser.h"
#include "yinet/mime/quoted_printable.h"
#include "yinet/mime/recipient_list.h"

namespace yinet {
namespace {

struct Row {
  std::string given, expected;
};

void expect_rows(const std::function<std::string(const std::string&)>& routine, const std::vector<Row>& rows) {
  for (const auto& [given, expected] : rows) EXPECT_EQ(printable(routine(given)), printable(expected)) << printable(given);
}

TEST(HeaderValue, DecodesWhatSendersWrite) {
  expect_rows(decode_header_value, {
      {"=?UTF-8?B?SGFsbG8=?=", "Hallo"},
      {"=?iso-8859-1?Q?Gr=FC=DFe_aus_K=F6ln?=", "Gr\xFC\xDF" "e aus K\xF6ln"},
      {"=?iso-8859-15?Q?=A4?=", "\xA4"},                                 // not converted
      {"Re: =?utf-8?Q?Test?=", "Re:Test"},                              // glued: the blanks go
      {"=?utf-8?Q?Hallo?= Welt", "HalloWelt"},                          // no blank behind a word
      {"=?utf-8?B?w6Q=?==?utf-8?B?w7w=?=", "\xE4\xFC"},                 // merged, padding in the middle
      {"utf-8''M%C3%BCller.pdf", "M\xFCller.pdf"},
      {"ISO-8859-15''M%FCller.pdf", "M\xFCller.pdf"},
      {"utf-8'de'M%C3%BCller", "utf-8'de'M%C3%BCller"},                 // a language is not recognised
      {"utf-8''100%", std::string("100\0", 4)},
      {"=?utf-8?B?###?=", "###"},                                       // no base64: the payload stays
      {"=?utf-8?B?SGFsbG8", "=?utf-8?B?SGFsbG8"},                       // never closed
      {"abc=?utf-8?Q?x", "abc=?utf-8?Q?x"},
      {"a=?utf-8?Q?x?=c=?rest", "axc"},                                 // no "?" behind the charset: dropped
  });
}

TEST(HeaderBlock, UnfoldsLines) {
  const auto unfolded = [](const std::string& header) {
    std::string lines;
    unfold_header(header, [&](std::string_view line, bool last) { lines.append(line).append(last ? "$" : "|"); });
    return lines;
  };
  expect_rows(unfolded, {
      {"A: 1\r\n  2\t\r\n\t3\r\nB: 4\r\n", "A: 1 2 3|B: 4$"},
      {"A: 1\r\nB: no line end", "A: 1$"},
      {"A: 1\r\n\r\nB: 2\r\n", "A: 1|B: 2$"},      // one empty line is skipped
      {" first\r\nA: 1\r\n", "first|A: 1$"},
      {"\r\nA: 1\r\n", ""},                         // begins with a line end: nothing is read
      {"A: 1\nB: 2\r\n", "A: 1\nB: 2$"},            // LF alone ends no line
  });
}

TEST(HeaderBlock, QuotesKeepSeparatorsOfStructuredValues) {
  const auto taken_apart = [](bool first_equals) {
    return [first_equals](const std::string& text) {
      const StructuredValue value = split_structured_value(text, first_equals);
      std::string seen(value.first);
      for (const auto& [name, content] : value.parameters) seen.append("|").append(name).append(">").append(content);
      return seen;
    };
  };
  expect_rows(taken_apart(false), {
      {"multipart/mixed; boundary=\"=_a;b=c\" ; x = y", "multipart/mixed|boundary>=_a;b=c|x>y"},
      {"a/b; name=\"x", "a/b|name>\"x"},                          // a quote that never closes splits nothing
      {"a/b; name=\"a\\\"; b\"; c=d", "a/b|name>a\\\"; b|c>d"},
      {"a/b; boundary==_x;;flag; c=d", "a/b|c>d"},                // two "=" or none: left out
  });
  expect_rows(taken_apart(true), {{"a/b; boundary==_x; c=d", "a/b|boundary>=_x|c>d"}});
}

TEST(HeaderEncoding, SubjectBecomesEncodedWords) {
  const auto encoded = [](int length) { return [=](const std::string& text) { return encoded_header_line(text, length); }; };
  const std::string a36(36, 'a');
  const std::string word36 = "=?iso-8859-1?B?YWFhYWFhYWFhYWFhYWFhYWFhYWFhYWFhYWFhYWFhYWFhYWFh?=";
  expect_rows(encoded(76), {{"", ""}, {"\xE4\xF6\xFC\x80", "=?iso-8859-1?B?5Pb8gA==?="}, {a36, word36},
                            {a36 + "aaaa", word36 + "\r\n\t=?iso-8859-1?B?YWFhYQ==?="}});
  expect_rows(encoded(0), {{a36, word36}});
  expect_rows(encoded(10), {{"ab", "=?iso-8859-1?B?YQ==?=\r\n\t=?iso-8859-1?B?Yg==?="}});  // one character at least
}

TEST(HeaderEncoding, LineBreaksDoNoHarm) {
  expect_rows(one_header_line, {{"a\r\nBcc: b", "a Bcc: b"}, {"a\rb\nc\t", "a b c\t"}, {std::string("a\0b", 3), "a b"},
                                {"\r\n\r\n", "  "}, {"\n\r", "  "}});
  expect_rows(quotable_file_name, {{"a\"b\r\n.txt", "a'b .txt"}});
  expect_rows(with_crlf_line_ends, {{"a\nb\rc\r\nd", "a\r\nb\r\nc\r\nd"}, {"\r\r\n", "\r\n\r\n"}, {"a\n\n", "a\r\n\r\n"}});
  const auto stuffed = [](std::string text) { return stuff_dots(text), text; };
  expect_rows(stuffed, {{".\r\n.\r\n", "..\r\n..\r\n"}, {".x\r\n.y", ".x\r\n..y"},  // the first line: a lone dot only
                        {"x\r\n..y\r\n.", "x\r\n...y\r\n.."}, {".", "."}, {"x\n.y", "x\n.y"}});
}

TEST(QuotedPrintable, EncodesLittleAndDecodesLeniently) {
  expect_rows(quoted_printable_encoded, {{"a=b\t\x7F\r\n\x01 ", "a=3Db\t\x7F\r\n\x01 "}, {"exactly8=\xFC", "exactly8=3D=fc"},
                                         {"\xE4\xFF\x80", "=e4=ff=80"}});
  expect_rows(quoted_printable_decoded, {{"=e4=C4", "\xE4\xC4"}, {"joi=\r\nned=\r\n", "joined"}, {"=4g=g4==", "=4g=g4=="},
                                         {"a=\nb=\rc", "a=\nb=\rc"}, {"==41", "=A"}, {"=", "="}});
}

TEST(Base64Lines, AreCutAfter72Characters) {
  for (const std::size_t size : {0, 1, 53, 54, 55, 512 * 54 - 1, 512 * 54, 512 * 54 + 1, 200'000}) {
    const std::string bytes = test::pattern_bytes(size, 3);
    std::string expected;
    for (std::size_t at = 0; at < size; at += 54) expected += base64_encoded(bytes.substr(at, 54)) + "\r\n";
    std::string lines;
    append_base64_lines(bytes, lines);
    EXPECT_TRUE(lines == expected) << size;
    EXPECT_EQ(base64_lines_size(static_cast<std::int64_t>(size)), static_cast<std::int64_t>(lines.size())) << size;
  }
}

// The literal model could share a misreading with the routine; these were worked out by hand.
TEST(FoldLines, BreaksWhereTheRuleSays) {
  const std::string a77(77, 'a');
  expect_rows(fold_lines, {
      {std::string(998, 'x'), std::string(998, 'x')},
      {std::string(1000, 'x'), std::string(998, 'x') + "\r\nxx"},
      {std::string(76, 'a') + " b", std::string(76, 'a') + "\r\nb"},  // the 78th character makes a fold due
      {std::string(75, 'a') + " b", std::string(75, 'a') + " b"},
      {" " + a77 + "\tb", " " + a77 + "\tb"},         // neither a space at the very start nor a tab is a place to fold
      {"a \t \t" + a77, "a\r\n" + a77},
      {"one two\r\n" + a77, "one\r\ntwo\r\n" + a77},  // the space may stand on an earlier line
  });
}

TEST(HtmlToText, TagsGoAndCharactersBecomeWindows1252) {
  expect_rows(html_to_text, {
      {"one<br>two<BR>three<br/>", "one\r\ntwo\r\nthree"},  // only the bare form is a line end
      {"a&nbsp;b&NBSP;c", "a b c"},
      {"<br><br>\r\ntext<br>", "text\r\n"},
      {"a < b <br> c", "a < b \r\n c"},                     // that ">" became a line end, so nothing closes the "<"
      {"a <b <br> c> d", "a  d"},
      {"&auml;&Auml;&szlig;&euro;&amp;&lt;", "\xE4\xC4\xDF\x80&<"},
      {"&#228;&#xE4;&#XE4;&#8364;&#x201E;&#150;", "\xE4\xE4\xE4\x80\x84\x96"},
      {"&amp;auml;&a<b>uml;&&auml;", "&auml;\xE4&\xE4"},    // resolved once, and behind the tags
      {"&AUML;&unknown;&;&#;&#x;&#12a;&auml", "&AUML;&unknown;&;&#;&#x;&#12a;&auml"},
      {"&#0;&#1234567;&#x4E2D;&#99999999999999999999;", "&#0;&#1234567;&#x4E2D;&#99999999999999999999;"},
  });
}

TEST(Recipients, AreSplitIntoNamesAndAddresses) {
  const auto taken_apart = [](const std::string& list) {
    std::string text;
    for (const Recipient& recipient : parse_recipients(list)) text += "[" + recipient.name + "|" + recipient.address + "]";
    return text;
  };
  expect_rows(taken_apart, {
      {"", ""},
      {" a@x.de , <b@x.de>\t;\r\nc@x.de;, ,", "[|a@x.de][|<b@x.de>][|c@x.de]"},
      {"\"Meier, Eva\" <eva@x.de>", "[|\"Meier][Eva\"|<eva@x.de>]"},  // quotes protect nothing
      {"Eva <eva@x.de> <old@x.de>", "[Eva|<eva@x.de> <old@x.de>]"},
      {"=?iso-8859-1?Q?a=40x.de=2C_b=40x.de?=", "[|a@x.de][|b@x.de]"},  // the whole list as one word
      {"=?utf-8?B?w4Q=?= <a@x.de>, =?utf-8?B?w5w=?= <b@x.de>", "[\xC4|<a@x.de>][\xDC|<b@x.de>]"},
  });
}

TEST(MailParser, TakesAddressesApart) {
  expect_rows([](const std::string& text) { return MailParser.ExtractDisplayName(text).str(); }, {
      {"\"Meier, Eva\" <eva@example.org>", "Meier, Eva"}, {"  Eva Meier\t<e@x>", "Eva Meier"},
      {"eva@example.org", ""}, {"<eva@example.org>", ""}, {"\" Eva \" <e@x>", "Eva"},
      {"\"\"Eva\"\" <e@x>", "\"Eva\""},  // one pair only
      {"\"Eva <e@x>", "\"Eva"}, {"\" <e@x>", "\""}, {"\"\" <e@x>", ""}});
  expect_rows([](const std::string& list) { return MailParser.ExtractMailAddress(list, ";").str(); }, {
      {"Eva <e@x.de>,\"Max\" <m@x.de>", "e@x.de;m@x.de"}, {"e@x.de, m@x.de", "e@x.de; m@x.de"},
      {"\"Meier, Eva\" <e@x.de>", "\"Meier;e@x.de"}, {"Eva <e@x.de", "Eva <e@x.de"}, {"> <e@x.de>", "e@x.de"},
      {"<>", ""}, {"a,,b,", "a;;b;"}, {"", ""}});
}

TEST(MailParser, TakesHeadersApart) {
  const auto fields = [](const std::string& header) {
    const YObject record = MailParser.ParseMailHeader(header);
    std::string text;
    for (int i = 0; i < record.GetStringKeyCount(); ++i)
      text += record.GetStringKey(i).str() + "=" + record.FindAt<YString>(i)->str() + "|";
    return text;
  };
  expect_rows(fields, {
      {"", ""},
      {"Subject: Hallo\r\n\tWelt\r\n", "Subject=Hallo\tWelt|"},
      {"Subject:  two blanks \r\n  more: text", "Subject= two blanks   more: text|"},
      {"A: 1\r\nB:2\r\nC: 3", "A=1B:2|C=3|"},
      {"Received: one\r\nTo: x\r\nReceived: two\r\nreceived: three", "Received=one\r\ntwo\r\nthree|To=x|"},
      {"no field yet\r\n folded: x\r\nA: b: c", "A=b: c|"},
      {": nameless\r\nlost\r\nA: \r\nB: x", "A=|B=x|"},
      {"A: one\x01two: three\nC: x\rD: y", "A=one\x01two: three\nC: x\rD: y|"},  // only CRLF ends a line
  });
}

}  // namespace
}  // namespace yinet
