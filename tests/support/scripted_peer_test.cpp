#include "support/scripted_peer.h"

#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>
#include <sys/socket.h>

#include <cerrno>
#include <thread>

#include "support/bytes.h"
#include "support/ports.h"
#include "support/requirements.h"
#include "support/socket_address.h"

namespace yinet::test {
namespace {

ScriptedPeer::Options impatient() {
  ScriptedPeer::Options options;
  options.step_patience = milliseconds(100);
  return options;
}

// A plain blocking socket: what is tested here mustn't be its own witness.
class PlainClient {
 public:
  explicit PlainClient(std::uint16_t port) : socket_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    const SocketAddress server("127.0.0.1", port);
    EXPECT_EQ(::connect(socket_.get(), server.get(), server.size()), 0);
  }
  bool send(std::string_view bytes) { return ::send(socket_.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL) >= 0; }
  std::string read() {  // one piece; "" at the end, "reset" after a reset
    std::string bytes(1000, '\0');
    const ssize_t count = ::recv(socket_.get(), bytes.data(), bytes.size(), 0);
    if (count < 0) return errno == ECONNRESET ? "reset" : "error";
    bytes.resize(static_cast<std::size_t>(count));
    return bytes;
  }
  std::string read_all() {
    std::string all;
    for (std::string piece = read(); !piece.empty(); piece = read()) all += piece;
    return all;
  }
  void end_sending() { ::shutdown(socket_.get(), SHUT_WR); }
  void close() { socket_.close(); }

 private:
  FileDescriptor socket_;
};

TEST(ScriptedPeer, RunsADialogueAndKeepsWhatItGot) {
  ScriptedPeer peer(Script().expect("HELO\r\n").send("250 ok\r\n").read_until("\r\n").send("221 bye\r\n"));
  PlainClient client(peer.port());
  client.send("HELO\r\nQUIT\r\nmore");
  client.end_sending();
  EXPECT_EQ(client.read_all(), "250 ok\r\n221 bye\r\n");
  peer.finish();
  EXPECT_EQ(peer.received(), "HELO\r\nQUIT\r\nmore");
  EXPECT_EQ(peer.client_ending(), Ending::closed);
}

TEST(ScriptedPeer, SaysWhatWentWrong) {
  struct Case {
    const char* what;
    Script script;
    const char* sent;
    const char* expected;
  };
  const std::vector<Case> cases = {
      {"other bytes", Script().expect("USER x\r\n"), "USER y\r\n",
       "at offset 0 came 8 bytes \"USER y\\r\\n\" instead of"},
      {"too few bytes", Script().expect("USER x\r\n"), "USER", "has closed its side, 4 bytes \" x\\r\\n\" are missing"},
      {"no delimiter", Script().read_until("\r\n\r\n"), "GET /\r\n", "has closed its side after 7 bytes"},
      {"bytes instead of an end", Script().expect_end(), "x", "instead came 1 bytes \"x\""},
      {"no TLS", Script().start_tls(), "GET / HTTP/1.0\r\n\r\n", "http request"},
      {"judged by the script", Script().then([](Connection& c) { c.fail("so it is"); }), "", "so it is"},
  };
  for (const Case& one : cases) {
    ScriptedPeer peer(one.script);
    PlainClient client(peer.port());
    client.send(one.sent);
    client.end_sending();
    const std::string failures = peer.take_failures();
    EXPECT_NE(failures.find(one.expected), std::string::npos) << one.what << ": " << failures;
  }
}

TEST(ScriptedPeer, FailuresReachTheTest) {
  EXPECT_NONFATAL_FAILURE(ScriptedPeer(Script().send("x")), "0 of 1 connections came");
  EXPECT_NONFATAL_FAILURE(
      {
        ScriptedPeer peer(Script().expect("a"));
        PlainClient(peer.port()).send("b");
      },
      "step 1 (expect 1 bytes \"a\"): at offset 0");
}

TEST(ScriptedPeer, ASilentClientFailsTheStepInTime) {
  ScriptedPeer peer(Script().expect("x"), impatient());
  PlainClient client(peer.port());
  EXPECT_EQ(client.read(), "");  // the peer gives up
  EXPECT_NE(peer.take_failures().find("waited in vain for bytes"), std::string::npos);
}

TEST(ScriptedPeer, RefusesMoreConnectionsThanScripts) {
  ScriptedPeer peer({Script().send("one"), Script().send("two")});
  PlainClient first(peer.port());
  PlainClient second(peer.port());
  EXPECT_EQ(first.read(), "one");
  EXPECT_EQ(second.read(), "two");
  PlainClient third(peer.port());
  EXPECT_EQ(third.read(), "reset");
  EXPECT_EQ(peer.connection_count(), 2U);
  EXPECT_NE(peer.take_failures().find("1 connections too many"), std::string::npos);
}

TEST(ScriptedPeer, ServesManyConnectionsSideBySide) {
  constexpr int kClients = 20;
  ScriptedPeer peer = ScriptedPeer::for_every_connection([](Connection& c) {
    const std::string line = c.read_line();
    c.send("you said " + line);
  });
  std::vector<std::thread> clients;
  for (int i = 0; i < kClients; ++i)
    clients.emplace_back([&, i] {
      PlainClient client(peer.port());
      client.send(std::to_string(i) + "\n");
      EXPECT_EQ(client.read_all(), "you said " + std::to_string(i) + "\n");
    });
  for (std::thread& client : clients) client.join();
  EXPECT_EQ(peer.connection_count(), static_cast<std::size_t>(kClients));
}

TEST(ScriptedPeer, EndsInTheWayThatWasAskedFor) {
  struct Case {
    const char* what;
    Script script;
    const char* read;
  };
  const std::vector<Case> cases = {
      {"close", Script().send("x").close(), "x"},
      {"half close", Script().send("x").half_close().read_to_end(), "x"},
      {"close now", Script().send("x").close_now(), "x"},
      {"reset", Script().reset(), "reset"},
  };
  for (const Case& one : cases) {
    ScriptedPeer peer(one.script);
    PlainClient client(peer.port());
    EXPECT_EQ(client.read(), one.read) << one.what;
    EXPECT_TRUE(one.read == std::string("reset") || client.read().empty()) << one.what;
  }
}

TEST(ScriptedPeer, AClosedDescriptorAnswersWithAReset) {
  ScriptedPeer peer(Script().close_now());
  PlainClient client(peer.port());
  EXPECT_EQ(client.read(), "");
  EXPECT_TRUE(eventually([&] { return !client.send("too late"); }));
}

TEST(ScriptedPeer, SendsByteByByteAndInPieces) {
  ScriptedPeer peer(Script().send_slowly("abc", milliseconds(0)).send_pieces({"def", "ghi"}, milliseconds(0)));
  PlainClient client(peer.port());
  client.end_sending();
  EXPECT_EQ(client.read_all(), "abcdefghi");
  peer.finish();
  EXPECT_NE(peer.transcript().find("-> 1 bytes \"b\""), std::string::npos);
}

TEST(ScriptedPeer, WaitsForTheSignalOfTheTest) {
  Signal gate;
  ScriptedPeer peer(Script().expect("go?").wait_for(gate).send("gone"));
  PlainClient client(peer.port());
  client.send("go?");
  ASSERT_TRUE(peer.wait_for_received("go?"));
  gate.set();
  EXPECT_EQ(client.read(), "gone");
  EXPECT_TRUE(peer.wait_for_scripts());
}

TEST(ScriptedPeer, SilenceEndsWithTheClientOrTheTest) {
  {
    ScriptedPeer peer(Script().stay_silent().then([](Connection& c) { c.read_to_end(); }));
    PlainClient client(peer.port());
    client.send("unread");
    client.close();
    ASSERT_TRUE(peer.wait_for_scripts());
    EXPECT_EQ(peer.received(), "unread");
  }
  ScriptedPeer peer(Script().stay_silent());
  PlainClient client(peer.port());
  client.send("unread");
  peer.finish();  // the client is still there
  EXPECT_EQ(peer.received(), "unread");
}

TEST(ScriptedPeer, ASilentPeerWithASmallBufferBlocksTheClient) {
  ScriptedPeer::Options options;
  options.receive_buffer = 4096;
  ScriptedPeer peer(Script().stay_silent(), options);
  const SocketAddress server("127.0.0.1", peer.port());
  const FileDescriptor client(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  ASSERT_EQ(::connect(client.get(), server.get(), server.size()), 0);
  const std::string much(64 << 20, 'x');
  EXPECT_LT(::send(client.get(), much.data(), much.size(), MSG_DONTWAIT), static_cast<ssize_t>(much.size()));
}

TEST(ScriptedPeer, FloodsUntilTheClientLeaves) {
  std::size_t sent = 0;
  ScriptedPeer peer([&](Connection& c) { sent = c.flood("for ever ", std::size_t{1} << 40); });
  PlainClient client(peer.port());
  EXPECT_TRUE(client.read().starts_with("for ever "));
  client.close();
  ASSERT_TRUE(peer.wait_for_scripts());
  EXPECT_GE(sent, 9U);
}

TEST(ScriptedPeer, CarriesLargeContentBothWays) {
  const std::string content = pattern_bytes(8 << 20);
  for (const bool tls : {false, true}) {
    // Both send before they read: neither may block the other.
    ScriptedPeer peer([&](Connection& c) {
      if (tls) c.start_tls(TlsContext::server());
      c.send(content);
      c.expect(content);
    });
    ScriptedClient client(peer.port(), [&](Connection& c) {
      if (tls) c.start_tls(TlsContext::client());
      c.send(content);
      c.expect(content);
    });
    EXPECT_TRUE(client.wait_for_scripts());
    EXPECT_EQ(client.take_failures() + peer.take_failures(), "");
  }
}

TEST(ScriptedPeerTls, KnowsWhatTheHandshakeSettled) {
  const Certificates& certificates = Certificates::shared();
  struct Case {
    TlsVersion version;
    const char* name;
  };
  for (const Case& one :
       {Case{TlsVersion::tls11, "TLSv1.1"}, Case{TlsVersion::tls12, "TLSv1.2"}, Case{TlsVersion::tls13, "TLSv1.3"}}) {
    TlsServerOptions of_server;
    of_server.version = one.version;
    of_server.client_ca = certificates.ca_file();
    TlsClientOptions of_client;
    of_client.version = one.version;
    of_client.server_name = "mail.example";
    of_client.ca_file = certificates.ca_file();
    of_client.certificate = certificates.client();
    ScriptedPeer peer(
        Script().start_tls(TlsContext::server(certificates.good(), of_server)).expect("in secret").send("yes"));
    ScriptedClient client(peer.port(),
                          Script().start_tls(TlsContext::client(of_client)).send("in secret").expect("yes"));
    client.finish();
    peer.finish();
    EXPECT_EQ(peer.received(), "in secret");
    EXPECT_EQ(peer.tls().version, one.name);
    EXPECT_EQ(peer.tls().server_name, "mail.example");
    EXPECT_EQ(peer.tls().peer_subject, "CN=Test Client");
    EXPECT_FALSE(peer.tls().session_reused);
  }
}

TEST(ScriptedPeerTls, StartsInMidConnectionAndGoesBackToClear) {
  ScriptedPeer peer(Script()
                        .expect("AUTH TLS\r\n")
                        .send("234 go\r\n")
                        .start_tls()
                        .expect("CCC\r\n")
                        .send("200 ok\r\n")
                        .end_tls()
                        .expect("QUIT\r\n")
                        .send("221\r\n"));
  ScriptedClient client(peer.port(), Script()
                                         .send("AUTH TLS\r\n")
                                         .expect("234 go\r\n")
                                         .start_tls(TlsContext::client())
                                         .send("CCC\r\n")
                                         .expect("200 ok\r\n")
                                         .end_tls()
                                         .send("QUIT\r\n")
                                         .expect("221\r\n"));
  ASSERT_TRUE(client.wait_for_scripts());
  client.finish();
  peer.finish();
  EXPECT_EQ(peer.received(), "AUTH TLS\r\nCCC\r\nQUIT\r\n");
}

TEST(ScriptedPeerTls, TellsAnEndInOrderFromACut) {
  struct Case {
    Script end;
    Ending expected;
  };
  // Closing at once isn't among them: the session tickets nobody has read would make it a reset.
  for (const Case& one :
       {Case{Script().close(), Ending::closed}, Case{Script().close_without_notify(), Ending::closed_without_notify}}) {
    ScriptedPeer peer(Script().start_tls().read_to_end());
    ScriptedClient client(
        peer.port(), Script().start_tls(TlsContext::client()).then([](Connection& c) { c.send("x"); }).then(one.end));
    ASSERT_TRUE(peer.wait_for_scripts());
    EXPECT_EQ(peer.client_ending(), one.expected);
    EXPECT_EQ(peer.received(), "x");
  }
}

TEST(ScriptedPeerTls, CutsAHandshakeWhereTold) {
  ScriptedPeer peer(Script().cut_tls_handshake(TlsContext::server(), 7).close());
  ScriptedClient client(peer.port(), [](Connection& c) {
    if (c.try_tls(TlsContext::client())) c.fail("the handshake came about");
  });
  client.finish();
  ASSERT_TRUE(peer.wait_for_scripts());
  EXPECT_NE(peer.transcript().find("-> 7 bytes \"\\x16\\x03\\x03"), std::string::npos) << peer.transcript();
}

TEST(ScriptedPeerTls, ShowsTheClientHelloAsItCame) {
  ScriptedPeer peer([](Connection& c) {
    const std::string record = c.read_tls_record();
    if (record[0] != 0x16 || record[5] != 1) c.fail("no ClientHello: " + printable(record));
  });
  ScriptedClient client(peer.port(), [](Connection& c) { c.try_tls(TlsContext::client()); });
}

TEST(ScriptedPeerTls, ARefusedCertificateIsNoFailureOfATriedHandshake) {
  TlsClientOptions strict;
  strict.ca_file = Certificates::shared().ca_file();
  ScriptedPeer peer([](Connection& c) {
    if (c.try_tls(TlsContext::server(Certificates::shared().self_signed(), {.version = TlsVersion::tls12})))
      c.fail("the client took it");
  });
  ScriptedClient client(peer.port(), Script().start_tls(TlsContext::client(strict)));
  EXPECT_NE(client.take_failures().find("certificate verify failed"), std::string::npos);
}

TEST(ScriptedPeer, RelaysBetweenClientAndServer) {
  const std::string content = pattern_bytes(1 << 20);
  ScriptedPeer server(Script().start_tls().expect(content).send(content).close());
  ScriptedPeer proxy(Script().expect("to the server please").relay_to(server.port()));
  ScriptedClient client(
      proxy.port(),
      Script().send("to the server please").start_tls(TlsContext::client()).send(content).expect(content).expect_end());
  ASSERT_TRUE(client.wait_for_scripts());
  client.finish();
  EXPECT_TRUE(proxy.wait_for_scripts());
  EXPECT_GT(proxy.received_count(), content.size());
}

TEST(ScriptedPeer, ListensOnIPv6) {
  YINET_REQUIRE_IPV6();
  ScriptedPeer::Options options;
  options.address = "::1";
  ScriptedPeer peer(Script().expect("x"), options);
  ScriptedClient client(peer.port(), Script().send("x"), "::1");
  EXPECT_TRUE(peer.wait_for_scripts());
  EXPECT_EQ(peer.url("/a"), "http://[::1]:" + std::to_string(peer.port()) + "/a");
}

TEST(FullListener, LetsNobodyConnect) {
  const FullListener listener;
  const SocketAddress address("127.0.0.1", listener.port());
  const FileDescriptor client(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  const timeval limit{0, 300000};
  ::setsockopt(client.get(), SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof(limit));
  EXPECT_EQ(::connect(client.get(), address.get(), address.size()), -1);
  EXPECT_EQ(errno, EINPROGRESS);  // what a connect that ran out of time reports
}

}  // namespace
}  // namespace yinet::test
