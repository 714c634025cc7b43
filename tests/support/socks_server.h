// SOCKS proxies on loopback: Dante (SOCKS 4 and 5, no authentication) and microsocks (SOCKS 5, with or without user and
// password). Tests need YINET_SKIP_FOR(SocksServer::missing(brand)).
#pragma once

#include <cstdint>
#include <optional>
#include <ostream>
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

// How a client gets to its server.
struct Route {
  const char* name;
  int proxy_type;
  SocksServer::Brand brand = SocksServer::Brand::dante;
  const char* user = "";
  const char* password = "";
};
inline void PrintTo(const Route& route, std::ostream* out) { *out << route.name; }
inline constexpr Route kRoutes[] = {{"direct", 0},
                                    {"socks5", 5},
                                    {"socks5_password", 5, SocksServer::Brand::microsocks, "proxy user", "proxy pass"},
                                    {"socks4", 4}};

}  // namespace yinet::test
