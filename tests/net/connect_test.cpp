// Connecting: what fails and how it is reported, which way a connection takes, and what it leaves behind.

#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include "net/socket_test_kit.h"
#include "support/ports.h"
#include "support/requirements.h"
#include "support/resource_check.h"

namespace yinet::test {
namespace {

class Connect : public SocketTest {};

TEST_F(Connect, AFailureIsOneEntryWithTargetAndCause) {
  struct Case {
    std::string host;
    unsigned port;
    std::string target, cause;
  };
  const std::uint16_t refused = refused_port();
  const Case cases[] = {
      {"127.0.0.1", refused, "127.0.0.1:" + std::to_string(refused), "Connection refused"},
      {"localhost", refused, "localhost:" + std::to_string(refused), "Connection refused"},
      {"255.255.255.255", 80, "255.255.255.255:80", "unreachable"},
      {"", 80, ":80", "no host"},
      {"*", 80, "*:80", "no host"},
      {std::string("127.0.0.1\0.example", 17), 80, "127.0.0.1", "NUL"},
      {"127.0.0.1", 0, "127.0.0.1:0", "port"},
      {"127.0.0.1", 65536, "127.0.0.1:65536", "port"},
      {"127.0.0.1", 65536U + refused, "127.0.0.1:", "port"},
      {"127.0.0.1:80", 80, "127.0.0.1:80:80", "ambiguous host or service"},
      {std::string(300, 'x'), 80, "xxx:80", "error:"},
  };
  for (const Mode mode : kBothModes) {
    const int number = is_blocking(mode) ? message::kConnectBlockingFailed : message::kConnectFailed;
    for (const Case& one : cases) {
      SCOPED_TRACE(one.target + ", " + name_of(mode));
      log.clear();
      SecureSocket socket;
      EXPECT_EQ(socket.Connect(one.host, one.port, is_blocking(mode)), -1);
      EXPECT_THAT(log.numbers(), testing::ElementsAre(number));
      EXPECT_EQ(log.last(number).level, 6);
      EXPECT_THAT(log.last(number).text, testing::HasSubstr(one.target));
      EXPECT_THAT(log.last(number).extra, testing::HasSubstr(one.cause));
      EXPECT_EQ(socket.Reconnect(), -1) << "the refusal must hold for the stored target too";
    }
  }
}

TEST_F(Connect, WithoutAnAnswerANonBlockingConnectEndsAtItsLimit) {
  const SettingChange limit(settings::kConnectLimit, "100");
  FullListener nobody;
  SecureSocket socket;
  const auto time = time_of([&] { EXPECT_EQ(socket.Connect("127.0.0.1", nobody.port(), false), -1); });
  EXPECT_GE(time, milliseconds(100));
  EXPECT_THAT(log.last(message::kConnectFailed).extra, testing::HasSubstr("within 100 ms"));
}

TEST_F(Connect, ThePauseFollowsTheConnectAndSmallWritesGoOutAtOnce) {
  const SettingChange pause(settings::kConnectPause, "60");
  ScriptedPeer peer(Script().read_to_end());
  SecureSocket socket;
  EXPECT_GE(time_of([&] { EXPECT_EQ(connect_to(socket, peer), 0); }), milliseconds(60));
  int on = 0;
  socklen_t size = sizeof(on);
  ASSERT_EQ(getsockopt(socket.GetScoketDescriptor(), IPPROTO_TCP, TCP_NODELAY, &on, &size), 0);
  EXPECT_NE(on, 0);
  socket.Close();
  EXPECT_EQ(socket.GetScoketDescriptor(), -1);
}

bool localhost_is_ipv6_too() {  // the hosts file's business
  addrinfo wanted{};
  wanted.ai_family = AF_INET6;
  addrinfo* found = nullptr;
  if (getaddrinfo("localhost", nullptr, &wanted, &found) != 0) return false;
  freeaddrinfo(found);
  return true;
}

TEST_F(Connect, BothAddressFamiliesAreTried) {
  YINET_REQUIRE_IPV6();
  ScriptedPeer::Options six;
  six.address = "::1";
  auto peer6 = ScriptedPeer::for_every_connection(Script().read_to_end(), six);
  auto peer4 = ScriptedPeer::for_every_connection(Script().read_to_end());
  for (const Mode mode : kBothModes) {
    OpenSocket socket;
    EXPECT_EQ(connect_to(socket, peer6, mode, "::1"), 0);
    EXPECT_EQ(socket.connectTarget, ("[::1]:" + std::to_string(peer6.port())).c_str());
    EXPECT_EQ(connect_to(socket, peer6, mode, "[::1]"), 0);
    if (localhost_is_ipv6_too()) {
      EXPECT_EQ(connect_to(socket, peer6, mode, "localhost"), 0);
    }
    EXPECT_EQ(connect_to(socket, peer4, mode, "localhost"), 0);
  }
  EXPECT_THAT(log.numbers(), testing::IsEmpty());
}

TEST_F(Connect, ANewConnectionEndsTheOldOneAndReconnectRepeatsTheLast) {
  auto peer = ScriptedPeer::for_every_connection(Script().expect_end());
  OpenSocket socket;
  EXPECT_EQ(socket.Reconnect(), -1) << "never connected";
  EXPECT_EQ(connect_to(socket, peer), 0);
  EXPECT_EQ(connect_to(socket, peer), 0);
  EXPECT_EQ(socket.Reconnect(), 0);
  socket.Close();
  EXPECT_EQ(socket.bio, nullptr);
  EXPECT_EQ(socket.Reconnect(), 0);
  EXPECT_TRUE(peer.wait_for_connections(4));
  socket.Close();
  EXPECT_THAT(log.numbers(), testing::IsEmpty());
}

TEST_F(Connect, AProxyIsConnectedToAndTheTargetKept) {
  ScriptedPeer proxy(Script().read_to_end());
  ScriptedPeer direct(Script().read_to_end());
  OpenSocket socket;
  EXPECT_EQ(socket.Connect("192.0.2.7", 990, "localhost", proxy.port(), false, "user", "secret"), 0);
  EXPECT_EQ(socket.socksTargetAddress, "192.0.2.7");
  EXPECT_EQ(socket.socksTargetPort, 990U);
  EXPECT_EQ(socket.connectTarget, ("127.0.0.1:" + std::to_string(proxy.port())).c_str());
  EXPECT_EQ(socket.Connect("127.0.0.1", direct.port(), "", 1080, false, "user", "secret"), 0) << "no proxy";
  EXPECT_TRUE(socket.socksTargetAddress.IsEmpty());
}

TEST_F(Connect, AProxyThatCannotBeUsedFailsWithoutTraffic) {
  struct Case {
    const char* host;
    unsigned port;
    const char* proxy;
    unsigned proxy_port;
  };
  const Case cases[] = {{"0.0.0.0", 80, "127.0.0.1", 1080}, {"192.0.2.7", 80, "0.0.0.0", 1080},
                        {"", 80, "127.0.0.1", 1080},        {"192.0.2.7", 0, "127.0.0.1", 1080},
                        {"192.0.2.7", 80, "127.0.0.1", 0},  {"192.0.2.7", 80, "127.0.0.1", 65536}};
  for (const Case& one : cases) {
    SCOPED_TRACE(std::string(one.host) + " " + one.proxy);
    log.clear();
    OpenSocket socket;
    EXPECT_EQ(socket.Connect(one.host, one.port, one.proxy, one.proxy_port, false, "", ""), -1);
    EXPECT_EQ(log.numbers().back(), message::kConnectFailed);
    EXPECT_EQ(socket.bio, nullptr);
    EXPECT_EQ(socket.Reconnect(), -1);
  }
}

TEST_F(Connect, NoDescriptorIsLeftBehind) {
  const std::uint16_t refused = refused_port();
  const ResourceCheck check;
  auto plain = ScriptedPeer::for_every_connection(Script().read_to_end());
  auto tls = ScriptedPeer::for_every_connection(Script().start_tls().read_to_end());
  auto rude = ScriptedPeer::for_every_connection(Script().send("no TLS here, sorry").read_to_end());
  for (const Mode mode : kBothModes) {
    SecureSocket socket;
    EXPECT_EQ(socket.Connect("127.0.0.1", refused, is_blocking(mode)), -1);
    EXPECT_EQ(connect_to(socket, plain, mode), 0);
    EXPECT_TRUE(socket.InitSSLClientContext("", false, true));
    EXPECT_EQ(connect_to(socket, tls, mode), 0);
    EXPECT_TRUE(socket.Send(YString("x")));
    EXPECT_EQ(connect_to(socket, rude, mode), -1);
    EXPECT_TRUE(socket.InitSSLClientContext("", false, false));
    EXPECT_EQ(connect_to(socket, tls, mode), -2);
  }
}

}  // namespace
}  // namespace yinet::test
