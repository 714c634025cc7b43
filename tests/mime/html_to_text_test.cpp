#include "yinet/mime/html_to_text.h"

#include <gtest/gtest.h>

#include <chrono>
#include <random>

#include "mime/literal_models.h"
#include "yinet/host/text.h"

namespace yinet {
namespace {

struct Case {
  std::string html, text;
};

TEST(HtmlToText, TagsGoAndTheirTextStays) {
  const Case cases[] = {
      {"", ""},
      {"plain", "plain"},
      {"<p>one</p><P CLASS='x'>two</P>", "onetwo"},
      {"one<br>two<BR>three", "one\r\ntwo\r\nthree"},
      {"one<br/>two<br />", "onetwo"},  // only the bare form is a line end
      {"a&nbsp;b&NBSP;c", "a b c"},
      {"<br><br>\r\ntext<br>", "text\r\n"},
      {"\r\n <br>text", " \r\ntext"},
      {"a < b", "a < b"},
      {"a > b", "a > b"},
      {"a < b <br> c", "a < b \r\n c"},             // that ">" became a line end, so nothing closes the "<"
      {"a <b <br> c> d", "a  d"},
      {"a <<b>> c", "a > c"},
      {"<", "<"},
      {"x<", "x<"},
      {"x<>y", "xy"},
      {"<script>if (a < b) f();</script>ok", "if (a ok"},
  };
  for (const Case& c : cases) EXPECT_EQ(html_to_text(c.html), c.text) << c.html;
}

TEST(HtmlToText, CharacterReferencesBecomeWindows1252) {
  const Case cases[] = {
      {"&auml;&Auml;&szlig;&euro;", "\xE4\xC4\xDF\x80"},
      {"&amp;&lt;&gt;&quot;", "&<>\""},
      {"&copy;&yuml;&eacute;", "\xA9\xFF\xE9"},
      {"&#228;&#xE4;&#XE4;", "\xE4\xE4\xE4"},
      {"&#8364;&#x201E;&#150;", "\x80\x84\x96"},
      {"&amp;auml;", "&auml;"},                          // resolved once
      {"&a<b>uml;", "\xE4"},                             // side by side once the tag is gone
      {"&AUML;&unknown;&;&#;&#x;&#12a;&auml", "&AUML;&unknown;&;&#;&#x;&#12a;&auml"},
      {"&#0;&#1234567;&#x4E2D;&#99999999999999999999;", "&#0;&#1234567;&#x4E2D;&#99999999999999999999;"},
      {"&&auml;", "&\xE4"},
      {"AT&T", "AT&T"},
  };
  for (const Case& c : cases) EXPECT_EQ(html_to_text(c.html), c.text) << c.html;
}

TEST(HtmlToText, OnePassEqualsTheStagesOneAfterTheOther) {
  const std::string pieces[] = {"<", ">", "<b", "<br>", "<BR", "br>", "&nbsp;", "&nb", "sp;", "x", "\r\n", " "};
  std::mt19937 random(7);
  for (int i = 0; i < 20000; ++i) {
    std::string html;
    for (auto count = random() % 14; count > 0; --count) html += pieces[random() % std::size(pieces)];
    // What is left of "&nb" and "sp;" may meet as a reference; that is the next stage's business.
    std::string expected = test::lower_text_without_tags_by_stages(html);
    expected = replaced(expected, "&nbsp;", "\xA0");
    ASSERT_EQ(to_lower(html_to_text(html)), expected) << html;
  }
}

TEST(HtmlToText, CostStaysFlat) {
  const std::size_t count = 2'000'000;
  std::string half_tags;
  for (std::size_t i = 0; i < count / 4; ++i) half_tags += "<<br>";
  const std::string inputs[] = {std::string(count, '<'), std::string(count, '&'), half_tags,
                                std::string(count, '<') + ">" + std::string(count, '<')};
  for (const std::string& html : inputs) {
    const auto start = std::chrono::steady_clock::now();
    html_to_text(html);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5)) << html.substr(0, 20);
  }
}

}  // namespace
}  // namespace yinet
