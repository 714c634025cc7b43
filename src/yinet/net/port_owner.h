#pragma once

#include <string>

namespace yinet {

// The executable (UTF-8) of a process that holds a local TCP port in the caller's network namespace, a listening one
// before any other; empty when there is none or its owner is not ours to see. Reads /proc: for failure texts, not for
// every connection.
std::string executable_holding_port(unsigned int port);

}  // namespace yinet
