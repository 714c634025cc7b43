#pragma once

// Questions to a connection's BIO chain. For .cpp files of this folder.

#include <fcntl.h>
#include <openssl/bio.h>
#include <openssl/ssl.h>

namespace yinet {

// The system's descriptor; -1 when there is none (yet).
inline int descriptor_of(BIO* bio) {
  int descriptor = -1;
  return bio == nullptr || BIO_get_fd(bio, &descriptor) < 0 ? -1 : descriptor;
}

// The TLS session in the chain; null on a plain connection.
inline SSL* session_of(BIO* bio) {
  SSL* session = nullptr;
  if (bio != nullptr) BIO_get_ssl(bio, &session);
  return session;
}

// The last step found the TCP connect under way. OpenSSL lets this stand after the connect has come about, until the
// first transfer; then the descriptor is writable and a wait for that costs nothing.
inline bool is_connecting(BIO* bio) {
  return BIO_should_io_special(bio) && BIO_get_retry_reason(bio) == BIO_RR_CONNECT;
}

inline bool is_listener(BIO* bio) { return bio != nullptr && BIO_method_type(bio) == BIO_TYPE_ACCEPT; }

// Programs that the host starts must not keep a port or a connection open.
inline void keep_from_children(BIO* bio) { fcntl(descriptor_of(bio), F_SETFD, FD_CLOEXEC); }

}  // namespace yinet
