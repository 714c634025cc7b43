#include "yinet/mime/mail_files.h"

#include <mutex>

#include "yinet/host/message_numbers.h"
#include "yinet/host/text.h"
#include "yinet/host/yerror.h"
#include "yinet/host/yfile.h"
#include "yinet/mime/mail_keys.h"

namespace yinet {
namespace {

constexpr std::string_view kFolder = "TEMP:~EML\\";
constexpr std::size_t kSubjectCharacters = 20;

bool write_file(const YString& path, std::string_view bytes) {
  YFile file(path);
  return file.Open(kOpenAlways, kAccessRead | kAccessWrite, kShareRead | kShareWrite) && file.Write(bytes) && file.Close();
}

// The list may hold names that no decode made.
bool stays_in_folder(std::string_view name) {
  return name != "." && name != ".." && name.find_first_of("/\\:") == std::string_view::npos;
}

}  // namespace

std::string mail_text_file_name(std::string_view subject) {
  static constexpr std::string_view kKept = ".-_()[]{}&%$\xA7#";
  std::string name;
  for (const char c : subject.substr(0, kSubjectCharacters)) {
    if (is_alphanumeric(c) || kKept.find(c) != std::string_view::npos) name += c;
  }
  return (name.empty() ? "Betreff" : name) + ".mail.txt";
}

bool write_mail_files(YObject& record) {
  static std::mutex one_at_a_time;
  const std::lock_guard lock(one_at_a_time);
  YString folder = YFileManager.ResolvePath(YString(kFolder));
  if (!YFileManager.CreateFolder(folder)) return raise_message(6, message::kMailFolderFailed, folder);
  if (!folder.EndsWith("/")) folder += '/';
  YFileManager.EmptyFolder(folder);

  const YString names = record.GetString(mail_key::kAttachments);
  for (const std::string_view name : names.Items()) {
    if (!stays_in_folder(name)) continue;
    if (const auto* bytes = record.Find<YBuffer>(name)) write_file(folder + YString(name), bytes->view());
    record.Delete(name);
  }
  const std::string text_file = mail_text_file_name(record.GetString(mail_key::kSubject));
  if (write_file(folder + YString(text_file), record.GetString(mail_key::kText))) record.Delete(mail_key::kText);
  return true;
}

}  // namespace yinet
