#pragma once

// What a YInetFileTransfer needs besides its described members.

#include <curl/curl.h>

#include <array>
#include <cstdint>
#include <string>

#include "yinet/filetransfer/curl_library.h"
#include "yinet/filetransfer/yinet_file_transfer.h"

namespace yinet {

struct TransferState {
  std::array<char, CURL_ERROR_SIZE> error_text{};
  std::string own_reason;          // why a callback of ours ended the transfer: libcurl knows only that one did
  std::string reply;               // the last line of an FTP server's dialogue
  TextTarget* dialogue = nullptr;  // takes all lines of it while it is set
  TransferCause cause;
  CurlMulti connections;   // of the handle; idle ones are used again
  std::string tls_policy;  // that the handle's connections were made under
  ProgressReport report;
  bool reporting = false;         // an upload or download runs, no preparation
  std::int64_t upload_size = -1;  // of a running upload
  // Whether the server was asked for its start folder since server or login changed. A connection that is reused does not
  // tell it again.
  bool entry_directory_asked = false;
};

}  // namespace yinet
