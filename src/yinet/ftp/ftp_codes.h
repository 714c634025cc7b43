#pragma once

// What ftps says and hears, for all who call it: results of its operations, numbers of its last message, FTP types.

#include <string_view>

namespace yinet::ftp {

inline constexpr int kTraceChannel = 217;

// FTP types; any other is plain FTP.
inline constexpr int kTlsType = 4;   // explicit TLS
inline constexpr int kSftpType = 5;  // scripts only: goes to the script class for SFTP

inline constexpr int kFtpProxy = 1;
inline constexpr int kSocks4Proxy = 4;
inline constexpr int kSocks5Proxy = 5;

// Results of several operations.
inline constexpr int kDone = 0;
inline constexpr int kFailed = -1;
inline constexpr int kNotConnected = -4;
inline constexpr int kLocalFileFailed = -32;
inline constexpr int kNoSuchFile = -256;
inline constexpr int kTimeOver = 256;
// Results of comparing sizes, besides kDone, kNoSuchFile and the numbers from 2 on: the sizes differ.
inline constexpr int kBothEmpty = 1;
inline constexpr int kUnreadableSize = -4096;

// Numbers of messages that are looked at.
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

}  // namespace yinet::ftp
