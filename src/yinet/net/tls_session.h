#pragma once

// A TLS session (an OpenSSL SSL object) as this library wants it: pure set-up, no traffic.

#include <openssl/ssl.h>

#include <cstddef>
#include <string_view>

#include "yinet/net/openssl_handles.h"

namespace yinet {

// Long writes return after each record, and a retried write may come from another address: progress can be seen, and a
// Send can wait for readiness in between.
void allow_partial_writes(SSL* session);

// Lets the session take up to `bytes` from the system at once instead of one record's head and body in turn. To be
// called before the handshake.
void read_ahead_in_session(SSL* session, std::size_t bytes);

// A client session for a connection to `host` (empty: unknown), resuming `resumed` unless that is null. It names
// the host to the server when that is a name.
// The handshake finishes whatever the certificate is worth and keeps the result of the check for the caller; with
// `verify` the certificate must also be valid for `host`, unless the setting kTlsCheckName says otherwise. Null when
// OpenSSL refuses one of these, with its error queued.
SessionHandle make_client_session(SSL_CTX* context, std::string_view host, bool verify, SSL_SESSION* resumed = nullptr);

// A server session; null on failure.
SessionHandle make_server_session(SSL_CTX* context);

// A copy of the connection's newest session, since a connection that ends badly makes its own unusable. Null without a
// connection, or when the session can't be resumed.
SslSessionHandle resumable_session(SSL* connection);

// X509_V_OK, or why the peer's certificate is not to be trusted. Having shown none at all counts as a reason.
long verification_result(const SSL* session);

}  // namespace yinet
