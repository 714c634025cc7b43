// Whole mails, as files and as text: nothing is left in the folder, every attachment listed is there under a name that
// stays in a folder, and the same mail decodes to the same record every time.

#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>

#include "yinet/host/settings.h"
#include "yinet/host/yfile.h"
#include "yinet/host/yjson.h"
#include "yinet/host/ylog.h"
#include "yinet/mime/ymime_message.h"

namespace {

namespace fs = std::filesystem;

void require(bool condition) {
  if (!condition) std::abort();
}

// One folder per process, in memory where there is one; it goes with the process.
class Folder {
 public:
  Folder() : path_((fs::exists("/dev/shm") ? "/dev/shm" : fs::temp_directory_path()) / ("yinet-mail-fuzz-" + std::to_string(getpid()))) {
    fs::create_directories(path_ / "mail");
    fs::create_directories(path_ / "temp");
    yinet::set_temporary_folder((path_ / "temp").string());
    yinet::set_log_sink([](const yinet::LogRecord&) {});
  }
  Folder(const Folder&) = delete;
  Folder& operator=(const Folder&) = delete;
  ~Folder() {
    std::error_code ignored;
    fs::remove_all(path_, ignored);
  }
  [[nodiscard]] std::string mail() const { return (path_ / "mail" / "mail.eml").string(); }
  [[nodiscard]] bool holds_only_the_mail() const {
    for (const auto& entry : fs::recursive_directory_iterator(path_))
      if (entry.is_regular_file() && entry.path() != mail()) return false;
    return true;
  }

 private:
  fs::path path_;
};

bool decode(const std::string& source, unsigned long flags, YObject& record) {
  return YMIMEMessage(YString(), 0, 100, 0).Decode(YString(source), &record, flags);
}

void check(const std::string& mail, bool readable) {
  static const Folder folder;
  yinet::set_setting("Mail", "Lesefreundlich", readable ? "1" : "0");
  std::ofstream(folder.mail(), std::ios::binary) << mail;
  YObject record;
  require(decode(folder.mail(), 0, record) != mail.empty());
  require(folder.holds_only_the_mail());
  const YString attachments = record.GetString("ANLAGEN");
  for (const std::string_view name : attachments.Items()) {
    require(record.Find<YBuffer>(name) != nullptr && !name.empty() && name != "." && name != "..");
    require(name.find_first_of(std::string_view("/\\:\r\n\0", 6)) == std::string_view::npos);
  }
  YObject again;
  decode(folder.mail(), 0, again);
  require(YJSON::Write(record) == YJSON::Write(again));
  YObject information;
  decode(mail, 8 | 4 | 2, information);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string input(reinterpret_cast<const char*>(data), size);
  check(input, false);
  check(input, true);

  static constexpr std::string_view kLikely[] = {
      "Content-Type: ", "multipart/mixed", "text/plain", "text/html", "message/rfc822", "a/b", "; boundary=", "; name=", "x.bin",
      "\r\n", "\r\n", "\r\n\r\n", "--", "--b\r\n", "--b--\r\n", "b", "b", "bb", "; charset=utf-8", "Content-Transfer-Encoding: ", "base64",
      "quoted-printable", "QUJD", "=", "\"", "Subject: ", "=?utf-8?B?", "?=", "From: ", "<", "\n", ".\r\n"};
  std::string mapped;
  for (const char c : input.substr(0, 4096)) mapped += kLikely[static_cast<unsigned char>(c) % std::size(kLikely)];
  check(mapped, size % 2 == 0);
  return 0;
}
