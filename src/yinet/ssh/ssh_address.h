#pragma once

// SSH servers and their proxies as users write them. Pure functions.

#include <string_view>

#include "yinet/host/export.h"
#include "yinet/host/ystring.h"

namespace yinet {

inline constexpr int kSshPort = 22;
inline constexpr int kSocksPort = 1080;

struct SshAddress {
  YString host;
  int port = 0;
};

// "host", "host:port" (the last ":" counts), "[IPv6 address]:port". The brackets go; without a port it is `default_port`,
// and what is no number from 0 to 65535 becomes -1, which nothing connects to.
YINET_API SshAddress split_ssh_address(std::string_view text, int default_port);

}  // namespace yinet
