#pragma once

// TCP connections made without blocking. For .cpp files of this folder.

#include <chrono>
#include <string>

#include "yinet/net/openssl_handles.h"

namespace yinet {

struct TcpConnection {
  ChainHandle chain;    // a connect BIO in non-blocking mode; null after a failure
  std::string failure;  // its cause
};

// Connects to "host:port" within `limit`. The host's addresses are tried in the system's order, and each gets its share of
// the time that is left, so that a silent one does not use up that of the next.
TcpConnection connect_in_steps(const std::string& target, std::chrono::milliseconds limit);

}  // namespace yinet
