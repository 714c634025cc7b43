#include "support/tls_context.h"

#include <openssl/bio.h>
#include <openssl/err.h>
#include <openssl/ssl.h>

#include <array>
#include <stdexcept>

namespace yinet::test {
namespace {

constexpr unsigned char kSessionScope[] = "yinet-test";

std::string take_error_text() {
  std::array<char, 256> text{};
  ERR_error_string_n(ERR_peek_last_error(), text.data(), text.size());
  ERR_clear_error();
  return text.data();
}

void require(bool ok, const std::string& step) {
  if (!ok) throw std::runtime_error(step + ": " + take_error_text());
}

void fix_version(SSL_CTX* context, TlsVersion version) {
  if (version == TlsVersion::any) return;
  const int number = version == TlsVersion::tls11   ? TLS1_1_VERSION
                     : version == TlsVersion::tls12 ? TLS1_2_VERSION
                                                    : TLS1_3_VERSION;
  if (version == TlsVersion::tls11) SSL_CTX_set_cipher_list(context, "ALL:@SECLEVEL=0");
  SSL_CTX_set_min_proto_version(context, number);
  SSL_CTX_set_max_proto_version(context, number);
}

void use_certificate(SSL_CTX* context, const PemPair& pair) {
  require(SSL_CTX_use_certificate_chain_file(context, pair.certificate.c_str()) == 1,
          "use " + pair.certificate.string());
  require(SSL_CTX_use_PrivateKey_file(context, pair.key.c_str(), SSL_FILETYPE_PEM) == 1, "use " + pair.key.string());
}

void verify_with(SSL_CTX* context, const std::filesystem::path& ca_file, int mode) {
  require(SSL_CTX_load_verify_locations(context, ca_file.c_str(), nullptr) == 1, "use " + ca_file.string());
  SSL_CTX_set_verify(context, mode, nullptr);
}

}  // namespace

TlsContext::TlsContext(const TlsVersion& version, bool is_server)
    : context_(SSL_CTX_new(is_server ? TLS_server_method() : TLS_client_method()), SSL_CTX_free),
      is_server_(is_server) {
  require(context_ != nullptr, "make a TLS context");
  fix_version(context_.get(), version);
}

TlsContext TlsContext::server() { return server(Certificates::shared().good()); }

TlsContext TlsContext::server(const PemPair& certificate, const TlsServerOptions& options) {
  TlsContext result(options.version, true);
  use_certificate(result.get(), certificate);
  // Without a scope of its own a session that holds a client certificate can't be resumed.
  SSL_CTX_set_session_id_context(result.get(), kSessionScope, sizeof(kSessionScope));
  if (!options.client_ca.empty())
    verify_with(result.get(), options.client_ca, SSL_VERIFY_PEER | SSL_VERIFY_FAIL_IF_NO_PEER_CERT);
  return result;
}

TlsContext TlsContext::client(const TlsClientOptions& options) {
  TlsContext result(options.version, false);
  result.server_name_ = options.server_name;
  if (!options.ca_file.empty()) verify_with(result.get(), options.ca_file, SSL_VERIFY_PEER);
  if (!options.certificate.certificate.empty()) use_certificate(result.get(), options.certificate);
  return result;
}

void TlsSession::Free::operator()(ssl_st* session) const { SSL_free(session); }

TlsSession::TlsSession(const TlsContext& context) : context_(context), session_(SSL_new(context.get())) {
  require(session_ != nullptr, "make a TLS session");
  BIO* const from_wire = BIO_new(BIO_s_mem());
  BIO* const to_wire = BIO_new(BIO_s_mem());
  require(from_wire != nullptr && to_wire != nullptr, "make a TLS session");
  BIO_set_mem_eof_return(from_wire, -1);  // empty means "not yet" until take_end()
  SSL_set_bio(session_.get(), from_wire, to_wire);
  if (context.is_server()) {
    SSL_set_accept_state(session_.get());
    return;
  }
  SSL_set_connect_state(session_.get());
  if (!context.server_name().empty()) SSL_set_tlsext_host_name(session_.get(), context.server_name().c_str());
}

void TlsSession::take(std::string_view from_wire) {
  if (!from_wire.empty()) BIO_write(SSL_get_rbio(session_.get()), from_wire.data(), static_cast<int>(from_wire.size()));
}

void TlsSession::take_end() { BIO_set_mem_eof_return(SSL_get_rbio(session_.get()), 0); }

namespace {

std::string drain(BIO* memory) {
  std::string bytes(BIO_ctrl_pending(memory), '\0');
  if (!bytes.empty()) BIO_read(memory, bytes.data(), static_cast<int>(bytes.size()));
  return bytes;
}

}  // namespace

std::string TlsSession::for_wire() { return drain(SSL_get_wbio(session_.get())); }

TlsSession::Progress TlsSession::handshake() {
  ERR_clear_error();
  const int result = SSL_do_handshake(session_.get());
  if (result == 1) return Progress::done;
  if (SSL_get_error(session_.get(), result) == SSL_ERROR_WANT_READ) return Progress::needs_input;
  error_ = take_error_text();
  return Progress::failed;
}

TlsSession::Read TlsSession::read(std::string& into) {
  std::array<char, 16384> buffer;
  for (;;) {
    ERR_clear_error();
    const int count = SSL_read(session_.get(), buffer.data(), buffer.size());
    if (count > 0) {
      into.append(buffer.data(), static_cast<std::size_t>(count));
      continue;
    }
    switch (SSL_get_error(session_.get(), count)) {
      case SSL_ERROR_WANT_READ: return Read::open;
      case SSL_ERROR_ZERO_RETURN: return Read::closed_in_order;
      default: break;
    }
    const bool cut_off = ERR_GET_REASON(ERR_peek_error()) == SSL_R_UNEXPECTED_EOF_WHILE_READING;
    error_ = take_error_text();
    return cut_off ? Read::cut_off : Read::failed;
  }
}

bool TlsSession::write(std::string_view bytes) {
  ERR_clear_error();
  if (bytes.empty() || SSL_write(session_.get(), bytes.data(), static_cast<int>(bytes.size())) > 0) return true;
  error_ = take_error_text();
  return false;
}

void TlsSession::write_close_notify() {
  ERR_clear_error();
  SSL_shutdown(session_.get());
  ERR_clear_error();
}

TlsInfo TlsSession::info() const {
  TlsInfo info;
  info.active = true;
  info.version = SSL_get_version(session_.get());
  if (const char* name = SSL_get_servername(session_.get(), TLSEXT_NAMETYPE_host_name)) info.server_name = name;
  info.session_reused = SSL_session_reused(session_.get()) == 1;
  if (const X509* certificate = SSL_get0_peer_certificate(session_.get())) {
    const std::unique_ptr<BIO, decltype(&BIO_free_all)> text(BIO_new(BIO_s_mem()), BIO_free_all);
    X509_NAME_print_ex(text.get(), X509_get_subject_name(certificate), 0, XN_FLAG_RFC2253);
    info.peer_subject = drain(text.get());
  }
  return info;
}

}  // namespace yinet::test
