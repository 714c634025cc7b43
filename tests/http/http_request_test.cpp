// URLs in, request heads out.

#include <gtest/gtest.h>

#include "yinet/host/yobject.h"
#include "yinet/http/http_request.h"
#include "yinet/http/http_url.h"

namespace yinet {
namespace {

using namespace std::string_view_literals;

TEST(HttpUrl, IsReadByCounting) {
  const struct {
    std::string_view url, host;
    unsigned port;
    std::string_view path;
    bool tls;
  } kCases[] = {
      {"http://h", "h", 80, "", false},
      {"HTTPS://H:8443/a?b=1", "H", 8443, "/a?b=1", true},
      {"hTtP://h/x:y//z", "h", 80, "/x:y//z", false},
      {"httpSXYZh/", "h", 443, "/", true},
      {"h:81/a", "h", 81, "/a", false},
      {"ftp://h/x", "ftp", 0, "//h/x", false},
      {"http://h?q=/x", "h?q=", 80, "/x", false},
      {"http://h:-1", "h", 4294967295U, "", false},
      {"http://h:8x:9", "h", 8, "", false},
      {"http", "", 80, "", false},
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

TEST(RequestHead, HasExactlyTheseBytes) {
  YObject cookies;
  cookies.Ensure<YObject>("b").StoreText("VALUE", "2=$1$");
  cookies.StoreText("no record", "x");
  cookies.Ensure<YObject>("A").StoreText("VALUE", "1");
  const std::chrono::sys_seconds time{std::chrono::seconds(784111777)};
  EXPECT_EQ(request_head_text({.host = "h", .path = "", .user_agent = "$2$", .time = time, .cookies = &cookies}),
            "GET / HTTP/1.1\r\nHOST:h\r\nUSER-AGENT:$2$\r\nCache-Control: no-cache\r\n"
            "Date:Sun, 06 Nov 1994 08:49:37 GMT\r\nAccept:*/*\r\nCOOKIE: b=2=$1$\r\nCOOKIE: A=1\r\n\r\n");
}

TEST(RequestHead, NamesTheValueThatWouldBreakALine) {
  for (const std::string_view bad : {"a\rb"sv, "\n"sv, "a\0"sv}) {
    YObject by_name, by_value;
    by_name.Ensure<YObject>(bad).StoreText("VALUE", "v");
    by_value.Ensure<YObject>("n").StoreText("VALUE", bad);
    EXPECT_EQ(line_breaking_value({.cookies = &by_name}), bad);
    EXPECT_EQ(line_breaking_value({.cookies = &by_value}), "n");
  }
}

}  // namespace
}  // namespace yinet
