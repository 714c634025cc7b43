#include "support/certificates.h"

#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/rand.h>
#include <openssl/ssl.h>
#include <openssl/x509v3.h>

#include <array>

namespace yinet::test {
namespace fs = std::filesystem;

namespace {

void require_openssl(bool ok, const std::string& step) {
  if (!ok) throw std::runtime_error(step + ": " + take_openssl_error());
}

void add_extension(X509* certificate, X509* issuer, int kind, const std::string& value) {
  X509V3_CTX context;
  X509V3_set_ctx_nodb(&context);
  X509V3_set_ctx(&context, issuer, certificate, nullptr, nullptr, 0);
  const std::shared_ptr<X509_EXTENSION> extension(X509V3_EXT_conf_nid(nullptr, &context, kind, value.c_str()),
                                                  X509_EXTENSION_free);
  require_openssl(extension && X509_add_ext(certificate, extension.get(), -1) == 1, "add an extension");
}

}  // namespace

PemPair Certificates::make(const std::string& name, const CertificateWish& wish) const {
  const std::lock_guard lock(mutex_);
  const PemPair pair{folder_ / (name + ".pem"), folder_ / (name + ".key"), folder_ / (name + ".both.pem")};
  if (fs::exists(pair.both)) return pair;
  const std::shared_ptr<EVP_PKEY> own_key(EVP_PKEY_Q_keygen(nullptr, nullptr, "EC", "P-256"), EVP_PKEY_free);
  const std::shared_ptr<X509> made(X509_new(), X509_free);
  X509* const subject = made.get();
  const bool authority = !certificate_, self_signed = wish.self_signed || authority;
  X509* const issuer = self_signed ? subject : certificate_.get();
  std::uint64_t serial = 0;
  require_openssl(own_key && made && RAND_bytes(reinterpret_cast<unsigned char*>(&serial), 7) == 1, "start");
  X509_set_version(subject, X509_VERSION_3);
  ASN1_INTEGER_set_uint64(X509_get_serialNumber(subject), serial);
  X509_gmtime_adj(X509_getm_notBefore(subject), std::chrono::seconds(wish.valid_from).count());
  X509_gmtime_adj(X509_getm_notAfter(subject), std::chrono::seconds(wish.valid_until).count());
  // As T61String any byte is valid; as other strings OpenSSL would refuse what a hostile name holds.
  X509_NAME_add_entry_by_NID(X509_get_subject_name(subject), NID_commonName, V_ASN1_T61STRING,
                             reinterpret_cast<const unsigned char*>(wish.common_name.data()),
                             static_cast<int>(wish.common_name.size()), -1, 0);
  X509_set_issuer_name(subject, X509_get_subject_name(issuer));
  X509_set_pubkey(subject, own_key.get());
  add_extension(subject, issuer, NID_basic_constraints, authority ? "critical,CA:TRUE" : "critical,CA:FALSE");
  add_extension(subject, issuer, NID_subject_alt_name, wish.names);
  require_openssl(X509_sign(subject, (self_signed ? own_key : key_).get(), EVP_sha256()) > 0, "sign");

  const std::string& password = wish.key_password;
  const EVP_CIPHER* const cipher = password.empty() ? nullptr : EVP_aes_256_cbc();
  const std::shared_ptr<BIO> certificate_file(BIO_new_file(pair.certificate.c_str(), "w"), BIO_free);
  const std::shared_ptr<BIO> key_file(BIO_new_file(pair.key.c_str(), "w"), BIO_free);
  const auto size = static_cast<int>(password.size());
  require_openssl(PEM_write_bio_X509(certificate_file.get(), subject) == 1 &&
                      PEM_write_bio_PKCS8PrivateKey(key_file.get(), own_key.get(), cipher, password.data(), size,
                                                    nullptr, nullptr) == 1,
                  "write " + name);
  static_cast<void>(BIO_flush(certificate_file.get()) + BIO_flush(key_file.get()));
  write_file(pair.both, read_file(pair.key) + read_file(pair.certificate));
  for (const fs::path& file : {pair.key, pair.both})
    fs::permissions(file, fs::perms::owner_read | fs::perms::owner_write);  // servers insist
  if (authority) {
    key_ = own_key;
    certificate_ = made;
  }
  return pair;
}

Certificates::Certificates() {
  const PemPair own = make("ca", {.common_name = "CA"});
  std::array<char, 16> hash{};
  std::snprintf(hash.data(), hash.size(), "%08lx.0", X509_NAME_hash(X509_get_subject_name(certificate_.get())));
  fs::copy_file(own.certificate, folder_.make_folder("ca") / hash.data());
}

const Certificates& Certificates::shared() {
  static const Certificates instance;
  return instance;
}

TlsContext::TlsContext(SSL_CTX* context, TlsVersion version, const PemPair& own, const fs::path& ca_file)
    : context_(context, SSL_CTX_free) {
  bool good = context != nullptr;
  if (!own.certificate.empty())
    good = good && SSL_CTX_use_certificate_chain_file(context, own.certificate.c_str()) == 1 &&
           SSL_CTX_use_PrivateKey_file(context, own.key.c_str(), SSL_FILETYPE_PEM) == 1;
  if (!ca_file.empty()) {
    good = good && SSL_CTX_load_verify_locations(context, ca_file.c_str(), nullptr) == 1;
    SSL_CTX_set_verify(context, SSL_VERIFY_PEER | SSL_VERIFY_FAIL_IF_NO_PEER_CERT, nullptr);
  }
  require_openssl(good, "TLS context for " + own.certificate.string());
  SSL_CTX_set_mode(context, SSL_MODE_ENABLE_PARTIAL_WRITE | SSL_MODE_ACCEPT_MOVING_WRITE_BUFFER);
  // Without a scope of its own a session that holds a client certificate can't be resumed.
  constexpr unsigned char kSessionScope[] = "yinet-test";
  SSL_CTX_set_session_id_context(context, kSessionScope, sizeof(kSessionScope));
  if (version == TlsVersion::any) return;
  const int number = TLS1_1_VERSION + static_cast<int>(version) - static_cast<int>(TlsVersion::tls11);
  if (version == TlsVersion::tls11) SSL_CTX_set_cipher_list(context, "ALL:@SECLEVEL=0");
  SSL_CTX_set_min_proto_version(context, number);
  SSL_CTX_set_max_proto_version(context, number);
}

TlsContext TlsContext::server(const PemPair& certificate, const TlsServerOptions& options) {
  return {SSL_CTX_new(TLS_server_method()), options.version, certificate, options.client_ca};
}

TlsContext TlsContext::client(const fs::path& ca_file, TlsVersion version, const PemPair& own) {
  return {SSL_CTX_new(TLS_client_method()), version, own, ca_file};
}

std::shared_ptr<SSL> TlsContext::new_session() const { return {SSL_new(context_.get()), SSL_free}; }

std::string take_openssl_error() {
  std::array<char, 256> text{};
  ERR_error_string_n(ERR_peek_last_error(), text.data(), text.size());
  ERR_clear_error();
  return text.data();
}

}  // namespace yinet::test
