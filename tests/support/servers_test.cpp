// The servers behind the tests, looked at with other programs' or hand-written requests.
#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <thread>

#include "support/bytes.h"
#include "support/dns_server.h"
#include "support/nginx_server.h"
#include "support/requirements.h"
#include "support/resource_check.h"
#include "support/scripted_peer.h"
#include "support/tls_server.h"

namespace yinet::test {
namespace {

std::string request(std::string_view path, std::string_view body = {}) {
  std::string text =
      (body.empty() ? "GET " : "POST ") + std::string(path) + " HTTP/1.1\r\nHost: here\r\nConnection: close\r\n";
  if (!body.empty()) text += "Content-Length: " + std::to_string(body.size()) + "\r\n";
  return text + "\r\n" + std::string(body);
}

std::string exchange(std::uint16_t port, const std::string& sent, const std::optional<TlsContext>& tls = {}) {
  std::string reply;
  ScriptedClient client(port, [&](Connection& c) {
    if (tls) c.start_tls(*tls);
    c.send(sent);
    reply = c.read_to_end();
  });
  client.finish();
  return reply;
}

bool has(const std::string& text, std::string_view part) { return text.find(part) != std::string::npos; }

TEST(NginxServer, ServesWhatItsHeaderPromises) {
  YINET_REQUIRE_PROGRAM("nginx");
  const NginxServer nginx;
  struct Case {
    const char* path;
    std::vector<const char*> parts;
  };
  std::vector<Case> cases = {
      {"/", {"HTTP/1.1 200 OK\r\n", "Content-Length: 37\r\n", "\r\n\r\n<html><body>It serves.</body></html>\n"}},
      {"/hello.txt", {"HTTP/1.1 200 OK\r\n", "\r\n\r\nHello from nginx\n"}},
      {"/missing", {"HTTP/1.1 404 Not Found\r\n"}},
      {"/listing/", {"Transfer-Encoding: chunked\r\n", "hello.txt"}},
      {"/status/500", {"HTTP/1.1 500 ", "\r\n\r\nstatus 500"}},
      {"/redirect/307", {"HTTP/1.1 307 ", "Location: http://here/hello.txt\r\n"}},
      {"/redirect/loop", {"HTTP/1.1 302 ", "Location: http://here/redirect/loop\r\n"}},
      {"/empty", {"HTTP/1.1 200 OK\r\n", "Content-Length: 0\r\n"}},
      {"/cookies",
       {"Set-Cookie: session=abc123; Path=/; HttpOnly\r\n", "Set-Cookie: lang=de; Max-Age=3600\r\n",
        "Set-Cookie: empty=\r\n"}},
  };
  if (NginxServer::has_echo()) {
    cases.push_back({"/chunked/hello.txt", {"Transfer-Encoding: chunked\r\n", "\r\n11\r\nHello from nginx\n\r\n"}});
    cases.push_back({"/request", {"GET /request HTTP/1.1\r\nHost: here\r\nConnection: close\r\n"}});
  }
  for (const Case& one : cases) {
    const std::string reply = exchange(nginx.port(), request(one.path));
    for (const char* part : one.parts) EXPECT_TRUE(has(reply, part)) << one.path << " lacks " << part << "\n" << reply;
  }
}

TEST(NginxServer, ServesTlsWithTheCertificateGiven) {
  YINET_REQUIRE_PROGRAM("nginx");
  NginxServer::Options options;
  options.certificate = Certificates::shared().wrong_name();
  options.client_ca = Certificates::shared().ca_file();
  const NginxServer nginx(options);
  TlsClientOptions client;
  client.ca_file = Certificates::shared().ca_file();
  EXPECT_TRUE(has(exchange(nginx.tls_port(), request("/"), TlsContext::client(client)), "HTTP/1.1 400 "));
  client.certificate = Certificates::shared().client();
  EXPECT_TRUE(has(exchange(nginx.tls_port(), request("/"), TlsContext::client(client)), "It serves."));
  ScriptedClient looking(nginx.closing_tls_port(), Script().start_tls(TlsContext::client(client)));
  looking.finish();
  EXPECT_EQ(looking.tls().peer_subject, "CN=other.example");
}

TEST(NginxServer, SendsLargeBodiesBackWhole) {
  YINET_REQUIRE_PROGRAM("nginx");
  if (!NginxServer::has_echo()) GTEST_SKIP() << "nginx's echo module is not installed";
  const NginxServer nginx;
  const std::string body = pattern_bytes(1000000);
  const std::string http10 = "POST /echo HTTP/1.0\r\nContent-Length: 1000000\r\n\r\n" + body;  // no chunks then
  const std::string reply = exchange(nginx.port(), http10);
  EXPECT_TRUE(reply.ends_with("\r\n\r\n" + body)) << printable(reply);
}

TEST(NginxServer, ClosesWhereItShould) {
  YINET_REQUIRE_PROGRAM("nginx");
  NginxServer::Options options;
  options.log_requests = true;
  const NginxServer nginx(options);
  const std::string kept_alive = "GET /hello.txt HTTP/1.1\r\nHost: here\r\n\r\n";
  EXPECT_TRUE(has(exchange(nginx.closing_port(), kept_alive), "Connection: close\r\n"));
  ScriptedClient twice(nginx.port(),
                       Script().send(kept_alive).read_until("nginx\n").send(kept_alive).read_until("nginx\n"));
  twice.finish();
  ASSERT_TRUE(nginx.wait_for_requests(3));
  EXPECT_EQ(nginx.requests()[0], std::to_string(nginx.closing_port()) + " GET /hello.txt HTTP/1.1 200 17");
}

TEST(TlsServer, AnswersInEachMode) {
  YINET_REQUIRE_PROGRAM("openssl");
  TlsServer web;
  EXPECT_TRUE(has(exchange(web.port(), "GET / HTTP/1.0\r\n\r\n", TlsContext::client()), "200 ok"));
  TlsServer reverse({.mode = TlsServer::Mode::reverse, .arguments = {"-tls1_2"}});
  ScriptedClient client(reverse.port(), Script().start_tls(TlsContext::client()).send("abc\n").expect("cba\n"));
  client.finish();
  EXPECT_EQ(client.tls().version, "TLSv1.2");
  TlsServer terminal({.mode = TlsServer::Mode::terminal});
  ScriptedClient talker(terminal.port(),
                        Script().start_tls(TlsContext::client()).send("hello server\n").expect("hello client\n"));
  EXPECT_TRUE(terminal.wait_for_received("hello server\n"));
  terminal.send("hello client\n");
  EXPECT_TRUE(talker.wait_for_scripts());
}

TEST(ServerProcess, SaysWhyAServerDoesNotStart) {
  YINET_REQUIRE_PROGRAM("nginx");
  NginxServer::Options options;
  options.locations = "no such directive;\n";
  try {
    const NginxServer nginx(options);
    FAIL() << "it started";
  } catch (const std::runtime_error& error) {
    EXPECT_TRUE(has(error.what(), "unknown directive \"no\"")) << error.what();
  }
}

TEST(ServerProcess, TriesOtherPortsWhenOneWasTaken) {
  int attempts = 0;
  ServerSetup setup;
  setup.name = "sh";
  setup.prepare = [&](const ReservedPorts&) {
    ChildOptions child;
    child.argv = {"sh", "-c",
                  ++attempts < 3 ? "echo 'bind: Address already in use' >&2; exit 1" : "echo serving; sleep 600"};
    return child;
  };
  setup.ready = [](ChildProcess& child, const ReservedPorts&) { return child.output() == "serving\n"; };
  const ServerProcess server(std::move(setup));
  EXPECT_EQ(attempts, 3);
}

TEST(KnotServer, KnowsItsZonesOnly) {
  YINET_REQUIRE_PROGRAM("knotd");
  const KnotServer dns({{"x.test", "www A 192.0.2.1\nwww A 192.0.2.2\n"}, {"broken.test", std::nullopt}});
  struct Case {
    const char* name;
    unsigned code;
    unsigned answers;
  };
  for (const Case& one : {Case{"www.x.test", 0, 2}, Case{"x.test", 0, 0}, Case{"missing.x.test", 3, 0},
                          Case{"a.broken.test", 2, 0}, Case{"elsewhere.test", 5, 0}})
    for (const bool over_tcp : {false, true}) {
      const std::string reply = ask_dns(dns.port(), DnsMessage::query(9, one.name, kDnsA).bytes(), over_tcp);
      ASSERT_FALSE(reply.empty()) << one.name;
      EXPECT_EQ(DnsMessage::code_of(reply), one.code) << one.name;
      EXPECT_EQ(DnsMessage::answers_of(reply), one.answers) << one.name;
    }
}

TEST(ScriptedDnsServer, BuildsTheBytesOfTheStandard) {
  const std::string query = DnsMessage::query(0x1234, "a.bc", kDnsMx).bytes();
  EXPECT_EQ(query, from_hex("1234 0100 0001 0000 0000 0000 01 61 02 62 63 00 000f 0001"));
  EXPECT_EQ(DnsMessage::reply_to(parse_dns_query(query)).mx("a.bc", 10, "m.").a("m", "1.2.3.4", 70000).bytes(),
            from_hex("1234 8180 0001 0002 0000 0000 01 61 02 62 63 00 000f 0001"
                     "01 61 02 62 63 00 000f 0001 0000003c 0005 000a 01 6d 00"
                     "01 6d 00 0001 0001 00011170 0004 01020304"));
}

TEST(ScriptedDnsServer, AnswersAsTold) {
  const std::string query = DnsMessage::query(7, "a.test", kDnsA).bytes();
  const std::string honest = DnsMessage::reply_to(parse_dns_query(query)).a("a.test", "192.0.2.7").bytes();
  struct Case {
    const char* what;
    DnsHandler handler;
    std::string over_udp;
    std::string over_tcp;
  };
  const std::string other_id = std::string("\0\x08", 2) + honest.substr(2);
  const std::string truncated = DnsMessage::reply_to(parse_dns_query(query)).truncated().bytes();
  for (const Case& one : {Case{"silent", ScriptedDnsServer::silent(), "", ""},
                          Case{"wrong id", ScriptedDnsServer::wrong_id(), other_id, other_id},
                          Case{"cut", ScriptedDnsServer::cut(20), honest.substr(0, 20), honest.substr(0, 20)},
                          Case{"truncated", ScriptedDnsServer::truncated_on_udp(), truncated, honest}}) {
    const ScriptedDnsServer dns(one.handler);
    EXPECT_EQ(ask_dns(dns.port(), query, false, milliseconds(one.over_udp.empty() ? 50 : 10000)), one.over_udp)
        << one.what;
    EXPECT_EQ(ask_dns(dns.port(), query, true, milliseconds(one.over_tcp.empty() ? 50 : 10000)), one.over_tcp)
        << one.what;
    EXPECT_TRUE(dns.wait_for_queries(2));
    EXPECT_EQ(dns.queries()[1].name, "a.test");
  }
}

TEST(ScriptedDnsServer, SendsLateRepliesInTheirTime) {
  const ScriptedDnsServer dns([](const DnsQuery&) {
    return std::vector<DnsReply>{{"second", milliseconds(60)}, {"first", milliseconds(20)}};
  });
  const Deadline clock(milliseconds(10000));
  EXPECT_EQ(ask_dns(dns.port(), DnsMessage::query(1, "a", kDnsA).bytes(), false, milliseconds(10000)), "first");
  EXPECT_LE(clock.left(), milliseconds(10000 - 19));
}

TEST(ScriptedDnsServer, ReportsWhatIsNoQuery) {
  EXPECT_NONFATAL_FAILURE(
      {
        const ScriptedDnsServer dns(ScriptedDnsServer::silent());
        ask_dns(dns.port(), "nonsense", false, milliseconds(200));
      },
      "not one question at the query \"nonsense\"");
}

TEST(ResourceCheck, NamesWhatWasLeftBehind) {
  ResourceCheck check;
  const int open = ::dup(2);
  Signal gate;
  std::thread thread([&] { eventually([&] { return gate.is_set(); }); });
  const std::string leftovers = check.take_leftovers();
  gate.set();
  thread.join();
  ::close(open);
  EXPECT_TRUE(has(leftovers, "left open: " + std::to_string(open) + " ")) << leftovers;
  EXPECT_TRUE(has(leftovers, "1 threads more than before")) << leftovers;
}

TEST(ResourceCheck, PeersAndChildrenLeaveNothingBehind) {
  static_cast<void>(TlsContext::server());  // the shared certificates stay, with their folder
  const ResourceCheck check;
  {
    ScriptedPeer peer(Script().start_tls().expect("x"));
    ScriptedClient client(peer.port(), Script().start_tls(TlsContext::client()).send("x"));
    const ScriptedDnsServer dns(ScriptedDnsServer::silent());
    const ReservedPorts ports(3);
    run_command({"true"});
  }
}

TEST(ResourceCheck, SeesThePeakOfMemory) {
  if (!reset_peak_memory()) GTEST_SKIP() << "the kernel does not let the peak of memory be reset";
  const std::size_t before = Resources::now().peak_memory_kib;
  {
    const std::string large(64 << 20, 'x');
    EXPECT_EQ(large.back(), 'x');
  }
  EXPECT_GE(Resources::now().peak_memory_kib, before + (60 << 10));
}

}  // namespace
}  // namespace yinet::test
