// Certificates made in the test process, as PEM files, and TLS contexts that use them. What fails in OpenSSL throws
// std::runtime_error.
#pragma once

#include <openssl/types.h>

#include <chrono>
#include <memory>
#include <mutex>

#include "support/temp_dir.h"

namespace yinet::test {

struct PemPair {
  std::filesystem::path certificate, key, both;  // the last: key and certificate in one file
};

// What a certificate is to say. The defaults make one that every client accepts for this machine.
struct CertificateWish {
  std::string common_name = "localhost";  // any bytes; those above 127 count as Latin-1
  std::string names = "DNS:localhost,IP:127.0.0.1,IP:::1";
  std::chrono::hours valid_from{-1}, valid_until{24};  // counted from now
  bool self_signed = false;
  std::string key_password = {};  // encrypts the key file
};

// A certificate authority and what it has signed, all in a private folder that lives as long as the process. Each is
// made when first asked for. Thread-safe.
class Certificates {
 public:
  static const Certificates& shared();

  [[nodiscard]] std::filesystem::path ca_file() const { return folder_ / "ca.pem"; }
  // The authority's certificate as OpenSSL looks it up, under the name of its subject's hash.
  [[nodiscard]] std::filesystem::path ca_folder() const { return folder_ / "ca"; }

  [[nodiscard]] PemPair good() const { return make("good", {}); }
  [[nodiscard]] PemPair self_signed() const { return make("self-signed", {.self_signed = true}); }
  [[nodiscard]] PemPair client() const { return make("client", {.common_name = "Test Client"}); }
  // Files named `name`.pem and so on; a name is made only once.
  [[nodiscard]] PemPair make(const std::string& name, const CertificateWish& wish) const;

 private:
  Certificates();

  TempDir folder_{"certificates"};
  // Of the authority; none before the first certificate, which is its own.
  mutable std::shared_ptr<EVP_PKEY> key_;
  mutable std::shared_ptr<X509> certificate_;
  mutable std::mutex mutex_;  // of make()
};

enum class TlsVersion { any, tls11, tls12, tls13 };  // tls11 lowers the security level to 0

struct TlsServerOptions {
  TlsVersion version = TlsVersion::any;
  std::filesystem::path client_ca = {};  // not empty: a client without a certificate signed by it is refused
};

// Copies share one context, and connections made with one context can resume each other's sessions. Thread-safe.
class TlsContext {
 public:
  static TlsContext server() { return server(Certificates::shared().good()); }
  static TlsContext server(const PemPair& certificate, const TlsServerOptions& options = {});
  // Verifies the server with `ca_file`, and shows `own`, unless they are empty.
  static TlsContext client(const std::filesystem::path& ca_file = {}, TlsVersion version = TlsVersion::any,
                           const PemPair& own = {});

  [[nodiscard]] std::shared_ptr<SSL> new_session() const;

 private:
  TlsContext(SSL_CTX* context, TlsVersion version, const PemPair& own, const std::filesystem::path& ca_file);
  std::shared_ptr<SSL_CTX> context_;
};

std::string take_openssl_error();  // of this thread's last failure

}  // namespace yinet::test
