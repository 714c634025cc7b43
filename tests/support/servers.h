// Real servers on loopback, each started with a configuration of its own in a private folder and ended with its object.
// Constructors return when the server serves; they throw std::runtime_error with its output and log when it doesn't.
// `missing` says why a server can't run here; the others need YINET_REQUIRE_PROGRAM.
#pragma once

#include <functional>
#include <ostream>

#include "support/certificates.h"
#include "support/child_process.h"

namespace yinet::test {

// How a program becomes a server. In both texts "{NAME}" stands for a value: {DIR} its private folder, {CONFIG} the file
// with the configuration, {PORT}, {PORT2} and {LAST} of its ports the first, the second and the last, {CERT}, {KEY} and
// {PEM} the shared good certificate; and whatever `values` adds.
struct Daemon {
  std::string command;  // words between blanks; keeps it in the foreground
  std::string configuration = {};
  std::map<std::string, std::string> values = {};
  std::size_t ports = 1;  // in a row, passive ranges included
  // Whether it serves, judged by its first port and what it has said; unless given, whether that port is open.
  std::function<bool(std::uint16_t, const std::string&)> ready = {};
};

class ServerProcess {
 public:
  [[nodiscard]] std::uint16_t port(std::size_t index = 0) const { return (*ports_)[index]; }
  [[nodiscard]] std::string address() const { return "127.0.0.1:" + std::to_string(port()); }
  void stop() { child_->stop(); }  // in mid-test: what it served is gone, its ports stay reserved

 protected:
  explicit ServerProcess(std::string_view name) : folder_(name) {}
  void start(const Daemon& daemon);  // with other ports again, should one of them have been taken meanwhile
  TempDir folder_;

 private:
  bool serves(const Daemon& daemon);
  std::optional<ReservedPorts> ports_;
  std::optional<ChildProcess> child_;
};

// nginx for any user, with two ports that serve the same, in clear and over TLS.
//   /NAME           the document of that name; "/" is kIndex
//   /chunked/NAME   the same as a chunked body; /post/NAME: also for POST; /fault/NAME: with status 500 (for POST)
//   /status/401     that code; /redirect/301 and 302: to /hello.txt, as an absolute URL
//   /empty          200 with Content-Length 0; /cookies: 200 with three Set-Cookie lines
//   /echo           the body of the request, in chunks; /request: its head as it came; both and /chunked need has_echo()
class NginxServer : public ServerProcess {
 public:
  static constexpr std::string_view kIndex = "<html><body>It serves.</body></html>\n";
  static constexpr std::string_view kHello = "Hello from nginx\n";  // the document hello.txt
  static bool has_echo();                                           // whether the module for it is installed

  NginxServer();
  void add_document(std::string_view name, std::string_view content) const { documents_.write(name, content); }
  [[nodiscard]] const std::filesystem::path& documents() const { return documents_.path(); }
  [[nodiscard]] std::uint16_t tls_port() const { return port(1); }
  [[nodiscard]] std::string url(const std::string& path = "/") const { return "http://" + address() + path; }
  [[nodiscard]] std::string tls_url(const std::string& path = "/") const {
    return "https://127.0.0.1:" + std::to_string(tls_port()) + path;
  }

 private:
  TempDir documents_{"www"};
};

// tinyproxy: an HTTP proxy that tunnels to any port.
class HttpProxy : public ServerProcess {
 public:
  explicit HttpProxy(const std::string& user = {}, const std::string& password = {});
};

// Dante (SOCKS 4 and 5, no authentication) and microsocks (SOCKS 5, with or without user and password).
class SocksServer : public ServerProcess {
 public:
  enum class Brand { dante, microsocks };
  explicit SocksServer(Brand brand, const std::string& user = {}, const std::string& password = {});
  static std::string missing(Brand brand);
};

// How a client gets to its server.
struct Route {
  const char* name;
  int proxy_type;
  SocksServer::Brand brand = SocksServer::Brand::dante;
  const char *user = "", *password = "";
};
inline void PrintTo(const Route& route, std::ostream* out) { *out << route.name; }
inline constexpr Route kRoutes[] = {{"direct", 0},
                                    {"socks5", 5},
                                    {"socks5_password", 5, SocksServer::Brand::microsocks, "proxy user", "proxy pass"},
                                    {"socks4", 4}};

// A server with one account. As root, what is put into its folder belongs to nobody, whom such servers work as.
class ServedFolder : public ServerProcess {
 public:
  [[nodiscard]] const std::filesystem::path& folder() const { return files_; }
  void add(std::string_view name, std::string_view content) const;
  void make_folder(std::string_view name) const;
  [[nodiscard]] bool has(std::string_view name) const { return std::filesystem::exists(files_ / name); }
  [[nodiscard]] std::string content(std::string_view name) const { return read_file(files_ / name); }

 protected:
  explicit ServedFolder(std::string_view name);
  std::filesystem::path files_;
};

enum class FtpBrand { vsftpd, proftpd, pure_ftpd };
std::string name_of(FtpBrand brand);

// vsftpd and ProFTPD for any user, Pure-FTPd for root; in clear, or with TLS required for login and data.
class FtpServer : public ServedFolder {
 public:
  struct Options {
    FtpBrand brand = FtpBrand::vsftpd;
    bool tls = false;
    std::string lines = {};     // more configuration (vsftpd, ProFTPD)
    bool ipv6 = false;          // listen on ::1 instead (ProFTPD)
    bool implicit_tls = false;  // with tls: from the first byte, on port 990 (vsftpd)
  };
  explicit FtpServer(const Options& options);
  static std::string missing(FtpBrand brand);

  [[nodiscard]] std::string address() const;
  [[nodiscard]] std::string user() const;
  [[nodiscard]] std::string password() const;

 private:
  Options options_;
};

// OpenSSH's sshd for SFTP, for root, in a mount namespace of its own, where the account exists and the folder "full" is a
// disk of a megabyte.
class SshServer : public ServedFolder {
 public:
  explicit SshServer(const std::string& lines = {});  // more configuration
  static std::string missing();

  [[nodiscard]] static std::string user();
  [[nodiscard]] static std::string password();
  [[nodiscard]] std::string host_key() const;                                            // "ssh-ed25519 AAAA..."
  [[nodiscard]] std::filesystem::path user_key() const { return folder_ / "user_key"; }  // logs in without a password
};

}  // namespace yinet::test
