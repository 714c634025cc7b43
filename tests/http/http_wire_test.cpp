// URLs, header blocks and the two readers of replies.

#include "yinet/http/http_response.h"

#include <gtest/gtest.h>

#include <tuple>

#include "yinet/host/yobject.h"
#include "yinet/http/http_url.h"

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

TEST(HeaderBlock, HostileAmountsCostLinearTimeAndKeepFewCookies) {
  std::string cookies = "HTTP/1.1 200 OK\r\n";
  for (int i = 0; i < 1000000; ++i) cookies += "N: v\r\nSet-Cookie: c" + std::to_string(i) + "=v\r\n";
  YObject header;
  YString status;
  parse_header_block(cookies + "Set-Cookie: c299=w\r\n", 300, header, status);
  const auto* kept = header.Find<YObject>(kCookies);
  EXPECT_EQ(kept->GetStringKeyCount(), 300);
  EXPECT_EQ(kept->Find<YObject>("c299")->GetString("VALUE"), "w");
}

// One string for each read; "more" stands for a reply that never ends.
TEST(LiteralReader, IsCompleteByWhatEachReadBrings) {
  const std::string ok = "HTTP/1.1 200 OK\r\n", chunked = ok + "Transfer-Encoding: Chunked\r\n\r\n";
  const struct {
    std::vector<std::string> reads;
    std::string body;
  } kCases[] = {
      {{ok + "Content-Length: 4\r\n\r\nab", "cd"}, "abcd"},
      {{ok + "Content-Length: 4\r\n\r\nabcdef"}, "abcdef"},
      {{ok + "Content-Length: 4\r\n\r\nab", "c"}, "more"},
      {{ok + "Content-Length: -5\r\n\r\na", "b"}, "a"},
      {{ok, "X: y\r\n\r\nbody"}, "body"},
      {{ok + "\r", "\nbody"}, "more"},  // the empty line is looked for in what is new
      {{ok + "Content-Length: 0\r\nTransfer-Encoding: chunked\r\n\r\n1\r\na\r\n", "0\r\n\r\n"}, "a"},
      {{ok + "Content-Length: 5\r\nTransfer-Encoding: chunked\r\n\r\n0\r\n\r\n"}, "0\r\n\r\n"},
      {{chunked, "5;x\r\nhel", "lo\r\n 0a \r\n0123456789\r\n0\r", "\n\r\n"}, "hello0123456789"},
      {{chunked, "0\r\n\r"}, "more"},
      {{chunked + "6\r\na\r\n0\r\n\r\n", "more"}, "a\r\n0\r\n"},  // content that looks like the end
      {{chunked + "1\r\na\r\n-5\r\nb\r\n0\r\n\r\n"}, "a"},
      {{chunked + "ffffffffffffffff\r\nabc0\r\n\r\n"}, "abc0\r\n\r\n"},
      {{chunked + "11111111111111111\r\nabc0\r\n\r\n"}, ""},
  };
  for (const auto& [reads, body] : kCases) {
    YObject header;
    YString status;
    LiteralReplyReader reader(kLimits, header, status);
    ReplyProgress progress = ReplyProgress::more;
    for (auto read = reads.begin(); read != reads.end() && progress == ReplyProgress::more; ++read)
      progress = reader.feed(*read);
    EXPECT_EQ(progress == ReplyProgress::complete ? reader.take_body().toString().str() : "more", body)
        << testing::PrintToString(reads);
  }
}

using Reply = std::tuple<ReplyProgress, int, std::string>;  // how it ended, code, body

// Reads of `size` bytes, the first one cut short to `first`.
Reply read_exactly(std::string_view wire, std::size_t first, std::size_t size, const ReplyLimits& limits) {
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

TEST(ExactReader, GivesTheSameForEveryCutAndRefusesWhatHasNoOneMeaning) {
  using enum ReplyProgress;
  const ReplyLimits limits{.header_bytes = 150, .body_bytes = 15, .cookies = 1};
  const std::string ok = "HTTP/1.1 200 OK\r\n", length = ok + "Content-Length:";
  const std::string chunked = ok + "Transfer-Encoding: gzip, Chunked\r\n\r\n";
  const std::string interim = "HTTP/1.1 103 x\r\nContent-Length:9\r\n\r\n";
  const std::string trailer = "T:" + std::string(80, 'x') + "\r\n";
  const std::pair<std::string, Reply> kCases[] = {
      {length + "5\r\n\r\nhelloTOO MUCH", {complete, 200, "hello"}},
      {interim + "HTTP/1.1 404 No\r\ncontent-length:0,0\r\n\r\n", {complete, 404, ""}},
      {length + "3\r\nTransfer-Encoding: Chunked\r\n\r\n" +
           "8 ;e=\"0\"\r\n0\r\n\r\nabc\r\n 01\r\nd\r\n0\r\nTrailer: 0\r\n\r\nX",
       {complete, 200, "0\r\n\r\nabcd"}},
      {"HTTP/1.1 204 None\r\nContent-Length: 5\r\n\r\n", {complete, 204, ""}},
      {length + "99999999999999999999999\r\n\r\nabc", {cut, 200, ""}},
      {chunked + "ffffffffffffffff\r\nabc", {cut, 200, ""}},
      {length + "-5\r\n\r\n", {malformed, 200, ""}},
      {length + "5\r\nContent-Length: 6\r\n\r\n", {malformed, 200, ""}},
      {length + "5, 6\r\n\r\n", {malformed, 200, ""}},
      {chunked + "11111111111111111\r\n", {malformed, 200, ""}},
      {chunked + "-5\r\n", {malformed, 200, ""}},
      {chunked + "5\nhello", {malformed, 200, ""}},
      {chunked + "1\r\nabc\r\n", {malformed, 200, ""}},
      {chunked + "1;" + std::string(149, 'x'), {malformed, 200, ""}},
      {chunked + "0\r\n" + trailer + trailer, {malformed, 200, ""}},
      {std::string(151, 'x'), {header_too_long, 0, ""}},
      {interim + interim + interim + interim + interim, {header_too_long, 0, ""}},
      {ok + "\r\n1234567890123456", {body_too_long, 200, ""}},
      {chunked + "10\r\n1234567890123456", {body_too_long, 200, ""}}};
  for (const auto& [wire, expected] : kCases) {
    for (std::size_t first = 0; first <= wire.size(); ++first)
      for (const std::size_t size : {std::size_t{1}, std::size_t{7}, wire.size()})
        ASSERT_EQ(read_exactly(wire, first, size, limits), expected) << first << "+" << size << " of " << wire;
  }
}

TEST(HttpUrl, IsReadByCounting) {
  const struct {
    std::string_view url, host;
    unsigned port;
    std::string_view path;
    bool tls;
  } kCases[] = {
      {"HTTPS://H:8443/a?b=1", "H", 8443, "/a?b=1", true},
      {"hTtP://h/x:y//z", "h", 80, "/x:y//z", false},
      {"httpSXYZh/", "h", 443, "/", true},
      {"ftp://h/x", "ftp", 0, "//h/x", false},
      {"http://h?q=/x", "h?q=", 80, "/x", false},
      {"http://h:-1", "h", 4294967295U, "", false},
      {"http://h:8x:9", "h", 8, "", false},
      {"https:/", "", 443, "", true},
  };
  for (const auto& expected : kCases) {
    const HttpUrl got = parse_http_url(expected.url, false);
    EXPECT_EQ(got.host, expected.host) << expected.url;
    EXPECT_EQ(got.port, expected.port) << expected.url;
    EXPECT_EQ(got.path, expected.path) << expected.url;
    EXPECT_EQ(got.tls, expected.tls) << expected.url;
  }
}

}  // namespace
}  // namespace yinet
