// The operations.

#include <curl/curl.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <string_view>

#include "yinet/filetransfer/curl_library.h"
#include "yinet/filetransfer/transfer_state.h"
#include "yinet/filetransfer/yinet_file_transfer.h"
#include "yinet/host/contained.h"
#include "yinet/host/descriptor.h"
#include "yinet/host/message_numbers.h"
#include "yinet/host/setting_table.h"
#include "yinet/host/yfile.h"

using namespace yinet;

namespace {

std::size_t read_from_file(char* target, std::size_t size, std::size_t count, void* source) noexcept {
  const long read = static_cast<YFile*>(source)->Read(target, static_cast<long>(size * count));
  return read < 0 ? CURL_READFUNC_ABORT : static_cast<std::size_t>(read);
}

// `source` is the view of what is left.
std::size_t read_from_text(char* target, std::size_t size, std::size_t count, void* source) noexcept {
  std::string_view& rest = *static_cast<std::string_view*>(source);
  const std::size_t length = std::min(size * count, rest.size());
  std::memcpy(target, rest.data(), length);
  rest.remove_prefix(length);
  return length;
}

std::size_t write_to_file(char* bytes, std::size_t size, std::size_t count, void* target) noexcept {
  const std::size_t length = size * count;
  return static_cast<YFile*>(target)->Write(bytes, static_cast<long>(length)) ? length : 0;
}

// Never a device or a pipe, which a caller may have named as the target.
void delete_plain_file(YFile& file, bool plain) {
  file.Close();
  if (plain) YFile::Delete(file.GetName());
}

}  // namespace

bool YInetFileTransfer::RaiseLocalError(int number, const YFile& file) {
  state_->cause.failure = TransferFailure::local_file;
  return RaiseError(number, file.GetName(), std::strerror(file.LastError()), true);
}

bool YInetFileTransfer::PrepareUpload(int number, int protocol_error, const YString& remote) {
  SetDisplayPath(remote);
  if (!PrepareServerFunction(number, remote) || !SetCurlOptInt(CURLOPT_UPLOAD, 1)) return false;
  return IsFtpOrSftp() || RaiseError(protocol_error, protocol_, "", true);
}

bool YInetFileTransfer::Send(int number, std::size_t (*read)(char*, std::size_t, std::size_t, void*), void* source,
                             std::int64_t size) {
  state_->upload_size = size;
  curl_easy_setopt(handle_.get(), CURLOPT_READFUNCTION, read);
  curl_easy_setopt(handle_.get(), CURLOPT_READDATA, source);
  const bool done = CurlPerform(number);
  state_->upload_size = -1;
  return done;
}

bool YInetFileTransfer::UploadFile(const YString& local, const YString& remote) {
  return contained(false, [&] {
    constexpr int kNumber = message::kTransferUploadFileFailed;
    if (!PrepareUpload(kNumber, message::kTransferUploadFileProtocol, remote)) return false;
    YFile file(local);
    if (!file.Open(kOpenExisting, kAccessRead)) return RaiseLocalError(message::kTransferLocalFileNotOpened, file);
    return Send(kNumber, &read_from_file, &file, file.GetFileSize());
  });
}

bool YInetFileTransfer::UploadString(const YString& text, const YString& remote) {
  return contained(false, [&] {
    constexpr int kNumber = message::kTransferUploadTextFailed;
    if (!PrepareUpload(kNumber, message::kTransferUploadTextProtocol, remote)) return false;
    std::string_view rest = text;
    return Send(kNumber, &read_from_text, &rest, text.Length());
  });
}

bool YInetFileTransfer::DownloadToFile(const YString& remote, const YString& local) {
  return contained(false, [&] {
    SetDisplayPath(remote);
    if (!PrepareServerFunction(message::kTransferDownloadFileFailed, remote)) return false;
    YFile file(local);
    if (!file.Open(kCreateAlways, kAccessWrite)) return RaiseLocalError(message::kTransferLocalFileNotCreated, file);
    const bool plain = is_plain_file(file.Descriptor());
    curl_easy_setopt(handle_.get(), CURLOPT_WRITEFUNCTION, &write_to_file);
    curl_easy_setopt(handle_.get(), CURLOPT_WRITEDATA, &file);
    curl_easy_setopt(handle_.get(), CURLOPT_FOLLOWLOCATION, 1L);
    bool done = CurlPerform(message::kTransferDownloadFileFailed);
    if (done && !file.Close()) {
      state_->cause.failure = TransferFailure::local_file;
      done = RaiseCurlError(message::kTransferDownloadFileFailed, CURLE_WRITE_ERROR);
    }
    if (!done) delete_plain_file(file, plain);
    return done;
  });
}

bool YInetFileTransfer::DownloadToString(const YString& remote, YString& text) {
  text.Clear();
  const bool done = contained(false, [&] {
    SetDisplayPath(remote);
    if (!PrepareServerFunction(message::kTransferDownloadTextFailed, remote)) return false;
    TextTarget target{text.str(), settings::kTransferTextLimit, state_->own_reason};
    curl_easy_setopt(handle_.get(), CURLOPT_WRITEDATA, &target);
    curl_easy_setopt(handle_.get(), CURLOPT_WRITEFUNCTION, &write_to_text);
    return CurlPerform(message::kTransferDownloadTextFailed);
  });
  if (!done) text.Clear();
  return done;
}

bool YInetFileTransfer::CreateDirectoryA(const YString& remote) {
  return RunCommand(message::kTransferCreateFolderFailed, message::kTransferCreateFolderProtocol, "MKD", "mkdir",
                    remote);
}

bool YInetFileTransfer::DeleteDirectory(const YString& remote) {
  return RunCommand(message::kTransferDeleteFolderFailed, message::kTransferDeleteFolderProtocol, "RMD", "rmdir",
                    remote);
}

bool YInetFileTransfer::DeleteFileA(const YString& remote) {
  return RunCommand(message::kTransferDeleteFileFailed, message::kTransferDeleteFileProtocol, "DELE", "rm", remote);
}

bool YInetFileTransfer::RunCommand(int number, int protocol_error, const char* ftp_command, const char* sftp_command,
                                   const YString& remote) {
  return contained(false, [&] {
    SetDisplayPath(remote);
    if (!PrepareServerFunction(number, "")) return false;
    if (!IsFtpOrSftp()) return RaiseError(protocol_error, protocol_, "", true);
    // The start folder is the server's word, so it is looked at as well.
    if (!CheckRemoteName(number, GetAbsolutePath(remote))) return false;
    const CurlList command(CreateAndSetHeaderlist(IsSftp() ? sftp_command : ftp_command, remote));
    if (!command) return RaiseCurlError(number, CURLE_OUT_OF_MEMORY);
    const int result = Perform();
    ResetCallbacks();
    return result == CURLE_OK || RaiseCurlError(number, result);
  });
}

bool YInetFileTransfer::ExistsDirectory(const YString& remote) {
  return contained(false, [&] {
    SetDisplayPath(remote);
    const YString folder = remote.EndsWith("/") ? remote : remote + "/";
    // Without a body libcurl would not even look over SFTP.
    if (!PrepareServerFunction(message::kTransferFolderExistsFailed, folder) ||
        !SetCurlOptInt(CURLOPT_NOBODY, IsSftp() ? 0 : 1))
      return false;
    if (!IsFtpOrSftp()) return RaiseError(message::kTransferFolderExistsProtocol, protocol_, "", true);
    const int result = Perform();
    if (result == CURLE_OK || (IsSftp() && result == CURLE_REMOTE_ACCESS_DENIED)) return true;
    if (result == CURLE_REMOTE_FILE_NOT_FOUND || result == CURLE_REMOTE_ACCESS_DENIED) return false;
    return RaiseCurlError(message::kTransferFolderExistsFailed, result);
  });
}
