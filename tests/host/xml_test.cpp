#include "yinet/host/yxml.h"

#include <gmock/gmock.h>

#include <ctime>

#include "yinet/host/settings.h"
#include "yinet/host/yjson.h"

using testing::HasSubstr;

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

std::string repeated(std::string_view piece, int times) {
  std::string all;
  for (int i = 0; i < times; ++i) all += piece;
  return all;
}

}  // namespace

TEST(Xml, ElementsBecomeRecordsTextsAndArrays) {
  const std::pair<const char*, const char*> kCases[] = {
      {"<a>text</a>", R"({"a":"text"})"},
      {"<a/>", R"({"a":""})"},
      {"<?xml version='1.0'?>\n<!-- c --><a>\n  <b>1</b>\n  <c>2</c>\n</a>\n", R"({"a":{"b":"1","c":"2"}})"},
      {"<s:a xmlns:s='urn:x'><s:b/></s:a>", R"({"s:a":{"@xmlns:s":"urn:x","s:b":""}})"},
      {"<a><b x='1' y='2'>t</b><c/></a>", R"({"a":{"b":"t","b@x":"1","b@y":"2","c":""}})"},
      {"<r><i>1</i><o>x</o><i>2</i></r>", R"({"r":{"i":[{"#text":"1"},{"#text":"2"}],"o":"x"}})"},
      {"<r><i k='v'>1</i><i><b>2</b></i><i/></r>", R"({"r":{"i":[{"#text":"1","@k":"v"},{"b":"2"},{"#text":""}]}})"},
      {"<r><Name>1</Name><name>2</name></r>", R"({"r":{"Name":[{"#text":"1"},{"#text":"2"}]}})"},
      {"<r>one <b>two</b> three</r>", R"({"r":{"b":"two","#text":"one  three"}})"},
      {"<a>x<!-- c -->y<?p i?>z</a>", R"({"a":"xyz"})"},
      {"<a>1<![CDATA[<&amp;]]> 2</a>", R"({"a":"1<&amp; 2"})"},
      {"<a>x\r\ny\rz</a>", "{\"a\":\"x\\ny\\nz\"}"},
      {"<a b='x\r\n\ty'/>", R"({"a":"","a@b":"x  y"})"},
  };
  for (const auto& [xml, json] : kCases) EXPECT_EQ(read(xml), json) << xml;
}

TEST(Xml, ReferencesAreTheFiveAndNumericOnes) {
  const std::pair<const char*, const char*> kCases[] = {
      {"&lt;&gt;&amp;&quot;&apos;", R"({"a":"<>&\"'"})"},
      {"&#65;&#x42;&#x0000043;&#13;", R"({"a":"ABC\r"})"},
      {"&#228;&#x20AC;", "{\"a\":\"\xC3\xA4\xE2\x82\xAC\"}"},
      {"&#x65E5;", R"({"a":"?"})"},
      {"a & b &amp b &nbsp; &; &#; &#x; &#12a;", R"({"a":"a & b &amp b &nbsp; &; &#; &#x; &#12a;"})"},
      {"&amp;lt;", R"({"a":"&lt;"})"},
      {"&#0;", "error: a reference to a character that does not exist at 3"},
      {"&#xD800;", "error: a reference to a character that does not exist at 3"},
      {"&#1;", "error: a reference to a character that does not exist at 3"},
  };
  for (const auto& [text, json] : kCases) EXPECT_EQ(read("<a>" + std::string(text) + "</a>"), json) << text;
  EXPECT_EQ(read("<a b='&#10;&lt;&bad;'/>"), R"({"a":"","a@b":"\n<&bad;"})");
  EXPECT_THAT(read("<a b='&#0;'/>"), HasSubstr("error: a reference"));
}

TEST(Xml, EncodingIsTheMarkElseTheDeclaredElseUtf8) {
  const auto wide = [](std::string_view ascii, bool big) {
    std::string out;
    for (const char c : ascii) out += big ? std::string{'\0', c} : std::string{c, '\0'};
    return out;
  };
  const std::string euro = "{\"a\":\"\xC3\xA4\xE2\x82\xAC\"}";
  const std::pair<std::string, std::string> kCases[] = {
      {"<a>\xC3\xA4\xE2\x82\xAC</a>", euro},
      {"\xEF\xBB\xBF<a>\xC3\xA4\xE2\x82\xAC</a>", euro},
      {"<?xml version=\"1.0\" encoding='utf-8'?><a>\xC3\xA4\xE2\x82\xAC</a>", euro},
      {"<?xml version=\"1.0\" encoding=\"Windows-1252\"?><a>\xE4\x80</a>", euro},
      {"<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?><a>\xE4\x80</a>", euro},  // means Windows-1252
      {"<?xml version=\"1.0\" encoding=\"ISO-8859-15\"?><a>\xE4\xA4</a>", euro},
      {"<?xml version=\"1.0\" encoding=\"UTF-16\"?><a>\xC3\xA4\xE2\x82\xAC</a>", euro},  // cannot be true
      {"\xFF\xFE" + wide("<a>x</a>", false), R"({"a":"x"})"},
      {"\xFE\xFF" + wide("<?xml version='1.0' encoding='utf-16'?><a>x</a>", true), R"({"a":"x"})"},
      {wide("<a>x</a>", false), R"({"a":"x"})"},
      {wide("<a>x</a>", true), R"({"a":"x"})"},
      {"<a>\xE6\x97\xA5</a>", R"({"a":"?"})"},
      {"<\xC3\xA4>x</\xC3\xA4>", "{\"\xC3\xA4\":\"x\"}"},
  };
  for (const auto& [xml, json] : kCases) EXPECT_EQ(read(xml), json) << xml;
  YObject record;
  ASSERT_FALSE(YXml::Parse("<\xE6\x97\xA5 \xE6\x97\xA6='1'/>", record));
  EXPECT_TRUE(record.Exist("\xE6\x97\xA5@\xE6\x97\xA6")) << "names keep what Windows-1252 lacks";
}

TEST(Xml, BrokenDocumentsAreRefusedWithReasonAndPosition) {
  const std::pair<std::string, const char*> kCases[] = {
      {"", "error: no root element"},
      {"text", "error: text outside the root element at 0"},
      {"<a/>text", "error: text outside the root element at 4"},
      {"<a/><b/>", "error: a second root element at 5"},
      {"<a>", "error: "},
      {"<a></b>", "error: "},
      {"<a b='1></a>", "error: "},
      {"<a><![CDATA[x</a>", "error: "},
      {"<!DOCTYPE a [<!ENTITY x SYSTEM 'file:///etc/passwd'>]><a>&x;</a>", "error: a DOCTYPE is not taken"},
      {std::string("<a>\0</a>", 8), "error: a NUL character at 3"},
      {"<a>\xC3</a>", "error: not valid UTF-8 at 3"},
      {"<a>\xE4\x80</a>", "error: not valid UTF-8 at 3"},
      {"\xFF\xFE<", "error: the document is not in its encoding \"utf-16le\""},
      {"<?xml version='1.0' encoding='nonsense'?><a/>", "error: unknown encoding \"nonsense\""},
      {"<?xml version='1.0' encoding='iso-8859-1,swaplfnl'?><a/>", "error: unknown encoding"},
      {"<?xml version='1.0' encoding='shift_jis'?><a>\x81</a>", "error: the document is not in its encoding"},
  };
  for (const auto& [xml, error] : kCases) EXPECT_THAT(read(xml), testing::StartsWith(error)) << xml;
}

TEST(Xml, ARefusedDocumentLeavesTheRecordAloneAndATakenOneReplacesIt) {
  YObject record;
  record.StoreText("alt", "1");
  EXPECT_TRUE(YXml::Parse("<a><b/><c></a>", record));
  EXPECT_EQ(YJSON::Write(record, 0), R"({"alt":"1"})");
  EXPECT_FALSE(YXml::Parse("<a/>", record));
  EXPECT_EQ(YJSON::Write(record, 0), R"({"a":""})");
}

TEST(Xml, HostileSizesAreRefusedOrTakenInLinearTime) {
  EXPECT_EQ(read(repeated("<a>", 200) + repeated("</a>", 200)).substr(0, 6), "{\"a\":{");
  EXPECT_THAT(read(repeated("<a>", 201) + repeated("</a>", 201)), HasSubstr("TiefenLimit"));
  EXPECT_THAT(read(repeated("<a>", 100'000)), HasSubstr("error: "));
  EXPECT_THAT(read(std::string(33 * 1024 * 1024, ' ') + "<a/>"), HasSubstr("GroessenLimit"));
  yinet::set_setting("XML", "ElementLimit", "3");
  EXPECT_EQ(read("<a><b/><b/></a>"), R"({"a":{"b":[{"#text":""},{"#text":""}]}})");
  EXPECT_THAT(read("<a><b/><b/><b/></a>"), HasSubstr("ElementLimit"));
  EXPECT_THAT(read("<a b='' c='' d=''/>"), HasSubstr("ElementLimit"));
  yinet::set_setting("XML", "ElementLimit", std::nullopt);
  yinet::set_setting("XML", "TiefenLimit", "2000000000");
  EXPECT_THAT(read(repeated("<a>", 1001) + repeated("</a>", 1001)), HasSubstr("TiefenLimit"));
  yinet::set_setting("XML", "TiefenLimit", std::nullopt);

  const std::clock_t start = std::clock();
  std::string attributes, elements;
  for (int i = 0; i < 30'000; ++i) {
    attributes += " a" + std::to_string(i) + "=''";
    elements += "<e" + std::to_string(i) + "/><b/>&";
  }
  YObject record;
  EXPECT_FALSE(YXml::Parse("<a" + attributes + "/>", record));
  EXPECT_EQ(record.GetStringKeyCount(), 30'001);
  EXPECT_FALSE(YXml::Parse("<a>" + elements + "</a>", record));
  EXPECT_EQ(record.Find<YObject>("a")->GetStringKeyCount(), 30'002);
  EXPECT_EQ(record.Find<YObject>("a")->Find<YObjectArray>("b")->Count(), 30'000);
  EXPECT_LT(std::clock() - start, 20 * CLOCKS_PER_SEC);
}

TEST(Xml, RecordsAreWrittenAsElements) {
  const std::pair<const char*, const char*> kCases[] = {
      {R"({"a":"text","b":5,"c":true,"d":"","e":null})", "<a>text</a><b>5</b><c>1</c><d/><e/>"},
      {R"({"a":{"b":"1","c":{"d":"2"}}})", "<a><b>1</b><c><d>2</d></c></a>"},
      {R"({"i":[{"#text":"1","@k":"v"},{"b":"2"},{}]})", "<i k=\"v\">1</i><i><b>2</b></i><i/>"},
      {R"({"x@k":"v","X":"1","s:a":{"@xmlns:s":"urn:\"<&>'"}})",
       "<X k=\"v\">1</X><s:a xmlns:s=\"urn:&quot;&lt;&amp;&gt;'\"/>"},
      {"{\"\xC3\xA4\":\"\xE2\x82\xAC <&>\\r\\n\"}", "<\xC3\xA4>\xE2\x82\xAC &lt;&amp;&gt;&#13;\n</\xC3\xA4>"},
      {R"({"a":{"#text":"t","b":""}})", "<a>t<b/></a>"},
      {R"({"bytes":{"$base64":"AP8="}})", "<bytes>AP8=</bytes>"},
      {"{}", ""},
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
      {R"({"a><b":"x"})", "is no XML name"},
      {R"({"a:b:c":"x"})", "is no XML name"},
      {"{\"\xC2\xB5\":\"x\"}", "is no XML name"},
      {"{\"a\\n\":\"x\"}", "\"a\\n\" is no XML name"},
      {R"({"a":{"@x y":"v"}})", "is no XML name"},
      {R"({"a":{"@":"v"}})", "is no XML name"},
      {R"({"a":"1\u00012"})", "error: a control character in the text at /a"},
      {R"({"a":"","a@b":"\u0000"})", "error: a control character in the text at /a@b"},
      {R"({"b@x":"v"})", "error: there is no text for the attribute /b@x"},
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
  std::string all;
  for (int byte = 1; byte < 256; ++byte) all += static_cast<char>(byte);
  const std::string escaped = YXml::Escape(all).str();
  YObject record;
  ASSERT_FALSE(
      YXml::Parse("<?xml version='1.0' encoding='windows-1252'?><a b=\"" + escaped + "\">" + escaped + "</a>", record));
  EXPECT_EQ(record.GetString("a"), record.GetString("a@b"));
  EXPECT_EQ(record.GetString("a").str().substr(31), all.substr(31));
}
