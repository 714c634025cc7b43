#include "support/tls_context.h"

#include <openssl/bio.h>
#include <openssl/err.h>
#include <openssl/ssl.h>

#include <array>
#include <stdexcept>

namespace yinet::test {
namespace {

void use_certificate(SSL_CTX* context, const PemPair& pair) {
  require_openssl(SSL_CTX_use_certificate_chain_file(context, pair.certificate.c_str()) == 1,
                  "use " + pair.certificate.string());
  require_openssl(SSL_CTX_use_PrivateKey_file(context, pair.key.c_str(), SSL_FILETYPE_PEM) == 1,
                  "use " + pair.key.string());
}

void verify_with(SSL_CTX* context, const std::filesystem::path& ca_file) {
  if (ca_file.empty()) return;
  require_openssl(SSL_CTX_load_verify_locations(context, ca_file.c_str(), nullptr) == 1, "use " + ca_file.string());
  SSL_CTX_set_verify(context, SSL_VERIFY_PEER | SSL_VERIFY_FAIL_IF_NO_PEER_CERT, nullptr);
}

}  // namespace

std::string take_openssl_error() {
  std::array<char, 256> text{};
  ERR_error_string_n(ERR_peek_last_error(), text.data(), text.size());
  ERR_clear_error();
  return text.data();
}

void require_openssl(bool ok, const std::string& step) {
  if (!ok) throw std::runtime_error(step + ": " + take_openssl_error());
}

TlsContext::TlsContext(SSL_CTX* context, TlsVersion version) : context_(context, SSL_CTX_free) {
  require_openssl(context != nullptr, "make a TLS context");
  if (version == TlsVersion::any) return;
  const int number = TLS1_1_VERSION + static_cast<int>(version) - static_cast<int>(TlsVersion::tls11);
  if (version == TlsVersion::tls11) SSL_CTX_set_cipher_list(context, "ALL:@SECLEVEL=0");
  SSL_CTX_set_min_proto_version(context, number);
  SSL_CTX_set_max_proto_version(context, number);
}

TlsContext TlsContext::server() { return server(Certificates::shared().good()); }

TlsContext TlsContext::server(const PemPair& certificate, const TlsServerOptions& options) {
  constexpr unsigned char kSessionScope[] = "yinet-test";
  TlsContext result(SSL_CTX_new(TLS_server_method()), options.version);
  use_certificate(result.get(), certificate);
  // Without a scope of its own a session that holds a client certificate can't be resumed.
  SSL_CTX_set_session_id_context(result.get(), kSessionScope, sizeof(kSessionScope));
  verify_with(result.get(), options.client_ca);
  return result;
}

TlsContext TlsContext::client(const TlsClientOptions& options) {
  TlsContext result(SSL_CTX_new(TLS_client_method()), options.version);
  verify_with(result.get(), options.ca_file);
  if (!options.certificate.certificate.empty()) use_certificate(result.get(), options.certificate);
  return result;
}

void FreeTlsSession::operator()(SSL* session) const { SSL_free(session); }

TlsSession new_session(const TlsContext& context) {
  TlsSession session(SSL_new(context.get()));
  require_openssl(session != nullptr, "make a TLS session");
  SSL_set_bio(session.get(), BIO_new(BIO_s_mem()), BIO_new(BIO_s_mem()));
  SSL_is_server(session.get()) ? SSL_set_accept_state(session.get()) : SSL_set_connect_state(session.get());
  return session;
}

TlsInfo info_of(const SSL* session) {
  TlsInfo info;
  info.active = true;
  if (const char* name = SSL_get_servername(session, TLSEXT_NAMETYPE_host_name)) info.server_name = name;
  info.session_reused = SSL_session_reused(session) == 1;
  if (const X509* certificate = SSL_get0_peer_certificate(session)) {
    char* const text = X509_NAME_oneline(X509_get_subject_name(certificate), nullptr, 0);
    info.peer_subject = text;
    OPENSSL_free(text);
  }
  return info;
}

}  // namespace yinet::test
