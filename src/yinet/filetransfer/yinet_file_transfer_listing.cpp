// What is in an FTP server's folder.

#include <curl/curl.h>
#include <fnmatch.h>

#include <string>
#include <string_view>
#include <utility>

#include "yinet/filetransfer/transfer_state.h"
#include "yinet/filetransfer/yinet_file_transfer.h"
#include "yinet/host/message_numbers.h"
#include "yinet/host/setting_table.h"
#include "yinet/host/text.h"
#include "yinet/host/wire_text.h"
#include "yinet/net/contained.h"

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

struct Listing {
  std::string pattern;
  std::vector<RemoteFile>& files;
  std::size_t limit;
};

long take_entry(const void* entry, void* context, int) noexcept {
  const auto& info = *static_cast<const curl_fileinfo*>(entry);
  auto& listing = *static_cast<Listing*>(context);
  if (info.filetype != CURLFILETYPE_FILE) return CURL_CHUNK_BGN_FUNC_SKIP;
  try {
    YString name(text_from_wire(info.filename));
    if (fnmatch(listing.pattern.c_str(), name.Ptr(), 0) != 0) return CURL_CHUNK_BGN_FUNC_SKIP;
    if (listing.files.size() == listing.limit) return CURL_CHUNK_BGN_FUNC_FAIL;
    const bool has_size = (info.flags & CURLFINFOFLAG_KNOWN_SIZE) != 0;
    listing.files.push_back({std::move(name), has_size ? std::int64_t{info.size} : -1});
  } catch (...) {
    return CURL_CHUNK_BGN_FUNC_FAIL;
  }
  return CURL_CHUNK_BGN_FUNC_SKIP;
}

}  // namespace

// libcurl lists the folder for a download by its own wildcards, and every file of it is declined.
bool YInetFileTransfer::list_files(const YString& pattern, std::vector<RemoteFile>& files) {
  files.clear();
  return contained(false, [&] {
    SetDisplayPath(pattern);
    const std::string_view text(pattern);
    const std::size_t name = text.rfind('/') + 1;  // 0 without a folder
    if (!PrepareServerFunction(message::kTransferListFailed, YString(replaced(text.substr(0, name), "%", "%25")) + "*")) return false;
    if (!IsFtpOrSftp() || IsSftp()) return RaiseError(message::kTransferListFailed, protocol_, "", true);
    Listing listing{only_wildcards(text.substr(name)), files,
                    static_cast<std::size_t>(setting_number(settings::kTransferListLimit))};
    CURL* const handle = handle_.get();
    curl_easy_setopt(handle, CURLOPT_WILDCARDMATCH, 1L);
    curl_easy_setopt(handle, CURLOPT_CHUNK_BGN_FUNCTION, &take_entry);
    curl_easy_setopt(handle, CURLOPT_CHUNK_DATA, &listing);
    const int result = Perform();
    curl_easy_setopt(handle, CURLOPT_WILDCARDMATCH, 0L);
    curl_easy_setopt(handle, CURLOPT_CHUNK_BGN_FUNCTION, nullptr);
    curl_easy_setopt(handle, CURLOPT_CHUNK_DATA, nullptr);
    // An empty folder is told as a missing file, a missing folder as a refusal.
    return result == CURLE_OK || result == CURLE_REMOTE_FILE_NOT_FOUND ||
           RaiseCurlError(message::kTransferListFailed, result);
  });
}
