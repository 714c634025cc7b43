#pragma once

// Vocabulary of the FTP tests.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <string_view>

#include "net/socket_test_kit.h"
#include "support/bytes.h"
#include "support/ftp_server.h"
#include "support/requirements.h"
#include "support/socks_server.h"
#include "support/temp_dir.h"
#include "yinet/ftp/ftps.h"

namespace yinet::test {

inline constexpr int kPlainFtp = 1;
inline constexpr int kTlsFtp = 4;

// A client whose protected members a test can reach.
class OpenFtps : public ftps {
 public:
  using ftps::ftps;
  using ftps::set_last_mes;
  using ftps::StartNoopThread;
  using ftps::StopNOOPThread;
  using ftps::str2_to_adr;
  using ftps::str2_to_port;
};

// How a client gets to its server.
enum class Route { direct, socks5, socks5_password, socks4 };
inline constexpr Route kAllRoutes[] = {Route::direct, Route::socks5, Route::socks5_password, Route::socks4};
inline std::string name_of(Route route) {
  switch (route) {
    case Route::direct: return "direct";
    case Route::socks5: return "socks5";
    case Route::socks5_password: return "socks5_password";
    case Route::socks4: return "socks4";
  }
  return {};
}

// The proxy of a route, when it has one.
class Way {
 public:
  static std::string missing(Route route) {
    return route == Route::direct ? std::string() : SocksServer::missing(brand(route));
  }
  explicit Way(Route route) : route_(route) {
    if (route == Route::direct) return;
    const bool password = route == Route::socks5_password;
    proxy_ = std::make_unique<SocksServer>(brand(route), password ? "proxy user" : "", password ? "proxy pass" : "");
  }
  [[nodiscard]] OpenFtps client(const FtpServer& server, int ftp_type) const {
    return OpenFtps(server.address(), server.user(), server.password(), proxy_ ? proxy_->address() : "", ftp_type, type(),
                    "", route_ == Route::socks5_password ? "proxy user" : "",
                    route_ == Route::socks5_password ? "proxy pass" : "");
  }
  [[nodiscard]] std::string proxy_address() const { return proxy_ ? proxy_->address() : ""; }
  [[nodiscard]] int type() const { return route_ == Route::direct ? 0 : route_ == Route::socks4 ? 4 : 5; }

 private:
  static SocksServer::Brand brand(Route route) {
    return route == Route::socks5_password ? SocksServer::Brand::microsocks : SocksServer::Brand::dante;
  }
  Route route_;
  std::unique_ptr<SocksServer> proxy_;
};

class FtpTest : public SocketTest {
 protected:
  // A local file with this content; gives its name.
  YString local_file(std::string_view name, std::string_view content) { return YString(local.write(name, content).string()); }
  YString local_name(std::string_view name) { return YString((local / name).string()); }

  TempDir local{"local"};
};

}  // namespace yinet::test
