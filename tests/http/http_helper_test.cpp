#include "yinet/http/http_helper.h"

#include <gtest/gtest.h>

#include "support/bytes.h"
#include "yinet/host/settings.h"
#include "yinet/host/yjson.h"

namespace yinet {
namespace {

using namespace std::string_view_literals;
using test::times;

// What a record says, as JSON; "false" in front when the operation said so.
std::string told(bool result, const YObject& record) { return (result ? "" : "false ") + YJSON::Write(record); }

std::string body_of(std::string_view type, std::string_view body) {
  YObject fields;
  const bool done = HttpHelper.ParseBody(YString(type), YBuffer(body), &fields);
  return told(done, fields);
}

TEST(HttpHelper, MessagesAreCutAtTheFirstEmptyLine) {
  const struct { std::string_view message, header, body; bool found = true; } kCases[] = {
      {"A: 1\r\nB: 2\r\n\r\nbody", "A: 1\r\nB: 2\r\n", "body"},
      {"A: 1\n\nx\r\n\r\ny", "A: 1\n", "x\r\n\r\ny"},
      {"A\r\n\r\nx\n\ny", "A\r\n", "x\n\ny"},
      {"A\r\n\n", "A\r\n", ""},
      {"\r\nbody", "", "body"},
      {"\n\nbody", "", "\nbody"},
      {"A: 1\r\n\rB", "", "", false},
  };
  for (const auto& wanted : kCases) {
    YString header("before");
    YBuffer body("before"sv);
    EXPECT_EQ(HttpHelper.ExtractMessageParts(YBuffer(wanted.message), &header, &body), wanted.found) << wanted.message;
    EXPECT_TRUE(header.Equals(wanted.header)) << wanted.message;
    EXPECT_EQ(body.view(), wanted.body) << wanted.message;
  }
}

TEST(HttpHelper, StartLinesOfRequests) {
  const struct { std::string_view line, method, path, query; } kCases[] = {
      {"GET /a%20b?x=1&y&z=%41 HTTP/1.1", "GET", "/a b", R"({"x":"1","y":"","z":"A"})"},
      {"POST  /a+b?c+d=e%2Bf+g http/1.0", "POST", "/a+b", R"({"c d":"e+f g"})"},
      {"GET /%zz%4%?a=%zz&b=%00 HTTP/1.1", "GET", "/%zz%4%", R"({"a":"%zz","b":"\u0000"})"},
      {"GET /?a=1&&a=2=3&=v& HTTP/1.1 HTTP/1.0", "GET", "/", R"({"a":"2=3","":"v"})"},
      {"GET HTTP/1.1", "GET", "", "{}"},
      {"GET /x", "", "", "false {}"},
      {" HTTP/1.1", "", "", "false {}"},
  };
  for (const auto& wanted : kCases) {
    YString method;
    YString path;
    YObject query;
    const bool done = HttpHelper.ParseRequestStartLine(YString(wanted.line), &method, &path, &query);
    EXPECT_EQ(told(done, query), wanted.query) << wanted.line;
    EXPECT_TRUE(method.Equals(wanted.method) && path.Equals(wanted.path)) << wanted.line;
  }
}

TEST(HttpHelper, StartLinesOfResponses) {
  for (const auto& [line, expected] : {std::pair("HTTP/1.1 200 OK", 200), {"http  404", 404}, {"HTTP/1.1 20x1", 20},
                                       {"HTTP/1.1 OK", 0}, {"HTTP/1.1  ", -1}, {"HTT 200", -1}}) {
    int status = 7;
    EXPECT_EQ(HttpHelper.ParseResponseStartLine(YString(line), &status), expected > 0) << line;
    EXPECT_EQ(status, expected) << line;
  }
}

TEST(HttpHelper, HeaderLinesBecomeFieldsAndBack) {
  const struct { std::string_view text, start, fields; } kCases[] = {
      {"HTTP/1.1 200 OK\r\nA: 1\r\nB :2 : 3\n\r\nC\rD:\r\n", "HTTP/1.1 200 OK", R"({"A":"1","B":"2 : 3","C":null,"D":""})"},
      {"Host: h\r\nA: 1", "", R"({"Host":"h","A":"1"})"},
      {"get http://h/ HTTP/1.1\r\nA: 1", "get http://h/ HTTP/1.1", R"({"A":"1"})"},
      {"POST http://h/ HTTP/1.1", "", R"({"POST http":"//h/ HTTP/1.1"})"},
      {"x\nSet-Cookie: a\nset-cookie: b\nN\nN\nN: 1\n", "x", R"({"Set-Cookie":"a\u0001b","N":"\u00011"})"},
      {"x\nA: 1\n: 2\nB: 3", "x", R"(false {"A":"1"})"},
      {"\r\nA: 1", "", "false {}"},
  };
  for (const auto& wanted : kCases) {
    YString start("before");
    YObject fields;
    const bool done = HttpHelper.ParseHeader(YString(wanted.text), &start, &fields);
    EXPECT_EQ(told(done, fields), wanted.fields) << wanted.text;
    EXPECT_TRUE(start.Equals(wanted.start)) << wanted.text;
  }
  YObject fields;
  fields.StoreText("Evil", "x\nInjected: 1");
  EXPECT_EQ(HttpHelper.CreateHeader(fields), "");
}

TEST(HttpHelper, HeaderValuesHaveParameters) {
  const struct { std::string_view value, main, parameters; } kCases[] = {
      {"text/html; charset=\"utf-8\"", "text/html", R"({"charset":"utf-8"})"},
      {" a ;b= 'c' ; d ;e=\"f=g\";h=\";", "a", R"({"b":"c","d":"","e":"f=g","h":"\""})"},
      {"a; b=c=d; e=f", "a", "false {}"},
      {"", "", "{}"},
  };
  for (const auto& wanted : kCases) {
    YString main;
    YObject parameters;
    const bool done = HttpHelper.ParseHeaderValue(YString(wanted.value), &main, &parameters);
    EXPECT_EQ(told(done, parameters), wanted.parameters) << wanted.value;
    EXPECT_TRUE(main.Equals(wanted.main)) << wanted.value;
  }
}

TEST(HttpHelper, BodiesAreReadByTheirType) {
  const struct { std::string_view type, body, fields; } kCases[] = {
      {"Application/JSON; charset=utf-8", "\xEF\xBB\xBF {\"a\": [{\"b\": \"\xC3\xA4\"}]}", "{\"a\":[{\"b\":\"\xC3\xA4\"}]}"},
      {"application/problem+json", "[1, 2]", R"({"BODY":"1\u00012"})"},
      {"application/json", "{\"a\":", "false {}"},
      {"text/plain", "\xC3\xA4 \xE4", "{\"BODY\":\"\xC3\x83\xC2\xA4 \xC3\xA4\"}"},
      {"text/plain; charset=iso-8859-15", "\xA4", "{\"BODY\":\"\xE2\x82\xAC\"}"},
      {"text/xml; charset=ISO-8859-1", "<a>\xE4</a>", "{\"a\":\"\xC3\xA4\"}"},
      {"application/soap+xml", "<s:E xmlns:s='u'><s:B/></s:E>", R"({"s:E":{"@xmlns:s":"u","s:B":""}})"},
      {"text/xml", "<!DOCTYPE a><a/>", "false {}"},
      {"application/x-www-form-urlencoded", "a=%C3%A4+1&b=&a=2\r\n", "{\"a\":\"\xC3\xA4 1\\u00012\",\"b\":\"\"}"},
      {"text/html", "<p>", "false {}"},
  };
  for (const auto& wanted : kCases) EXPECT_EQ(body_of(wanted.type, wanted.body), wanted.fields) << wanted.type;
}

TEST(HttpHelper, FormDataHasTextsAndFiles) {
  constexpr auto kType = "multipart/form-data; boundary=b"sv;
  const struct { std::string_view body, fields; } kCases[] = {
      {"--b\r\nContent-Disposition: form-data; name=\"a;=\"\r\n\r\n\xC3\xA4\r\n--b--\r\n", "{\"a;=\":\"\xC3\xA4\"}"},
      {"preamble\n--b \nContent-Disposition: form-data; name=a\n\n1\n2\n--b\ncontent-disposition: form-data; name=A\n\n3\n--b--",
       R"({"a":"1\n2\u00013"})"},
      {"--b\r\nContent-Disposition: form-data; name=f; filename=\"x.bin\"\r\nContent-Type: image/png\r\n\r\n\r\n--bb\r\n\r\n--b--",
       R"({"f":{"FILENAME":"x.bin","CONTENTTYPE":"image/png","CONTENT":{"$base64":"DQotLWJiDQo="}}})"},
      {"--b\nContent-Disposition: a; name=f\n\nt\n--b\nContent-Disposition: a; name=f; filename=x\n\n1\n--b\n"
       "Content-Disposition: a; name=f\n\nu\n--b--",
       R"({"f":[{"CONTENT":"t"},{"FILENAME":"x","CONTENTTYPE":"","CONTENT":{"$base64":"MQ=="}},{"CONTENT":"u"}]})"},
      {"--b\nContent-Disposition: a; name=f\nContent-Type: text/plain; charset=windows-1252\n\n\xC3\xA4\n--b\nX: y\n\nz\n--b--",
       "{\"f\":\"\xC3\x83\xC2\xA4\"}"},
      {"--b\r\nContent-Disposition: a; name=e\r\n--b\r\n--b--", R"({"e":""})"},
      {"--b\r\nContent-Disposition: a; name=e\r\n\r\n1\r\n--b\r\nContent-Disposition: a; name=cut\r\n\r\n2", R"(false {"e":"1"})"},
      {"", "false {}"},
  };
  for (const auto& wanted : kCases) EXPECT_EQ(body_of(kType, wanted.body), wanted.fields) << wanted.body;
  EXPECT_EQ(body_of("multipart/form-data", "--\r\n\r\n----"), "false {}");
}

// Anything quadratic takes hours here and runs into the time limit of the test.
TEST(HttpHelper, HostileInputCostsNoMoreThanItsSize) {
  YObject fields;
  EXPECT_TRUE(HttpHelper.ParseHeader(YString("x\n" + times(1000000, "A: 1\r\n")), nullptr, &fields));
  EXPECT_EQ(fields.GetString("A").Length(), 1999999);
  EXPECT_TRUE(HttpHelper.ParseHeaderValue(YString(std::string(1 << 20, ';')), nullptr, &fields));
  EXPECT_FALSE(HttpHelper.ExtractMessageParts(YBuffer("x" + times(1000000, "\r\n\r")), nullptr, nullptr));
  EXPECT_EQ(body_of("multipart/form-data; boundary=b", times(1000000, "\n--b-")), "false {}");
  EXPECT_EQ(body_of("multipart/form-data; boundary=" + std::string(70, '-'), std::string(5000000, '-')), "false {}");
  set_setting("HTTP", "FormularFelder", "3");
  EXPECT_EQ(body_of("application/x-www-form-urlencoded", "a=1&b=2&c=3&d=4"), R"(false {"a":"1","b":"2","c":"3"})");
  set_setting("HTTP", "FormularFelder", std::nullopt);
}

}  // namespace
}  // namespace yinet
