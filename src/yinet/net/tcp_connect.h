#pragma once

// TCP connections made without blocking. For .cpp files of this folder.

#include <string>

#include "yinet/net/openssl_handles.h"

namespace yinet {

struct TcpConnection {
  ChainHandle chain;    // a connect BIO in non-blocking mode; null after a failure
  std::string failure;  // its cause
};

// Connects to "host:port" within the setting kConnectLimit. The host's addresses are tried in the system's order. One that
// is not the last gets its share of the time that is left, at most kAddressLimit: a silent one must not hold up the next.
TcpConnection connect_in_steps(const std::string& target);

}  // namespace yinet
