#include "ftp_failure.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>
#include <string_view>

#include "terminal.h"
#include "transfer_call.h"
#include "yinet/ftp/ftp_codes.h"
#include "yinet/ftp/ftps.h"
#include "yinet/host/text.h"
#include "yinet/host/ylog.h"

namespace yinet::cli {
namespace {

// Whether it is one of the library's own texts that stands in the place of a reply.
bool says(ftps& ftp, std::string_view own_status) { return ftp.get_last_mes(0).Equals(own_status); }

bool refused_by_server(ftps& ftp) {
  return !no_reply(ftp) && ftp.get_last_mesnum() >= ftp::kFirstRefusal && ftp.get_last_mesnum() < ftp::kFirstOwnStatus;
}

// What the server said last, or why it said nothing.
std::string words(ftps& ftp) {
  if (no_reply(ftp)) return "the server did not answer in time";
  if (ftp.get_last_mesnum() >= ftp::kFirstOwnStatus) return "the server has ended the connection";
  return shown(SecretScope::masked(trimmed(ftp.get_last_mes(0))));
}

}  // namespace

bool no_reply(ftps& ftp) { return !ftp.has_connection(); }
bool went_well(ftps& ftp) { return !no_reply(ftp) && ftp.get_last_mesnum() < ftp::kFirstRefusal; }

int connection_failure(ftps& ftp, const std::string& server, const std::string& user) {
  if (says(ftp, ftp::kConnectFailed)) return fail(kNoConnection, "no connection to " + server);
  const YString command = ftp.get_last_command();
  if (command.StartsWith("AUTH")) {
    if (!refused_by_server(ftp) && went_well(ftp))
      return fail(kNoConnection, "TLS with " + server + " did not come about");
    if (refused_by_server(ftp)) {
      return fail(kNoConnection,
                  server + " offers no TLS (" + words(ftp) + "); ftp:// does without, with the password in clear");
    }
  }
  const bool login = refused_by_server(ftp) && (command.StartsWith("USER") || command.StartsWith("PASS"));
  return login ? fail(kLoginRefused, "login as " + user + " refused: " + words(ftp))
               : fail(kNoConnection, server + ": " + words(ftp));
}

int command_failure(ftps& ftp, const std::string& path) {
  return fail(refused_by_server(ftp) ? kRefusedByServer : kBrokenOff, path + ": " + words(ftp));
}

int transfer_failure(ftps& ftp, int result, const std::string& remote, std::int64_t done, std::int64_t total) {
  if (result == ftp::kLocalFileFailed) return kLocalFile;
  if (!went_well(ftp)) return command_failure(ftp, remote);
  const std::string progress = total >= 0 ? std::to_string(done) + " of " + std::to_string(total) + " bytes" : "";
  return fail(kBrokenOff, remote + ": the transfer broke off" + (progress.empty() ? "" : " after " + progress));
}

std::string reason_not_to_send(const std::string& file, const std::string& title) {
  const std::unique_ptr<std::FILE, int (*)(std::FILE*)> opened(std::fopen(file.c_str(), "rb"), &std::fclose);
  std::error_code error;
  if (!opened) return title + " cannot be read: " + std::strerror(errno);
  if (std::filesystem::is_directory(file, error)) return title + " is a folder";
  if (std::filesystem::file_size(file, error) == 0) return title + " is empty, and empty files are not sent";
  return {};
}

}  // namespace yinet::cli
