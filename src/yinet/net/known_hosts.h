#pragma once

#include <string>

namespace yinet {

// Path of the file of known hosts that the setting kSshKnownHosts names: every SSH server's key must be in it. Empty: every
// key is accepted. A file that cannot be named holds no host.
std::string known_hosts_path();

}  // namespace yinet
