// tinyproxy on loopback: an HTTP proxy that tunnels to any port. Tests need YINET_REQUIRE_PROGRAM("tinyproxy").
#pragma once

#include <string>

#include "support/server_process.h"
#include "support/temp_dir.h"

namespace yinet::test {

class HttpProxy {
 public:
  explicit HttpProxy(const std::string& user = {}, const std::string& password = {});
  [[nodiscard]] std::string address() const { return "127.0.0.1:" + std::to_string(server_.port()); }

 private:
  TempDir folder_{"proxy"};
  ServerProcess server_;
};

}  // namespace yinet::test
