// The client against peers that are scripted byte by byte.

#include <chrono>

#include "http/http_fixture.h"
#include "support/certificates.h"
#include "support/ports.h"
#include "support/tls_context.h"

namespace yinet::test {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::EndsWith;
using testing::IsEmpty;
using testing::MatchesRegex;

TEST_F(HttpTest, RequestsHaveExactlyTheseBytes) {
  set(settings::kSystemName, "Agent $1$");
  const std::string content("\0\r\n\r\n\xFF", 6);
  ScriptedPeer peer(
      {after_request().send(std::string(kOk) + "Content-Type: text/x; a:b\r\nContent-Length: 2\r\n\r\nhi"),
       after_request(content).send("HTTP/1.1 200 OK\r\n\r\n"), after_request().send("HTTP/1.1 500 No\r\n\r\nwhy")});
  EXPECT_TRUE(get(peer.url("/a?b=c d")));
  EXPECT_EQ(body(), "hi");
  EXPECT_EQ(status_, "200 OK");
  EXPECT_EQ(content_type_, "text/x; a");
  EXPECT_TRUE(post(peer.url(), content, "a/b"));
  EXPECT_FALSE(post(peer.url("/x"), "", ""));
  EXPECT_EQ(status_, "500 No");
  EXPECT_EQ(body(), "why");
  peer.finish();
  EXPECT_THAT(peer.received(0),
              MatchesRegex("GET /a\\?b=c d HTTP/1\\.1\r\nHOST:127\\.0\\.0\\.1\r\nUSER-AGENT:Agent \\$1\\$\r\n"
                           "Cache-Control: no-cache\r\nDate:[^\r]* 20[^\r]* GMT\r\nAccept:\\*/\\*\r\n\r\n"));
  EXPECT_THAT(peer.received(1), testing::StartsWith("POST / HTTP/1.1\r\n"));
  EXPECT_THAT(peer.received(1), EndsWith("Accept:*/*\r\nContent-Length:6\r\nContent-Type:a/b\r\n\r\n" + content));
  EXPECT_THAT(peer.received(2), EndsWith("\r\nContent-Length:0\r\nContent-Type:text/plain\r\n\r\n"));
  EXPECT_THAT(log_.numbers(), IsEmpty());
}

TEST_F(HttpTest, CookiesGoBackToTheirHostOnlyAndStayWithinTheLimit) {
  set(settings::kHttpCookieLimit, "2");
  std::vector<ConnectionScript> replies;
  for (const char* const fields : {"COOKIES: none\r\nSet-Cookie: b=1; path=/\r\nContent-Type: a/b\r\nContent-Length: 9",
                                   "set-cookie: a=2=3\r\nSet-Cookie: c=1", "Set-Cookie: b=4\r\nCOOKIES: none", "c: d",
                                   "c: d"})
    replies.emplace_back(after_request().send("HTTP/1.1 404 x\r\n" + std::string(fields) + "\r\n\r\n"));
  ScriptedPeer peer(std::move(replies));
  EXPECT_FALSE(get(peer.url())) << "cut, yet it keeps its status, type and cookies";
  EXPECT_EQ(status_, "404 x");
  EXPECT_EQ(content_type_, "a/b");
  for (int i = 1; i < 4; ++i) EXPECT_FALSE(get(peer.url()));
  HTTP copy = http_;
  copy.Get(YString("http://localhost:" + std::to_string(peer.port())), body_, content_type_, status_);
  peer.finish();
  for (const std::size_t none : {0U, 4U}) EXPECT_THAT(peer.received(none), Not(testing::HasSubstr("COOKIE")));
  for (const std::size_t both : {2U, 3U})
    EXPECT_THAT(peer.received(both), EndsWith("Accept:*/*\r\nCOOKIE: b=1\r\nCOOKIE: a=2=3\r\n\r\n"));
}

// What the literal and the exact reader make of the same conversation.
TEST_F(HttpTest, BothReadersTakeWhatTheConnectionBrings) {
  const struct {
    Script reply;
    const char *literal, *exact;  // body; null for a failure
  } kCases[] = {
      {Script().send_slowly("HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\nhi"), nullptr, "hi"},
      {Script().send("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n5\r\nhe"), nullptr, nullptr},
      {Script().send("HTTP/1.1 200 OK\r\n\r\nwhole").pause(milliseconds(50)).close(), "whole", "whole"},
      {Script().send("HTTP/1.1 200 OK\r\n\r\nhalf").pause(milliseconds(50)).reset(), "half", nullptr},
  };
  for (const auto& wanted : kCases) {
    for (const bool exact : {false, true}) {
      set(settings::kHttpExactReader, exact ? "1" : "0");
      ScriptedPeer peer(after_request().then(wanted.reply));
      log_.clear();
      body_ = YBuffer("untouched");
      const char* const expected = exact ? wanted.exact : wanted.literal;
      EXPECT_EQ(get(peer.url()), expected != nullptr);
      EXPECT_EQ(body(), expected ? expected : "untouched");
      EXPECT_EQ(log_.numbers(), expected ? std::vector<int>() : std::vector<int>{21903});
      static_cast<void>(peer.take_failures());  // some replies are not taken to their end
    }
  }
}

TEST_F(HttpTest, EveryByteStartsTheIdleCountAgain) {
  set(settings::kHttpIdlePause, "150");
  set(settings::kHttpIdlePolls, "2");
  ScriptedPeer peer(
      after_request().send(std::string(kOk) + "Content-Length: 4\r\n\r\n").send_slowly("text", milliseconds(200)));
  EXPECT_TRUE(get(peer.url()));
  EXPECT_EQ(body(), "text");
}

TEST_F(HttpTest, SilenceAndRepliesWithoutEndAreLimited) {
  const std::string head = std::string(kOk) + "Content-Length: 2000000000\r\n\r\n";
  const struct {
    const Setting& setting;
    const char* value;
    Script reply;
    int number;
    milliseconds at_least{0};
  } kCases[] = {
      {settings::kHttpIdlePolls, "5", Script().send("HTTP/1.1 ").stay_silent(), 21904, milliseconds(5 * 20)},
      {settings::kHttpHeaderLimit, "100000", Script().flood("X: y\r\n", 100000000), 21904},
      {settings::kHttpBodyLimit, "100000", Script().send(head).flood("body", 100000000), 21907},
      {settings::kHttpTimeLimit, "300", Script().send(head).send_slowly(std::string(20000, 'x')), 21904,
       milliseconds(300)},
      {settings::kHttpTimeLimit, "300", Script().stay_silent(), 21904, milliseconds(300)},
  };
  for (const auto& wanted : kCases) {
    set(wanted.setting, wanted.value);
    ScriptedPeer peer(after_request().then(wanted.reply));
    log_.clear();
    const auto start = std::chrono::steady_clock::now();
    EXPECT_FALSE(get(peer.url()));
    EXPECT_GE(std::chrono::steady_clock::now() - start, wanted.at_least) << wanted.setting.name;
    EXPECT_THAT(log_.numbers(), ElementsAre(wanted.number)) << wanted.setting.name;
    set_setting(wanted.setting.section, wanted.setting.name, std::nullopt);
    static_cast<void>(peer.take_failures());
  }
}

TEST_F(HttpTest, NothingIsSentWhereNothingCanOrMayBe) {
  auto peer = ScriptedPeer::for_every_connection(after_request().send("HTTP/1.1 200 OK\r\n\r\n"));
  for (const std::string& url :
       {"http://127.0.0.1:" + std::to_string(refused_port()), std::string(), std::string("ftp://127.0.0.1/")}) {
    log_.clear();
    EXPECT_FALSE(get(url)) << url;
    EXPECT_THAT(log_.numbers(), Contains(21901)) << url;
  }
  log_.clear();
  EXPECT_FALSE(get(peer.url("/ HTTP/1.1\r\nX: y")));
  EXPECT_FALSE(get("http://h\n/"));
  EXPECT_FALSE(post(peer.url(), "x", "a\rb"));
  set(settings::kSystemName, "a\r\nb");
  EXPECT_FALSE(get(peer.url()));
  EXPECT_THAT(log_.numbers(), ElementsAre(21905, 21905, 21905, 21905));
  EXPECT_EQ(peer.connection_count(), 0U);
  ScriptedPeer rude(after_request().reset());
  set(settings::kSystemName, "a");
  EXPECT_FALSE(post(rude.url(), std::string(50 << 20, 'x'), ""));
  EXPECT_THAT(log_.numbers(), Contains(21902));
  EXPECT_EQ(body(), "untouched");
}

TEST_F(HttpTest, TlsIsVerifiedWhereTheHostWantsItAndNeverLeftOut) {
  ScriptedPeer peer([](Connection& connection) { static_cast<void>(connection.try_tls(TlsContext::server())); });
  set(settings::kTlsVerifyAlways, "1");
  EXPECT_FALSE(get(peer.url("/", "https")));
  set(settings::kTlsCipherList, "no such cipher");
  EXPECT_FALSE(get(peer.url("/", "https")));
  EXPECT_THAT(log_.numbers(), testing::IsSupersetOf({21901, 21901}));
  static_cast<void>(peer.take_failures());
  EXPECT_EQ(peer.received(0), "");
  EXPECT_EQ(peer.connection_count(), 1U);  // nothing went out in clear
}

TEST_F(HttpTest, LaterRequestsResumeTheTlsSessionButNeverOneThatWasCheckedLess) {
  for (const TlsVersion version : {TlsVersion::tls12, TlsVersion::tls13}) {
    const TlsContext context = TlsContext::server(Certificates::shared().good(), {.version = version});
    auto peer = ScriptedPeer::for_every_connection(Script()
                                                       .start_tls(context)
                                                       .read_until("\r\n\r\n")
                                                       .send("HTTP/1.1 200 OK\r\nContent-Length: 1\r\n\r\nx")
                                                       .read_to_end());
    for (std::size_t i = 0; i < 3; ++i) {
      HTTP http;
      ASSERT_TRUE(http.Get(YString(peer.url("/", "https")), body_, content_type_, status_));
      EXPECT_EQ(peer.tls(i).session_reused, i > 0) << i;
    }
    set(settings::kTlsVerifyAlways, "1");
    EXPECT_FALSE(get(peer.url("/", "https")));  // an authority that the system does not know
    EXPECT_FALSE(peer.tls(3).session_reused);
    set(settings::kTlsVerifyAlways, "0");
    static_cast<void>(peer.take_failures());
  }
}

}  // namespace
}  // namespace yinet::test
