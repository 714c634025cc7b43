// The client against peers that are scripted byte by byte.

#include <chrono>

#include "http/http_fixture.h"
#include "support/certificates.h"
#include "support/ports.h"

namespace yinet::test {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::MatchesRegex;

TEST_F(HttpTest, GetSendsExactlyThisRequest) {
  set(settings::kSystemName, "Agent 1.0");
  ScriptedPeer peer(
      after_request().send(std::string(kOk) + "Content-Type: text/x; a:b\r\nContent-Length: 2\r\n\r\nhi"));
  EXPECT_TRUE(get(peer.url("/a?b=c d")));
  EXPECT_EQ(body(), "hi");
  EXPECT_EQ(status_, "200 OK");
  EXPECT_EQ(content_type_, "text/x; a");
  EXPECT_THAT(peer.received(),
              MatchesRegex("GET /a\\?b=c d HTTP/1\\.1\r\nHOST:127\\.0\\.0\\.1\r\nUSER-AGENT:Agent 1\\.0\r\n"
                           "Cache-Control: no-cache\r\nDate:(Mon|Tue|Wed|Thu|Fri|Sat|Sun), [0-9][0-9] "
                           "(Jan|Feb|Mar|Apr|May|Jun|Jul|Aug|Sep|Oct|Nov|Dec) 20[0-9][0-9] "
                           "[0-2][0-9]:[0-5][0-9]:[0-6][0-9] GMT\r\nAccept:\\*/\\*\r\n\r\n"));
  EXPECT_THAT(log_.numbers(), IsEmpty());
}

TEST_F(HttpTest, PostSendsLengthTypeAndContent) {
  const std::string content("\0\r\n\r\n\xFF", 6);
  ScriptedPeer peer(
      {after_request(content).send("HTTP/1.1 200 OK\r\n\r\n"), after_request().send("HTTP/1.1 500 No\r\n\r\nwhy")});
  EXPECT_TRUE(post(peer.url(), content, "a/b"));
  EXPECT_FALSE(post(peer.url("/x"), "", ""));
  EXPECT_EQ(status_, "500 No");
  EXPECT_EQ(body(), "why");
  peer.finish();
  EXPECT_THAT(peer.received(0), testing::StartsWith("POST / HTTP/1.1\r\n"));
  EXPECT_THAT(peer.received(0),
              testing::EndsWith("Accept:*/*\r\nContent-Length:6\r\nContent-Type:a/b\r\n\r\n" + content));
  EXPECT_THAT(peer.received(1), testing::EndsWith("\r\nContent-Length:0\r\nContent-Type:text/plain\r\n\r\n"));
}

TEST_F(HttpTest, CookiesGoBackToTheirHostOnly) {
  const auto reply = [](const std::string& fields) {
    return after_request().send("HTTP/1.1 404 x\r\n" + fields + "\r\n\r\n");
  };
  ScriptedPeer peer({reply("COOKIES: no record\r\nSet-Cookie: b=1; path=/\r\nset-cookie: a=2=3"),
                     reply("Set-Cookie: b=4\r\nCOOKIES: no record"), reply("A: b"), reply("A: b")});
  for (int i = 0; i < 3; ++i) EXPECT_FALSE(get(peer.url()));
  HTTP copy = http_;
  copy.Get(YString("http://localhost:" + std::to_string(peer.port())), body_, content_type_, status_);
  peer.finish();
  EXPECT_THAT(peer.received(0), Not(testing::HasSubstr("COOKIE")));
  for (const std::size_t later : {1U, 2U})
    EXPECT_THAT(peer.received(later), testing::EndsWith("Accept:*/*\r\nCOOKIE: b=1\r\nCOOKIE: a=2=3\r\n\r\n"));
  EXPECT_THAT(peer.received(3), Not(testing::HasSubstr("COOKIE")));
}

TEST_F(HttpTest, CookiesOfManyRepliesStayWithinTheLimit) {
  set(settings::kHttpCookieLimit, "2");
  std::vector<ConnectionScript> scripts;
  for (const char* const cookie : {"a=1", "b=1\r\nSet-Cookie: c=1", "c=2\r\nSet-Cookie: a=2", "d=3"})
    scripts.emplace_back(after_request().send(std::string(kOk) + "Set-Cookie: " + cookie + "\r\n\r\n"));
  ScriptedPeer peer(std::move(scripts));
  for (int i = 0; i < 4; ++i) EXPECT_TRUE(get(peer.url()));
  peer.finish();
  EXPECT_THAT(peer.received(3), testing::EndsWith("*/*\r\nCOOKIE: a=2\r\nCOOKIE: b=1\r\n\r\n"));
}

// What the literal and the exact reader make of the same conversation.
TEST_F(HttpTest, RepliesInPieces) {
  const milliseconds pause(150);
  const std::string chunked = std::string(kOk) + "Transfer-Encoding: chunked\r\n\r\n";
  const struct {
    const char* name;
    Script reply;
    const char* literal;  // body; null for a failure with 21903
    const char* exact;
  } kCases[] = {
      {"blank line cut", Script().send_pieces({"HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r", "\nhi"}, pause), nullptr,
       "hi"},
      {"a later blank line", Script().send_pieces({"HTTP/1.1 200 OK\r\nA:b\r\n\r", "\nhi\r\n\r\nho"}, pause), "ho",
       "hi\r\n\r\nho"},
      {"last chunk apart", Script().send_pieces({chunked + "2\r\nhi\r\n", "0\r\n", "\r\n"}, pause), "hi", "hi"},
      {"data like an end", Script().send_pieces({chunked + "8\r\n1230\r\n\r\n", "\r\n0\r\n\r\n"}, pause),
       "1230\r\n\r\n", "1230\r\n\r\n"},
      {"early end of data", Script().send_pieces({chunked + "9\r\n1230\r\n\r\n", "x\r\n0\r\n\r\n"}, pause),
       "1230\r\n\r\n", "1230\r\n\r\nx"},
      {"byte by byte", Script().send_slowly("HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\nhi"), nullptr, "hi"},
      {"counted, byte by byte", Script().send("HTTP/1.1 200 OK\r\nContent-Length: 9\r\n\r\n").send_slowly("123456789"),
       "123456789", "123456789"},
      {"end in a chunk", Script().send(chunked + "5\r\nhe"), nullptr, nullptr},
      {"end in the header", Script().send("HTTP/1.1 200 OK\r\nContent"), nullptr, nullptr},
      {"nothing at all", Script(), nullptr, nullptr},
  };
  for (const auto& wanted : kCases) {
    for (const bool exact : {false, true}) {
      SCOPED_TRACE(std::string(wanted.name) + (exact ? ", exact" : ", literal"));
      set(settings::kHttpExactReader, exact ? "1" : "0");
      ScriptedPeer peer([&](Connection& connection) {
        connection.read_until("\r\n\r\n");
        wanted.reply(connection);
      });
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

TEST_F(HttpTest, FailureInsideTheBodyKeepsStatusTypeAndCookies) {
  ScriptedPeer peer(
      {after_request().send(std::string(kOk) + "Content-Type:a/b\r\nSet-Cookie:c=d\r\nContent-Length:9\r\n\r\nx"),
       after_request().send("HTTP/1.1 200 OK\r\n\r\n")});
  EXPECT_FALSE(get(peer.url()));
  EXPECT_EQ(status_, "200 OK");
  EXPECT_EQ(content_type_, "a/b");
  EXPECT_EQ(body(), "untouched");
  EXPECT_TRUE(get(peer.url()));
  EXPECT_THAT(peer.received(1), testing::HasSubstr("COOKIE: c=d\r\n"));
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
    ScriptedPeer peer([&](Connection& connection) {
      connection.read_until("\r\n\r\n");
      wanted.reply(connection);
    });
    log_.clear();
    const auto start = std::chrono::steady_clock::now();
    EXPECT_FALSE(get(peer.url()));
    EXPECT_GE(std::chrono::steady_clock::now() - start, wanted.at_least) << wanted.setting.name;
    EXPECT_THAT(log_.numbers(), ElementsAre(wanted.number)) << wanted.setting.name;
    set_setting(wanted.setting.section, wanted.setting.name, std::nullopt);
    static_cast<void>(peer.take_failures());
  }
}

TEST_F(HttpTest, NothingIsSentToWhereNothingCanBe) {
  const std::string refused = "http://127.0.0.1:" + std::to_string(refused_port()) + "/";
  for (const std::string& url : {refused, std::string(), std::string("http:///"), std::string("http://127.0.0.1:0/"),
                                 std::string("http://127.0.0.1:65616/"), std::string("ftp://127.0.0.1/")}) {
    log_.clear();
    EXPECT_FALSE(get(url)) << url;
    EXPECT_THAT(log_.numbers(), Contains(21901)) << url;
  }
  EXPECT_EQ(body(), "untouched");
  EXPECT_EQ(status_, "");
}

TEST_F(HttpTest, ValuesThatWouldBreakALineAreRefused) {
  auto peer = ScriptedPeer::for_every_connection(after_request().send("HTTP/1.1 200 OK\r\n\r\n"));
  EXPECT_FALSE(get(peer.url("/ HTTP/1.1\r\nX: y")));
  EXPECT_FALSE(get(peer.url(std::string_view("/\0", 2))));
  EXPECT_FALSE(get("http://h\n/"));
  EXPECT_FALSE(post(peer.url(), "x", "a\rb"));
  set(settings::kSystemName, "a\r\nb");
  EXPECT_FALSE(get(peer.url()));
  EXPECT_THAT(log_.numbers(), ElementsAre(21905, 21905, 21905, 21905, 21905));
  EXPECT_EQ(peer.connection_count(), 0U);
}

TEST_F(HttpTest, RequestThatCannotBeSentIsReported) {
  ScriptedPeer peer(after_request().reset());
  EXPECT_FALSE(post(peer.url(), std::string(50 << 20, 'x'), ""));
  EXPECT_THAT(log_.numbers(), Contains(21902));
}

TEST_F(HttpTest, TlsIsNotVerifiedByDefaultAndNeverLeftOut) {
  auto peer = ScriptedPeer::for_every_connection([](Connection& connection) {
    const TlsContext context = TlsContext::server(Certificates::shared().self_signed());
    if (!connection.try_tls(context)) return;
    connection.read_until("\r\n\r\n");
    connection.send("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n6\r\nsecret\r\n0\r\n\r\n");
  });
  EXPECT_TRUE(get(peer.url("/", "https")));
  EXPECT_EQ(body(), "secret");
  set(settings::kTlsVerifyAlways, "1");
  EXPECT_FALSE(get(peer.url("/", "https")));
  set(settings::kTlsCipherList, "no such cipher");
  EXPECT_FALSE(get(peer.url("/", "https")));
  EXPECT_THAT(log_.numbers(), testing::IsSupersetOf({21901, 21901}));
  static_cast<void>(peer.take_failures());
  EXPECT_EQ(peer.received(1), "");
  EXPECT_EQ(peer.connection_count(), 2U);  // nothing went out in clear
}

TEST_F(HttpTest, TracesTellUrlAndOutcome) {
  set_debug_traces(true);
  ScriptedPeer peer(
      {after_request().send("HTTP/1.1 200 OK\r\n\r\nx"), after_request("body").send("HTTP/1.1 404 No\r\n\r\nx")});
  get(peer.url("/p"));
  post(peer.url(), "body", "");
  set_debug_traces(false);
  std::vector<int> numbers;
  for (const LogRecord& record : log_.records())
    if (record.channel == 2190) numbers.push_back(record.number);
  EXPECT_THAT(numbers, ElementsAre(21922, 21921, 21922, 21923, 21921, 21922));
  EXPECT_THAT(log_.last(21921).text, testing::HasSubstr(peer.url()));
  EXPECT_THAT(log_.last(21923).text, testing::HasSubstr("body"));
  EXPECT_THAT(log_.last(21922).text, testing::EndsWith("404 No\r\nx"));
}

}  // namespace
}  // namespace yinet::test
