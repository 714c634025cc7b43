#pragma once

// What an ftps object needs besides its described members.

#include <mutex>

#include "yinet/ftp/ftp_reply.h"
#include "yinet/ftp/ftps.h"

namespace yinet {

struct FtpsState {
  // One command with its reply at a time: held by the user's thread and the keep-alive thread while they use the control
  // connection. Recursive, since a command reads its reply.
  std::recursive_mutex dialogue;
  // Guards the last message, its number and the last command. Never held while anything waits.
  std::mutex status;
  FtpReplyReader replies;
  ProgressReport report;
};

}  // namespace yinet
