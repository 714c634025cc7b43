// Transfers of files and listings, and the questions about files.

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <limits>
#include <new>
#include <string>
#include <thread>

#include "yinet/ftp/ftp_answers.h"
#include "yinet/ftp/ftp_codes.h"
#include "yinet/ftp/ftps.h"
#include "yinet/ftp/ftps_state.h"
#include "yinet/host/contained.h"
#include "yinet/host/message_numbers.h"
#include "yinet/host/setting_table.h"
#include "yinet/host/text.h"
#include "yinet/host/wire_text.h"
#include "yinet/host/ybuffer.h"
#include "yinet/host/yfile.h"
#include "yinet/host/ylog.h"
#include "yinet/net/readiness.h"

using namespace yinet;
using namespace yinet::ftp;

namespace {

using std::chrono::milliseconds;

constexpr int kDownloadPiece = 16384;
constexpr int kListingPiece = 2048;
constexpr int kListingFlags = ftps::kForce | ftps::kOrdinary;
constexpr const char* kNoListing = "-1";

int poll_time(milliseconds wait) {
  return static_cast<int>(std::min<std::int64_t>(wait.count(), std::numeric_limits<int>::max()));
}

// The whole open file; false when it cannot be read to its end or is empty.
bool read_whole(YFile& file, YBuffer& content) {
  const std::int64_t size = file.GetFileSize();
  if (size <= 0) return false;
  try {
    content.SetSize(static_cast<long>(size));
  } catch (const std::bad_alloc&) {
    return false;
  }
  return file.Read(content.Ptr(), content.Size()) == content.Size();
}

int compare_sizes(std::int64_t local, std::int64_t remote) {
  if (remote == kNoSuchFile || remote == kUnreadableSize) return static_cast<int>(remote);
  if (local == remote && remote > 0) return kDone;
  if (local == 0 && remote == 0) return kBothEmpty;
  if (local == 0) return remote < 0 ? 7 : 2;
  if (local == -1) return remote >= 0 ? 6 : 8;
  if (local > 0 && remote < 0) return 7;
  if (local > 0 && remote == 0) return 3;
  if (local > remote) return 4;
  if (local < remote) return 5;
  return -1;
}

}  // namespace

int ftps::set_server_transfer_type(int type, int flags) {
  return contained(kFailed, [&] {
    if ((flags & kForce) == 0 && get_transfer_type() == type) return 1;
    const char* letter = "";
    if (type == kTextType) letter = "A";
    if (type == kByteType) letter = "I";
    if (send_command(YString(formatted("TYPE $1$", letter)), kReadReply) != kDone) return kFailed;
    set_transfer_type(type);
    return kDone;
  });
}

long ftps::get_filesize(const YString& remote) {
  return contained(-1L, [&]() -> long {
    constexpr std::size_t kBehindCode = 4;
    constexpr int kWithCommand = 1;
    set_server_transfer_type(kByteType, 0);
    // After a reply that did not come the last message is that of another command, another file's size perhaps.
    if (send_command(YString(formatted("SIZE $1$", remote)), kReadReply) == kTimeOver) return -1;
    switch (get_last_mesnum()) {
      case kSizeReply: return size_in_answer(get_last_mes(kWithCommand), kBehindCode);
      case kNoFileReply: return kNoSuchFile;
      default: return -1;
    }
  });
}

int ftps::cmp_filesizes(const YString& local, const YString& remote) {
  return contained(-1, [&] {
    if (!connected()) return -1;
    const std::int64_t local_size = YFile(local).GetFileSize();
    return compare_sizes(local_size, get_filesize(remote));
  });
}

int ftps::del_file(const YString& remote) {
  return contained(kFailed, [&] {
    if (!connected()) return kNotConnected;
    send_command(YString(formatted("DELE $1$", remote)), kReadReply);
    if (breaks_protocol_line(remote)) return kFailed;  // was not asked for
    return get_last_mesnum() == kNoFileReply ? kLocalFileFailed : kDone;
  });
}

int ftps::download_files(const YString&, const YString&, int) { return connected() ? 0 : 1; }

// --- Download -----------------------------------------------------------------------------------------------------------

int ftps::download_file(const YString& remote, const YString& local, int) {
  return contained(kFailed, [&]() -> int {
    YLog.DebugStart(kTraceChannel, message::kFtpDownloadBegins, remote, local);
    if (!connected()) return 1;
    const long size = get_filesize(remote);
    if (size < 0) return static_cast<int>(size);

    const bool names_folder = YFile::ExtractNameAndExtension(local).IsEmpty();
    YFile target(names_folder ? local + YFile::ExtractNameAndExtension(remote) : local);
    if (!target.Open(kCreateAlways, kAccessWrite, kShareRead, kAttributeNormal)) {
      return failed_with(kTargetNotOpened, kLocalFileFailed);
    }
    set_server_transfer_type(kByteType, 0);
    SecureSocket data;
    if (open_data_channel(&data, kOrdinary) != kDone) return kFailed;
    send_command(YString(formatted("RETR $1$", remote)), kReadReply);
    if (refused()) return kTimeOver;  // nothing will come
    return receive_file(data, target, size);
  });
}

int ftps::receive_file(SecureSocket& data, YFile& target, std::int64_t size) {
  const YString name = target.GetName();
  const bool restarts = setting_flag(settings::kFtpDownloadIdle);
  const milliseconds limit(download_timeout_);
  const auto broken_off = [&](int result) {
    YLog.DebugEnd(kTraceChannel, message::kFtpTransferBroken, name);
    return result;
  };
  YLog.DebugEvent(kTraceChannel, message::kFtpTransferBegins, name);
  Deadline deadline(limit);
  std::int64_t received = 0;
  YBuffer piece;
  for (;;) {
    const int count = data.Receive(piece, kDownloadPiece, true);
    if (count > 0) {
      if (!target.Write(piece.Ptr(), count)) {
        data.Close();
        return broken_off(failed_with(kTargetNotWritten, kLocalFileFailed));
      }
      received += count;
      if (state_->report) state_->report(received, size);
      if (restarts) deadline = Deadline(limit);
    }
    if (deadline.passed()) {
      data.Close();
      return broken_off(kTimeOver);
    }
    if (count == SecureSocket::kReceiveEnded) break;
    if (count == 0) data.wait_for_input(poll_time(deadline.left()));
  }
  const bool no_handshake = data.lacks_handshake();
  data.Close();
  if (no_handshake) {
    get_ftpserver_mes();
    return broken_off(kFailed);
  }
  YLog.DebugEnd(kTraceChannel, message::kFtpTransferEnds, name);
  const bool written = target.Close();
  const int reply = get_ftpserver_mes();
  if (!written) return failed_with(kTargetNotWritten, kLocalFileFailed);
  const bool complete = reply == kDone && !refused() && received == size;
  return complete || !setting_flag(settings::kFtpExactDownloads) ? kDone : kFailed;
}

// --- Upload -------------------------------------------------------------------------------------------------------------

int ftps::upload_file(const YString& local, const YString& remote, int type) {
  return contained(kFailed, [&]() -> int {
    YLog.DebugStart(kTraceChannel, message::kFtpUploadBegins, local, remote);
    if (!connected()) return kNotConnected;
    if (type != kByteType) set_server_transfer_type(kByteType, 0);

    YFile source(local);
    if (!source.Open(kOpenExisting, kAccessRead)) return failed_with(kSourceNotOpened, kLocalFileFailed);
    YBuffer content;
    if (!read_whole(source, content)) return failed_with(kSourceNotRead, kLocalFileFailed);
    source.Close();

    YString name = remote;
    const std::size_t slash = std::string_view(remote).rfind('/');
    if (slash != std::string_view::npos) {
      if (!enter_folder(std::string_view(remote).substr(0, slash + 1))) return kFailed;
      name = YString(std::string_view(remote).substr(slash + 1));
    } else if (remote.IsEmpty()) {
      name = YFile::ExtractNameAndExtension(local);
    }
    SecureSocket data;
    if (open_data_channel(&data, kOrdinary) != kDone) return kFailed;
    set_server_transfer_type(kByteType, kForce);
    send_command(YString(formatted("STOR $1$", name)), kReadReply);
    if (refused()) return kFailed;
    return send_file(data, content);
  });
}

bool ftps::enter_folder(std::string_view folder) {
  if (folder.size() > 1) folder.remove_suffix(1);  // the slash at its end; the root is nothing else
  send_command(YString(formatted("CWD $1$", folder)), kReadReply);
  return !refused();
}

int ftps::send_file(SecureSocket& data, const YBuffer& content) {
  const YString name = get_last_command();
  YLog.DebugEvent(kTraceChannel, message::kFtpTransferBegins, name);
  const Deadline deadline{milliseconds(upload_timeout_)};
  if (state_->report) {
    data.on_sent(
        [this, &content](std::size_t sent) { state_->report(static_cast<std::int64_t>(sent), content.Size()); });
  }
  for (bool sent = data.Send(content); !sent; sent = data.send_rest(content)) {
    if (data.is_broken() || deadline.passed()) {
      const int result = data.lacks_handshake() ? kFailed : kTimeOver;
      data.Close();
      YLog.DebugEnd(kTraceChannel, message::kFtpTransferBroken, name);
      return result;
    }
    std::this_thread::sleep_for(std::min(milliseconds(setting_number(settings::kFtpResendPause)), deadline.left()));
  }
  YLog.DebugEnd(kTraceChannel, message::kFtpTransferEnds, name);
  data.Close();  // in order: the server gets every byte
  get_ftpserver_mes();
  return refused() ? kFailed : kDone;
}

// --- Listings and folders -------------------------------------------------------------------------------------------------

YString ftps::get_dir_content() { return listing("LIST"); }
YString ftps::get_dir_content0() { return listing("NLST"); }

YString ftps::listing(std::string_view command) {
  return contained(YString(), [&] {
    SecureSocket data;
    if (open_data_channel(&data, kListingFlags) != kDone) return YString(kNoListing);
    send_command(YString(command), kReadReply);
    YString text;
    if (!refused()) {
      receive_datastr(&data, text);
      if (data.lacks_handshake()) text = kNoListing;
    }
    data.Close();
    return text;
  });
}

int ftps::receive_datastr(SecureSocket* data, YString& out) {
  return contained(0, [&] {
    out.Clear();
    if (data == nullptr || !data->has_connection()) return 0;
    const milliseconds limit(setting_number(settings::kFtpListingLimit));
    const auto most = static_cast<std::size_t>(setting_number(settings::kFtpListingSize));
    std::string text;
    YString piece;
    while (text.size() < most) {
      const int count = data->Receive(piece, kListingPiece, false);
      if (count < 0) break;
      if (count == 0) {
        if (!data->wait_for_input(poll_time(limit))) break;
        continue;
      }
      text.append(std::string_view(piece).substr(0, std::min(static_cast<std::size_t>(count), most - text.size())));
    }
    out = YString(text_from_wire(text));
    return 0;
  });
}

YString ftps::ch_dir(const YString&) {
  send_command("CWD", kReadReply);
  return get_act_dir();
}

YString ftps::get_act_dir() {
  send_command("PWD", kReadReply);
  return YString(get_ftpserver_mes());
}
