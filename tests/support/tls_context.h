// TLS for peers that are written byte by byte: an OpenSSL context, and a session without a socket.
#pragma once

#include <filesystem>
#include <memory>
#include <string>
#include <string_view>

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
  std::string server_name = {};        // sent as SNI when not empty
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
  [[nodiscard]] bool is_server() const { return is_server_; }
  [[nodiscard]] const std::string& server_name() const { return server_name_; }

 private:
  TlsContext(const TlsVersion& version, bool is_server);
  std::shared_ptr<ssl_ctx_st> context_;
  bool is_server_;
  std::string server_name_;
};

// What a finished handshake has settled.
struct TlsInfo {
  bool active = false;
  std::string version;      // "TLSv1.3"
  std::string server_name;  // SNI as the client sent it, or empty
  bool session_reused = false;
  std::string peer_subject;  // of the other side's certificate, one line; empty without one
};

// One TLS session between bytes from the wire and bytes for the wire. Does no I/O. Not thread-safe.
class TlsSession {
 public:
  explicit TlsSession(const TlsContext& context);

  void take(std::string_view from_wire);
  void take_end();         // the wire has ended
  std::string for_wire();  // what must be sent now; each byte is handed out once

  enum class Progress { done, needs_input, failed };
  Progress handshake();

  // Appends all application bytes that have arrived whole.
  enum class Read { open, closed_in_order, cut_off, failed };
  Read read(std::string& into);

  bool write(std::string_view bytes);
  void write_close_notify();

  [[nodiscard]] TlsInfo info() const;
  [[nodiscard]] const std::string& error() const { return error_; }  // of the last failure

 private:
  struct Free {
    void operator()(ssl_st* session) const;
  };
  TlsContext context_;
  std::unique_ptr<ssl_st, Free> session_;
  std::string error_;
};

}  // namespace yinet::test
