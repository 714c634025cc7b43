#pragma once

// TLS sessions that ended connections leave for later ones to the same server: resuming one saves both sides the most
// expensive part of the handshake (RFC 5246, 7.3; RFC 8446, 2.2).

#include <openssl/ssl.h>

#include <mutex>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "yinet/net/openssl_handles.h"

namespace yinet {

// Keeps one session per key, at most kTlsSessionsKept; the longest kept goes first. Thread-safe.
class TlsSessionStore {
 public:
  static TlsSessionStore& shared();  // the process's

  // Null when there is none. A session is given out once: servers may take the tickets of TLS 1.3 only once (RFC 8446, C.4).
  SslSessionHandle take(std::string_view key);
  // The newest session of `connection` (may be null), unless it can't be resumed.
  void keep(std::string_view key, SSL* connection);

 private:
  SslSessionHandle take_locked(std::string_view key);

  std::mutex mutex_;
  std::vector<std::pair<std::string, SslSessionHandle>> sessions_;  // longest kept first
};

}  // namespace yinet
