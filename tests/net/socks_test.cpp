// The dialogue with SOCKS proxies, byte by byte.

#include "net/socket_test_kit.h"
#include "support/bytes.h"
#include "yinet/host/text.h"
#include "yinet/net/partner_info.h"
#include "yinet/net/socks_messages.h"

namespace yinet::test {
namespace {

constexpr unsigned kSocks4 = 4;
constexpr unsigned kSocks5 = 5;
constexpr const char* kTarget = "10.1.2.3";
constexpr unsigned kTargetPort = 8080;  // 1F 90

std::string hex_request5() { return "05 01 00 01 0A 01 02 03 1F 90"; }
std::string hex_request4() { return "04 01 1F 90 0A 01 02 03 00"; }

int connect_through(OpenSocket& socket, const ScriptedPeer& proxy, const char* user = "", const char* password = "",
                    bool blocking = false) {
  return socket.Connect(kTarget, kTargetPort, "127.0.0.1", proxy.port(), blocking, user, password);
}

class SocksTest : public SocketTest {};

TEST_F(SocksTest, TargetsAreDottedAddressesOtherThanZero) {
  EXPECT_EQ(socks_target("1.2.3.255"), (Ipv4Bytes{1, 2, 3, 255}));
  for (const char* bad : {"", "0.0.0.0", "1.2.3", "1.2.3.256", "::1", "host", "1.2.3.4 "}) EXPECT_FALSE(socks_target(bad)) << bad;
}

TEST_F(SocksTest, LongCredentialsKeepTheLowBitsOfTheirLength) {
  const std::string message = socks5_credentials(std::string(300, 'u'), std::string(255, 'p'));
  EXPECT_EQ(message, from_hex("01 2C") + std::string(300, 'u') + from_hex("FF") + std::string(255, 'p'));
}

// One dialogue: what the proxy reads and answers in turn, the result, and the messages besides.
struct Dialogue {
  const char* what;
  unsigned version;
  const char* user;
  std::vector<std::pair<std::string, std::string>> turns;  // hexadecimal
  int result;
  std::vector<int> messages;
  bool strict = false;
};

std::string ok5(const std::string& rest = "00 01 7F 00 00 01 00 00") { return "05 00 " + rest; }

const Dialogue kDialogues[] = {
    {"5, no authentication", kSocks5, "", {{"05 01 00", "05 00"}, {hex_request5(), ok5()}}, 0, {}},
    {"5, none needed though offered", kSocks5, "me", {{"05 02 00 02", "05 00"}, {hex_request5(), ok5()}}, 0, {}},
    {"5, user and password", kSocks5, "me",
     {{"05 02 00 02", "05 02"}, {"01 02 6D 65 02 70 77", "01 00"}, {hex_request5(), ok5()}}, 0, {}},
    {"5, a name as bound address", kSocks5, "", {{"05 01 00", "05 00"}, {hex_request5(), ok5("00 03 03 61 62 63 00 50")}}, 0, {}},
    {"5, an IPv6 bound address", kSocks5, "",
     {{"05 01 00", "05 00"}, {hex_request5(), ok5("00 04 00000000000000000000000000000001 00 50")}}, 0, {}},
    {"5, an unknown address type", kSocks5, "", {{"05 01 00", "05 00"}, {hex_request5(), ok5("00 09 7F 00 00 01 00 00")}}, 0, {}},
    {"5, an unknown address type, strict", kSocks5, "", {{"05 01 00", "05 00"}, {hex_request5(), ok5("00 09 7F 00 00 01 00 00")}},
     -4, {message::kSocks5ConnectRefused}, true},
    {"5, wrong version", kSocks5, "", {{"05 01 00", "00 00"}}, -4, {message::kSocks5WrongVersion}},
    {"5, method not offered", kSocks5, "", {{"05 01 00", "05 02"}}, -3,
     {message::kSocks5MethodUnsupported, message::kSocks5AuthenticationFailed}},
    {"5, no acceptable method", kSocks5, "me", {{"05 02 00 02", "05 FF"}}, -3,
     {message::kSocks5MethodUnsupported, message::kSocks5AuthenticationFailed}},
    {"5, wrong password", kSocks5, "me", {{"05 02 00 02", "05 02"}, {"01 02 6D 65 02 70 77", "01 01"}}, -3,
     {message::kSocks5CredentialsRejected, message::kSocks5AuthenticationFailed}},
    {"5, no answer to the password", kSocks5, "me", {{"05 02 00 02", "05 02"}, {"01 02 6D 65 02 70 77", ""}}, -3,
     {message::kSocks5CredentialsReplyNotRead, message::kSocks5AuthenticationFailed}},
    {"5, closed after the greeting", kSocks5, "", {{"05 01 00", ""}}, -4, {message::kSocks5MethodNotRead}},
    {"5, target refused", kSocks5, "", {{"05 01 00", "05 00"}, {hex_request5(), "05 05 00 01 00 00 00 00 00 00"}}, -4,
     {message::kSocks5ConnectRefused}},
    {"5, closed after the request counts as open", kSocks5, "", {{"05 01 00", "05 00"}, {hex_request5(), ""}}, 0, {}},
    {"5, closed after the request, strict", kSocks5, "", {{"05 01 00", "05 00"}, {hex_request5(), ""}}, -4,
     {message::kSocks5ConnectRefused}, true},
    {"5, closed inside the tail", kSocks5, "", {{"05 01 00", "05 00"}, {hex_request5(), "05 00 00 01"}}, -4,
     {message::kSocks5ConnectRefused}},
    {"4", kSocks4, "", {{hex_request4(), "00 5A 00 00 7F 00 00 01"}}, 0, {}},
    {"4, another address", kSocks4, "", {{hex_request4(), "00 5A 00 00 00 00 00 00"}}, -4, {message::kSocks4OtherAddress}},
    {"4, another address, strict", kSocks4, "", {{hex_request4(), "00 5A 00 00 00 00 00 00"}}, 0, {}, true},
    {"4, another version, strict", kSocks4, "", {{hex_request4(), "04 5A 00 00 7F 00 00 01"}}, -4,
     {message::kSocks4Refused}, true},
    {"4, refused", kSocks4, "", {{hex_request4(), "00 5B 00 00 7F 00 00 01"}}, -4, {message::kSocks4Refused}},
    {"4, what a SOCKS 5 proxy says to it", kSocks4, "", {{hex_request4(), "05 FF"}}, -4, {message::kSocks4Refused}},
    {"4, closed", kSocks4, "", {{hex_request4(), ""}}, -4, {message::kSocks4ReplyNotRead}},
    {"4, closed inside", kSocks4, "", {{hex_request4(), "00 5A"}}, -4, {message::kSocks4TailNotRead}},
};

TEST_F(SocksTest, DialoguesGoAsTheProtocolSays) {
  for (const Dialogue& dialogue : kDialogues) {
    for (const bool blocking : {true, false}) {
      SCOPED_TRACE(std::string(dialogue.what) + (blocking ? ", blocking" : ", non-blocking"));
      log.clear();
      const SettingChange strict(settings::kSocksStrict, dialogue.strict ? "1" : "0");
      ScriptedPeer proxy([&](Connection& connection) {
        for (const auto& [expected, answer] : dialogue.turns) {
          connection.expect(from_hex(expected));
          if (answer.empty()) return connection.close();
          connection.send(from_hex(answer));
        }
        if (dialogue.result == 0) connection.send("through the tunnel");
        connection.close();
      });
      OpenSocket socket;
      ASSERT_EQ(connect_through(socket, proxy, dialogue.user, "pw", blocking), 0);
      EXPECT_EQ(socket.SocksConnect(dialogue.version), dialogue.result);
      EXPECT_EQ(log.numbers(), dialogue.messages);
      const bool tunnel = dialogue.result == 0 && !dialogue.turns.back().second.empty();
      EXPECT_EQ(tunnel ? receive_all(socket) : "", tunnel ? "through the tunnel" : "");
      socket.Close();
    }
  }
}

TEST_F(SocksTest, AStrictClientTakesRepliesByteByByte) {
  const SettingChange strict(settings::kSocksStrict, "1");
  ScriptedPeer proxy(Script()
                         .expect(from_hex("05 02 00 02"))
                         .send_slowly(from_hex("05 02"))
                         .expect(from_hex("01 02 6D 65 02 70 77"))
                         .send_slowly(from_hex("01 00"))
                         .expect(from_hex(hex_request5()))
                         .send_slowly(from_hex("05 00 00 03 03 61 62 63 00 50") + "220 hi\r\n"));
  OpenSocket socket;
  ASSERT_EQ(connect_through(socket, proxy, "me", "pw"), 0);
  EXPECT_EQ(socket.SocksConnect(kSocks5), 0);
  EXPECT_EQ(receive_exactly(socket, 8), "220 hi\r\n");
}

TEST_F(SocksTest, AProxyThatFallsSilentIsGivenUp) {
  const SettingChange idle(settings::kIdleLimit, "60");
  for (const bool strict : {false, true}) {
    const SettingChange form(settings::kSocksStrict, strict ? "1" : "0");
    for (const char* answer : {"", "05"}) {  // a reply cut into bytes is padded and so never complete in the usual form
      ScriptedPeer proxy(Script().expect(from_hex("05 01 00")).send(from_hex(answer)).stay_silent());
      OpenSocket socket;
      ASSERT_EQ(connect_through(socket, proxy), 0);
      EXPECT_EQ(socket.SocksConnect(kSocks5), -4);
      EXPECT_EQ(log.last(message::kSocks5MethodNotRead).text, formatted("The SOCKS 5 proxy 127.0.0.1:$1$ named no method of authentication.", std::to_string(proxy.port())));
      socket.Close();
    }
  }
}

TEST_F(SocksTest, NothingIsSentWithoutATargetOrForOtherVersions) {
  ScriptedPeer proxy(Script().expect_end());
  OpenSocket socket;
  EXPECT_EQ(socket.SocksConnect(kSocks5), -1);
  ASSERT_EQ(connect_through(socket, proxy), 0);
  for (const unsigned version : {0U, 3U, 6U}) EXPECT_EQ(socket.SocksConnect(version), -1) << version;
  socket.socksTargetAddress = "0.0.0.0";
  for (const unsigned version : {kSocks4, kSocks5}) EXPECT_EQ(socket.SocksConnect(version), -1) << version;
  socket.Close();
  EXPECT_THAT(log.numbers(), testing::IsEmpty());
  OpenSocket unconnected;
  unconnected.socksTargetAddress = kTarget;
  EXPECT_EQ(unconnected.SocksConnect(kSocks5), -3);
  EXPECT_EQ(unconnected.SocksConnect(kSocks4), -3);
  EXPECT_THAT(log.numbers(), testing::ElementsAre(message::kSocks5GreetingNotSent, message::kSocks4RequestNotSent));
}

TEST_F(SocksTest, TheProxyIsNamedWhenItRejectsAPassword) {
  ScriptedPeer proxy(Script().read_until(from_hex("02")).send(from_hex("05 02")).read_until("secret").send(from_hex("01 01")));
  OpenSocket socket;
  ASSERT_EQ(connect_through(socket, proxy, "me", "secret"), 0);
  EXPECT_EQ(socket.SocksConnect(kSocks5), -3);
  for (const int number : {message::kSocks5CredentialsRejected, message::kSocks5AuthenticationFailed})
    EXPECT_EQ(log.last(number).text, "127.0.0.1") << number;
  for (const LogRecord& record : log.records()) EXPECT_EQ((record.text + record.extra).find("secret"), std::string::npos);
}

TEST_F(SocksTest, PartnersAreDescribed) {
  ScriptedPeer plain(Script().expect_end());
  OpenSocket socket;
  EXPECT_TRUE(socket.GetPartnerInfo(true).IsEmpty());
  ASSERT_EQ(connect_to(socket, plain), 0);
  YObject partner = socket.GetPartnerInfo(false);
  EXPECT_EQ(partner.GetString(partner::kAddress), "127.0.0.1");
  EXPECT_EQ(partner.GetInteger(partner::kPort), plain.port());
  EXPECT_FALSE(partner.Exist(partner::kProtocol));
  socket.Close();
  EXPECT_TRUE(socket.GetPartnerInfo(true).IsEmpty());

  ScriptedPeer tls(Script().start_tls().read_to_end());
  ASSERT_TRUE(socket.InitSSLClientContext("", false, true));
  ASSERT_EQ(connect_to(socket, tls), 0);
  partner = socket.GetPartnerInfo(false);
  EXPECT_EQ(partner.GetInteger(partner::kPort), tls.port()) << "a new connection has a new partner";
  EXPECT_EQ(partner.GetString(partner::kProtocol), "TLSv1.3");
  EXPECT_THAT(std::string(partner.GetString(partner::kCipher)), testing::StartsWith("TLS_"));
  socket.Close();
}

}  // namespace
}  // namespace yinet::test
