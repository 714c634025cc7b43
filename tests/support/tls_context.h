// TLS for peers that are written byte by byte: OpenSSL contexts, and sessions that exchange bytes with memory.
#pragma once

#include <filesystem>
#include <memory>
#include <string>

#include "support/certificates.h"

struct ssl_ctx_st;  // OpenSSL's SSL_CTX and SSL
struct ssl_st;

namespace yinet::test {

enum class TlsVersion { any, tls11, tls12, tls13 };  // tls11 lowers the security level to 0

struct TlsServerOptions {
  TlsVersion version = TlsVersion::any;
  std::filesystem::path client_ca = {};  // not empty: a client without a certificate signed by it is refused
};

struct TlsClientOptions {
  TlsVersion version = TlsVersion::any;
  std::filesystem::path ca_file = {};  // not empty: the server's certificate is verified with it
  PemPair certificate = {};            // the client's own, when its paths are not empty
};

// Copies share one context, and connections made with one context can resume each other's sessions.
// Thread-safe once made.
class TlsContext {
 public:
  // All throw std::runtime_error, for unreadable files above all.
  static TlsContext server();  // with the shared good certificate
  static TlsContext server(const PemPair& certificate, const TlsServerOptions& options = {});
  static TlsContext client(const TlsClientOptions& options = {});

  [[nodiscard]] ssl_ctx_st* get() const { return context_.get(); }

 private:
  explicit TlsContext(ssl_ctx_st* context, TlsVersion version);
  std::shared_ptr<ssl_ctx_st> context_;
};

struct FreeTlsSession {
  void operator()(ssl_st* session) const;
};
using TlsSession = std::unique_ptr<ssl_st, FreeTlsSession>;
TlsSession new_session(const TlsContext& context);  // both of its BIOs are memory

// What a finished handshake has settled.
struct TlsInfo {
  bool active = false;
  std::string server_name;  // SNI as the client sent it, or empty
  bool session_reused = false;
  std::string peer_subject;  // of the other side's certificate, one line; empty without one
};
TlsInfo info_of(const ssl_st* session);

std::string take_openssl_error();                        // of this thread's last failure
void require_openssl(bool ok, const std::string& step);  // throws std::runtime_error with it

}  // namespace yinet::test
