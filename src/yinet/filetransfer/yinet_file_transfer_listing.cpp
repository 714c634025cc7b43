// What is in an FTP server's folder.

#include <curl/curl.h>
#include <fnmatch.h>

#include <algorithm>
#include <string>
#include <string_view>
#include <unordered_set>
#include <utility>

#include "yinet/filetransfer/curl_library.h"
#include "yinet/filetransfer/transfer_formats.h"
#include "yinet/filetransfer/transfer_state.h"
#include "yinet/filetransfer/yinet_file_transfer.h"
#include "yinet/host/contained.h"
#include "yinet/host/message_numbers.h"
#include "yinet/host/setting_table.h"
#include "yinet/host/wire_text.h"

using namespace yinet;

namespace {

// Names may hold what fnmatch() takes for more than itself.
std::string only_wildcards(std::string_view pattern) {
  std::string escaped;
  for (const char c : pattern) {
    if (c == '[' || c == '\\') escaped += '\\';
    escaped += c;
  }
  return escaped;
}

// A line of the reply to NLST (RFC 959, 4.1.3).
std::string_view next_line(std::string_view& text) {
  const std::size_t end = std::min(text.find('\n'), text.size());
  std::string_view line = text.substr(0, end);
  text.remove_prefix(std::min(end + 1, text.size()));
  if (line.ends_with('\r')) line.remove_suffix(1);
  return line;
}

// A folder without what servers may write or leave out: "./" and slashes before it, slashes behind it.
std::string_view bare_folder(std::string_view folder) {
  if (folder.starts_with("./")) folder.remove_prefix(2);
  folder.remove_prefix(std::min(folder.find_first_not_of('/'), folder.size()));
  return folder.substr(0, folder.find_last_not_of('/') + 1);
}

// Some servers put the folder before the name. A line of another folder than `folder` (from the login's, or as
// `absolute`) names none of the files that were asked for: empty.
std::string_view name_in_folder(std::string_view line, std::string_view folder, std::string_view absolute) {
  const std::size_t name_start = line.rfind('/') + 1;  // 0 without a folder
  const std::string_view told = bare_folder(line.substr(0, name_start));
  const bool asked_for = told.empty() || told == bare_folder(folder) || told == bare_folder(absolute);
  return asked_for ? line.substr(name_start) : std::string_view();
}

}  // namespace

// The size of a plain file, as SIZE has it; -1 for a folder and what else has none.
std::int64_t YInetFileTransfer::RemoteSize(const YString& remote) {
  if (!PrepareServerFunction(message::kTransferListFailed, remote) || !SetCurlOptInt(CURLOPT_NOBODY, 1)) return -1;
  curl_off_t size = -1;
  if (Perform() == CURLE_OK) curl_easy_getinfo(handle_.get(), CURLINFO_CONTENT_LENGTH_DOWNLOAD_T, &size);
  return size;
}

// By names and sizes: what LIST answers has no form, and this libcurl leaks every entry it reads of it.
bool YInetFileTransfer::list_files(const YString& pattern, std::vector<RemoteFile>& files) {
  files.clear();
  return contained(false, [&] {
    SetDisplayPath(pattern);
    const std::string_view text(pattern);
    const std::size_t name_start = text.rfind('/') + 1;  // 0 without a folder
    const YString folder(without_escapes(text.substr(0, name_start)));
    if (!PrepareServerFunction(message::kTransferListFailed, folder)) return false;
    if (!IsFtpOrSftp() || IsSftp()) return RaiseError(message::kTransferListFailed, protocol_, "", true);
    std::string names;
    TextTarget target{names, settings::kTransferTextLimit, state_->own_reason};
    CURL* const handle = handle_.get();
    curl_easy_setopt(handle, CURLOPT_DIRLISTONLY, 1L);
    curl_easy_setopt(handle, CURLOPT_WRITEFUNCTION, &write_to_text);
    curl_easy_setopt(handle, CURLOPT_WRITEDATA, &target);
    const int result = Perform();
    curl_easy_setopt(handle, CURLOPT_DIRLISTONLY, 0L);
    ResetCallbacks();
    // Some servers tell an empty folder as a missing file; a missing folder is a refusal.
    if (result != CURLE_OK && result != CURLE_REMOTE_FILE_NOT_FOUND && result != CURLE_FTP_COULDNT_RETR_FILE)
      return RaiseCurlError(message::kTransferListFailed, result);
    const auto limit = static_cast<std::size_t>(setting_number(settings::kTransferListLimit));
    const std::string wanted = only_wildcards(text.substr(name_start));
    const std::string asked = text_for_wire(text.substr(0, name_start));
    const YString absolute = GetAbsolutePath(YString(text.substr(0, name_start)));
    std::unordered_set<std::string_view> seen;  // in `names`; a file told twice would be missing the second time
    for (std::string_view rest = names; !rest.empty();) {
      const std::string_view told = name_in_folder(next_line(rest), asked, absolute);
      YString name(text_from_wire(told));
      if (name.IsEmpty() || fnmatch(wanted.c_str(), name.Ptr(), 0) != 0 || !seen.insert(told).second) continue;
      if (files.size() == limit) {
        state_->own_reason = beyond_limit_text(settings::kTransferListLimit);
        return RaiseCurlError(message::kTransferListFailed, CURLE_FILESIZE_EXCEEDED);
      }
      const std::int64_t size = RemoteSize(folder + YString(without_escapes(name)));
      if (size >= 0) files.push_back({std::move(name), size});
    }
    ClearLastErrorIfInitOk();
    return true;
  });
}
