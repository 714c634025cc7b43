#include "yinet/net/certificate_info.h"

#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include <array>
#include <string_view>

#include "yinet/host/codepage.h"
#include "yinet/host/text.h"
#include "yinet/net/openssl_handles.h"

namespace yinet {
namespace {

constexpr std::size_t kLongestValue = 1024;  // of one field in the text; names in a certificate have no limit

class TextBio {
 public:
  BIO* get() const { return bio_.get(); }
  std::string text() const {
    char* bytes = nullptr;
    const long count = BIO_get_mem_data(bio_.get(), &bytes);
    std::string_view text(bytes, count > 0 ? static_cast<std::size_t>(count) : 0);
    const bool cut = text.size() > kLongestValue;
    return printable(ansi_from_utf8_lossy(text.substr(0, kLongestValue))) + (cut ? "..." : "");
  }

 private:
  BioHandle bio_{BIO_new(BIO_s_mem())};
};

// Separators inside values are escaped; control characters are left to printable().
constexpr unsigned long kNameFlags =
    XN_FLAG_SEP_CPLUS_SPC | XN_FLAG_SPC_EQ | XN_FLAG_FN_SN | ASN1_STRFLGS_UTF8_CONVERT | ASN1_STRFLGS_ESC_2253;

std::string name_text(const X509_NAME* name) {
  TextBio out;
  X509_NAME_print_ex(out.get(), name, 0, kNameFlags);
  return out.text();
}

std::string time_text(const ASN1_TIME* time) {
  TextBio out;
  ASN1_TIME_print(out.get(), time);
  return out.text();
}

std::string serial_text(const X509* certificate) {
  TextBio out;
  i2a_ASN1_INTEGER(out.get(), X509_get0_serialNumber(certificate));
  return out.text();
}

std::string alternative_names(const X509* certificate) {
  const int position = X509_get_ext_by_NID(certificate, NID_subject_alt_name, -1);
  if (position < 0) return "none";
  TextBio out;
  X509V3_EXT_print(out.get(), X509_get_ext(certificate, position), 0, 0);
  return out.text();
}

std::string fingerprint(const X509* certificate) {
  std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
  unsigned int size = 0;
  if (X509_digest(certificate, EVP_sha256(), digest.data(), &size) != 1) return "unknown";
  constexpr std::string_view kDigits = "0123456789ABCDEF";
  std::string text;
  for (unsigned int i = 0; i < size; ++i) {
    if (i > 0) text += ':';
    text += kDigits[digest[i] >> 4];
    text += kDigits[digest[i] & 15];
  }
  return text;
}

}  // namespace

std::string describe_certificate(X509* certificate) {
  if (certificate == nullptr) return {};
  const std::string description =
      formatted("subject: $1$; issuer: $2$; names: $3$; valid from $4$ to $5$; serial number: $6$; SHA-256: $7$",
                name_text(X509_get_subject_name(certificate)), name_text(X509_get_issuer_name(certificate)),
                alternative_names(certificate), time_text(X509_get0_notBefore(certificate)),
                time_text(X509_get0_notAfter(certificate)), serial_text(certificate), fingerprint(certificate));
  ERR_clear_error();  // a field that cannot be printed stays empty and is no error of the connection
  return description;
}

}  // namespace yinet
