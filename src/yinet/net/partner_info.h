#pragma once

// Keys of the record that SecureSocket::GetPartnerInfo gives.

#include <string_view>

namespace yinet::partner {

inline constexpr std::string_view kAddress = "ADRESSE";     // text: the peer's numeric address, IPv4 always dotted
inline constexpr std::string_view kPort = "PORT";           // integer
inline constexpr std::string_view kProtocol = "PROTOKOLL";  // text, while TLS runs: "TLSv1.3"
inline constexpr std::string_view kCipher = "CHIFFRE";      // text, while TLS runs: the cipher suite's name

}  // namespace yinet::partner
