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
// with the configuration, {HOST} its address, {PORT} and {PORT2} its first port and its last, {CERT}, {KEY} and {PEM} the
// shared good certificate; and whatever `values` adds. It serves when all its ports are open and it has said `says`.
struct Daemon {
  std::string command;  // words between blanks; keeps it in the foreground
  std::string configuration = {};
  std::map<std::string, std::string> values = {};
  std::size_t ports = 1;
  std::string says = {};
  std::string host = "127.0.0.1";
  std::uint16_t port = 0;  // 0: a free one
};

class ServerProcess {
 public:
  [[nodiscard]] std::uint16_t port(std::size_t index = 0) const { return local_port(ports_[index].get()); }
  [[nodiscard]] std::string address(std::size_t index = 0) const;  // as in a URL
  void stop() { child_->stop(); }  // in mid-test: what it served is gone, its ports stay reserved

 protected:
  explicit ServerProcess(std::string_view name) : folder_(name) {}
  void start(const Daemon& daemon);
  TempDir folder_;

 private:
  std::string host_;
  std::vector<FileDescriptor> ports_;
  std::optional<ChildProcess> child_;
};

// A server of files. As root, what is put into its folder belongs to nobody, whom such servers work as.
class ServedFolder : public ServerProcess {
 public:
  [[nodiscard]] const std::filesystem::path& folder() const { return files_; }
  void add(std::string_view name, std::string_view content) const;
  void make_folder(std::string_view name) const;
  [[nodiscard]] bool has(std::string_view name) const { return std::filesystem::exists(files_ / name); }
  [[nodiscard]] std::string content(std::string_view name) const { return read_file(files_ / name); }
  static std::string password();  // of the only account

 protected:
  explicit ServedFolder(std::string_view name);
  std::filesystem::path files_;
};

// nginx for any user, with two ports that serve the same files, in clear and over TLS.
//   /NAME           the file of that name; "/" is index.html
//   /chunked/NAME   the same as a chunked body; /post/NAME: also for POST; /fault/NAME: with status 500 (for POST)
//   /status/401     that code; /redirect/301 and 302: to /hello.txt, as an absolute URL
//   /empty          200 with Content-Length 0; /cookies: 200 with three Set-Cookie lines
//   /echo           the body of the request, in chunks; /request: its head as it came; made by the echo module
class NginxServer : public ServedFolder {
 public:
  static constexpr std::string_view kHello = "Hello from nginx\n";  // the file hello.txt

  NginxServer();
  [[nodiscard]] std::string url(const std::string& path = "/") const { return "http://" + address() + path; }
  [[nodiscard]] std::string tls_url(const std::string& path = "/") const { return "https://" + address(1) + path; }
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

enum class FtpBrand { vsftpd, proftpd, pure_ftpd };
std::string name_of(FtpBrand brand);

// vsftpd and ProFTPD for any user, Pure-FTPd for root; in clear, or with TLS required for login and data.
class FtpServer : public ServedFolder {
 public:
  struct Options {
    FtpBrand brand = FtpBrand::vsftpd;
    bool tls = false;
    std::string lines = {};  // more configuration (vsftpd, ProFTPD)
    std::string host = "127.0.0.1";
    std::uint16_t port = 0;  // 0: a free one
  };
  explicit FtpServer(const Options& options);
  static std::string missing(FtpBrand brand);
  [[nodiscard]] std::string user() const { return user_; }

 private:
  std::string user_;
};

// OpenSSH's sshd for SFTP, for root, in a mount namespace of its own, where the account exists and the folder "full" is a
// disk of a megabyte.
class SshServer : public ServedFolder {
 public:
  explicit SshServer(const std::string& lines = {});  // more configuration
  static std::string missing();

  static std::string user();
  [[nodiscard]] std::string host_key() const;                                            // "ssh-ed25519 AAAA..."
  [[nodiscard]] std::filesystem::path user_key() const { return folder_ / "user_key"; }  // logs in without a password
};

}  // namespace yinet::test
