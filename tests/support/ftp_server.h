// vsftpd, ProFTPD and Pure-FTPd on loopback, in clear or with TLS required, each with its usual demands on data
// connections. Tests need YINET_SKIP_FOR(FtpServer::missing(brand)).
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

#include "support/certificates.h"
#include "support/server_process.h"
#include "support/temp_dir.h"

namespace yinet::test {

enum class FtpBrand { vsftpd, proftpd, pure_ftpd };
std::string name_of(FtpBrand brand);

// One FTP server with one account, whose folder is empty at first. vsftpd and ProFTPD run for any user, Pure-FTPd for root
// only; as root, ProFTPD and Pure-FTPd serve as nobody.
class FtpServer {
 public:
  struct Options {
    FtpBrand brand = FtpBrand::vsftpd;
    bool tls = false;                // explicit TLS, required for login and data
    std::string lines = {};          // more configuration (vsftpd, ProFTPD)
    bool ipv6 = false;               // listen on ::1 instead (ProFTPD)
  };
  explicit FtpServer(const Options& options);

  static std::string missing(FtpBrand brand);  // empty, or why it can't run

  [[nodiscard]] std::uint16_t port() const { return server_->port(); }
  [[nodiscard]] std::string address() const;  // "127.0.0.1:PORT", "[::1]:PORT"
  [[nodiscard]] std::string user() const;
  [[nodiscard]] std::string password() const;

  // The account's folder on disk.
  [[nodiscard]] const std::filesystem::path& folder() const { return files_; }
  void add(std::string_view name, std::string_view content) const;
  void make_folder(std::string_view name) const;
  [[nodiscard]] bool has(std::string_view name) const { return std::filesystem::exists(files_ / name); }
  [[nodiscard]] std::string content(std::string_view name) const { return read_file(files_ / name); }

  void stop() { server_->stop(); }

 private:
  ChildOptions prepare(const ReservedPorts& ports) const;
  ChildOptions prepare_vsftpd(const ReservedPorts& ports) const;
  ChildOptions prepare_proftpd(const ReservedPorts& ports) const;
  ChildOptions prepare_pure_ftpd(const ReservedPorts& ports) const;
  [[nodiscard]] std::filesystem::path config_file(std::string_view text) const;
  void give_to_server(const std::filesystem::path& path) const;

  Options options_;
  TempDir folder_{"ftp"};
  std::filesystem::path files_;
  std::optional<ServerProcess> server_;
};

}  // namespace yinet::test
