// What an sshClient does with files and folders.

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <limits>
#include <string>

#include "yinet/host/contained.h"
#include "yinet/host/descriptor.h"
#include "yinet/host/message_numbers.h"
#include "yinet/host/setting_table.h"
#include "yinet/host/text.h"
#include "yinet/host/wire_text.h"
#include "yinet/host/yerror.h"
#include "yinet/host/yfile.h"
#include "yinet/host/ytextmanager.h"
#include "yinet/ssh/ssh_client.h"
#include "yinet/ssh/ssh_client_state.h"
#include "yinet/ssh/ssh_transfer.h"

using namespace yinet;

namespace {

constexpr mode_t kNewMode = 0705;   // of files and folders; the server's mask may take bits away
constexpr char kNoDelimiter = '?';  // for the delimiter of item lists in a name
constexpr std::uint32_t kShareAll = kShareRead | kShareWrite;

// Status codes of an SFTP server (draft-ietf-secsh-filexfer-02, 7, and two of later drafts that servers send).
constexpr auto kStatusTexts = std::to_array<std::string_view>(
    {"", "end of file", "no such file", "permission denied", "failure", "bad message", "no connection",
     "connection lost", "operation not supported", "invalid handle", "no such path", "it exists already"});

std::string status_text(sftp_session session) {
  const auto code = static_cast<std::size_t>(sftp_get_error(session));
  return code < kStatusTexts.size() ? std::string(kStatusTexts[code]) : std::string();
}

void raise(int number, const YString& first, const YString& second, const YString& context) {
  YError.Message(message::kErrorLevel, number, YTextManager.GetYText(number, first, second), context, false, "");
}
YString system_text(const YFile& file) { return YString(std::strerror(file.LastError())); }
YString server_text(sftp_session session) {
  return YTextManager.GetYText(message::kSshUploadContext, std::to_string(sftp_get_error(session)),
                               status_text(session));
}

template <typename Number>
Number at_least_one(const Setting& setting) {
  return static_cast<Number>(std::clamp<std::int64_t>(setting_number(setting), 1, std::numeric_limits<int>::max()));
}

ReadPlan read_plan() {
  return {at_least_one<std::uint32_t>(settings::kSshReadPiece), at_least_one<std::size_t>(settings::kSshReadsInFlight)};
}

bool folder_exists(const SshConnection& connection, sftp_session session, const char* path) {
  const SshCall call(connection);
  return SftpFolder(sftp_opendir(session, path), {&connection}) != nullptr;
}

SftpFile open_file(const SshConnection& connection, sftp_session session, const char* path, int flags) {
  const SshCall call(connection);
  return SftpFile(sftp_open(session, path, flags, kNewMode), {&connection});
}

std::int64_t size_of(const SshConnection& connection, sftp_file file) {
  const SshCall call(connection);
  const SftpAttributes facts(sftp_fstat(file), {&connection});
  return facts ? static_cast<std::int64_t>(facts->size) : -1;
}

// Fills `target` from its start: the count, fewer than it holds only at the end of the file; negative on failure.
long fill(const SshConnection& connection, sftp_file file, YBuffer& target) {
  long filled = 0;
  while (filled < target.Size()) {
    const SshCall call(connection);
    const auto count = sftp_read(file, target.Ptr() + filled, static_cast<std::size_t>(target.Size() - filled));
    if (count < 0) return -1;
    if (count == 0) break;
    filled += count;
  }
  return filled;
}

}  // namespace

// Runs `work` with an SFTP session, its own one when none is given, and the remote name as it goes over the wire.
template <typename Work>
bool sshClient::in_session(sftp_session_struct* given, const YString& remote, Work work) {
  return contained(false, [&] {
    state_->clear_failure();
    if (std::string_view(remote).find('\0') != std::string_view::npos) {
      return failed(SshFailure::refused, "the remote name holds a NUL byte");
    }
    struct Own {
      sshClient& client;
      sftp_session_struct* session;
      ~Own() { client.closeFileTransferSession(session); }
    };
    const Own own{*this, given == nullptr ? initFileTransferSession() : nullptr};
    sftp_session_struct* const session = given != nullptr ? given : own.session;
    if (session == nullptr) return false;
    if (state_->find(session) == state_->sessions.end())
      return failed(SshFailure::broken, "the SFTP session has ended");
    return work(session, text_for_wire(remote).c_str());
  });
}

bool sshClient::refused(sftp_session_struct* session) {
  if (!session_->is_connected()) return failed(SshFailure::broken, session_->error_text());
  const std::string text = status_text(session);
  return failed(SshFailure::refused, text.empty() ? session_->error_text() : text);
}

// --- Upload -------------------------------------------------------------------------------------------------------------

bool sshClient::uploadFile(const YString& local, const YString& remote, sftp_session_struct* given) {
  return in_session(given, remote, [&](sftp_session session, const char* path) {
    SftpFile file = open_file(*session_, session, path, O_WRONLY | O_CREAT | O_TRUNC);
    if (!file) {
      raise(message::kSshRemoteNotOpened, remote, local, server_text(session));
      return refused(session);
    }
    const bool sent = transfer_file(file.get(), local, YFile(local).GetFileSize());
    if (!sent) raise(message::kSshTransferFailed, local, remote, server_text(session));
    const SshCall call(*session_);
    const bool closed = sftp_close(file.release()) == SSH_OK;
    if (!closed) raise(message::kSshRemoteNotClosed, remote, local, server_text(session));
    if (state_->failure == SshFailure::none && !(sent && closed)) refused(session);
    return sent && closed;
  });
}

bool sshClient::transfer_file(sftp_file_struct* file, const YString& local, std::int64_t size) {
  YFile source(local);
  const auto unusable = [&](int number) {
    raise(number, local, {}, system_text(source));
    return failed(SshFailure::local_file, formatted("$1$: $2$", local, system_text(source)));
  };
  if (!source.Open(kOpenExisting, kAccessRead)) return unusable(message::kSshLocalNotOpened);
  const bool sized = size > 0 && is_plain_file(source.Descriptor());  // files of /proc are plain, and 0 bytes long
  const std::int64_t end = sized ? size : std::numeric_limits<std::int64_t>::max();
  const auto chunk = at_least_one<std::int64_t>(settings::kSshUploadChunk);
  YBuffer data;
  for (std::int64_t done = 0; done < end; done += data.Size()) {
    const auto wanted = static_cast<long>(std::min(chunk, end - done));
    data.SetSize(wanted);
    const long count = source.Read(data.Ptr(), wanted);
    if (count < 0 || (sized && count < wanted)) return unusable(message::kSshLocalNotRead);
    if (count == 0) break;
    data.SetSize(count, true);
    if (!transfer_file(file, data, static_cast<int>(count))) return false;
    if (state_->report) state_->report(done + count, sized ? size : -1);
  }
  return true;
}

bool sshClient::transfer_file(sftp_file_struct* file, const YBuffer& data, int size) {
  const int chunk = at_least_one<int>(settings::kSshUploadChunk);
  for (int done = 0; done < size;) {
    const int count = std::min(chunk, size - done);
    const SshCall call(*session_);
    if (sftp_write(file, data.Ptr() + done, static_cast<std::size_t>(count)) != count) return false;
    done += count;
  }
  return true;
}

// --- Download -----------------------------------------------------------------------------------------------------------

bool sshClient::downloadFile(const YString& remote, const YString& local, sftp_session_struct* given) {
  return in_session(given, remote, [&](sftp_session session, const char* path) {
    const bool was_there = YFile::Exist(local);
    YFile target(local);
    if (!target.Open(kOpenAlways, kAccessRead | kAccessWrite, kShareAll, kAttributeNormal)) {
      return failed(SshFailure::local_file, formatted("$1$: $2$", local, system_text(target)));
    }
    const bool removable = !was_there && is_plain_file(target.Descriptor());
    const auto give_up = [&] {
      if (removable) YFile::Delete(local);
      return false;
    };
    const SftpFile file = open_file(*session_, session, path, O_RDONLY);
    if (!file) return refused(session) || give_up();
    YBuffer content;
    content.SetSize(at_least_one<long>(settings::kSshDownloadSize));
    const long filled = fill(*session_, file.get(), content);
    if (filled < 0) return refused(session) || give_up();
    if (target.Write(content.Ptr(), content.Size()) && target.Close()) return true;
    return failed(SshFailure::local_file, formatted("$1$: $2$", local, system_text(target))) || give_up();
  });
}

bool sshClient::downloadWholeFile(const YString& remote, const YString& local, sftp_session_struct* given) {
  return in_session(given, remote, [&](sftp_session session, const char* path) {
    const SftpFile file = open_file(*session_, session, path, O_RDONLY);
    if (!file) return refused(session);
    const std::int64_t total = state_->report ? size_of(*session_, file.get()) : -1;
    YFile target(local);
    bool plain = false;
    // Not before the first bytes are there: what can't be read (a folder, say) leaves the local file as it is.
    const auto open_target = [&] {
      if (target.IsOpen()) return true;
      if (!target.Open(kCreateAlways, kAccessWrite)) return false;
      plain = is_plain_file(target.Descriptor());
      return true;
    };
    std::int64_t done = 0;
    const ReadEnd end = read_remote_file(*session_, file.get(), read_plan(), [&](const char* bytes, std::size_t count) {
      if (!open_target() || !target.Write({bytes, count})) return false;
      done += static_cast<std::int64_t>(count);
      if (state_->report) state_->report(done, total);
      return true;
    });
    if (end == ReadEnd::refused) refused(session);
    else if (end == ReadEnd::complete && open_target() && target.Close()) return true;
    else failed(SshFailure::local_file, formatted("$1$: $2$", local, system_text(target)));
    target.Close();
    if (plain) YFile::Delete(local);
    return false;
  });
}

// --- Files and folders on the server --------------------------------------------------------------------------------------

bool sshClient::deleteFile(const YString& remote, sftp_session_struct* given) {
  return in_session(given, remote, [&](sftp_session session, const char* path) {
    const SshCall call(*session_);
    return sftp_unlink(session, path) == SSH_OK || refused(session);
  });
}

bool sshClient::createDirectory(const YString& remote, sftp_session_struct* given) {
  return in_session(given, remote, [&](sftp_session session, const char* path) {
    if (folder_exists(*session_, session, path)) return true;
    const SshCall call(*session_);
    return sftp_mkdir(session, path, kNewMode) == SSH_OK || refused(session);
  });
}

bool sshClient::removeDirectory(const YString& remote, sftp_session_struct* given) {
  return in_session(given, remote, [&](sftp_session session, const char* path) {
    const SshCall call(*session_);
    return sftp_rmdir(session, path) == SSH_OK || refused(session);
  });
}

bool sshClient::existDirectory(const YString& remote, sftp_session_struct* given) {
  return in_session(given, remote, [&](sftp_session session, const char* path) {
    return folder_exists(*session_, session, path) || refused(session);
  });
}

YString sshClient::getDirectory(const YString& remote, sftp_session_struct* given) {
  std::string names;
  const bool read = in_session(given, remote, [&](sftp_session session, const char* path) {
    const SshCall first_call(*session_);
    const SftpFolder folder(sftp_opendir(session, path), {session_.get()});
    if (!folder) return refused(session);
    const auto most_bytes = static_cast<std::size_t>(setting_number(settings::kSshListingSize));
    for (std::int64_t left = setting_number(settings::kSshListingEntries); left > 0; --left) {
      const SshCall call(*session_);
      const SftpAttributes entry(sftp_readdir(session, folder.get()), {session_.get()});
      if (!entry) return sftp_dir_eof(folder.get()) != 0 || refused(session);
      std::string name = text_from_wire(entry->name);
      std::ranges::replace(name, YString::kItemDelimiter, kNoDelimiter);
      if (name.size() >= most_bytes - std::min(names.size(), most_bytes)) break;
      if (!names.empty()) names += YString::kItemDelimiter;
      names += name;
    }
    return true;
  });
  return read ? YString(names) : YString();
}
