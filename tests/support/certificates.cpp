#include "support/certificates.h"

#include <openssl/bio.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/rand.h>
#include <openssl/x509v3.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <map>
#include <mutex>

#include "support/temp_dir.h"
#include "support/tls_context.h"

namespace yinet::test {
namespace fs = std::filesystem;
using std::chrono::hours;

namespace {

template <auto Free>
struct Deleter {
  template <class T>
  void operator()(T* object) const {
    Free(object);
  }
};
using Key = std::unique_ptr<EVP_PKEY, Deleter<EVP_PKEY_free>>;
using Certificate = std::unique_ptr<X509, Deleter<X509_free>>;
using Bio = std::unique_ptr<BIO, Deleter<BIO_free_all>>;
using Extension = std::unique_ptr<X509_EXTENSION, Deleter<X509_EXTENSION_free>>;

// The bytes go in unchecked: OpenSSL's own functions for names would refuse what a hostile one holds.
void add_to_name(X509_NAME* name, int field, const std::string& value) {
  if (value.empty()) return;
  // Names are compared in a form that only valid text has; as T61String any byte is valid.
  const bool ascii = std::all_of(value.begin(), value.end(), [](char byte) { return (byte & 0x80) == 0; });
  require_openssl(X509_NAME_add_entry_by_NID(name, field, ascii ? V_ASN1_UTF8STRING : V_ASN1_T61STRING,
                                             reinterpret_cast<const unsigned char*>(value.data()),
                                             static_cast<int>(value.size()), -1, 0) == 1,
                  "add to a name");
}

void add_extension(X509* certificate, X509* issuer, int kind, const std::string& value) {
  if (value.empty()) return;
  X509V3_CTX context;
  X509V3_set_ctx_nodb(&context);
  X509V3_set_ctx(&context, issuer, certificate, nullptr, nullptr, 0);
  const Extension extension(X509V3_EXT_conf_nid(nullptr, &context, kind, value.c_str()));
  require_openssl(extension && X509_add_ext(certificate, extension.get(), -1) == 1, "add an extension");
}

void write_pem(const fs::path& file, EVP_PKEY* key, const std::string& password, X509* certificate) {
  const Bio out(BIO_new_file(file.c_str(), "w"));
  const EVP_CIPHER* cipher = password.empty() ? nullptr : EVP_aes_256_cbc();
  bool good = out != nullptr;
  if (key != nullptr)
    good = good && PEM_write_bio_PKCS8PrivateKey(out.get(), key, cipher, password.data(),
                                                 static_cast<int>(password.size()), nullptr, nullptr) == 1;
  if (certificate != nullptr) good = good && PEM_write_bio_X509(out.get(), certificate) == 1;
  require_openssl(good, "write " + file.string());
  fs::permissions(file, fs::perms::owner_read | fs::perms::owner_write);  // servers insist for keys
}

}  // namespace

struct Certificates::Authority {
  PemPair store(const std::string& name, const CertificateWish& wish);

  TempDir folder{"certificates"};
  Key key;  // of the authority; none before the first certificate, which is its own
  Certificate certificate;
  std::mutex mutex;  // guards made
  std::map<std::string, PemPair> made;
};

PemPair Certificates::Authority::store(const std::string& name, const CertificateWish& wish) {
  Key own_key(wish.rsa ? EVP_PKEY_Q_keygen(nullptr, nullptr, "RSA", std::size_t{2048})
                       : EVP_PKEY_Q_keygen(nullptr, nullptr, "EC", "P-256"));
  Certificate made_now(X509_new());
  X509* const subject = made_now.get();
  X509* const issuer = wish.self_signed ? subject : certificate.get();
  std::uint64_t serial = 0;
  require_openssl(own_key && subject && RAND_bytes(reinterpret_cast<unsigned char*>(&serial), 7) == 1, "start a certificate");
  X509_set_version(subject, X509_VERSION_3);
  ASN1_INTEGER_set_uint64(X509_get_serialNumber(subject), serial);
  X509_gmtime_adj(X509_getm_notBefore(subject), std::chrono::seconds(wish.valid_from).count());
  X509_gmtime_adj(X509_getm_notAfter(subject), std::chrono::seconds(wish.valid_until).count());
  add_to_name(X509_get_subject_name(subject), NID_organizationName, wish.organization);
  add_to_name(X509_get_subject_name(subject), NID_commonName, wish.common_name);
  X509_set_issuer_name(subject, X509_get_subject_name(issuer));
  X509_set_pubkey(subject, own_key.get());
  add_extension(subject, issuer, NID_basic_constraints, wish.authority ? "critical,CA:TRUE" : "critical,CA:FALSE");
  add_extension(subject, issuer, NID_subject_key_identifier, "hash");
  add_extension(subject, issuer, NID_ext_key_usage, wish.usage);
  add_extension(subject, issuer, NID_subject_alt_name, wish.names);
  require_openssl(X509_sign(subject, (wish.self_signed ? own_key : key).get(), EVP_sha256()) > 0, "sign a certificate");

  const PemPair pair{folder / (name + ".pem"), folder / (name + ".key"), folder / (name + ".both.pem")};
  write_pem(pair.certificate, nullptr, {}, subject);
  write_pem(pair.key, own_key.get(), wish.key_password, nullptr);
  write_pem(pair.both, own_key.get(), wish.key_password, subject);
  if (wish.authority) {
    key = std::move(own_key);
    certificate = std::move(made_now);
  }
  return pair;
}

Certificates::Certificates() : authority_(std::make_unique<Authority>()) {
  const PemPair own = make("ca", {.common_name = "YInet Test CA",
                                  .names = {},
                                  .valid_from = hours(-48),
                                  .valid_until = hours(48),
                                  .usage = {},
                                  .self_signed = true,
                                  .authority = true});
  std::array<char, 16> hash{};
  std::snprintf(hash.data(), hash.size(), "%08lx.0", X509_NAME_hash(X509_get_subject_name(authority_->certificate.get())));
  fs::copy_file(own.certificate, authority_->folder.make_folder("ca") / hash.data());
}

Certificates::~Certificates() = default;

const Certificates& Certificates::shared() {
  static const Certificates instance;
  return instance;
}

fs::path Certificates::ca_file() const { return authority_->folder / "ca.pem"; }
fs::path Certificates::ca_folder() const { return authority_->folder / "ca"; }

PemPair Certificates::make(const std::string& name, const CertificateWish& wish) const {
  const std::lock_guard lock(authority_->mutex);
  const auto [place, is_new] = authority_->made.try_emplace(name);
  if (is_new) place->second = authority_->store(name, wish);
  return place->second;
}

PemPair Certificates::wrong_name() const {
  return make("wrong-name", {.common_name = "other.example", .names = "DNS:other.example,IP:127.0.0.99"});
}

PemPair Certificates::expired() const {
  return make("expired", {.valid_from = hours(-24), .valid_until = hours(-1)});
}

PemPair Certificates::not_yet_valid() const {
  return make("not-yet-valid", {.valid_from = hours(24), .valid_until = hours(48)});
}

PemPair Certificates::client() const {
  return make("client", {.common_name = "Test Client", .names = {}, .usage = "clientAuth"});
}

PemPair Certificates::hostile_subject() const {
  using namespace std::string_literals;
  return make("hostile-subject", {.common_name = "evil\r\nERROR forged line\n\x1B[31mred\0hidden"s,
                                  .organization = "Organ\tisation\r\x07\x9B\xE4\xFF",
                                  .self_signed = true});
}

}  // namespace yinet::test
