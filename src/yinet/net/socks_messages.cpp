#include "yinet/net/socks_messages.h"

#include <cstring>

#include "yinet/dns/dns_names.h"

namespace yinet {
namespace {

constexpr char kConnectCommand = 1;
constexpr char kIpv4Type = 1;
constexpr char kNameType = 3;
constexpr char kIpv6Type = 4;
constexpr char kSocks4Version = 4;

void append_port(std::string& message, std::uint16_t port) {
  message.push_back(static_cast<char>(port >> 8));
  message.push_back(static_cast<char>(port & 0xFF));
}

void append_address(std::string& message, const Ipv4Bytes& address) {
  message.append(reinterpret_cast<const char*>(address.data()), address.size());
}

void append_with_length(std::string& message, std::string_view text) {
  message.push_back(static_cast<char>(text.size() & 0xFF));
  message.append(text);
}

}  // namespace

std::optional<Ipv4Bytes> socks_target(std::string_view dotted) {
  const auto address = parse_dotted_address(dotted);
  if (!address || *address == 0) return std::nullopt;
  Ipv4Bytes bytes{};
  std::memcpy(bytes.data(), &*address, bytes.size());
  return bytes;
}

std::string socks5_greeting(bool with_credentials) {
  std::string message{static_cast<char>(kSocks5Version)};
  message.push_back(with_credentials ? 2 : 1);
  message.push_back(static_cast<char>(kSocks5NoAuthentication));
  if (with_credentials) message.push_back(static_cast<char>(kSocks5UserPassword));
  return message;
}

std::string socks5_credentials(std::string_view user, std::string_view password) {
  std::string message{static_cast<char>(kSocks5CredentialsVersion)};
  append_with_length(message, user);
  append_with_length(message, password);
  return message;
}

std::string socks5_connect(const Ipv4Bytes& target, std::uint16_t port) {
  std::string message{static_cast<char>(kSocks5Version), kConnectCommand, '\0', kIpv4Type};
  append_address(message, target);
  append_port(message, port);
  return message;
}

std::string socks4_connect(const Ipv4Bytes& target, std::uint16_t port) {
  std::string message{kSocks4Version, kConnectCommand};
  append_port(message, port);
  append_address(message, target);
  message.push_back('\0');
  return message;
}

std::optional<Socks5AddressRest> socks5_address_rest(unsigned char address_type) {
  switch (address_type) {
    case kIpv4Type: return Socks5AddressRest{kSocks5Ipv4Rest, false};
    case kNameType: return Socks5AddressRest{0, true};
    case kIpv6Type: return Socks5AddressRest{16 + kSocksPortBytes, false};
    default: return std::nullopt;
  }
}

}  // namespace yinet
