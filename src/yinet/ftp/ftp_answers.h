#pragma once

// What single FTP answers say: passive addresses and ports (RFC 959 PASV, RFC 2428 EPSV), sizes (RFC 3659). Pure functions.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace yinet {

// --- PASV, as its answers are read since ever ---------------------------------------------------------------------------
// The numbers of the address, "h1,h2,h3,h4": from behind the first "(" to before the fourth comma, or to before the sixth
// where there is one. Empty without "(" or without a fourth comma.
std::string_view passive_address_numbers(std::string_view answer);
// The same with points.
std::string passive_address(std::string_view answer);
// The last two numbers separated by commas, high byte first.
int passive_port(std::string_view answer);
// The text between the second-to-last comma and the fourth character from the end.
std::string_view passive_port_text(std::string_view answer);

struct DataAddress {
  std::string host;  // dotted; empty for an EPSV answer, which leaves the host as it is
  int port = 0;      // 1 to 65535
};

// Where to connect to; empty when a number is missing or leaves 0 to 255, or the port is 0.
std::optional<DataAddress> usable_passive_address(std::string_view answer);
// "229 Entering Extended Passive Mode (|||6446|)", with any delimiter.
std::optional<DataAddress> usable_extended_address(std::string_view answer);

// --- SIZE ---------------------------------------------------------------------------------------------------------------
// The number at `position` of an answer; 0 without digits, -1 when it is negative or leaves 64 bits.
std::int64_t size_in_answer(std::string_view answer, std::size_t position);

// --- Servers as users write them ------------------------------------------------------------------------------------------
struct HostAndPort {
  std::string host;
  int port = 0;  // 0 when none was given
};
// "host", "host:port", "[address]:port". The brackets go.
HostAndPort split_host_and_port(std::string_view text);

}  // namespace yinet
