#pragma once

// The messages of SOCKS 5 (RFC 1928, RFC 1929) and SOCKS 4 as bytes. Pure functions, no I/O. Targets are IPv4 addresses.

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace yinet {

inline constexpr unsigned char kSocks5Version = 5;
inline constexpr unsigned char kSocks5NoAuthentication = 0;
inline constexpr unsigned char kSocks5UserPassword = 2;
inline constexpr unsigned char kSocks5CredentialsVersion = 1;
inline constexpr unsigned char kSocks5Succeeded = 0;
inline constexpr unsigned char kSocks4ReplyVersion = 0;
inline constexpr unsigned char kSocks4Granted = 0x5A;

using Ipv4Bytes = std::array<unsigned char, 4>;  // as they stand on the wire

// A dotted address as bytes; empty for other text and for 0.0.0.0, which is no target.
std::optional<Ipv4Bytes> socks_target(std::string_view dotted);

// The methods a client offers: none, and with credentials user name and password as well.
std::string socks5_greeting(bool with_credentials);

// User name and password; of a length above 255 only the low 8 bits are sent, the characters all the same.
std::string socks5_credentials(std::string_view user, std::string_view password);

std::string socks5_connect(const Ipv4Bytes& target, std::uint16_t port);
std::string socks4_connect(const Ipv4Bytes& target, std::uint16_t port);  // with an empty user id

// How the bound address of a SOCKS 5 reply goes on behind its type byte: `fixed` bytes, port included, or, when
// `length_byte` is set, one byte with the length of a name, then the name and the port. Empty for an unknown type.
struct Socks5AddressRest {
  int fixed = 0;
  bool length_byte = false;
};
std::optional<Socks5AddressRest> socks5_address_rest(unsigned char address_type);

inline constexpr int kSocksPortBytes = 2;
inline constexpr int kSocks5Ipv4Rest = 4 + kSocksPortBytes;

}  // namespace yinet
