#include "yinet/mime/header_encoding.h"

#include <gtest/gtest.h>

#include <random>

#include "yinet/host/text.h"
#include "yinet/host/ybase64.h"
#include "yinet/mime/base64_lines.h"
#include "support/bytes.h"

namespace yinet {
namespace {

TEST(HeaderEncoding, SubjectBecomesEncodedWords) {
  const std::string a36(36, 'a');
  const std::string word36 = "=?iso-8859-1?B?YWFhYWFhYWFhYWFhYWFhYWFhYWFhYWFhYWFhYWFhYWFhYWFh?=";
  struct Case {
    std::string text;
    int line_length;
    std::string encoded;
  };
  const Case cases[] = {
      {"", 76, ""},
      {"Hallo", 76, "=?iso-8859-1?B?SGFsbG8=?="},
      {"\xE4\xF6\xFC\x80", 76, "=?iso-8859-1?B?5Pb8gA==?="},
      {a36, 76, word36},
      {a36 + "aaaa", 76, word36 + "\r\n\t=?iso-8859-1?B?YWFhYQ==?="},
      {a36, 0, word36},
      {"abcd", 42, "=?iso-8859-1?B?YWI=?=\r\n\t=?iso-8859-1?B?Y2Q=?="},
      {"ab", 10, "=?iso-8859-1?B?YQ==?=\r\n\t=?iso-8859-1?B?Yg==?="},  // never less than one character
      {"a\r\nBcc: x", 76, "=?iso-8859-1?B?YQ0KQmNjOiB4?="},
  };
  for (const Case& c : cases) EXPECT_EQ(encoded_header_line(c.text, c.line_length), c.encoded) << c.text;
}

TEST(HeaderEncoding, LineBreaksBecomeBlanks) {
  struct Case {
    std::string value, line;
  };
  const Case cases[] = {
      {"", ""},
      {"plain", "plain"},
      {"a\r\nBcc: b", "a Bcc: b"},
      {"a\rb\nc", "a b c"},
      {std::string("a\0b", 3), "a b"},
      {"\r\n\r\n", "  "},
      {"\n\r", "  "},
      {"end\r", "end "},
      {"tab\tstays", "tab\tstays"},
  };
  for (const Case& c : cases) EXPECT_EQ(one_header_line(c.value), c.line);
  EXPECT_EQ(quotable_file_name("a\"b\r\n.txt"), "a'b .txt");
}

TEST(HeaderEncoding, LineEndsBecomeCrlf) {
  struct Case {
    std::string text, unified;
  };
  const Case cases[] = {
      {"", ""},           {"a", "a"},                   {"a\nb\rc\r\nd", "a\r\nb\r\nc\r\nd"},
      {"\n", "\r\n"},     {"\r\r\n", "\r\n\r\n"},       {"a\n\n", "a\r\n\r\n"},
  };
  for (const Case& c : cases) EXPECT_EQ(with_crlf_line_ends(c.text), c.unified) << printable(c.text);
}

TEST(HeaderEncoding, DotsThatBeginALineAreDoubled) {
  struct Case {
    std::string body, stuffed;
  };
  const Case cases[] = {
      {"", ""},
      {".\r\nx", "..\r\nx"},
      {".x\r\ny", ".x\r\ny"},  // the first line only when it is a lone dot
      {"x\r\n.\r\n", "x\r\n..\r\n"},
      {"x\r\n..y\r\n.z", "x\r\n...y\r\n..z"},
      {".\r\n.\r\n", "..\r\n..\r\n"},
      {".", "."},
      {"x\n.y", "x\n.y"},
  };
  for (const Case& c : cases) {
    std::string text = c.body;
    stuff_dots(text);
    EXPECT_EQ(text, c.stuffed) << printable(c.body);
  }
}

TEST(Base64Lines, AreCutAfter72Characters) {
  for (const std::size_t size : {0, 1, 53, 54, 55, 108, 512 * 54 - 1, 512 * 54, 512 * 54 + 1, 200'000}) {
    const std::string bytes = test::pattern_bytes(size, 3);
    std::string expected = "before";
    for (std::size_t at = 0; at < size; at += 54) expected += base64_encoded(bytes.substr(at, 54)) + "\r\n";
    std::string lines = "before";
    append_base64_lines(bytes, lines);
    EXPECT_TRUE(lines == expected) << size;
    EXPECT_EQ(base64_lines_size(static_cast<std::int64_t>(size)), static_cast<std::int64_t>(lines.size() - 6)) << size;
  }
}

}  // namespace
}  // namespace yinet
