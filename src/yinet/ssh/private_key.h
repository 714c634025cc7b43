#pragma once

#include <libssh/libssh.h>

#include <memory>
#include <string>

namespace yinet {

using PrivateKey = std::unique_ptr<ssh_key_struct, decltype(&ssh_key_free)>;

struct KeyFile {
  PrivateKey key{nullptr, &ssh_key_free};  // null when it can't be read
  bool asked = false;                      // whether a password was needed
};

// Reads a private key, `path` as the system has it. The terminal is never asked for its password.
KeyFile read_private_key(const std::string& path, const std::string& password);

}  // namespace yinet
