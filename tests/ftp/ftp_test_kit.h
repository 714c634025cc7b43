#pragma once

// Vocabulary of the tests of FTP, SFTP and file transfer.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "net/socket_test_kit.h"
#include "support/bytes.h"
#include "support/requirements.h"
#include "support/temp_dir.h"
#include "yinet/filetransfer/yinet_file_transfer.h"
#include "yinet/ftp/ftps.h"
#include "yinet/script/function_table.h"

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
};

// What a scripted server expects and answers, in turn, without line ends. An empty command is not waited for; the answers
// "close" and "reset" end the connection, and so does a 421.
using Turns = std::vector<std::pair<std::string, std::string>>;
inline Turns operator+(Turns a, const Turns& b) {
  a.insert(a.end(), b.begin(), b.end());
  return a;
}
inline const Turns kLogin = {{"", "220 hi"}, {"USER u", "331 go on"}, {"PASS secret", "230 in"}};

inline ConnectionScript dialogue(Turns turns, ConnectionScript then = Script().read_to_end()) {
  return [turns = std::move(turns), then = std::move(then)](Connection& connection) {
    for (const auto& [command, reply] : turns) {
      if (!command.empty()) connection.expect(command + "\r\n");
      if (reply == "close") return connection.close();
      if (reply == "reset") return connection.reset();
      connection.send(reply + "\r\n");
      if (reply.starts_with("421")) return connection.close();
    }
    then(connection);
  };
}
// The address in the answer to PASV.
inline std::string passive(std::uint16_t port, const std::string& address = "127,0,0,1") {
  return "227 (" + address + "," + std::to_string(port / 256) + "," + std::to_string(port % 256) + ")";
}

// "@" as an answer turns into the address of data connections, "@" with an address "1,2,3,4" behind it names their port there.
inline Turns with_data_port(Turns turns, std::uint16_t port) {
  for (auto& [command, reply] : turns)
    if (reply.starts_with('@')) reply = reply == "@" ? passive(port) : passive(port, reply.substr(1));
  return turns;
}

// A client that is logged in at a scripted server with data connections.
struct Dialogue {
  explicit Dialogue(Turns turns, ConnectionScript data_script = Script().read_to_end(),
                    ConnectionScript then = Script().read_to_end())
      : data(ScriptedPeer::for_every_connection(std::move(data_script))),
        server(dialogue(kLogin + with_data_port(std::move(turns), data.port()), std::move(then))) {
    EXPECT_EQ(ftp.connect(), 0);
  }
  OpenFtps* operator->() { return &ftp; }
  // An operation's result and the message it left.
  std::string after(int result) { return std::to_string(result) + " " + ftp.get_last_mes(0).str(); }

  ScriptedPeer data;
  ScriptedPeer server;
  OpenFtps ftp{server.target(), "u", "secret", kPlainFtp, ""};
};

class FtpTest : public SocketTest {
 protected:
  // A local file with this content; gives its name.
  std::string local_file(std::string_view name, std::string_view content) {
    return local.write(name, content).string();
  }
  std::string local_name(std::string_view name) { return (local / name).string(); }

  // As a script does it, with "pUser=me|pPasswd=secret" for parameters, later ones for earlier ones; gives the record
  // afterwards.
  static YObject call(std::string_view name, std::string_view texts, const YObject& more = {}) {
    YObject block;
    YObject& parameters = block.Store<YObject>("PARAMETER", more);
    YString list(texts);
    list.ItemDelimiter("|");
    for (const std::string_view text : list.Items())
      parameters.StoreText(text.substr(0, text.find('=')), text.substr(text.find('=') + 1));
    find_script_function(name)->entry(&block);
    return parameters;
  }

  TempDir local{"local"};

 private:
  SettingChange patience_{settings::kTransferConnectLimit, "120000"};  // a busy machine is no failure
};

inline YInetFileTransfer transfer_to(const std::string& url, const YString& user = {}, const YString& password = {}) {
  YInetFileTransfer transfer;
  EXPECT_TRUE(transfer.SetServerUrl(url));
  transfer.SetUsername(user);
  transfer.SetPassword(password);
  return transfer;
}

// An assertion's text: what went wrong in `transfer`.
inline std::string error_of(YInetFileTransfer& transfer) {
  return transfer.GetLastErrorMsg().str() + " / " + transfer.last_cause().text.str();
}

}  // namespace yinet::test
