#pragma once

// What an sshClient knows besides its session and its socket.

#include <algorithm>
#include <string>
#include <vector>

#include "yinet/ssh/ssh_client.h"
#include "yinet/ssh/ssh_connection.h"

namespace yinet {

struct SshClientState {
  std::vector<SftpSession> sessions;  // handed out and not closed yet; to end before the connection
  std::string server;                 // "host:port", for the log
  YString key_file;
  YString key_password;
  ProgressReport report;
  SshFailure failure = SshFailure::none;
  std::string failure_text;

  void clear_failure() {
    failure = SshFailure::none;
    failure_text.clear();
  }
  [[nodiscard]] auto find(const sftp_session_struct* session) {
    return std::ranges::find_if(sessions, [&](const SftpSession& own) { return own.get() == session; });
  }
};

}  // namespace yinet
