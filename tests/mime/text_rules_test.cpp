// Pure routines over the text of mails: rows worked out by hand, since the models of the fuzzers could share a misreading
// with their routines, and what texts cost that are slow to move about.

#include <gtest/gtest.h>

#include <ctime>
#include <random>

#include "support/bytes.h"
#include "yinet/mime/byte_search.h"
#include "yinet/mime/fold_lines.h"
#include "yinet/mime/header_decoding.h"
#include "yinet/mime/header_encoding.h"
#include "yinet/mime/html_to_text.h"
#include "yinet/mime/mail_text.h"
#include "yinet/mime/quoted_printable.h"
#include "yinet/mime/recipient_list.h"
#include "yinet/yinet.h"

namespace yinet::test {
namespace {

using namespace std::string_literals;

TEST(TextRules, HeaderValuesAreDecodedAndEncoded) {
  // Neither are all charsets converted nor languages recognised, and the blanks around words go.
  expect_rows(decode_header_value,
              {"=?iso-8859-1?Q?Gr=FC=DFe_aus_K=F6ln?= -> Gr\374\337e aus K\366ln", "=?iso-8859-15?Q?=A4?= -> \xA4",
               "Re: =?utf-8?Q?Test?= -> Re:Test", "=?utf-8?Q?Hallo?= Welt -> HalloWelt", "utf-8''100% -> 100\0"s,
               "=?utf-8?B?w6Q=?==?utf-8?B?w7w=?= -> \xE4\xFC", "ISO-8859-15''M%FCller.pdf -> M\xFCller.pdf",
               "utf-8'de'M%C3%BC -> utf-8'de'M%C3%BC", "=?utf-8?B?###?= -> ###", "a=?utf-8?Q?x?=c=?rest -> axc"});
  const auto encoded = [](const std::string& text) { return encoded_header_line(text, text.size() > 2 ? 76 : 10); };
  const std::string word =
      "=?iso-8859-1?B?YWFhYWFhYWFhYWFhYWFhYWFhYWFhYWFhYWFhYWFhYWFhYWFh?=\r\n\t=?iso-8859-1?B?YWFhYQ==?=";
  expect_rows(encoded,
              {std::string(40, 'a') + " -> " + word, "ab -> =?iso-8859-1?B?YQ==?=\r\n\t=?iso-8859-1?B?Yg==?="});
  expect_rows(one_header_line, {"a\r\nBcc: b\rc\t -> a Bcc: b c\t", "a\0b -> a b"s, "\n\r ->   "});
}

TEST(TextRules, LinesAreFoldedAndDotsStuffed) {
  // The 78th character makes a fold due, at a space that may stand on an earlier line, but not at the very start.
  const std::string a77(77, 'a'), a76(76, 'a');
  expect_rows(fold_lines, {std::string(1000, 'x') + " -> " + std::string(998, 'x') + "\r\nxx",
                           a76 + " b -> " + a76 + "\r\nb", a76.substr(1) + " b -> " + a76.substr(1) + " b",
                           " " + a77 + "\tb ->  " + a77 + "\tb", "one two\r\n" + a77 + " -> one\r\ntwo\r\n" + a77});
  // On the first line only a lone dot is doubled.
  expect_rows([](std::string text) { return stuff_dots(text), text; },
              {".\r\n.\r\n -> ..\r\n..\r\n", ".x\r\n.y -> .x\r\n..y", "x\r\n..y\r\n. -> x\r\n...y\r\n..", ". -> .",
               "x\n.y -> x\n.y"});
}

TEST(TextRules, HtmlBecomesText) {
  const std::string unknown = "&AUML;&;&#;&#x;&#12a;&#0;&#1234567;&#99999999999999999999;&auml";
  expect_rows(html_to_text, {"<br>one<br>two<BR>three<br/> -> one\r\ntwo\r\nthree", "a <b <br> c> d -> a  d",
                             "&auml;&Auml;&euro;&#228;&#XE4;&#8364;&#x201E;&#150; -> \xE4\xC4\x80\xE4\xE4\x80\x84\x96",
                             "&amp;auml;&a<b>uml;&&auml; -> &auml;\xE4&\xE4", unknown + " -> " + unknown});
}

TEST(TextRules, AddressesAndHeadersAreTakenApart) {
  const auto recipients = [](const std::string& list) {
    std::string text;
    for (const auto& [address, name] : parse_recipients(list)) text += "[" + name + "|" + address + "]";
    return text;
  };
  const auto name = [](const std::string& text) { return MailParser.ExtractDisplayName(text).str(); };
  const auto addresses = [](const std::string& list) { return MailParser.ExtractMailAddress(list, ";").str(); };
  const auto fields = [](const std::string& header) {
    return replaced(YJSON::Write(MailParser.ParseMailHeader(header)), "\"", "'");
  };
  expect_rows(recipients, {" a@x.de , <b@x.de>\t;\r\nc@x.de;, , -> [|a@x.de][|<b@x.de>][|c@x.de]",
                           "\"Meier, Eva\" <e@x.de> <o@x.de> -> [|\"Meier][Eva\"|<e@x.de> <o@x.de>]",
                           "=?iso-8859-1?Q?a=40x.de=2C_b=40x.de?= -> [|a@x.de][|b@x.de]",
                           "=?utf-8?B?w4Q=?= <a@x.de>, =?utf-8?B?w5w=?= <b@x.de> -> [\xC4|<a@x.de>][\xDC|<b@x.de>]"});
  expect_rows(name, {"\"Meier, Eva\" <e@x> -> Meier, Eva", "<e@x> -> ", "\"Eva <e@x> -> \"Eva", "\" <e@x> -> ",
                     "\"\"Eva\"\" <e@x> -> \"Eva\""});
  expect_rows(addresses, {"Eva <e@x.de>,\"M\" <m@x> -> e@x.de;m@x", "e@x, m@x -> e@x; m@x", "> <e@x> -> e@x",
                          "\"M, Eva\" <e@x.de> -> \"M;e@x.de", "Eva <e@x -> Eva <e@x", "a,,b, -> a;;b;"});
  // Only CRLF ends a line, and only a blank behind the colon makes a field.
  expect_rows(fields,
              {"Subject:  two blanks \r\n  more: text\r\n\tWelt\r\n -> {'Subject':' two blanks   more: text\\tWelt'}",
               "A: 1\r\nB:2\r\nC: 3 -> {'A':'1B:2','C':'3'}",
               "A: one\x01two: three\nC: x\rD: y -> {'A':'one\\u0001two: three\\nC: x\\rD: y'}",
               "Received: 1\r\nTo: x\r\nReceived: 2\r\nreceived: 3 -> {'Received':'1\\r\\n2\\r\\n3','To':'x'}",
               "no field yet\r\n folded: x\r\n: nameless\r\nlost\r\nA: b: c\r\nB:  -> {'A':'b: c','B':''}"});
}

TEST(TextRules, LargeTextsAreSearchedAndDecodedLikeSmallOnes) {
  std::mt19937 random(20261121);
  const auto drawn = [&](std::size_t count, const std::vector<std::string_view>& pieces) {
    std::string text;
    while (count-- > 0) text += pieces[random() % pieces.size()];
    return text;
  };
  for (std::size_t i = 0; i < 30000; ++i) {
    const std::string text = drawn(random() % 300, {"a", "b", "\xE4", "-"}) + drawn(random() % 300, {"a"});
    const std::string what = drawn(random() % (i % 50 == 0 ? 200 : 6), {"a", "a", "a", "a", "a", "b", "\xE4"});
    ASSERT_EQ(find_bytes(text, what, i % 300), text.find(what, i % 300)) << text << " " << what;
    ASSERT_EQ(find_ignoring_case(to_upper(text), what, i % 300), text.find(what, i % 300)) << text << " " << what;
  }
  // The decoder goes piece by piece.
  const std::string text = drawn(200000, {"=", "=C3", "=\r\n", "\r\n", "a", "b c d e f g h", "=\n", "=4", "1"});
  EXPECT_EQ(decode_file_content(text + "\r\n", TransferEncoding::quoted_printable, false).view(),
            quoted_printable_decoded(text));
}

TEST(TextRules, CostStaysFlat) {
  for (const std::string piece :
       {"word ", "x", " ", "x\r\n", "<<br>", "&", "<", "Received: by somebody\r\n", "\r\n more"}) {
    const std::string text =
        "Subject: x " + replaced(std::string(2'000'000 / piece.size(), '~'), "~", piece) + std::string(100, 'y');
    const std::clock_t start = std::clock();
    fold_lines(text);
    html_to_text(text);
    MailParser.ParseMailHeader(text);
    EXPECT_EQ(find_bytes(text, std::string(1000, 'x') + "b" + std::string(1000, 'x')), std::string::npos);
    EXPECT_LT(std::clock() - start, 5 * CLOCKS_PER_SEC) << piece;
  }
}

}  // namespace
}  // namespace yinet::test
