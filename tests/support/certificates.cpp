#include "support/certificates.h"

#include <openssl/bio.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/rand.h>
#include <openssl/x509v3.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <map>
#include <mutex>
#include <stdexcept>

namespace yinet::test {
namespace fs = std::filesystem;

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

void require(bool ok, const char* step) {
  if (ok) return;
  std::array<char, 256> text{};
  ERR_error_string_n(ERR_peek_last_error(), text.data(), text.size());
  ERR_clear_error();
  throw std::runtime_error(std::string(step) + ": " + text.data());
}

Key make_key(bool rsa) {
  Key key(rsa ? EVP_PKEY_Q_keygen(nullptr, nullptr, "RSA", std::size_t{2048})
              : EVP_PKEY_Q_keygen(nullptr, nullptr, "EC", "P-256"));
  require(key != nullptr, "make a key");
  return key;
}

// The bytes go in unchecked: OpenSSL's own functions for names would refuse what a hostile one holds.
void add_to_name(X509_NAME* name, int field, const std::string& value) {
  if (value.empty()) return;
  // Names are compared in a form that only valid text has; as T61String any byte is valid.
  const bool ascii = std::all_of(value.begin(), value.end(), [](char byte) { return (byte & 0x80) == 0; });
  require(X509_NAME_add_entry_by_NID(name, field, ascii ? V_ASN1_UTF8STRING : V_ASN1_T61STRING,
                                     reinterpret_cast<const unsigned char*>(value.data()),
                                     static_cast<int>(value.size()), -1, 0) == 1,
          "add to a name");
}

void add_extension(X509* certificate, X509* issuer, int kind, const std::string& value) {
  X509V3_CTX context;
  X509V3_set_ctx_nodb(&context);
  X509V3_set_ctx(&context, issuer, certificate, nullptr, nullptr, 0);
  const Extension extension(X509V3_EXT_conf_nid(nullptr, &context, kind, value.c_str()));
  require(extension != nullptr, "make an extension");
  require(X509_add_ext(certificate, extension.get(), -1) == 1, "add an extension");
}

std::string alternative_names(const CertificateWish& wish) {
  std::string list;
  for (const std::string& name : wish.dns_names) list += (list.empty() ? "DNS:" : ",DNS:") + name;
  for (const std::string& address : wish.addresses) list += (list.empty() ? "IP:" : ",IP:") + address;
  return list;
}

Certificate start_certificate(EVP_PKEY* key, std::chrono::seconds from, std::chrono::seconds until) {
  Certificate certificate(X509_new());
  require(certificate != nullptr, "make a certificate");
  std::array<unsigned char, 8> serial{};
  require(RAND_bytes(serial.data(), serial.size()) == 1, "make a serial number");
  serial[0] = 1;  // positive and of full length
  const std::unique_ptr<BIGNUM, Deleter<BN_free>> number(BN_bin2bn(serial.data(), serial.size(), nullptr));
  X509_set_version(certificate.get(), X509_VERSION_3);
  BN_to_ASN1_INTEGER(number.get(), X509_get_serialNumber(certificate.get()));
  X509_gmtime_adj(X509_getm_notBefore(certificate.get()), from.count());
  X509_gmtime_adj(X509_getm_notAfter(certificate.get()), until.count());
  require(X509_set_pubkey(certificate.get(), key) == 1, "set the public key");
  return certificate;
}

void sign(X509* certificate, EVP_PKEY* key) {
  require(X509_sign(certificate, key, EVP_sha256()) > 0, "sign a certificate");
}

std::string bytes_of(BIO* memory) {
  char* data = nullptr;
  const long size = BIO_get_mem_data(memory, &data);
  return {data, static_cast<std::size_t>(size)};
}

std::string pem_of(X509* certificate) {
  const Bio memory(BIO_new(BIO_s_mem()));
  require(PEM_write_bio_X509(memory.get(), certificate) == 1, "write a certificate");
  return bytes_of(memory.get());
}

std::string pem_of(EVP_PKEY* key, const std::string& password) {
  const Bio memory(BIO_new(BIO_s_mem()));
  const EVP_CIPHER* cipher = password.empty() ? nullptr : EVP_aes_256_cbc();
  require(PEM_write_bio_PKCS8PrivateKey(memory.get(), key, cipher, password.data(), static_cast<int>(password.size()),
                                        nullptr, nullptr) == 1,
          "write a key");
  return bytes_of(memory.get());
}

}  // namespace

struct Certificates::Authority {
  TempDir folder{"certificates"};
  Key key;
  Certificate certificate;
  fs::path file;
  fs::path hashed_folder;
  std::mutex mutex;  // guards made
  std::map<std::string, PemPair> made;

  Certificate issue(const CertificateWish& wish, EVP_PKEY* subject_key) const;
  PemPair store(const std::string& name, const CertificateWish& wish) const;
};

Certificate Certificates::Authority::issue(const CertificateWish& wish, EVP_PKEY* subject_key) const {
  Certificate made_now = start_certificate(subject_key, wish.valid_from, wish.valid_until);
  X509* const subject = made_now.get();
  X509* const issuer = wish.self_signed ? subject : certificate.get();
  add_to_name(X509_get_subject_name(subject), NID_organizationName, wish.organization);
  add_to_name(X509_get_subject_name(subject), NID_commonName, wish.common_name);
  require(X509_set_issuer_name(subject, X509_get_subject_name(issuer)) == 1, "set the issuer");
  add_extension(subject, issuer, NID_basic_constraints, "critical,CA:FALSE");
  add_extension(subject, issuer, NID_ext_key_usage, wish.for_client ? "clientAuth" : "serverAuth");
  add_extension(subject, issuer, NID_subject_key_identifier, "hash");
  const std::string names = alternative_names(wish);
  if (!names.empty()) add_extension(subject, issuer, NID_subject_alt_name, names);
  sign(subject, wish.self_signed ? subject_key : key.get());
  return made_now;
}

PemPair Certificates::Authority::store(const std::string& name, const CertificateWish& wish) const {
  const Key subject_key = make_key(wish.rsa);
  const Certificate subject = issue(wish, subject_key.get());
  const std::string certificate_pem = pem_of(subject.get());
  const std::string key_pem = pem_of(subject_key.get(), wish.key_password);
  PemPair pair{folder / (name + ".pem"), folder / (name + ".key"), folder / (name + ".both.pem")};
  write_file(pair.certificate, certificate_pem);
  write_file(pair.key, key_pem);
  write_file(pair.both, key_pem + certificate_pem);
  for (const fs::path& secret : {pair.key, pair.both})  // sshd and others insist
    fs::permissions(secret, fs::perms::owner_read | fs::perms::owner_write);
  return pair;
}

Certificates::Certificates() : authority_(std::make_unique<Authority>()) {
  Authority& it = *authority_;
  it.key = make_key(false);
  it.certificate = start_certificate(it.key.get(), std::chrono::hours(-48), std::chrono::hours(48));
  X509* const self = it.certificate.get();
  add_to_name(X509_get_subject_name(self), NID_commonName, "YInet Test CA");
  require(X509_set_issuer_name(self, X509_get_subject_name(self)) == 1, "set the issuer");
  add_extension(self, self, NID_basic_constraints, "critical,CA:TRUE");
  add_extension(self, self, NID_key_usage, "critical,keyCertSign,cRLSign");
  add_extension(self, self, NID_subject_key_identifier, "hash");
  sign(self, it.key.get());
  it.file = it.folder.write("ca.pem", pem_of(self));
  it.hashed_folder = it.folder.make_folder("ca");
  std::array<char, 16> hash{};
  std::snprintf(hash.data(), hash.size(), "%08lx.0", X509_NAME_hash(X509_get_subject_name(self)));
  fs::copy_file(it.file, it.hashed_folder / hash.data());
}

Certificates::~Certificates() = default;

const Certificates& Certificates::shared() {
  static const Certificates instance;
  return instance;
}

const fs::path& Certificates::ca_file() const { return authority_->file; }
const fs::path& Certificates::ca_folder() const { return authority_->hashed_folder; }

PemPair Certificates::make(const std::string& name, const CertificateWish& wish) const {
  const std::lock_guard lock(authority_->mutex);
  const auto known = authority_->made.find(name);
  if (known != authority_->made.end()) return known->second;
  return authority_->made[name] = authority_->store(name, wish);
}

PemPair Certificates::good() const { return make("good", {}); }

PemPair Certificates::self_signed() const { return make("self-signed", {.self_signed = true}); }

PemPair Certificates::wrong_name() const {
  return make("wrong-name",
              {.common_name = "other.example", .dns_names = {"other.example"}, .addresses = {"127.0.0.99"}});
}

PemPair Certificates::expired() const {
  return make("expired", {.valid_from = std::chrono::hours(-24), .valid_until = std::chrono::hours(-1)});
}

PemPair Certificates::not_yet_valid() const {
  return make("not-yet-valid", {.valid_from = std::chrono::hours(24), .valid_until = std::chrono::hours(48)});
}

PemPair Certificates::client() const {
  return make("client", {.common_name = "Test Client", .dns_names = {}, .addresses = {}, .for_client = true});
}

PemPair Certificates::hostile_subject() const {
  using namespace std::string_literals;
  return make("hostile-subject", {.common_name = "evil\r\nERROR forged line\n\x1B[31mred\0hidden"s,
                                  .organization = "Organ\tisation\r\x07\x9B\xE4\xFF",
                                  .self_signed = true});
}

}  // namespace yinet::test
