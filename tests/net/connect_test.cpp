// Connecting: what fails and how it is reported, which way a connection takes, and whom it leads to.

#include <netinet/in.h>
#include <netinet/tcp.h>

#include "net/socket_test_kit.h"
#include "yinet/net/host_address.h"
#include "yinet/net/partner_info.h"

namespace yinet::test {
namespace {

class Connect : public NetTest {};

TEST_F(Connect, AFailureIsOneEntryWithTargetAndCause) {
  const struct {
    std::string host;
    unsigned port;
    std::string target, cause, proxy = {};
    unsigned proxy_port = 1080;
  } kCases[] = {
      {"127.0.0.1", refused, "127.0.0.1:" + std::to_string(refused), "Connection refused"},
      {"255.255.255.255", 80, "255.255.255.255:80", "unreachable"},
      {"", 80, ":80", "no host"},
      {std::string("127.0.0.1\0.example", 17), 80, "127.0.0.1", "NUL"},
      {"127.0.0.1", 0, "127.0.0.1:0", "port"},
      {"127.0.0.1", 65536U + refused, "127.0.0.1:", "port"},
      {"127.0.0.1:80", 80, "127.0.0.1:80:80", "ambiguous host or service"},
      {std::string(300, 'x'), 80, "xxx:80", "error:"},
      {"0.0.0.0", 80, ":1080", "target has no IPv4 address", "127.0.0.1"},
      {"192.0.2.7", 80, ":1080", "proxy has no IPv4 address", "0.0.0.0"},
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

TEST_F(Connect, ANewConnectionEndsTheOldOneAndHasANewPartner) {
  auto plain = ScriptedPeer::for_every_connection(Script().expect_end());
  auto tls = ScriptedPeer::for_every_connection(Script().start_tls().read_to_end());
  SecureSocket socket;
  EXPECT_EQ(socket.Reconnect(), -1) << "never connected";
  EXPECT_FALSE(socket.Send(YBuffer("x")) || socket.Send(YString("x")) || !socket.GetPartnerInfo(true).IsEmpty());
  EXPECT_EQ(connect_to(socket, plain), 0);
  const SettingChange pause(settings::kConnectPause, "60");
  EXPECT_GE(time_of([&] { EXPECT_EQ(connect_to(socket, plain), 0); }), milliseconds(60));
  int no_delay = 0;
  socklen_t size = sizeof(no_delay);
  getsockopt(socket.GetScoketDescriptor(), IPPROTO_TCP, TCP_NODELAY, &no_delay, &size);
  EXPECT_NE(no_delay, 0);
  EXPECT_EQ(socket.Reconnect(), 0);
  socket.Close();
  EXPECT_EQ(socket.GetScoketDescriptor(), -1);
  EXPECT_EQ(socket.Reconnect(), 0);
  EXPECT_TRUE(eventually([&] { return plain.connection_count() == 4; }));
  const YObject partner = socket.GetPartnerInfo(false);
  EXPECT_EQ(partner.GetString(partner::kAddress), "127.0.0.1");
  EXPECT_EQ(partner.GetInteger(partner::kPort), plain.port());
  EXPECT_FALSE(partner.Exist(partner::kProtocol));
  ASSERT_TRUE(socket.InitSSLClientContext("", false, true));
  EXPECT_EQ(connect_to(socket, tls), 0);
  EXPECT_EQ(socket.GetPartnerInfo(false).GetInteger(partner::kPort), tls.port());
  EXPECT_EQ(socket.GetPartnerInfo(false).GetString(partner::kProtocol), "TLSv1.3");
  EXPECT_THAT(log.numbers(), testing::IsEmpty());
}

TEST_F(Connect, AHostIsWrittenAsEachPlaceWantsIt) {
  constexpr std::string_view kHidden("127.0.0.1\0", 10);
  const struct {
    std::string_view host, in_target, in_certificate;
    int family;
  } kCases[] = {
      {"example.com.", "example.com.", "example.com", 0},
      {"10.0.0.1", "10.0.0.1", "10.0.0.1", 4},
      {"[::1]", "[::1]", "::1", 6},
      {"fe80::1%eth0", "[fe80::1%eth0]", "fe80::1", 6},
      {"::ffff:10.0.0.1", "[::ffff:10.0.0.1]", "::ffff:10.0.0.1", 6},
      {"a:b", "a:b", "a:b", 0},  // no address: left for the resolver to refuse
      {".", ".", ".", 0},
      {kHidden, kHidden, kHidden, 0},
  };
  for (const auto& one : kCases) {
    const int family = is_ipv4_address(one.host) ? 4 : is_ipv6_address(one.host) ? 6 : 0;
    EXPECT_TRUE(host_in_target(one.host) == one.in_target && family == one.family) << one.host;
    EXPECT_EQ(host_in_certificate(one.host), one.in_certificate) << one.host;
  }
}

}  // namespace
}  // namespace yinet::test
