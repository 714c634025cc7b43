#pragma once

// Vocabulary of the socket tests.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>

#include "support/log_capture.h"
#include "support/resource_check.h"
#include "support/scripted_peer.h"
#include "yinet/host/message_numbers.h"
#include "yinet/host/setting_table.h"
#include "yinet/net/secure_socket.h"

namespace yinet::test {

// A socket whose workers and fields a test can reach.
class OpenSocket : public SecureSocket {
 public:
  OpenSocket() = default;
  OpenSocket(BIO* connection, bool blocking_mode) : SecureSocket(connection, blocking_mode) {}

  using SecureSocket::bio;
  using SecureSocket::blocking;
  using SecureSocket::keyText;
  using SecureSocket::openSSL_Lock;
  using SecureSocket::password_cb;
  using SecureSocket::socksTargetAddress;
  using SecureSocket::tlsActive;
};

enum class Mode { blocking, polling };
inline bool is_blocking(Mode mode) { return mode == Mode::blocking; }
inline std::string name_of(Mode mode) { return is_blocking(mode) ? "blocking" : "non-blocking"; }
inline constexpr Mode kBothModes[] = {Mode::blocking, Mode::polling};

// Changes a setting for as long as it lives.
class SettingChange {
 public:
  SettingChange(const Setting& setting, std::string value) : setting_(setting) {
    set_setting(setting.section, setting.name, std::move(value));
  }
  SettingChange& operator=(SettingChange&&) = delete;  // nor copies
  ~SettingChange() { set_setting(setting_.section, setting_.name, std::nullopt); }

 private:
  const Setting& setting_;
};

// Every socket test does without the pause after a connect.
class SocketTest : public testing::Test {
 protected:
  LogCapture log;
  SettingChange no_pause{settings::kConnectPause, "0"};
};

// And those of this folder leave no descriptor behind.
class NetTest : public SocketTest {
 protected:
  const std::uint16_t refused = refused_port();
  const ResourceCheck resources;
};

inline int connect_to(SecureSocket& socket, const ScriptedPeer& peer, Mode mode = Mode::polling) {
  return socket.Connect("127.0.0.1", peer.port(), is_blocking(mode));
}

inline Script tls_peer(const PemPair& certificate, TlsVersion version = TlsVersion::any) {
  return Script().start_tls(TlsContext::server(certificate, {.version = version}));
}

// The next piece that arrives, at most `size` bytes; "" when the connection has ended.
inline std::string receive_piece(SecureSocket& socket, int size = 4096) {
  YBuffer target;
  int count = 0;
  while ((count = socket.Receive(target, size, true)) == 0)
    if (!socket.wait_for_input(static_cast<int>(kPatience.count()))) throw std::runtime_error("nothing came");
  return std::string(target.view().substr(0, static_cast<std::size_t>(std::max(count, 0))));
}

// So many bytes, fewer only when the connection has ended.
inline std::string receive_exactly(SecureSocket& socket, std::size_t size) {
  std::string all, piece;
  do {
    all += piece = receive_piece(socket, static_cast<int>(std::min<std::size_t>(size - all.size(), 4096)));
  } while (!piece.empty() && all.size() < size);
  return all;
}
inline std::string receive_all(SecureSocket& socket) { return receive_exactly(socket, std::string::npos); }

inline std::chrono::milliseconds time_of(const std::function<void()>& work) {
  const auto start = std::chrono::steady_clock::now();
  work();
  return std::chrono::ceil<std::chrono::milliseconds>(std::chrono::steady_clock::now() - start);
}

}  // namespace yinet::test
