// Connecting: what fails and how it is reported, which way a connection takes, and what it leaves behind.

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
  const std::uint16_t refused = refused_port();
  const struct {
    std::string host;
    unsigned port;
    std::string target, cause;
    std::string proxy = {};
    unsigned proxy_port = 1080;
  } kCases[] = {
      {"127.0.0.1", refused, "127.0.0.1:" + std::to_string(refused), "Connection refused"},
      {"255.255.255.255", 80, "255.255.255.255:80", "unreachable"},
      {"", 80, ":80", "no host"},
      {"*", 80, "*:80", "no host"},
      {std::string("127.0.0.1\0.example", 17), 80, "127.0.0.1", "NUL"},
      {"127.0.0.1", 0, "127.0.0.1:0", "port"},
      {"127.0.0.1", 65536U + refused, "127.0.0.1:", "port"},
      {"127.0.0.1:80", 80, "127.0.0.1:80:80", "ambiguous host or service"},
      {std::string(300, 'x'), 80, "xxx:80", "error:"},
      {"0.0.0.0", 80, ":1080", "target has no IPv4 address", "127.0.0.1"},
      {"192.0.2.7", 80, ":1080", "proxy has no IPv4 address", "0.0.0.0"},
      {"192.0.2.7", 0, ":1080", "port", "127.0.0.1"},
      {"192.0.2.7", 80, ":65536", "port", "127.0.0.1", 65536},
  };
  for (const Mode mode : kBothModes) {
    const int number = is_blocking(mode) ? message::kConnectBlockingFailed : message::kConnectFailed;
    for (const auto& one : kCases) {
      SCOPED_TRACE(one.target + ", " + name_of(mode));
      log.clear();
      SecureSocket socket;
      EXPECT_EQ(socket.Connect(one.host, one.port, one.proxy, one.proxy_port, is_blocking(mode), "", ""), -1);
      EXPECT_EQ(log.numbers().back(), number);
      EXPECT_TRUE(log.numbers().size() == 1 || one.cause.ends_with("IPv4 address"));
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
  EXPECT_GE(time_of([&] { EXPECT_EQ(socket.Connect("127.0.0.1", nobody.port(), false), -1); }), milliseconds(100));
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

TEST_F(Connect, BothAddressFamiliesAreTried) {
  YINET_REQUIRE_IPV6();
  auto peer6 = ScriptedPeer::for_every_connection(Script().read_to_end(), {.address = "::1"});
  auto peer4 = ScriptedPeer::for_every_connection(Script().read_to_end());
  for (const Mode mode : kBothModes) {
    SecureSocket socket;
    for (const char* const host : {"::1", "[::1]"}) EXPECT_EQ(connect_to(socket, peer6, mode, host), 0);
    EXPECT_EQ(connect_to(socket, peer4, mode, "localhost"), 0) << "after the refusal on ::1";
  }
  EXPECT_THAT(log.numbers(), testing::IsEmpty());
}

TEST_F(Connect, ANewConnectionEndsTheOldOneAndReconnectRepeatsTheLast) {
  auto peer = ScriptedPeer::for_every_connection(Script().expect_end());
  SecureSocket socket;
  EXPECT_EQ(socket.Reconnect(), -1) << "never connected";
  for (int i = 0; i < 2; ++i) EXPECT_EQ(connect_to(socket, peer), 0);
  EXPECT_EQ(socket.Reconnect(), 0);
  socket.Close();
  EXPECT_EQ(socket.Reconnect(), 0);
  EXPECT_TRUE(peer.wait_for_connections(4));
  socket.Close();
  EXPECT_THAT(log.numbers(), testing::IsEmpty());
}

TEST_F(Connect, NoDescriptorIsLeftBehind) {
  const std::uint16_t refused = refused_port();
  const ResourceCheck check;
  auto tls = ScriptedPeer::for_every_connection(Script().start_tls().read_to_end());
  auto rude = ScriptedPeer::for_every_connection(Script().send("no TLS here, sorry").read_to_end());
  for (const Mode mode : kBothModes) {
    SecureSocket socket;
    EXPECT_EQ(socket.Connect("127.0.0.1", refused, is_blocking(mode)), -1);
    EXPECT_EQ(connect_to(socket, rude, mode), 0);
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
