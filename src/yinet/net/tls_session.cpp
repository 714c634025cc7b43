#include "yinet/net/tls_session.h"

#include <openssl/err.h>
#include <openssl/x509_vfy.h>
#include <openssl/x509v3.h>

#include <string>

#include "yinet/host/setting_table.h"
#include "yinet/net/host_address.h"

namespace yinet {
namespace {

bool expect_host(SSL* session, const std::string& host) {
  X509_VERIFY_PARAM* const checks = SSL_get0_param(session);
  if (is_ipv4_address(host) || is_ipv6_address(host)) return X509_VERIFY_PARAM_set1_ip_asc(checks, host.c_str()) == 1;
  X509_VERIFY_PARAM_set_hostflags(checks, X509_CHECK_FLAG_NO_PARTIAL_WILDCARDS);
  return X509_VERIFY_PARAM_set1_host(checks, host.data(), host.size()) == 1;
}

void name_host(SSL* session, const std::string& host) {
  if (is_ipv4_address(host) || is_ipv6_address(host)) return;  // RFC 6066, 3: names only
  const long set = SSL_ctrl(session, SSL_CTRL_SET_TLSEXT_HOSTNAME, TLSEXT_NAMETYPE_host_name,
                            const_cast<char*>(host.c_str()));  // copied
  if (set != 1) ERR_clear_error();                             // too long for the extension
}

}  // namespace

void allow_partial_writes(SSL* session) {
  SSL_set_mode(session, SSL_MODE_ENABLE_PARTIAL_WRITE | SSL_MODE_ACCEPT_MOVING_WRITE_BUFFER);
}

void read_ahead_in_session(SSL* session, std::size_t bytes) {
  SSL_set_read_ahead(session, 1);
  SSL_set_default_read_buffer_len(session, bytes);
}

SessionHandle make_client_session(SSL_CTX* context, std::string_view host, bool verify, SSL_SESSION* resumed) {
  SessionHandle session(SSL_new(context));
  if (!session) return nullptr;
  if (resumed != nullptr && SSL_set_session(session.get(), resumed) != 1) ERR_clear_error();  // then a new one
  allow_partial_writes(session.get());
  // A client checks the certificate in this mode too and keeps the first fault, but does not abort the handshake for
  // it: that lets the caller report the certificate and decide.
  SSL_set_verify(session.get(), SSL_VERIFY_NONE, nullptr);
  const std::string name = host_in_certificate(host);
  if (name.empty()) return session;
  name_host(session.get(), name);
  if (verify && setting_flag(settings::kTlsCheckName) && !expect_host(session.get(), name)) return nullptr;
  return session;
}

SessionHandle make_server_session(SSL_CTX* context) {
  SessionHandle session(SSL_new(context));
  if (!session) return nullptr;
  allow_partial_writes(session.get());
  SSL_set_accept_state(session.get());
  return session;
}

SslSessionHandle resumable_session(SSL* connection) {
  const SslSessionHandle newest(connection != nullptr ? SSL_get1_session(connection) : nullptr);
  if (!newest || SSL_SESSION_is_resumable(newest.get()) == 0) return nullptr;
  SslSessionHandle copy(SSL_SESSION_dup(newest.get()));
  ERR_clear_error();
  return copy;
}

long verification_result(const SSL* session) {
  if (SSL_get0_peer_certificate(session) == nullptr) return X509_V_ERR_UNSPECIFIED;  // OpenSSL would say X509_V_OK
  return SSL_get_verify_result(session);
}

}  // namespace yinet
