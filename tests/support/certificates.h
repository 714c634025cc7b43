// Certificates made in the test process, as PEM files. Keys are on the curve P-256, so a certificate
// costs about a millisecond.
#pragma once

#include <chrono>
#include <filesystem>
#include <memory>
#include <string>

namespace yinet::test {

struct PemPair {
  std::filesystem::path certificate;
  std::filesystem::path key;
  std::filesystem::path both;  // key and certificate in one file
};

// What a certificate is to say. The defaults make one that every client accepts for this machine.
struct CertificateWish {
  std::string common_name = "localhost";  // any bytes; those above 127 count as Latin-1
  std::string organization = {};          // left out when empty; any bytes as well
  std::string names = "DNS:localhost,IP:127.0.0.1,IP:::1";   // left out when empty
  std::chrono::hours valid_from = std::chrono::hours(-1);  // both counted from now
  std::chrono::hours valid_until = std::chrono::hours(24);
  std::string usage = "serverAuth";
  bool self_signed = false;
  bool authority = false;
  bool rsa = false;               // a key of 2048 bits, about 0.1 s: for servers that take nothing else
  std::string key_password = {};  // encrypts the key file
};

// A certificate authority and what it has signed, all in a private folder that lives as long as the process. Each is
// made when first asked for. Thread-safe.
class Certificates {
 public:
  static const Certificates& shared();
  Certificates(const Certificates&) = delete;
  Certificates& operator=(const Certificates&) = delete;
  ~Certificates();

  [[nodiscard]] std::filesystem::path ca_file() const;
  // The authority's certificate as OpenSSL looks it up, under the name of its subject's hash.
  [[nodiscard]] std::filesystem::path ca_folder() const;

  [[nodiscard]] PemPair good() const { return make("good", {}); }
  [[nodiscard]] PemPair self_signed() const { return make("self-signed", {.self_signed = true}); }
  [[nodiscard]] PemPair wrong_name() const;     // other.example and 127.0.0.99
  [[nodiscard]] PemPair expired() const;        // since an hour
  [[nodiscard]] PemPair not_yet_valid() const;  // only from tomorrow on
  [[nodiscard]] PemPair client() const;         // CN=Test Client
  // Self-signed; CR, LF, NUL, escape sequences and 8-bit bytes in common name and organisation.
  [[nodiscard]] PemPair hostile_subject() const;

  // Files named `name`.pem and so on; a name is made only once.
  [[nodiscard]] PemPair make(const std::string& name, const CertificateWish& wish) const;

 private:
  Certificates();
  struct Authority;
  std::unique_ptr<Authority> authority_;
};

}  // namespace yinet::test
