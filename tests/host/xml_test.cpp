#include "yinet/host/yxml.h"

#include <gmock/gmock.h>

#include <ctime>

#include "support/bytes.h"
#include "yinet/host/settings.h"
#include "yinet/host/yjson.h"

using testing::HasSubstr;
using yinet::test::times;

namespace {

// What a document says, as JSON; "error: ..." with the position where it is refused.
std::string read(std::string_view xml) {
  YObject record;
  if (const auto error = YXml::Parse(xml, record))
    return "error: " + error->reason + " at " + std::to_string(error->position);
  return YJSON::Write(record, 0);
}

std::string written(std::string_view json) {
  YObject record;
  if (const auto error = YJSON::Parse(json, record)) return "bad test: " + error->reason;
  std::string xml = "before";
  if (const auto error = YXml::WriteElements(record, xml)) {
    EXPECT_EQ(xml, "before");
    return "error: " + error->reason;
  }
  return xml;
}

}  // namespace

TEST(Xml, ElementsBecomeRecordsTextsAndArrays) {
  const std::pair<const char*, const char*> kCases[] = {
      {"<?xml version='1.0'?>\n<!-- c --><a>\n  <b>1</b>\n  <c>2</c>\n</a>\n", R"({"a":{"b":"1","c":"2"}})"},
      {"<a><b x='1' y='2'>t</b><c/></a>", R"({"a":{"b":"t","b@x":"1","b@y":"2","c":""}})"},
      {"<r><i k='v'>1</i><i><b>2</b></i><i/></r>", R"({"r":{"i":[{"#text":"1","@k":"v"},{"b":"2"},{"#text":""}]}})"},
      {"<r><Name>1</Name><name>2</name></r>", R"({"r":{"Name":[{"#text":"1"},{"#text":"2"}]}})"},
      {"<r>one <b>two</b> three</r>", R"({"r":{"b":"two","#text":"one  three"}})"},
      {"<a>1<![CDATA[<&amp;]]> 2</a>", R"({"a":"1<&amp; 2"})"},
      {"<a>x\r\ny\rz</a>", "{\"a\":\"x\\ny\\nz\"}"},
      {"<a b='x\r\n\ty'/>", R"({"a":"","a@b":"x  y"})"},
  };
  for (const auto& [xml, json] : kCases) EXPECT_EQ(read(xml), json) << xml;
}

TEST(Xml, ReferencesAreTheFiveAndNumericOnes) {
  const std::pair<const char*, const char*> kCases[] = {
      {"&lt;&gt;&amp;lt;&quot;&apos;", R"({"a":"<>&lt;\"'"})"},
      {"&#65;&#x0000043;&#13;&#x20AC;&#x65E5;", "{\"a\":\"AC\\r\xE2\x82\xAC?\"}"},
      {"a & b &amp b &nbsp; &; &#; &#x; &#12a;", R"({"a":"a & b &amp b &nbsp; &; &#; &#x; &#12a;"})"},
      {"&#0;", "error: a reference to a character that does not exist at 3"},
      {"&#1;", "error: a reference to a character that does not exist at 3"},
  };
  for (const auto& [text, json] : kCases) EXPECT_EQ(read("<a>" + std::string(text) + "</a>"), json) << text;
  EXPECT_EQ(read("<a b='&#10;&lt;&bad;'/>"), R"({"a":"","a@b":"\n<&bad;"})");
}

TEST(Xml, EncodingIsTheMarkElseTheDeclaredElseUtf8) {
  const auto wide = [](std::string_view ascii, bool big) {
    std::string out;
    for (const char c : ascii) out += big ? std::string{'\0', c} : std::string{c, '\0'};
    return out;
  };
  const std::string euro = "{\"a\":\"\xC3\xA4\xE2\x82\xAC\"}";
  const std::pair<std::string, std::string> kCases[] = {
      {"\xEF\xBB\xBF<a>\xC3\xA4\xE2\x82\xAC</a>", euro},
      {"<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?><a>\xE4\x80</a>", euro},  // means Windows-1252
      {"<?xml version=\"1.0\" encoding=\"ISO-8859-15\"?><a>\xE4\xA4</a>", euro},
      {"<?xml version=\"1.0\" encoding=\"UTF-16\"?><a>\xC3\xA4\xE2\x82\xAC</a>", euro},  // cannot be true
      {"\xFF\xFE" + wide("<a>x</a>", false), R"({"a":"x"})"},
      {"\xFE\xFF" + wide("<?xml version='1.0' encoding='utf-16'?><a>x</a>", true), R"({"a":"x"})"},
      {wide("<a>x</a>", true), R"({"a":"x"})"},
  };
  for (const auto& [xml, json] : kCases) EXPECT_EQ(read(xml), json) << xml;
  YObject record;
  ASSERT_FALSE(YXml::Parse("<\xE6\x97\xA5 \xE6\x97\xA6='1'/>", record));
  EXPECT_TRUE(record.Exist("\xE6\x97\xA5@\xE6\x97\xA6")) << "names keep what Windows-1252 lacks";
}

TEST(Xml, BrokenDocumentsAreRefusedWithReasonAndPosition) {
  const std::pair<std::string, const char*> kCases[] = {
      {"", "error: no root element"},
      {"<a/>text", "error: text outside the root element at 4"},
      {"<a/><b/>", "error: a second root element at 5"},
      {"<a></b>", "error: "},
      {"<a><![CDATA[x</a>", "error: "},
      {"<!DOCTYPE a [<!ENTITY x SYSTEM 'file:///etc/passwd'>]><a>&x;</a>", "error: a DOCTYPE is not taken"},
      {std::string("<a>\0</a>", 8), "error: a NUL character at 3"},
      {"<a>\xE4\x80</a>", "error: not valid UTF-8 at 3"},
      {"\xFF\xFE<", "error: the document is not in its encoding \"utf-16le\""},
      {"<?xml version='1.0' encoding='iso-8859-1,swaplfnl'?><a/>", "error: unknown encoding"},
  };
  for (const auto& [xml, error] : kCases) EXPECT_THAT(read(xml), testing::StartsWith(error)) << xml;
  YObject record;
  record.StoreText("alt", "1");
  EXPECT_TRUE(YXml::Parse("<a><b/><c></a>", record));
  EXPECT_EQ(YJSON::Write(record, 0), R"({"alt":"1"})");
  EXPECT_FALSE(YXml::Parse("<a/>", record));
  EXPECT_EQ(YJSON::Write(record, 0), R"({"a":""})");
}

TEST(Xml, HostileSizesAreRefusedOrTakenInLinearTime) {
  EXPECT_THAT(read(times(200, "<a>") + times(200, "</a>")), testing::StartsWith("{\"a\":{"));
  EXPECT_THAT(read(times(201, "<a>") + times(201, "</a>")), HasSubstr("TiefenLimit"));
  EXPECT_THAT(read(std::string(33 * 1024 * 1024, ' ') + "<a/>"), HasSubstr("GroessenLimit"));
  yinet::set_setting("XML", "ElementLimit", "3");
  EXPECT_THAT(read("<a><b/><b/><b/></a>"), HasSubstr("ElementLimit"));
  yinet::set_setting("XML", "ElementLimit", std::nullopt);
  EXPECT_THAT(read("<a" + times(1000000, " b=''") + "/>"), HasSubstr("ElementLimit"));
  yinet::set_setting("XML", "TiefenLimit", "2000000000");
  EXPECT_THAT(read(times(100000, "<a>") + times(100000, "</a>")), HasSubstr("TiefenLimit"));
  yinet::set_setting("XML", "TiefenLimit", std::nullopt);

  const std::clock_t start = std::clock();
  std::string attributes, elements;
  for (int i = 0; i < 30'000; ++i) {
    attributes += " a" + std::to_string(i) + "=''";
    elements += "<e" + std::to_string(i) + "/><b/>&";
  }
  YObject record;
  EXPECT_FALSE(YXml::Parse("<a" + attributes + "/>", record));
  EXPECT_FALSE(YXml::Parse("<a>" + elements + "</a>", record));
  EXPECT_EQ(record.Find<YObject>("a")->Find<YObjectArray>("b")->Count(), 30'000);
  EXPECT_LT(std::clock() - start, 20 * CLOCKS_PER_SEC);
}

TEST(Xml, RecordsAreWrittenAsElements) {
  const std::pair<const char*, const char*> kCases[] = {
      {R"({"b":5,"c":true,"d":"","e":null})", "<b>5</b><c>1</c><d/><e/>"},
      {R"({"i":[{"#text":"1","@k":"v"},{"b":"2"},{}]})", "<i k=\"v\">1</i><i><b>2</b></i><i/>"},
      {R"({"x@k":"v","X":"1","s:a":{"@xmlns:s":"urn:\"<&>'"}})",
       "<X k=\"v\">1</X><s:a xmlns:s=\"urn:&quot;&lt;&amp;&gt;'\"/>"},
      {"{\"\xC3\xA4\":\"\xE2\x82\xAC <&>\\r\\n\"}", "<\xC3\xA4>\xE2\x82\xAC &lt;&amp;&gt;&#13;\n</\xC3\xA4>"},
      {R"({"a":{"#text":"t","b":{"$base64":"AP8="}}})", "<a>t<b>AP8=</b></a>"},
  };
  for (const auto& [json, xml] : kCases) EXPECT_EQ(written(json), xml) << json;
  YObject record;
  std::string xml;
  ASSERT_FALSE(YJSON::Parse(R"({"a":{"b":"1"}})", record));
  EXPECT_FALSE(YXml::Write(record, xml));
  EXPECT_EQ(xml, R"(<?xml version="1.0" encoding="UTF-8"?><a><b>1</b></a>)");
}

TEST(Xml, WhatXmlCannotHoldIsAnErrorAndNotWritten) {
  const std::pair<const char*, const char*> kCases[] = {
      {R"({"":"x"})", "\"\" is no XML name"},
      {R"({"r":{"a b":"x"}})", "error: \"a b\" is no XML name, at /r/a b"},
      {"{\"\xC2\xB5\":\"x\"}", "is no XML name"},
      {R"({"a":{"@x y":"v"}})", "is no XML name"},
      {R"({"a":"1\u00012"})", "error: a control character in the text at /a"},
      {R"({"a":"","a@b":"\u0000"})", "error: a control character in the text at /a@b"},
      {R"({"b":{},"b@x":"v"})", "error: there is no text for the attribute /b@x"},
      {R"({"#text":"v"})", "error: a text without an element"},
  };
  for (const auto& [json, error] : kCases) EXPECT_THAT(written(json), HasSubstr(error)) << json;

  std::string xml = "before";
  for (const char* roots : {"{}", R"({"a":"","b":""})", R"({"a":[{},{}]})"}) {
    YObject record;
    ASSERT_FALSE(YJSON::Parse(roots, record));
    EXPECT_TRUE(YXml::Write(record, xml)) << roots;
  }
  YObject deep;
  YObject* innermost = &deep;
  for (int i = 0; i < 300; ++i) innermost = &innermost->Ensure<YObject>("a");
  EXPECT_THAT(YXml::Write(deep, xml).value_or(yinet::XmlError{}).reason, HasSubstr("TiefenLimit"));
  EXPECT_EQ(xml, "before");
}

TEST(Xml, EscapedTextIsFitForContentAndAttributes) {
  EXPECT_EQ(YXml::Escape("a<b>&\"'\r\n\t\x01\xE4"), "a&lt;b&gt;&amp;&quot;&apos;&#13;&#10;&#9;?\xE4");
}
