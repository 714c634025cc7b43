#pragma once

// The script class that takes FTP type 5 (SFTP): its functions get the parameters of the FTPS function and leave "_RETV" in
// them. A host's own class of that name goes before the library's.

#include <string_view>

namespace yinet::ssh_client {

inline constexpr std::string_view kClass = "SSHClient";
inline constexpr std::string_view kDownload = "Download";
inline constexpr std::string_view kUpload = "Upload";
inline constexpr std::string_view kDelete = "L\xF6sche";

}  // namespace yinet::ssh_client
