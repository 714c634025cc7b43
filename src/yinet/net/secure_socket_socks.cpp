// The dialogue with a SOCKS proxy, on a connection that the proxy form of Connect has made.

#include <algorithm>
#include <array>
#include <chrono>
#include <limits>
#include <span>
#include <string>
#include <utility>

#include "yinet/host/contained.h"
#include "yinet/host/message_numbers.h"
#include "yinet/host/setting_table.h"
#include "yinet/host/text.h"
#include "yinet/net/partner_info.h"
#include "yinet/net/readiness.h"
#include "yinet/net/secure_socket.h"
#include "yinet/net/socket_report.h"
#include "yinet/net/socks_messages.h"

namespace yinet {
namespace {

using std::chrono::milliseconds;

constexpr int kNothingToDo = -1;
constexpr int kConnectionFailed = -3;
constexpr int kProtocolFailed = -4;

constexpr int kReplyBytes = 2;       // what every reply begins with
constexpr int kSocks5TypeBytes = 2;  // reserved byte and address type
constexpr int kSocks4TailBytes = 6;  // port and address

// Codes from 1 on.
constexpr auto kSocks5Refusals = std::to_array<std::string_view>(
    {"general failure", "not allowed by the rules", "network unreachable", "host unreachable", "connection refused",
     "time to live expired", "command not supported", "address type not supported"});

unsigned char byte_at(const YBuffer& bytes, long position) {
  return static_cast<unsigned char>(bytes.GetChar(position));
}

// Codes from 91 on.
constexpr auto kSocks4Refusals = std::to_array<std::string_view>(
    {"refused or failed", "the proxy cannot ask this machine who the user is", "this machine names another user"});

std::string refusal_text(unsigned char code, std::span<const std::string_view> words, int first) {
  std::string text = "reply code " + std::to_string(code);
  const auto place = static_cast<std::size_t>(code - first);
  if (code >= first && place < words.size()) text += ": " + std::string(words[place]);
  return text;
}

}  // namespace
}  // namespace yinet

using namespace yinet;

int SecureSocket::SocksConnect(const unsigned int& version) {
  return contained(kNothingToDo, [&] {
    const auto target = socks_target(socksTargetAddress);
    if (!target) return kNothingToDo;
    PartnerAddress();  // for the messages: after a reset by the proxy the system no longer knows it
    if (version == 5) return SocksConnect5();
    if (version == 4) return SocksConnect4();
    return kNothingToDo;
  });
}

int SecureSocket::SocksFailure(int number, int result, std::string_view cause) {
  report(kConnectLevel, number, cause, connectTarget,
         formatted("$1$:$2$", socksTargetAddress, std::to_string(socksTargetPort)));
  return result;
}

bool SecureSocket::SocksSend(std::string_view message) { return bio != nullptr && Send(YBuffer(message)); }

// Usually as every fixed-size reply is read: a proxy sends each in one piece. In the strict form however it comes.
bool SecureSocket::SocksReceive(YBuffer& reply, int count) {
  if (!setting_flag(settings::kSocksStrict)) return GetBinaryFromReceive(reply, count);
  const Deadline deadline{milliseconds(setting_number(settings::kIdleLimit))};
  while (bio != nullptr && reply.Size() < count) {
    YBuffer piece;
    const int received = Receive(piece, count - static_cast<int>(reply.Size()), false);
    if (received < 0) return false;
    if (received > 0) reply.Add(piece.view().substr(0, static_cast<std::size_t>(received)));
    const auto left = std::min<std::int64_t>(deadline.left().count(), std::numeric_limits<int>::max());
    if (received == 0 && (left == 0 || !wait_for_input(static_cast<int>(left)))) return false;
  }
  return reply.Size() == count;
}

int SecureSocket::SocksConnect5() {
  const bool strict = setting_flag(settings::kSocksStrict);
  if (!SocksSend(socks5_greeting(!proxyUser.IsEmpty()))) {
    return SocksFailure(message::kSocks5GreetingNotSent, kConnectionFailed);
  }
  YBuffer method;
  if (!SocksReceive(method, kReplyBytes)) return SocksFailure(message::kSocks5MethodNotRead, kProtocolFailed);
  if (byte_at(method, 0) != kSocks5Version) {
    return SocksFailure(message::kSocks5WrongVersion, kProtocolFailed, "version " + std::to_string(byte_at(method, 0)));
  }
  if (!PerformSOCKS5Auth(method.GetChar(1))) {
    YLog.EventEx(kConnectLevel, message::kSocks5AuthenticationFailed, PartnerAddress(),
                 YTextManager.GetYText(message::kSocks5AuthenticationFailed));
    return kConnectionFailed;
  }
  if (!SocksSend(socks5_connect(*socks_target(socksTargetAddress), static_cast<std::uint16_t>(socksTargetPort)))) {
    return SocksFailure(message::kSocks5ConnectNotSent, kConnectionFailed);
  }
  YBuffer reply;
  if (!SocksReceive(reply, kReplyBytes)) {
    // Some proxies say nothing more and pass bytes on: the tunnel counts as open, and its first use tells.
    return strict ? SocksFailure(message::kSocks5ConnectRefused, kProtocolFailed, "no reply") : 0;
  }
  const bool wrong_version = strict && byte_at(reply, 0) != kSocks5Version;
  if (wrong_version || byte_at(reply, 1) != kSocks5Succeeded) {
    return SocksFailure(message::kSocks5ConnectRefused, kProtocolFailed,
                        wrong_version ? "not a SOCKS 5 reply" : refusal_text(byte_at(reply, 1), kSocks5Refusals, 1));
  }
  if (SkipBoundAddress(strict)) return 0;
  return SocksFailure(message::kSocks5ConnectRefused, kProtocolFailed, "the reply is not complete");
}

// The address that the proxy has bound is of no use, but what was left of it would be taken for the server's first bytes.
bool SecureSocket::SkipBoundAddress(bool strict) {
  YBuffer type;
  if (!SocksReceive(type, kSocks5TypeBytes)) return false;
  const auto rest = socks5_address_rest(byte_at(type, 1));
  if (!rest && strict) return false;
  int count = rest ? rest->fixed : kSocks5Ipv4Rest;
  if (rest && rest->length_byte) {
    YBuffer length;
    if (!SocksReceive(length, 1)) return false;
    count = byte_at(length, 0) + kSocksPortBytes;
  }
  YBuffer ignored;
  return SocksReceive(ignored, count);
}

bool SecureSocket::PerformSOCKS5Auth(const char& method) {
  switch (static_cast<unsigned char>(method)) {
    case kSocks5NoAuthentication: return true;
    case kSocks5UserPassword:
      if (!proxyUser.IsEmpty()) return PerformSOCKS5Auth_USERPWD();
      break;  // was not offered
    default: break;
  }
  YLog.Event(kConnectLevel, message::kSocks5MethodUnsupported, setting_text(settings::kSystemName), PartnerAddress());
  return false;
}

bool SecureSocket::PerformSOCKS5Auth_USERPWD() {
  if (!SocksSend(socks5_credentials(proxyUser, proxyPassword))) {
    SocksFailure(message::kSocks5CredentialsNotSent, kConnectionFailed);
    return false;
  }
  YBuffer reply;
  if (!SocksReceive(reply, kReplyBytes)) {
    SocksFailure(message::kSocks5CredentialsReplyNotRead, kProtocolFailed);
    return false;
  }
  const bool wrong_version = setting_flag(settings::kSocksStrict) && byte_at(reply, 0) != kSocks5CredentialsVersion;
  if (!wrong_version && byte_at(reply, 1) == kSocks5Succeeded) return true;
  YLog.EventEx(kConnectLevel, message::kSocks5CredentialsRejected, PartnerAddress(),
               YTextManager.GetYText(message::kSocks5CredentialsRejected));
  return false;
}

int SecureSocket::SocksConnect4() {
  const bool strict = setting_flag(settings::kSocksStrict);
  if (!SocksSend(socks4_connect(*socks_target(socksTargetAddress), static_cast<std::uint16_t>(socksTargetPort)))) {
    return SocksFailure(message::kSocks4RequestNotSent, kConnectionFailed);
  }
  YBuffer reply;
  if (!SocksReceive(reply, kReplyBytes)) return SocksFailure(message::kSocks4ReplyNotRead, kProtocolFailed);
  const bool wrong_version = strict && byte_at(reply, 0) != kSocks4ReplyVersion;
  if (wrong_version || byte_at(reply, 1) != kSocks4Granted) {
    return SocksFailure(message::kSocks4Refused, kProtocolFailed,
                        wrong_version ? "not a SOCKS 4 reply" : refusal_text(byte_at(reply, 1), kSocks4Refusals, 91));
  }
  YBuffer tail;
  if (!SocksReceive(tail, kSocks4TailBytes)) return SocksFailure(message::kSocks4TailNotRead, kProtocolFailed);
  if (strict) return 0;  // many proxies leave the address empty, and it has no use
  const std::string_view target(connectTarget);
  const auto proxy = socks_target(target.substr(0, target.find(':')));
  const std::string_view address = tail.view().substr(kSocksPortBytes, proxy ? proxy->size() : 0);
  if (proxy && std::equal(proxy->begin(), proxy->end(), address.begin(), address.end(),
                          [](unsigned char a, char b) { return a == static_cast<unsigned char>(b); })) {
    return 0;
  }
  const auto number = [&](long i) { return std::to_string(byte_at(tail, kSocksPortBytes + i)); };
  const std::string named = formatted("$1$.$2$.$3$.$4$", number(0), number(1), number(2), number(3));
  report(kConnectLevel, message::kSocks4OtherAddress, {}, connectTarget, named);
  return kProtocolFailed;
}
