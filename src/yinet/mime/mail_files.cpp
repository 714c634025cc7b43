#include "yinet/mime/mail_files.h"

#include <cerrno>
#include <mutex>
#include <system_error>

#include "yinet/host/codepage.h"
#include "yinet/host/message_numbers.h"
#include "yinet/host/shown_text.h"
#include "yinet/host/text.h"
#include "yinet/host/yerror.h"
#include "yinet/host/yfile.h"
#include "yinet/mime/mail_keys.h"

namespace yinet {
namespace {

constexpr std::size_t kSubjectCharacters = 20;

bool write_file(const YString& path, int creation, std::string_view bytes) {
  YFile file(path);
  return file.Open(creation, kAccessRead | kAccessWrite, kShareRead | kShareWrite) && file.Write(bytes) && file.Close();
}

// The list may hold names that no decode made.
bool stays_in_folder(std::string_view name) {
  return name != "." && name != ".." && name.find_first_of("/\\:") == std::string_view::npos;
}

// A page may name any charset in its own text; programs believe the mark in front before that. Text that came as UTF-8
// without being called so stays UTF-8.
std::string marked_utf8(std::string_view text) { return "\xEF\xBB\xBF" + with_shown_substitutes(name_to_utf8(text)); }

SavedMailFile save_file(const YString& folder, std::string_view name, std::string_view bytes) {
  const YString safe_name(safe_file_name(name_to_utf8(name)));
  const YString base = YFile::ExtractName(safe_name);
  const YString extension = YFile::ExtractExtension(safe_name);
  SavedMailFile saved{.name = std::string(name), .path = {}, .error = {}};
  for (int counter = 1;; ++counter) {
    const std::string free_name =
        counter == 1 ? safe_name.str() : formatted("$1$_$2$$3$", base, std::to_string(counter), extension);
    YFile file(folder + YString(free_name));
    const bool opened = file.Open(kCreateNew, kAccessRead | kAccessWrite);
    if (!opened && file.LastError() == EEXIST) continue;
    if (opened && file.Write(bytes) && file.Close()) saved.path = file.GetName().str();
    else saved.error = std::generic_category().message(file.LastError());
    return saved;
  }
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

std::vector<SavedMailFile> save_mail_files(const YObject& record, const YString& folder) {
  std::vector<SavedMailFile> saved;
  YString path = YFileManager.ResolvePath(folder);
  YFileManager.CreateFolder(path);
  if (!path.EndsWith("/")) path += '/';
  const YString text = record.GetString(mail_key::kText);
  if (!text.IsEmpty()) {
    const std::string name = mail_text_file_name(record.GetString(mail_key::kSubject));
    saved.push_back(save_file(path, name, with_shown_substitutes(utf8_from_ansi(text))));
  }
  const YString names = record.GetString(mail_key::kAttachments);
  for (const std::string_view name : names.Items()) {
    if (!stays_in_folder(name)) continue;
    const auto* bytes = record.Find<YBuffer>(name);
    if (bytes == nullptr) continue;
    const bool is_text = record.GetFlags(name) == mail_key::kGeneratedFile;
    saved.push_back(save_file(path, name, is_text ? marked_utf8(bytes->view()) : bytes->view()));
  }
  return saved;
}

bool write_mail_files(YObject& record) {
  static std::mutex one_at_a_time;
  const std::lock_guard lock(one_at_a_time);
  YString folder = YFileManager.ResolvePath(YString(kMailFilesFolder));
  if (!folder.EndsWith("/")) folder += '/';
  if (!YFileManager.CreateFolder(folder) || !YFileManager.EmptyFolder(folder)) {
    return raise_message(message::kErrorLevel, message::kMailFolderFailed, folder);
  }

  const YString names = record.GetString(mail_key::kAttachments);
  for (const std::string_view name : names.Items()) {
    if (!stays_in_folder(name)) continue;
    if (const auto* bytes = record.Find<YBuffer>(name)) write_file(folder + YString(name), kOpenAlways, bytes->view());
    record.Delete(name);
  }
  if (const auto* text = record.Find<YString>(mail_key::kText)) {
    // An attachment may have the same name; then the text stays in the record.
    const std::string name = mail_text_file_name(record.GetString(mail_key::kSubject));
    if (write_file(folder + YString(name), kCreateNew, *text)) record.Delete(mail_key::kText);
  }
  return true;
}

}  // namespace yinet
