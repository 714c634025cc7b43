// Records, and their forms in JSON and XML.

#include <gmock/gmock.h>

#include <algorithm>
#include <ctime>
#include <random>

#include "yinet/yinet.h"

namespace {

using namespace std::string_literals;
using testing::HasSubstr;
using Pairs = std::pair<std::string, std::string>[];

// Additions, deletions and look-ups in a random order against a plain list; values never move.
TEST(YObject, BehavesLikeAListOfPairs) {
  struct Entry {
    std::string key;
    int value;
    std::int32_t* address;
  };
  std::mt19937 random(7);
  for (int round = 0; round < 200; ++round) {
    YObject record;
    std::vector<Entry> model;
    for (int step = 0; step < 300; ++step) {
      const std::string key = "\xC4" + std::to_string(random() % 40);
      const auto found = std::ranges::find(model, key, &Entry::key);
      if (random() % 4 == 0) {
        ASSERT_EQ(record.Delete(key), found != model.end());
        if (found != model.end()) model.erase(found);
      } else if (found == model.end()) {
        record.Store<std::int32_t>(key, step);
        model.push_back({key, step, record.Find<std::int32_t>(key)});
      } else {  // the first spelling stays
        record.Store<std::int32_t>(yinet::to_lower(key), step);
        found->value = step;
      }
    }
    const YObject copy = record;
    YObject moved = std::move(record);
    ASSERT_EQ(copy.GetStringKeyCount(), static_cast<int>(model.size()));
    for (std::size_t i = 0; i < model.size(); ++i) {
      ASSERT_EQ(copy.GetStringKey(static_cast<int>(i)).str(), model[i].key);
      ASSERT_EQ(moved.GetStringKey(static_cast<int>(i)).str(), model[i].key) << "holes of what was deleted";
      ASSERT_EQ(copy.GetInteger(model[i].key), model[i].value);
      ASSERT_EQ(moved.Find<std::int32_t>(model[i].key), model[i].address);
    }
  }
}

TEST(YObject, TypedPointersStayReadersConvertAndIntegerKeysStandBeside) {
  YObject record;
  auto* status = record.Set("pStatus", yinet::kTypeString, nullptr, 0);
  auto* answer = record.Set("pErg", yinet::kTypeObject, nullptr, 0);
  const YString text("-12x");
  EXPECT_EQ(record.Set("PSTATUS", yinet::kTypeString, &text, 3), status);
  EXPECT_EQ(record.Set("pErg", yinet::kTypeObject, &record, 0), answer) << "a copy of itself as it was";
  EXPECT_TRUE(!record._GetValuePtr("pStatus", yinet::kTypeInteger) && !record.Set("neu", 77, nullptr, 0));
  record.StoreText(1, "eins", 1);
  record.StoreText("1", "name");
  record.Store<bool>("ja", true);
  record.Store("puffer", YBuffer("99"));
  EXPECT_EQ(record.GetFlags("pStatus") + record.GetFlags(1) + record.GetFlags("1"), 3 + 1 + 0);
  EXPECT_TRUE(record.Delete(1) && !record.Delete(1) && !record.Exist(1));
  const std::tuple<const char*, const char*, int, bool> kRows[] = {
      {"pStatus", "-12x", -12, true}, {"ja", "1", 1, true},    {"puffer", "99", 99, true},
      {"pErg", "", 0, false},         {"1", "name", 0, false}, {"fehlt", "", 0, false}};
  for (const auto& [key, as_text, number, truth] : kRows) {
    EXPECT_EQ(record.GetString(key), as_text) << key;
    EXPECT_TRUE(record.GetInteger(key) == number && record.GetBool(key) == truth) << key;
  }
  YObject outer, inner;
  inner.StoreText("x", "deep");
  outer.Store("x", inner);
  outer.Add(*outer.Find<YObject>("x"));  // replaces the record that it takes
  EXPECT_EQ(outer.GetString("x"), "deep");
  outer.Store("x", inner);
  outer = std::move(*outer.Find<YObject>("x"));
  EXPECT_EQ(outer.GetString("x"), "deep");
}

std::string repeated(std::string_view piece, std::size_t times) {
  return yinet::replaced(std::string(times, '~'), "~", piece);
}

TEST(YJson, GoesThereAndBackAndWhatHasNoPlaceInARecordIsTextOrRefused) {
  YObject record;
  ASSERT_FALSE(YJSON::Parse(R"({"Z":"\u00e4\u20ac\u0001b\u0000","a":-5,"j":true,"leer":null,"b":{"$base64":"AP8="},)"
                            R"("o":{"x":{"y":""}},"l":[{"n":1},{}],"zahl":3000000000,"bruch":1.50,"liste":["a",2]})",
                            record));
  EXPECT_EQ(
      YJSON::Write(record),
      "{\"Z\":\"\xC3\xA4\xE2\x82\xAC\\u0001b\\u0000\",\"a\":-5,\"j\":true,\"leer\":null,\"b\":{\"$base64\":\"AP8=\"},"
      R"("o":{"x":{"y":""}},"l":[{"n":1},{}],"zahl":"3000000000","bruch":"1.50","liste":"a\u00012"})");
  for (const std::string& bad : {"[]"s, R"({"a":[1,{}]})"s, R"({"a":[[1]]})"s, "{\"a\":\"\xE4\"}"s, R"({"a":1} x)"s,
                                 ""s, repeated("{\"a\":", 100'000)}) {
    YObject untouched;
    EXPECT_TRUE(YJSON::Parse(bad, untouched) && untouched.IsEmpty()) << bad.substr(0, 20);
  }
}

// What a document says, as JSON; "error: ..." with the position where it is refused.
std::string read(std::string_view xml) {
  YObject record;
  record.StoreText("alt", "1");
  const auto error = YXml::Parse(xml, record);
  EXPECT_EQ(record.Exist("alt"), error.has_value()) << "a failure changes nothing";
  return error ? "error: " + error->reason + " at " + std::to_string(error->position) : YJSON::Write(record, 0);
}

std::string written(std::string_view json) {
  YObject record;
  if (const auto error = YJSON::Parse(json, record)) return "bad test: " + error->reason;
  std::string xml = "before";
  const auto error = YXml::WriteElements(record, xml);
  EXPECT_EQ(xml == "before", error.has_value()) << "a failure changes nothing";
  return error ? "error: " + error->reason : xml;
}

TEST(Xml, ElementsAreRecordsTextsAndArraysInBothDirections) {
  const Pairs kBoth = {
      {R"(<a><b x="1" y="2">t</b><c/></a>)", R"({"a":{"b":"t","b@x":"1","b@y":"2","c":""}})"},
      {R"(<r><i k="v">1</i><i><b>2</b></i><i/></r>)", R"({"r":{"i":[{"#text":"1","@k":"v"},{"b":"2"},{"#text":""}]}})"},
      {R"(<s:a xmlns:s="urn:&quot;&lt;&amp;&gt;'"/>)", R"({"s:a":"","s:a@xmlns:s":"urn:\"<&>'"})"},
      {"<\xC3\xA4>\xE2\x82\xAC &lt;&amp;&gt;&#13;\n</\xC3\xA4>", "{\"\xC3\xA4\":\"\xE2\x82\xAC <&>\\r\\n\"}"}};
  for (const auto& [xml, json] : kBoth) EXPECT_TRUE(read(xml) == json && written(json) == xml) << xml;
  const Pairs kRead = {
      {"<?xml version='1.0'?>\n<!-- c --><a>\n <b>1</b>\n <Name>1</Name><name>2</name>\n</a>\n",
       R"({"a":{"b":"1","Name":[{"#text":"1"},{"#text":"2"}]}})"},
      {"<a b='x\r\n\ty&#10;'>1<![CDATA[<&amp;]]> 2\r\ny\rz</a>", R"({"a":"1<&amp; 2\ny\nz","a@b":"x  y\n"})"},
      {"<r>one <b>&lt;&gt;&amp;lt;&quot;&apos;</b> &#65;&#x0000043;&#13;&#x20AC;&#x65E5;</r>",
       "{\"r\":{\"b\":\"<>&lt;\\\"'\",\"#text\":\"one  AC\\r\xE2\x82\xAC?\"}}"},
      {"<a>a & b &amp b &nbsp; &; &#; &#x; &#12a;</a>", R"({"a":"a & b &amp b &nbsp; &; &#; &#x; &#12a;"})"},
      // The encoding is that of the mark, else the declared one unless it cannot be true, else UTF-8.
      {"\xEF\xBB\xBF<a>\xC3\xA4</a>", "{\"a\":\"\xC3\xA4\"}"},
      {"<?xml version=\"1.0\" encoding=\"ISO-8859-15\"?><a>\xA4</a>", "{\"a\":\"\xE2\x82\xAC\"}"},
      {"<?xml version=\"1.0\" encoding=\"UTF-16\"?><a>\xC3\xA4</a>", "{\"a\":\"\xC3\xA4\"}"},
      {"\xFF\xFE<\0a\0/\0>\0"s, R"({"a":""})"},
      {"\xFE\xFF\0<\0a\0/\0>"s, R"({"a":""})"},
      {"\0<\0a\0/\0>"s, R"({"a":""})"}};
  for (const auto& [xml, json] : kRead) EXPECT_EQ(read(xml), json);
  YObject record;
  EXPECT_FALSE(YXml::Parse("<\xE6\x97\xA5 \xE6\x97\xA6='1'/>", record));
  EXPECT_TRUE(record.Exist("\xE6\x97\xA5@\xE6\x97\xA6")) << "names keep what Windows-1252 lacks";
  const Pairs kWritten = {{R"({"b":5,"c":true,"d":"","e":null,"f":{}})", "<b>5</b><c>1</c><d/><e/><f/>"},
                          {R"({"x@k":"v","X":"1","s:a":{"@xmlns:s":"u"}})", "<X k=\"v\">1</X><s:a xmlns:s=\"u\"/>"},
                          {R"({"a":{"#text":"t","b":{"$base64":"AP8="}}})", "<a>t<b>AP8=</b></a>"}};
  for (const auto& [json, xml] : kWritten) EXPECT_EQ(written(json), xml);
  EXPECT_EQ(YXml::Escape("a<b>&\"'\r\n\t\x01\xE4"), "a&lt;b&gt;&amp;&quot;&apos;&#13;&#10;&#9;?\xE4");
}

TEST(Xml, BrokenAndHostileDocumentsAreRefusedWithReasonAndPosition) {
  const Pairs kCases = {
      {"<a/>text", "error: text outside the root element at 4"},
      {"<a/><b/>", "error: a second root element at 5"},
      {"<a><b/><c></a>", "error: "},
      {"<a>&#0;</a>", "error: a reference to a character that does not exist at 3"},
      {"<!DOCTYPE a [<!ENTITY x SYSTEM 'file:///etc/passwd'>]><a>&x;</a>", "error: a DOCTYPE is not taken"},
      {std::string("<a>\0</a>", 8), "error: a NUL character at 3"},
      {"<a>\xE4\x80</a>", "error: not valid UTF-8 at 3"},
      {"\xFF\xFE<", "error: the document is not in its encoding \"utf-16le\""},
      {"<?xml version='1.0' encoding='iso-8859-1,swaplfnl'?><a/>", "error: unknown encoding"},
      {std::string(33 * 1024 * 1024, ' ') + "<a/>", R"(error: the document is larger than "XML"/"GroessenLimit")"},
      {"<a><![CDATA[" + repeated("<", 4'000'000) + "]]></a>", "{\"a\":\"<<"},
      {repeated("<a>", 200) + repeated("</a>", 200), "{\"a\":{"}};
  for (const auto& [xml, error] : kCases) EXPECT_THAT(read(xml), testing::StartsWith(error));
  const std::tuple<const char*, std::optional<std::string>, std::string> kLimits[] = {
      {"TiefenLimit", std::nullopt, repeated("<a>", 201) + repeated("</a>", 201)},
      {"TiefenLimit", "2000000000", repeated("<a>", 100'000) + repeated("</a>", 100'000)},  // never so deep
      {"ElementLimit", "3", "<a><b/><b/><b/></a>"},
      {"ElementLimit", "3", "<!--<x>--><a><![CDATA[<x/><x/>]]><b/><b/><b/></a>"},
      {"ElementLimit", std::nullopt, "<a" + repeated(" b=''", 1'000'000) + "/>"}};
  for (const auto& [limit, value, xml] : kLimits) {
    yinet::set_setting("XML", limit, value);
    EXPECT_THAT(read(xml), HasSubstr(limit));
  }
  std::string attributes, elements;
  for (int i = 0; i < 30'000; ++i) {
    attributes += " a" + std::to_string(i) + "=''";
    elements += "<e" + std::to_string(i) + "/><b/>&";
  }
  const std::clock_t start = std::clock();
  EXPECT_THAT(read("<a" + attributes + "/>"), HasSubstr("a@a29999"));
  EXPECT_THAT(read("<a>" + elements + "</a>"), HasSubstr("e29999"));
  EXPECT_LT(std::clock() - start, 20 * CLOCKS_PER_SEC) << "cost is linear";
}

TEST(Xml, WhatXmlCannotHoldIsAnErrorAndNotWritten) {
  const Pairs kCases = {{R"({"":"x"})", "\"\" is no XML name"},
                        {R"({"r":{"a b":"x"}})", "\"a b\" is no XML name, at /r/a b"},
                        {"{\"\xC2\xB5\":\"x\"}", "is no XML name"},
                        {R"({"a":{"@x y":"v"}})", "is no XML name"},
                        {R"({"a":"","a@b":"\u0000"})", "a control character in the text at /a@b"},
                        {R"({"b":{},"b@x":"v"})", "there is no text for the attribute /b@x"},
                        {R"({"#text":"v"})", "a text without an element"}};
  for (const auto& [json, error] : kCases)
    EXPECT_THAT(written(json), testing::AllOf(testing::StartsWith("error: "), HasSubstr(error)));
  std::string xml;
  for (const char* json : {"{}", R"({"a":"","b":""})", R"({"a":[{},{}]})", R"({"a":{"b":"1"}})"}) {
    YObject document;
    ASSERT_FALSE(YJSON::Parse(json, document));
    const bool refused = YXml::Write(document, xml).has_value();
    EXPECT_EQ(refused, xml.empty()) << json << ": not one root";
  }
  EXPECT_EQ(xml, R"(<?xml version="1.0" encoding="UTF-8"?><a><b>1</b></a>)");
}

}  // namespace
