// HTTP and SOAP calls: against peers that are scripted byte by byte, and a real server. The ordinary calls of the script
// functions are made by the command line's tests.

#include <gmock/gmock.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>

#include "support/bytes.h"
#include "support/certificates.h"
#include "support/log_capture.h"
#include "support/ports.h"
#include "support/requirements.h"
#include "support/scripted_peer.h"
#include "support/servers.h"
#include "support/temp_dir.h"
#include "yinet/script/response_file.h"
#include "yinet/yinet.h"

namespace yinet::test {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;

const std::string kOk = "HTTP/1.1 200 OK\r\n";

// A client with its outputs, a captured log and settings that make failures quick.
class HttpTest : public testing::Test {
 protected:
  HttpTest() {
    set(settings::kConnectPause, "0");
    set(settings::kHttpIdlePause, "20");
  }
  ~HttpTest() override {
    for (const Setting& setting : all_settings()) set(setting, std::nullopt);
    set_temporary_folder("");
  }
  static void set(const Setting& setting, const std::optional<std::string>& value) {
    set_setting(setting.section, setting.name, value);
  }
  bool get(const std::string& url) { return http_.Get(YString(url), body_, content_type_, status_); }
  bool post(const std::string& url, std::string_view content, std::string_view type) {
    return http_.POST(YString(url), YBuffer(content), YString(type), body_, content_type_, status_);
  }
  // A peer that takes one request and answers with what follows.
  static Script after_request(const std::string& end = "\r\n\r\n") { return Script().read_until(end); }

  HTTP http_;
  YBuffer body_{"untouched"};
  YString content_type_, status_;
  LogCapture log_;
};

TEST_F(HttpTest, RequestsHaveExactlyTheseBytes) {
  set(settings::kSystemName, "Agent $1$");
  const std::string content("\0\r\n\r\n\xFF", 6);
  ScriptedPeer peer({after_request().send(kOk + "Content-Type: text/x; a:b\r\nContent-Length: 2\r\n\r\nhi"),
                     after_request(content).send(kOk + "\r\n"), after_request().send("HTTP/1.1 500 No\r\n\r\nwhy")});
  EXPECT_TRUE(get(peer.url("/a?b=c d")));
  EXPECT_EQ(body_.view(), "hi");
  EXPECT_EQ(status_ + content_type_, "200 OKtext/x; a");
  EXPECT_TRUE(post(peer.url(), content, "a/b"));
  EXPECT_FALSE(post(peer.url("/x"), "", ""));
  EXPECT_EQ(status_ + body_.toString(), "500 Nowhy");
  peer.finish();
  EXPECT_THAT(peer.received(0),
              testing::MatchesRegex("GET /a\\?b=c d HTTP/1\\.1\r\nHOST:127\\.0\\.0\\.1\r\nUSER-AGENT:Agent \\$1\\$\r\n"
                                    "Cache-Control: no-cache\r\nDate:[^\r]* 20[^\r]* GMT\r\nAccept:\\*/\\*\r\n\r\n"));
  EXPECT_THAT(peer.received(1), testing::StartsWith("POST / HTTP/1.1\r\n"));
  EXPECT_THAT(peer.received(1), EndsWith("Accept:*/*\r\nContent-Length:6\r\nContent-Type:a/b\r\n\r\n" + content));
  EXPECT_THAT(peer.received(2), EndsWith("\r\nContent-Length:0\r\nContent-Type:text/plain\r\n\r\n"));
  EXPECT_THAT(log_.numbers(), testing::IsEmpty());
}

TEST_F(HttpTest, CookiesGoBackToTheirHostOnlyAndStayWithinTheLimit) {
  set(settings::kHttpCookieLimit, "2");
  const std::string both = "COOKIE: b=1\r\nCOOKIE: a=2=3\r\n";
  const std::pair<std::string, std::string> kCalls[] = {
      // fields of the reply, and what the request had sent
      {"COOKIES: none\r\nSet-Cookie: b=1; path=/\r\nContent-Type: a/b\r\nContent-Length: 9", ""},
      {"set-cookie: a=2=3\r\nSet-Cookie: c=1", "COOKIE: b=1\r\n"},
      {"Set-Cookie: b=4\r\nCOOKIES: none", both},
      {"c: d", both},
      {"c: d", ""}};
  std::vector<ConnectionScript> replies;
  for (const auto& call : kCalls)
    replies.emplace_back(after_request().send("HTTP/1.1 404 x\r\n" + call.first + "\r\n\r\n"));
  ScriptedPeer peer(std::move(replies));
  EXPECT_FALSE(get(peer.url())) << "cut, yet it keeps its status, type and cookies";
  EXPECT_EQ(status_ + content_type_, "404 xa/b");
  for (int i = 1; i < 4; ++i) EXPECT_FALSE(get(peer.url()));
  HTTP copy = http_;
  copy.Get(YString("http://localhost:" + std::to_string(peer.port())), body_, content_type_, status_);
  peer.finish();
  for (std::size_t i = 0; i < 5; ++i)
    EXPECT_THAT(peer.received(i), EndsWith("Accept:*/*\r\n" + kCalls[i].second + "\r\n"));
}

TEST_F(HttpTest, TalksToARealServer) {
  YINET_REQUIRE_PROGRAM("nginx");
  const NginxServer nginx;
  const std::string big = pattern_bytes(5000011);
  for (const std::string& server : {nginx.url(""), nginx.tls_url("")}) {
    EXPECT_FALSE(get(server + "/redirect/301"));
    EXPECT_EQ(status_, "301 Moved Permanently");
    EXPECT_TRUE(post(server + "/echo", big, "") && body_.view() == big);
    EXPECT_TRUE(get(server + "/cookies") && get(server + "/request"));
    EXPECT_THAT(body_.toString().str(), HasSubstr("COOKIE: session=abc123\r\nCOOKIE: lang=de\r\nCOOKIE: empty=\r\n"));
  }
}

// What the literal and the exact reader make of the same conversation, and the limits of both.
TEST_F(HttpTest, BothReadersTakeWhatTheConnectionBringsAndNoMore) {
  const std::string head = kOk + "Content-Length: 2000000000\r\n\r\n";
  const Script slow_text = Script().send(kOk + "Content-Length: 4\r\n\r\n").send_slowly("text", milliseconds(200));
  const struct {
    Script reply;
    const char *literal = nullptr, *exact = nullptr;  // body; null for a failure
    int number = 21903, at_least_ms = 0;              // of the failure
    const Setting& setting = settings::kHttpIdlePolls;
    const char* value = "1000";
  } kCases[] = {
      {Script().send_slowly(kOk + "Content-Length: 2\r\n\r\nhi"), nullptr, "hi"},
      {Script().send(kOk + "Transfer-Encoding: chunked\r\n\r\n5\r\nhe")},
      {Script().send(kOk + "\r\nwhole").pause(milliseconds(50)).close(), "whole", "whole"},
      {Script().send(kOk + "\r\nhalf").pause(milliseconds(50)).reset(), "half"},
      {slow_text, "text", "text", 0, 600, settings::kHttpIdlePolls, "15"},  // every byte starts the count again
      {Script().send("HTTP/1.1 ").stay_silent(), nullptr, nullptr, 21904, 5 * 20, settings::kHttpIdlePolls, "5"},
      {Script().flood("X: y\r\n", 100000000), nullptr, nullptr, 21904, 0, settings::kHttpHeaderLimit, "100000"},
      {Script().send(head).flood("body", 100000000), nullptr, nullptr, 21907, 0, settings::kHttpBodyLimit, "100000"},
      {Script().send(head).send_slowly(std::string(20000, 'x')), nullptr, nullptr, 21904, 300, settings::kHttpTimeLimit,
       "300"},
      {Script().stay_silent(), nullptr, nullptr, 21904, 300, settings::kHttpTimeLimit, "300"}};
  for (const auto& wanted : kCases)
    for (const bool exact : {false, true}) {
      SCOPED_TRACE(std::string(wanted.setting.name) + (exact ? ", exact " : " ") + std::to_string(&wanted - kCases));
      set(settings::kHttpExactReader, exact ? "1" : "0");
      set(wanted.setting, wanted.value);
      ScriptedPeer peer(after_request().then(wanted.reply));
      log_.clear();
      body_ = YBuffer("untouched");
      const char* const expected = exact ? wanted.exact : wanted.literal;
      const auto start = std::chrono::steady_clock::now();
      EXPECT_EQ(get(peer.url()), expected != nullptr);
      EXPECT_GE(std::chrono::steady_clock::now() - start, milliseconds(wanted.at_least_ms));
      EXPECT_EQ(body_.view(), expected ? expected : "untouched");
      EXPECT_EQ(log_.numbers(), expected ? std::vector<int>() : std::vector{wanted.number});
      set(wanted.setting, std::nullopt);
      static_cast<void>(peer.take_failures());  // some replies are not taken to their end
    }
  const ScriptedPeer resetting(after_request().send(kOk + "\r\n" + std::string(3000, 'x')).reset());
  EXPECT_FALSE(get(resetting.url())) << "the exact reader takes a reset for an end when it was met reading ahead";
}

TEST_F(HttpTest, NothingIsSentWhereNothingCanOrMayBe) {
  auto peer = ScriptedPeer::for_every_connection(after_request().send(kOk + "\r\n"));
  EXPECT_FALSE(get("http://127.0.0.1:" + std::to_string(refused_port())) || get("") || get("ftp://127.0.0.1/"));
  EXPECT_EQ(std::ranges::count(log_.numbers(), 21901), 3);
  log_.clear();
  EXPECT_FALSE(get(peer.url("/ HTTP/1.1\r\nX: y")) || get("http://h\n/") || post(peer.url(), "x", "a\rb"));
  set(settings::kSystemName, "a\r\nb");
  EXPECT_FALSE(get(peer.url()));
  EXPECT_EQ(log_.numbers(), std::vector(4, 21905));
  EXPECT_EQ(peer.connection_count(), 0U);
  ScriptedPeer rude(after_request().reset());
  set(settings::kSystemName, "a");
  EXPECT_FALSE(post(rude.url(), std::string(50 << 20, 'x'), ""));
  EXPECT_THAT(log_.numbers(), Contains(21902));
  EXPECT_EQ(body_.view(), "untouched");
}

TEST_F(HttpTest, LaterRequestsResumeTheTlsSessionButNeverOneThatWasCheckedLess) {
  for (const TlsVersion version : {TlsVersion::tls12, TlsVersion::tls13}) {
    const TlsContext context = TlsContext::server(Certificates::shared().good(), {.version = version});
    auto peer = ScriptedPeer::for_every_connection(
        Script().start_tls(context).read_until("\r\n\r\n").send(kOk + "Content-Length: 1\r\n\r\nx").read_to_end());
    const std::string url = peer.url("/", "https");
    for (std::size_t i = 0; i < 3; ++i) {
      http_ = HTTP();
      ASSERT_TRUE(get(url));
      EXPECT_EQ(peer.tls(i).session_reused, i > 0) << i;
    }
    log_.clear();
    set(settings::kTlsVerifyAlways, "1");
    EXPECT_FALSE(get(url));  // an authority that the system does not know
    EXPECT_FALSE(peer.tls(3).session_reused);
    set(settings::kTlsCipherList, "no such cipher");
    EXPECT_FALSE(get(url));
    EXPECT_EQ(peer.connection_count(), 4U) << "nothing goes out in clear instead";
    EXPECT_THAT(log_.numbers(), testing::IsSupersetOf({21901, 21901}));
    set(settings::kTlsCipherList, std::nullopt);
    ::setenv("SSL_CERT_FILE", Certificates::shared().ca_file().c_str(), 1);
    EXPECT_TRUE(get(url) && get(url)) << "what was checked counts as checked when it is resumed";
    EXPECT_TRUE(!peer.tls(4).session_reused && peer.tls(5).session_reused);
    ::unsetenv("SSL_CERT_FILE");
    set(settings::kTlsVerifyAlways, "0");
    static_cast<void>(peer.take_failures());
    EXPECT_EQ(peer.received(3), "");
  }
}

TEST_F(HttpTest, ABodyTakesNoNameOfAnotherFile) {
  const TempDir folder;
  set_temporary_folder(folder.path().string());
  for (const char* name : {"8.tmp", "999999.tmp"}) folder.write(name, "taken");
  std::filesystem::create_symlink(folder / "victim", folder / "9.tmp");
  EXPECT_EQ(write_response_file("a", 7), YString("TEMP:10.tmp"));
  EXPECT_EQ(write_response_file("b", 999998), YString("TEMP:0.tmp"));
  EXPECT_EQ(read_file(folder / "10.tmp"), "a");
  EXPECT_FALSE(std::filesystem::exists(folder / "victim"));
  EXPECT_EQ(std::filesystem::status(folder / "10.tmp").permissions(), std::filesystem::perms{0600});
}

// --- SOAP ---------------------------------------------------------------------------------------------------------------

class SoapTest : public HttpTest {
 protected:
  // Result, answer and logged numbers of a call whose endpoint answers like this; JSON is written with simple quotes.
  std::string called(const std::string& call, const std::string& type = "text/xml", const std::string& body = "",
                     const std::string& status_line = "200 OK") {
    const std::string reply = formatted("HTTP/1.1 $1$\r\nContent-Type: $2$\r\nContent-Length: $3$\r\n\r\n$4$",
                                        status_line, type, std::to_string(body.size()), body);
    auto peer = ScriptedPeer::for_every_connection(after_request("</SOAP-ENV:Envelope>").send(reply));
    const std::string json = "{'pErg':{'old':'x'},'pParam':{" + call + "'ENDPOINT':'" + peer.url("/soap") + "'}}";
    log_.clear();
    YObject parameters;
    EXPECT_FALSE(YJSON::Parse(replaced(json, "'", "\""), parameters)) << call;
    const auto status = call_function("SOAP_EXECUTEFUNCTION", parameters).status;
    peer.finish();
    received_ = peer.connection_count() > 0 ? peer.received() : "";
    std::string told = status == CallStatus::succeeded ? "true " : "false ";
    told += replaced(YJSON::Write(*parameters.Find<YObject>("pErg")), "\"", "'");
    for (const int number : log_.numbers()) told += " " + std::to_string(number);
    return told;
  }
  std::string received_;
};

TEST_F(SoapTest, CallsBecomeEnvelopesWithThePrefixOnEveryName) {
  set(settings::kXmlDepthLimit, "6");
  const std::string type = "\r\nContent-Type:text/xml\r\n", op = "'BODY':{'Op':{}},";
  const std::string start =
      "\r\n\r\n<?xml version=\"1.0\" encoding=\"UTF-8\"?>"
      "<SOAP-ENV:Envelope xmlns:SOAP-ENV=\"http://schemas.xmlsoap.org/soap/envelope/\" "
      "xmlns:SOAP-ENC=\"http://schemas.xmlsoap.org/soap/encoding/\" "
      "xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\" xmlns:xsd=\"http://www.w3.org/2001/XMLSchema\" "
      "xmlns:nskv=\"u&amp;&quot;&lt;\"><SOAP-ENV:Body>";
  const std::pair<std::string, std::string> kSent[] = {
      {"'NAMESPACE':'u&\\u0022<','BODY':{'Op':{'a':'<x>\\u00e4','n':7,'o':{'lost':'1'},'e':''},'second':{}},",
       start + "<nskv:Op><nskv:a>&lt;x&gt;\xC3\xA4</nskv:a><nskv:n>7</nskv:n><nskv:o/>"
               "<nskv:e/></nskv:Op></SOAP-ENV:Body></SOAP-ENV:Envelope>"},
      {"'HEADER':{'A':{'B':{'c':true},'e':{}},'L':[{'d':'1'},{'d':'2'}]}," + op,
       "><SOAP-ENV:Header><nskv:A><nskv:B><nskv:c>1</nskv:c></nskv:B></nskv:A><nskv:L><nskv:d>1</nskv:d></nskv:L>"
       "<nskv:L><nskv:d>2</nskv:d></nskv:L></SOAP-ENV:Header><SOAP-ENV:Body><nskv:Op/></SOAP-ENV:Body>"},
      {"'SOAPACTION':'urn:x#Op'," + op, type + "SOAPAction:\"urn:x#Op\"\r\n\r\n"},
      {"'SOAPACTION':'\\'quoted\\''," + op, type + "SOAPAction:\"quoted\"\r\n\r\n"},
      {"'SOAPACTION':''," + op, type + "SOAPAction:\"\"\r\n\r\n"},
      {op, type + "\r\n"}};
  for (const auto& [call, sent] : kSent) {
    EXPECT_EQ(called(call), "true {}");
    EXPECT_THAT(received_, HasSubstr(sent));
  }
  for (const std::string problem :
       {"", "'HEADER':{},", "'BODY':{},", "'BODY':{'':{}},", "'BODY':{'a b':{}},",
        "'BODY':{'Op':{}},'HEADER':{'x:y':'1'},", "'BODY':{'Op':{}},'HEADER':{'a':{'b':{'c':{'d':{'e':'1'}}}}},"})
    EXPECT_EQ(called(problem), "false {} 21951") << problem;
  EXPECT_EQ(called("'SOAPACTION':'a\\nb'," + op), "false {} 21905 21952");
  YObject without_call, without_answer;
  without_call.Ensure<YObject>("p");
  without_answer.Ensure<YObject>("p").Ensure<YObject>("pParam");
  for (YObject* block : {&without_call, &without_answer}) SOAP_EXECUTEFUNCTION(block);
  EXPECT_THAT(log_.numbers(), ElementsAre(21905, 21952, 21953, 21953));
}

TEST_F(SoapTest, AnswersAreTakenOver) {
  const std::string call = "'BODY':{'Op':{'a':'1'}},";
  EXPECT_EQ(called(call, "TEXT/XML; charset=utf-8", "<s:E><s:B><i>1</i><i>\xE2\x82\xAC</i></s:B></s:E>"),
            "true {'s:E':{'s:B':{'i':[{'#text':'1'},{'#text':'\xE2\x82\xAC'}]}}}");
  EXPECT_EQ(called(call, "text/xml; charset=\"ISO-8859-1\"", "<a>\xE4</a>"), "true {'a':'\xC3\xA4'}");
  EXPECT_EQ(called(call, "text/xml", "<f><faultcode>s:C</faultcode></f>", "500 E"), "false {'f':{'faultcode':'s:C'}}");
  EXPECT_EQ(called(call, "text/xml2", "<a/>"), "false {} 21952");
  for (const char* xml : {"<a>", "<!DOCTYPE a [<!ENTITY e SYSTEM 'file:///etc/passwd'>]><a>&e;</a>"})
    EXPECT_EQ(called(call, "text/xml", xml), "false {} 21954");
}

}  // namespace
}  // namespace yinet::test
