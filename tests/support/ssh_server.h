// OpenSSH's sshd on loopback, for SFTP. Tests need YINET_SKIP_FOR(SshServer::missing()).
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "support/served_folder.h"
#include "support/server_process.h"

namespace yinet::test {

// One SFTP server with one account, whose login begins in folder(). Root only. It runs in a mount namespace of its own,
// where the account exists and the folder "full" is a disk of a megabyte; the machine's accounts are not touched.
class SshServer : public ServedFolder {
 public:
  explicit SshServer(const std::string& lines = {});  // more configuration

  static std::string missing();  // empty, or why it can't run

  [[nodiscard]] std::uint16_t port() const { return server_->port(); }
  [[nodiscard]] std::string address() const { return "127.0.0.1:" + std::to_string(port()); }
  [[nodiscard]] static std::string user() { return "tester"; }
  [[nodiscard]] static std::string password() { return "geheim 1"; }
  [[nodiscard]] std::string host_key() const;                                               // "ssh-ed25519 AAAA..."
  [[nodiscard]] std::filesystem::path user_key() const { return folder_ / "user_key"; }  // logs in without a password

  void stop() { server_->stop(); }  // ends the connections as well

 private:
  [[nodiscard]] ChildOptions prepare(std::uint16_t port, const std::string& lines) const;
  std::optional<ServerProcess> server_;
};

}  // namespace yinet::test
