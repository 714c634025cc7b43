#pragma once

// What an ftps object needs besides its described members, and the words it shares among its source files.

#include <mutex>
#include <string_view>

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
  FtpProgress progress;
};

namespace ftp {

inline constexpr int kTlsType = 4;  // FTP type with explicit TLS
inline constexpr int kFtpProxy = 1;
inline constexpr int kSocks4Proxy = 4;
inline constexpr int kSocks5Proxy = 5;

inline constexpr int kTraceChannel = 217;

// Results of several operations.
inline constexpr int kDone = 0;
inline constexpr int kFailed = -1;
inline constexpr int kNotConnected = -4;
inline constexpr int kLocalFileFailed = -32;
inline constexpr int kNoSuchFile = -256;
inline constexpr int kTimeOver = 256;
inline constexpr int kReceiveEnded = -1000;  // of SecureSocket::Receive

// Reply codes that are looked at.
inline constexpr int kFirstRefusal = 400;
inline constexpr int kFirstOwnStatus = 700;  // no server's reply, but one of the texts below
inline constexpr int kSizeReply = 213;
inline constexpr int kNoFileReply = 550;

// Texts of this library in the place of a reply.
inline constexpr std::string_view kNoStatus = "700 No Status";
inline constexpr std::string_view kUnconnected = "701 Not connected";
inline constexpr std::string_view kConnectFailed = "702 Connect failed";
inline constexpr std::string_view kSendFailed = "703 Send failed";
inline constexpr std::string_view kReceiveFailed = "704 Receive failed";
inline constexpr std::string_view kReceiveError = "705 Receive error";
inline constexpr std::string_view kSourceNotOpened = "707 Open sourcefile failed";
inline constexpr std::string_view kTargetNotOpened = "708 Open destination file failed";
inline constexpr std::string_view kSourceNotRead = "709 Read source file failed";
inline constexpr std::string_view kTargetNotWritten = "710 Write destination file failed";

}  // namespace ftp
}  // namespace yinet
