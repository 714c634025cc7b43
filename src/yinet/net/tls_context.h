#pragma once

// TLS contexts (OpenSSL SSL_CTX objects) as the host's settings want them: pure set-up, no traffic, nothing reported.
// Failures leave their reason in OpenSSL's error queue.

#include <openssl/ssl.h>

#include <string>
#include <string_view>

#include "yinet/net/openssl_handles.h"

namespace yinet {

// A context for any TLS version that the policy allows: the system's OpenSSL configuration, changed by the settings
// kTlsMinimumVersion and kTlsCipherList. Null when OpenSSL refuses; a setting it does not understand is never ignored,
// since it may have been meant to make connections safer.
ContextHandle make_client_context();
ContextHandle make_server_context();

// The same changes to a context that another library has made. False leaves it half changed.
bool apply_tls_policy(SSL_CTX* context);

// A folder of hashed certificates whose authorities are trusted. Only the empty name is refused: what is in the folder,
// or that it is missing, shows when a certificate is looked for.
bool trust_folder(SSL_CTX* context, std::string_view folder);
// A PEM file of authorities.
bool trust_file(SSL_CTX* context, std::string_view file);
// The trust store of the system's OpenSSL.
bool trust_system(SSL_CTX* context);

// Certificate chain and key from PEM files (an empty `key_file` is the certificate file) for a context whose password
// callback is set.
bool use_certificate(SSL_CTX* context, std::string_view certificate_file, std::string_view key_file);

}  // namespace yinet
