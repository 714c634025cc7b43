#pragma once

// Vocabulary of the SFTP tests.

#include <string>

#include "ftp/ftp_test_kit.h"
#include "support/resource_check.h"
#include "support/ssh_server.h"
#include "yinet/host/yerror.h"
#include "yinet/ssh/ssh_client.h"

namespace yinet::test {

class SshTest : public FtpTest {
 protected:
  void SetUp() override {
    YINET_SKIP_FOR(SshServer::missing());
    set_error_handler([this](const ErrorMessage& message) { raised.push_back(message.number); });
  }
  void TearDown() override { set_error_handler(nullptr); }

  static bool log_in(sshClient& client, const SshServer& server, const char* password = nullptr) {
    return client.connect("127.0.0.1", server.port(), YString(SshServer::user()),
                          YString(password != nullptr ? password : SshServer::password()), "", 0, 0, "", "");
  }
  // Bytes that repeat at no power of two.
  static std::string bytes_of(std::size_t size) {
    std::string bytes(size, '\0');
    for (std::size_t i = 0; i < size; ++i) bytes[i] = static_cast<char>(i % 251 + i / 65521);
    return bytes;
  }

  std::vector<int> raised;
};

}  // namespace yinet::test
