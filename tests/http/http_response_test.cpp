// Header blocks and the exact reader. The literal reader and its chunks are in literal_reader_model_test.cpp.

#include "yinet/http/http_response.h"

#include <gtest/gtest.h>

#include <tuple>

#include "yinet/host/yobject.h"

namespace yinet {
namespace {

using namespace std::string_literals;

constexpr ReplyLimits kLimits{.header_bytes = 8 << 20, .body_bytes = 0, .cookies = 300};

std::string dump(const YObject& record) {  // name=value|name={name=value|}|
  std::string text;
  for (int i = 0; i < record.GetStringKeyCount(); ++i) {
    const auto* nested = record.FindAt<YObject>(i);
    text += record.GetStringKey(i).str() + "=";
    text += nested ? "{" + dump(*nested) + "}" : record.FindAt<YString>(i)->str();
    text += "|";
  }
  return text;
}

TEST(HeaderBlock, Cases) {
  const struct {
    std::string block, status;
    int code;
    std::string header;
  } kCases[] = {
      {"\r\n\r\nHTTP/1.1 200 OK\r\n\r\nA:b", "200 OK", 200, "A=b|"},
      {"HTTP/1.1 200", "200", 200, ""},
      {"HTTP/1.1  200 OK", " 200 OK", 0, ""},
      {"200", "200", 0, ""},
      {"", "", 0, ""},
      {"x 1\r\nLocation: http://h/x\r\n a \t: b :c\r\nA:2\r\nlone\r\n:v", "1", 1, "Location=http|a=2|lone=|=v|"},
      {"x 1\r\nSet-Cookie: a=1; path=/\r\nSET-COOKIE:A = 2=3;x\r\nset-cookie:b", "1", 1,
       "COOKIES={a={VALUE=2=3|}|b={VALUE=|}|}|"},
      {"x 1\r\nk:\xE4\0\x01z\r\nSet-Cookie:a=\x01\r\nSet-Cookie:\x7F=1"s, "1", 1, "k=\xE4\0\x01z|COOKIES={}|"s},
      {"x 1\r\nCOOKIES: x\r\nSet-Cookie: a=b", "1", 1, "COOKIES={a={VALUE=b|}|}|"},
  };
  for (const auto& expected : kCases) {
    YObject header;
    YString status("before");
    EXPECT_EQ(parse_header_block(expected.block, 300, header, status), expected.code) << expected.block;
    EXPECT_EQ(status, expected.status.c_str()) << expected.block;
    EXPECT_EQ(dump(header), expected.header) << expected.block;
  }
}

// Anything but linear cost would run into the time limit of the test.
TEST(HeaderBlock, HostileAmountsCostLinearTimeAndKeepFewCookies) {
  std::string cookies = "HTTP/1.1 200 OK\r\n";
  std::string equal_names = cookies;
  for (int i = 0; i < 1000000; ++i) {
    cookies += "Set-Cookie: c" + std::to_string(i) + "=v\r\n";
    equal_names += "N: " + std::to_string(i) + "\r\n";
  }
  YObject header;
  YString status;
  parse_header_block(cookies + "Set-Cookie: c299=w\r\n", 300, header, status);
  const auto* kept = header.Find<YObject>(kCookies);
  EXPECT_EQ(kept->GetStringKeyCount(), 300);
  EXPECT_EQ(kept->Find<YObject>("c299")->GetString("VALUE"), "w");
  parse_header_block(equal_names, 300, header, status);
  EXPECT_EQ(header.GetString("n"), "999999");

  LiteralReplyReader reader(kLimits, header, status);
  std::size_t fed = 0;
  while (reader.feed("x") == ReplyProgress::more) ++fed;
  EXPECT_EQ(fed, kLimits.header_bytes);
}

// --- The exact reader -----------------------------------------------------------------------------------------------

using Reply = std::tuple<ReplyProgress, int, std::string>;  // how it ended, code, body

// Reads of `size` bytes, the first one cut short to `first`.
Reply read_exactly(std::string_view wire, std::size_t first, std::size_t size, const ReplyLimits& limits = kLimits) {
  YObject header;
  YString status;
  const auto reader = make_reply_reader(true, limits, header, status);
  ReplyProgress progress = ReplyProgress::more;
  for (std::size_t next = first; !wire.empty() && progress == ReplyProgress::more; next = size) {
    if (next != 0) progress = reader->feed(wire.substr(0, next));
    wire.remove_prefix(std::min(next, wire.size()));
  }
  if (progress == ReplyProgress::more) progress = reader->feed_end();
  return {progress, reader->status_code(),
          progress == ReplyProgress::complete ? reader->take_body().toString().str() : ""};
}

TEST(ExactReader, GivesTheSameForEveryCut) {
  using enum ReplyProgress;
  const struct {
    std::string wire;
    Reply expected;
  } kCases[] = {
      {"HTTP/1.1 200 OK\r\nContent-Length: 5\r\n\r\nhelloTOO MUCH", {complete, 200, "hello"}},
      {"HTTP/1.1 200 OK\r\n\r\nup to the end", {complete, 200, "up to the end"}},
      {"HTTP/1.1 100 Go on\r\n\r\nHTTP/1.1 103 x\r\nContent-Length:9\r\n\r\nHTTP/1.1 404 "
       "No\r\ncontent-length:0,0\r\n\r\n",
       {complete, 404, ""}},
      {"HTTP/1.1 200 OK\r\nContent-Length:3\r\nTransfer-Encoding: gzip, Chunked\r\n\r\n"
       "8 ;e=\"0\"\r\n0\r\n\r\nabc\r\n 01\r\nd\r\n0\r\nTrailer: 0\r\n\r\nX",
       {complete, 200, "0\r\n\r\nabcd"}},
      {"HTTP/1.1 204 None\r\nContent-Length: 5\r\n\r\n", {complete, 204, ""}},
      {"HTTP/1.1 200 OK\r\nContent-Length: 99999999999999999999999\r\n\r\nabc", {cut, 200, ""}},
      {"HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\nffffffffffffffff\r\nabc", {cut, 200, ""}},
      {"", {cut, 0, ""}},
  };
  for (const auto& [wire, expected] : kCases) {
    for (std::size_t first = 0; first <= wire.size(); ++first)
      for (const std::size_t size : {std::size_t{1}, std::size_t{7}, wire.size()})
        ASSERT_EQ(read_exactly(wire, first, size), expected) << first << "+" << size << " of " << wire;
  }
}

TEST(ExactReader, RefusesWhatHasNoOneMeaningOrIsTooLong) {
  using enum ReplyProgress;
  const ReplyLimits limits{.header_bytes = 100, .body_bytes = 10, .cookies = 1};
  const std::string length = "HTTP/1.1 200 OK\r\nContent-Length:";
  const std::string chunked = "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n";
  std::string interim;
  std::string trailers;
  while (interim.size() < 200) {
    interim += "HTTP/1.1 100 x\r\n\r\n";
    trailers += "Trailer: x\r\n";
  }
  const struct {
    std::string wire;
    ReplyProgress expected;
  } kCases[] = {{length + "-5\r\n\r\n", malformed},
                {length + "\r\n\r\n", malformed},
                {length + "5\r\nContent-Length: 6\r\n\r\n", malformed},
                {length + "5, 6\r\n\r\n", malformed},
                {chunked + "-5\r\n", malformed},
                {chunked + "\r\n", malformed},
                {chunked + "5\nhello", malformed},
                {chunked + "1\r\nabc\r\n", malformed},
                {chunked + "11111111111111111\r\n", malformed},
                {chunked + "1;" + std::string(99, 'x'), malformed},
                {chunked + "0\r\n" + trailers, malformed},
                {std::string(101, 'x'), header_too_long},
                {interim, header_too_long},
                {"HTTP/1.1 200 OK\r\n\r\n12345678901", body_too_long},
                {chunked + "b\r\n12345678901", body_too_long}};
  for (const auto& [wire, expected] : kCases)
    for (const std::size_t size : {std::size_t{1}, wire.size()})
      EXPECT_EQ(std::get<0>(read_exactly(wire, size, size, limits)), expected) << wire;
}

}  // namespace
}  // namespace yinet
