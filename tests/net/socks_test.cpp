// The dialogue with SOCKS proxies, byte by byte.

#include "net/socket_test_kit.h"
#include "yinet/net/socks_messages.h"

namespace yinet::test {
namespace {

constexpr const char* kTarget = "10.1.2.3";
constexpr unsigned kTargetPort = 8080;  // 1F 90
constexpr const char* kPassword = "geheim";

int connect_through(OpenSocket& socket, const ScriptedPeer& proxy, const char* user = "", bool blocking = false) {
  return socket.Connect(kTarget, kTargetPort, "127.0.0.1", proxy.port(), blocking, user, kPassword);
}

std::string from_hex(std::string digits) {
  std::string bytes;
  std::erase(digits, ' ');
  for (std::size_t at = 0; at < digits.size(); at += 2)
    bytes += static_cast<char>(std::stoi(digits.substr(at, 2), nullptr, 16));
  return bytes;
}

class SocksTest : public NetTest {};

TEST_F(SocksTest, TargetsAreDottedAddressesAndLongCredentialsKeepTheLowBitsOfTheirLength) {
  EXPECT_EQ(socks_target("1.2.3.255"), (Ipv4Bytes{1, 2, 3, 255}));
  for (const char* bad : {"", "0.0.0.0", "1.2.3", "1.2.3.256", "::1", "1.2.3.4 "})
    EXPECT_FALSE(socks_target(bad)) << bad;
  EXPECT_EQ(socks5_credentials(std::string(300, 'u'), std::string(255, 'p')),
            from_hex("01 2C") + std::string(300, 'u') + from_hex("FF") + std::string(255, 'p'));
}

// One dialogue in hexadecimal: what the proxy reads and answers in turn (nothing: it closes), the result, the messages.
// A user "me" means that name and password are offered. A strict client that succeeds gets every answer byte by byte.
struct Dialogue {
  unsigned version;
  const char* user;
  std::vector<std::pair<std::string, std::string>> turns;
  int result;
  std::vector<int> messages = {};
  bool strict = false;
};

const std::pair<std::string, std::string> kOpen5 = {"05 01 00", "05 00"};
const std::pair<std::string, std::string> kOffer5 = {"05 02 00 02", "05 02"};
const std::string kLogin5 = "01 02 6D 65 06 67 65 68 65 69 6D";
const std::string kRequest5 = "05 01 00 01 0A 01 02 03 1F 90";
const std::string kRequest4 = "04 01 1F 90 0A 01 02 03 00";
const std::string kGranted5 = "05 00 00 01 7F 00 00 01 00 00";
const std::string kNamed5 = "05 00 00 03 03 61 62 63 00 50";
const std::string kOddType5 = "05 00 00 09 7F 00 00 01 00 00";

using namespace message;
const Dialogue kDialogues[] = {
    {5, "", {kOpen5, {kRequest5, kGranted5}}, 0},
    {5, "me", {{"05 02 00 02", "05 00"}, {kRequest5, kGranted5}}, 0},
    {5, "me", {kOffer5, {kLogin5, "01 00"}, {kRequest5, kNamed5}}, 0, {}, true},
    {5, "", {kOpen5, {kRequest5, kNamed5}}, 0},
    {5, "", {kOpen5, {kRequest5, "05 00 00 04 00000000000000000000000000000001 00 50"}}, 0},
    {5, "", {kOpen5, {kRequest5, kOddType5}}, 0},
    {5, "", {kOpen5, {kRequest5, kOddType5}}, -4, {kSocks5ConnectRefused}, true},
    {5, "", {{"05 01 00", "00 00"}}, -4, {kSocks5WrongVersion}},
    {5, "", {{"05 01 00", "05 02"}}, -3, {kSocks5MethodUnsupported, kSocks5AuthenticationFailed}},
    {5, "me", {{"05 02 00 02", "05 FF"}}, -3, {kSocks5MethodUnsupported, kSocks5AuthenticationFailed}},
    {5, "me", {kOffer5, {kLogin5, "01 01"}}, -3, {kSocks5CredentialsRejected, kSocks5AuthenticationFailed}},
    {5, "me", {kOffer5, {kLogin5, ""}}, -3, {kSocks5CredentialsReplyNotRead, kSocks5AuthenticationFailed}},
    {5, "", {{"05 01 00", ""}}, -4, {kSocks5MethodNotRead}},
    {5, "", {kOpen5, {kRequest5, "05 05 00 01 00 00 00 00 00 00"}}, -4, {kSocks5ConnectRefused}},
    {5, "", {kOpen5, {kRequest5, ""}}, 0},  // counts as open
    {5, "", {kOpen5, {kRequest5, ""}}, -4, {kSocks5ConnectRefused}, true},
    {5, "", {kOpen5, {kRequest5, "05 00 00 01"}}, -4, {kSocks5ConnectRefused}},
    {4, "", {{kRequest4, "00 5A 00 00 7F 00 00 01"}}, 0},
    {4, "", {{kRequest4, "00 5A 00 00 00 00 00 00"}}, -4, {kSocks4OtherAddress}},
    {4, "", {{kRequest4, "00 5A 00 00 00 00 00 00"}}, 0, {}, true},
    {4, "", {{kRequest4, "04 5A 00 00 7F 00 00 01"}}, -4, {kSocks4Refused}, true},
    {4, "", {{kRequest4, "00 5B 00 00 7F 00 00 01"}}, -4, {kSocks4Refused}},
    {4, "", {{kRequest4, "05 FF"}}, -4, {kSocks4Refused}},  // what a SOCKS 5 proxy says to it
    {4, "", {{kRequest4, ""}}, -4, {kSocks4ReplyNotRead}},
    {4, "", {{kRequest4, "00 5A"}}, -4, {kSocks4TailNotRead}},
};

TEST_F(SocksTest, DialoguesGoAsTheProtocolSays) {
  for (const Dialogue& dialogue : kDialogues) {
    const auto& [last_request, last_answer] = dialogue.turns.back();
    const bool tunnel = dialogue.result == 0 && !last_answer.empty();
    Script script;
    for (const auto& [expected, answer] : dialogue.turns) {
      const bool slow = dialogue.strict && tunnel;
      script.expect(from_hex(expected)).send_slowly(from_hex(slow ? answer : "")).send(from_hex(slow ? "" : answer));
    }
    const bool rude = dialogue.messages.size() == 2;  // both tell who it was
    script.send(tunnel ? "through the tunnel" : "");
    rude ? script.reset() : script.close();
    for (const bool blocking : {true, false}) {
      SCOPED_TRACE(last_request + " -> " + last_answer + (dialogue.strict ? ", strict" : ""));
      log.clear();
      const SettingChange strict(settings::kSocksStrict, dialogue.strict ? "1" : "0");
      ScriptedPeer proxy(script);
      OpenSocket socket;
      ASSERT_EQ(connect_through(socket, proxy, dialogue.user, blocking), 0);
      EXPECT_EQ(socket.SocksConnect(dialogue.version), dialogue.result);
      EXPECT_EQ(log.numbers(), dialogue.messages);
      EXPECT_TRUE(!rude || log.records()[1].text == "127.0.0.1");
      for (const LogRecord& record : log.records())
        EXPECT_EQ((record.text + record.extra).find(kPassword), std::string::npos);
      EXPECT_EQ(tunnel ? receive_all(socket) : "", tunnel ? "through the tunnel" : "");
    }
  }
}

TEST_F(SocksTest, AProxyThatFallsSilentIsGivenUp) {
  const SettingChange idle(settings::kIdleLimit, "60");
  for (const bool strict : {false, true}) {
    const SettingChange form(settings::kSocksStrict, strict ? "1" : "0");
    for (const char* answer : {"", "05"}) {  // a reply cut into bytes is padded and so never complete in the usual form
      ScriptedPeer proxy(Script().expect(from_hex("05 01 00")).send(from_hex(answer)).stay_silent());
      OpenSocket socket;
      ASSERT_EQ(connect_through(socket, proxy), 0);
      EXPECT_EQ(socket.SocksConnect(5), -4);
      EXPECT_THAT(log.last(message::kSocks5MethodNotRead).text, testing::HasSubstr(proxy.target()));
    }
  }
}

TEST_F(SocksTest, NothingIsSentWithoutATargetOrForOtherVersions) {
  ScriptedPeer proxy(Script().expect_end());
  OpenSocket socket, unconnected;
  EXPECT_EQ(socket.SocksConnect(5), -1);
  ASSERT_EQ(connect_through(socket, proxy), 0);
  for (const unsigned version : {0U, 3U, 6U}) EXPECT_EQ(socket.SocksConnect(version), -1) << version;
  socket.socksTargetAddress = "0.0.0.0";
  for (const unsigned version : {4U, 5U}) EXPECT_EQ(socket.SocksConnect(version), -1) << version;
  unconnected.socksTargetAddress = kTarget;
  for (const unsigned version : {5U, 4U}) EXPECT_EQ(unconnected.SocksConnect(version), -3);
  EXPECT_THAT(log.numbers(), testing::ElementsAre(message::kSocks5GreetingNotSent, message::kSocks4RequestNotSent));
}

}  // namespace
}  // namespace yinet::test
