// What HTTP looks like as text, without a connection: URLs, header blocks, the two readers of replies, and messages taken
// apart and put together.

#include <gtest/gtest.h>

#include "support/bytes.h"
#include "yinet/http/http_response.h"
#include "yinet/http/http_url.h"
#include "yinet/yinet.h"

namespace yinet::test {
namespace {

using namespace std::string_literals;

// What a record says, as JSON with simple quotes; "false" in front when the operation said so.
std::string told(bool result, const YObject& record) {
  return (result ? "" : "false ") + replaced(YJSON::Write(record), "\"", "'");
}

std::string repeated(std::string_view piece, int times) {
  return replaced(std::string(static_cast<std::size_t>(times), 'x'), "x", piece);
}

TEST(HttpText, UrlsAreReadByCounting) {
  const auto parts = [](const std::string& text) {
    const HttpUrl url = parse_http_url(text, false);
    return formatted("$1$ $2$ $3$$4$", url.host, std::to_string(url.port), url.path, url.tls ? " TLS" : "");
  };
  expect_rows(parts, {"HTTPS://H:8443/a?b=1 -> H 8443 /a?b=1 TLS", "hTtP://h/x:y//z -> h 80 /x:y//z",
                      "httpSXYZh/ -> h 443 / TLS", "ftp://h/x -> ftp 0 //h/x", "http://h?q=/x -> h?q= 80 /x",
                      "http://h:-1 -> h 4294967295 ", "http://h:8x:9 -> h 8 ", "https:/ ->  443  TLS"});
}

TEST(HttpText, HeaderBlocksHaveAStatusFieldsAndCookies) {
  const auto read = [](const std::string& block) {
    YObject header;
    YString status("before");
    const int code = parse_header_block(block, 2, header, status);
    return formatted("$1$ <$2$> $3$", std::to_string(code), status, told(true, header));
  };
  expect_rows(
      read,
      {"\r\n\r\nHTTP/1.1 200 OK\r\n\r\nA:b -> 200 <200 OK> {'A':'b'}", "HTTP/1.1 200 -> 200 <200> {}",
       "HTTP/1.1  200 OK -> 0 < 200 OK> {}", "200 -> 0 <200> {}",
       "x 1\r\nLocation: http://h/x\r\n a \t: b :c\r\nA:2\r\nlone\r\n:v -> 1 <1> "
       "{'Location':'http','a':'2','lone':'','':'v'}",
       "x 1\r\nCOOKIES: x\r\nSet-Cookie: a=1; path=/\r\nset-cookie:b\r\nSet-Cookie: c\r\nSET-COOKIE:A = 2=3;x -> 1 <1> "
       "{'COOKIES':{'a':{'VALUE':'2=3'},'b':{'VALUE':''}}}",
       "x 1\r\nk:\xE4\0\x01z\r\nSet-Cookie:a=\x01\r\nSet-Cookie:\x7F=1 -> 1 <1> {'k':'\303\244\\u0000\\u0001z','COOKIES':{}}"s});
}

const std::string kOk = "HTTP/1.1 200 OK\r\n";

// How a reply is read: code and body, or what was wrong with it.
std::string read(bool exact, const std::vector<std::string_view>& reads, const ReplyLimits& limits) {
  YObject header;
  YString status;
  const auto reader = make_reply_reader(exact, limits, header, status);
  ReplyProgress progress = ReplyProgress::more;
  for (auto bytes = reads.begin(); bytes != reads.end() && progress == ReplyProgress::more; ++bytes)
    if (!bytes->empty()) progress = reader->feed(*bytes);
  if (progress == ReplyProgress::more && exact) progress = reader->feed_end();
  constexpr const char* kNames[] = {"more", "", "cut", "header too long", "body too long", "malformed"};
  if (progress != ReplyProgress::complete) return kNames[static_cast<int>(progress)];
  return std::to_string(reader->status_code()) + " " + reader->take_body().toString().str();
}

TEST(HttpText, TheLiteralReaderIsCompleteByWhatEachReadBrings) {  // a "|" stands between two reads
  const std::string chunked = kOk + "Transfer-Encoding: Chunked\r\n\r\n";
  const auto literally = [](const std::string& wire) { return read(false, split(wire, "|"), {.header_bytes = 1000}); };
  expect_rows(literally,
              {kOk + "Content-Length: 4\r\n\r\nab|cd -> 200 abcd",
               kOk + "Content-Length: 4\r\n\r\nabcdef -> 200 abcdef", kOk + "Content-Length: 4\r\n\r\nab|c -> more",
               kOk + "Content-Length: -5\r\n\r\na|b -> 200 a", kOk + "|X: y\r\n\r\nbody -> 200 body",
               kOk + "\r|\nbody -> more",  // the empty line is looked for in what is new
               kOk + "Content-Length: 0\r\nTransfer-Encoding: chunked\r\n\r\n1\r\na\r\n|0\r\n\r\n -> 200 a",
               kOk + "Content-Length: 5\r\nTransfer-Encoding: chunked\r\n\r\n0\r\n\r\n -> 200 0\r\n\r\n",
               chunked + "|5;x\r\nhel|lo\r\n 0a \r\n0123456789\r\n0\r|\n\r\n -> 200 hello0123456789",
               chunked + "|0\r\n\r -> more",
               chunked + "6\r\na\r\n0\r\n\r\n|more -> 200 a\r\n0\r\n",  // content that looks like the end
               chunked + "1\r\na\r\n-5\r\nb\r\n0\r\n\r\n -> 200 a",
               chunked + "ffffffffffffffff\r\nabc0\r\n\r\n -> 200 abc0\r\n\r\n",
               chunked + "11111111111111111\r\nabc0\r\n\r\n -> 200 "});
}

TEST(HttpText, TheExactReaderRefusesWhatHasNoOneMeaning) {
  const ReplyLimits limits{.header_bytes = 150, .body_bytes = 15, .cookies = 1};
  const std::string length = kOk + "Content-Length:", chunked = kOk + "Transfer-Encoding: gzip, Chunked\r\n\r\n";
  const std::string interim = "HTTP/1.1 103 x\r\nContent-Length:9\r\n\r\n", trailer = "T:" + repeated("x", 80) + "\r\n";
  const auto exactly = [&](const std::string& text) { return read(true, {text}, limits); };
  expect_rows(
      exactly,
      {length + "5\r\n\r\nhelloTOO MUCH -> 200 hello", "HTTP/1.1 204 None\r\nContent-Length: 5\r\n\r\n -> 204 ",
       interim + "HTTP/1.1 404 No\r\ncontent-length:0,0\r\n\r\n -> 404 ",
       length + "3\r\nTransfer-Encoding: Chunked\r\n\r\n8 ;e=\"0\"\r\n0\r\n\r\nabc\r\n 01\r\nd\r\n0\r\nT: 0\r\n\r\nX "
                "-> 200 0\r\n\r\nabcd",
       length + "99999999999999999999999\r\n\r\nabc -> cut", chunked + "ffffffffffffffff\r\nabc -> cut",
       length + "-5\r\n\r\n -> malformed", length + "5\r\nContent-Length: 6\r\n\r\n -> malformed",
       length + "5, 6\r\n\r\n -> malformed", chunked + "11111111111111111\r\n -> malformed",
       chunked + "-5\r\n -> malformed", chunked + "5\nhello -> malformed", chunked + "1\r\nabc\r\n -> malformed",
       chunked + "1;" + std::string(149, 'x') + " -> malformed",
       chunked + "0\r\n" + trailer + trailer + " -> malformed", std::string(151, 'x') + " -> header too long",
       repeated(interim, 5) + " -> header too long", kOk + "\r\n1234567890123456 -> body too long",
       chunked + "10\r\n1234567890123456 -> body too long"});
}

TEST(HttpText, TakesMessagesAndTheirLinesApart) {
  const auto apart = [](const std::string& row) {  // what it is, and the text; then the outputs
    const std::string kind = row.substr(0, row.find(' ')), text = row.substr(kind.size() + 1);
    YString first("before"), second;
    YBuffer body;
    YObject fields;
    int status = 7;
    bool done = false;
    if (kind == "message") done = HttpHelper.ExtractMessageParts(YBuffer(text), &first, &body);
    if (kind == "request") done = HttpHelper.ParseRequestStartLine(YString(text), &first, &second, &fields);
    if (kind == "header") done = HttpHelper.ParseHeader(YString(text), &first, &fields);
    if (kind == "value") done = HttpHelper.ParseHeaderValue(YString(text), &first, &fields);
    if (kind == "response")
      done = HttpHelper.ParseResponseStartLine(YString(text), &status), first = std::to_string(status);
    return first.str() + "|" + second.str() + body.toString().str() + "|" + told(done, fields);
  };
  expect_rows(apart,
              {"message A: 1\r\nB: 2\r\n\r\nbody -> A: 1\r\nB: 2\r\n|body|{}",
               "message A: 1\n\nx\r\n\r\ny -> A: 1\n|x\r\n\r\ny|{}", "message A\r\n\r\nx\n\ny -> A\r\n|x\n\ny|{}",
               "message A\r\n\n -> A\r\n||{}", "message \r\nbody -> |body|{}", "message \n\nbody -> |\nbody|{}",
               "message A: 1\r\n\rB -> ||false {}"});
  expect_rows(apart,
              {"request GET /a%20b?x=1&y&z=%41 HTTP/1.1 -> GET|/a b|{'x':'1','y':'','z':'A'}",
               "request POST  /a+b?c+d=e%2Bf+g http/1.0 -> POST|/a+b|{'c d':'e+f g'}",
               "request GET /%zz%4%?a=%zz&b=%00 HTTP/1.1 -> GET|/%zz%4%|{'a':'%zz','b':'\\u0000'}",
               "request GET /?a=1&&a=2=3&=v& HTTP/1.1 HTTP/1.0 -> GET|/|{'a':'2=3','':'v'}",
               "request GET HTTP/1.1 -> GET||{}", "request GET /x -> ||false {}", "request  HTTP/1.1 -> ||false {}"});
  expect_rows(apart, {"response HTTP/1.1 200 OK -> 200||{}", "response http  404 -> 404||{}",
                      "response HTTP/1.1 20x1 -> 20||{}", "response HTTP/1.1 OK -> 0||false {}",
                      "response HTTP/1.1   -> -1||false {}", "response HTT 200 -> -1||false {}"});
  expect_rows(apart,
              {"header HTTP/1.1 200 OK\r\nA: 1\r\nB :2 : 3\n\r\nC\rD:\r\n -> HTTP/1.1 200 OK||{'A':'1','B':'2 : "
               "3','C':null,'D':''}",
               "header Host: h\r\nA: 1 -> ||{'Host':'h','A':'1'}",
               "header get http://h/ x\r\nA: 1 -> get http://h/ x||{'A':'1'}",
               "header POST http://h/ HTTP/1.1 -> ||{'POST http':'//h/ HTTP/1.1'}",
               "header x\nSet-Cookie: a\nset-cookie: b\nN\nN\nN: 1\n -> x||{'Set-Cookie':'a\\u0001b','N':'\\u00011'}",
               "header x\nA: 1\n: 2\nB: 3 -> x||false {'A':'1'}", "header \r\nA: 1 -> ||false {}"});
  expect_rows(apart, {"value text/html; charset=\"utf-8\" -> text/html||{'charset':'utf-8'}", "value  -> ||{}",
                      "value a; b=c=d; e=f -> a||false {}",
                      "value  a ;b= 'c' ; d ;e=\"f=g\";h=\"; -> a||{'b':'c','d':'','e':'f=g','h':'\\''}"});
  YObject fields;
  fields.StoreText("Evil", "x\nInjected: 1");
  EXPECT_EQ(HttpHelper.CreateHeader(fields), "");
}

std::string body_of(const std::string& row) {  // type|body
  YObject fields;
  const std::size_t end = row.find('|');
  const bool done = HttpHelper.ParseBody(YString(row.substr(0, end)), YBuffer(row.substr(end + 1)), &fields);
  return told(done, fields);
}

TEST(HttpText, BodiesAreReadByTheirType) {
  const std::string form = "multipart/form-data; boundary=b|", field = "--b\nContent-Disposition: a; name=";
  const std::string first = form + "--b\r\nContent-Disposition: a; name=";
  expect_rows(
      body_of,
      {"Application/JSON; charset=utf-8|\xEF\xBB\xBF {\"a\": [{\"b\": \"\xC3\xA4\"}]} -> {'a':[{'b':'\xC3\xA4'}]}",
       "application/problem+json|[1, 2] -> {'BODY':'1\\u00012'}", "application/json|{\"a\": -> false {}",
       "text/plain|\xC3\xA4 \xE4 -> {'BODY':'\xC3\x83\xC2\xA4 \xC3\xA4'}",
       "text/plain; charset=iso-8859-15|\xA4 -> {'BODY':'\xE2\x82\xAC'}",
       "text/xml; charset=ISO-8859-1|<a>\xE4</a> -> {'a':'\xC3\xA4'}",
       "application/soap+xml|<s:E xmlns:s='u'><s:B/></s:E> -> {'s:E':{'@xmlns:s':'u','s:B':''}}",
       "text/xml|<!DOCTYPE a><a/> -> false {}", "text/html|<p> -> false {}",
       "application/x-www-form-urlencoded|a=%C3%A4+1&b=&a=2\r\n -> {'a':'\xC3\xA4 1\\u00012','b':''}",
       first + "\"a;=\"\r\n\r\n\xC3\xA4\r\n--b--\r\n -> {'a;=':'\xC3\xA4'}",
       form +
           "preamble\n--b \nContent-Disposition: a; name=a\n\n1\n2\n--b\ncontent-disposition: a; name=A\n\n3\n--b-- -> "
           "{'a':'1\\n2\\u00013'}",
       first + "f; filename=\"x.bin\"\r\nContent-Type: image/png\r\n\r\n\r\n--bb\r\n\r\n--b-- -> "
               "{'f':{'FILENAME':'x.bin','CONTENTTYPE':'image/png','CONTENT':{'$base64':'DQotLWJiDQo='}}}",
       form + field + "f\n\nt\n" + field + "f; filename=x\n\n1\n" + field +
           "f\n\nu\n--b-- -> "
           "{'f':[{'CONTENT':'t'},{'FILENAME':'x','CONTENTTYPE':'','CONTENT':{'$base64':'MQ=='}},{'CONTENT':'u'}]}",
       form + field +
           "f\nContent-Type: text/plain; charset=windows-1252\n\n\xC3\xA4\n--b\nX: y\n\nz\n--b-- -> "
           "{'f':'\xC3\x83\xC2\xA4'}",
       first + "e\r\n--b\r\n--b-- -> {'e':''}", form + " -> false {}", "multipart/form-data|--\r\n\r\n---- -> false {}",
       first + "e\r\n\r\n1\r\n--b\r\nContent-Disposition: a; name=cut\r\n\r\n2 -> false {'e':'1'}"});
}

// Anything quadratic takes hours here and runs into the time limit of the test.
TEST(HttpText, HostileInputCostsNoMoreThanItsSize) {
  YObject fields;
  EXPECT_TRUE(HttpHelper.ParseHeader(YString("x\n" + repeated("A: 1\r\n", 1000000)), nullptr, &fields));
  EXPECT_EQ(fields.GetString("A").Length(), 1999999);
  EXPECT_TRUE(HttpHelper.ParseHeaderValue(YString(std::string(1 << 20, ';')), nullptr, &fields));
  YString status;
  std::string many = "x 1\r\n";
  for (int i = 0; i < 1000000; ++i) many += "N: v\r\nSet-Cookie: c" + std::to_string(i) + "=v\r\nSet-Cookie: c=v\r\n";
  parse_header_block(many, 300, fields, status);
  EXPECT_EQ(fields.Find<YObject>("COOKIES")->GetStringKeyCount(), 300);
  EXPECT_FALSE(HttpHelper.ExtractMessageParts(YBuffer("x" + repeated("\r\n\r", 1000000)), nullptr, nullptr));
  EXPECT_EQ(body_of("multipart/form-data; boundary=b|" + repeated("\n--b-", 1000000)), "false {}");
  EXPECT_EQ(body_of("multipart/form-data; boundary=" + std::string(70, '-') + "|" + std::string(5000000, '-')),
            "false {}");
  set_setting("HTTP", "FormularFelder", "3");
  EXPECT_EQ(body_of("application/x-www-form-urlencoded|a=1&b=2&c=3&d=4"), "false {'a':'1','b':'2','c':'3'}");
  const std::string part = "--b\nContent-Disposition: a; name=n\n\n1\n";
  EXPECT_EQ(body_of("multipart/form-data; boundary=b|" + repeated(part, 1000000) + "--b--"),
            "false {'n':'1\\u00011\\u00011'}");
  set_setting("HTTP", "FormularFelder", std::nullopt);
}

}  // namespace
}  // namespace yinet::test
