// SOCKS proxies on loopback: Dante (SOCKS 4 and 5, no authentication) and microsocks (SOCKS 5, with or without user and
// password). Tests need YINET_SKIP_FOR(SocksServer::missing(brand)).
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "support/server_process.h"
#include "support/temp_dir.h"

namespace yinet::test {

class SocksServer {
 public:
  enum class Brand { dante, microsocks };
  explicit SocksServer(Brand brand, std::string user = {}, std::string password = {});

  static std::string missing(Brand brand);
  [[nodiscard]] std::uint16_t port() const { return server_->port(); }
  [[nodiscard]] std::string address() const { return "127.0.0.1:" + std::to_string(port()); }

 private:
  TempDir folder_{"socks"};
  std::optional<ServerProcess> server_;
};

}  // namespace yinet::test
