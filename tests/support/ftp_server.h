// vsftpd, ProFTPD and Pure-FTPd on loopback, in clear or with TLS required, each with its usual demands on data
// connections. Tests need YINET_SKIP_FOR(FtpServer::missing(brand)).
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

#include "support/certificates.h"
#include "support/served_folder.h"
#include "support/server_process.h"

namespace yinet::test {

enum class FtpBrand { vsftpd, proftpd, pure_ftpd };
std::string name_of(FtpBrand brand);

// One FTP server with one account, whose folder is empty at first. vsftpd and ProFTPD run for any user, Pure-FTPd for root
// only; as root, ProFTPD and Pure-FTPd serve as nobody.
class FtpServer : public ServedFolder {
 public:
  struct Options {
    FtpBrand brand = FtpBrand::vsftpd;
    bool tls = false;                // explicit TLS, required for login and data
    std::string lines = {};          // more configuration (vsftpd, ProFTPD)
    bool ipv6 = false;               // listen on ::1 instead (ProFTPD)
    bool implicit_tls = false;       // with tls: from the first byte, on port 990 (vsftpd)
  };
  explicit FtpServer(const Options& options);

  static std::string missing(FtpBrand brand);  // empty, or why it can't run

  [[nodiscard]] std::uint16_t port() const { return server_->port(); }
  [[nodiscard]] std::string address() const;  // "127.0.0.1:PORT", "[::1]:PORT"
  [[nodiscard]] std::string user() const;
  [[nodiscard]] std::string password() const;

  void stop() { server_->stop(); }

 private:
  ChildOptions prepare(const ReservedPorts& ports) const;
  ChildOptions prepare_vsftpd(const ReservedPorts& ports) const;
  ChildOptions prepare_proftpd(const ReservedPorts& ports) const;
  ChildOptions prepare_pure_ftpd(const ReservedPorts& ports) const;
  [[nodiscard]] std::filesystem::path config_file(std::string_view text) const;

  Options options_;
  std::optional<ServerProcess> server_;
};

}  // namespace yinet::test
