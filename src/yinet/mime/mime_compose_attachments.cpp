// The attachments of a mail to compose: which ones go, where their content comes from, and what they are called.

#include <algorithm>
#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_set>

#include "yinet/host/message_numbers.h"
#include "yinet/host/setting_table.h"
#include "yinet/host/text.h"
#include "yinet/host/yfile.h"
#include "yinet/host/ylog.h"
#include "yinet/host/ytextmanager.h"
#include "yinet/mime/attachment_file.h"
#include "yinet/mime/attachment_names.h"
#include "yinet/mime/html_to_text.h"
#include "yinet/mime/mail_keys.h"
#include "yinet/mime/mail_messages.h"
#include "yinet/mime/ymime_message.h"

namespace {

constexpr std::string_view kDelimiters = "|,";
constexpr int kFirstTemporaryFile = 1;
constexpr std::int64_t kBytesPerKilobyte = 1024;

void report_size(YObject& mail, int number, std::int64_t bytes) {
  namespace key = yinet::mail_key;
  const YString text = YTextManager.GetYText(number, mail.GetString(key::kProfile), mail.GetString(key::kTo),
                                             mail.GetString(key::kSubject), std::to_string(bytes / kBytesPerKilobyte));
  YLog.EventEx(yinet::message::kErrorLevel, number, text, {});
  mail.StoreText(key::kError, text);
}

// The keys of a record as they are spelled: for attachments letter case counts.
std::unordered_set<std::string> spelled_keys(const YObject& record) {
  std::unordered_set<std::string> keys;
  for (int i = 0; i < record.GetStringKeyCount(); ++i) keys.insert(record.GetStringKey(i).str());
  return keys;
}

std::shared_ptr<const yinet::AttachmentFile> file_from_record(const YObject& mail, const YString& key, int& counter) {
  const YString name = yinet::setting_flag(yinet::settings::kMailKeepAttachmentNames) ? key : YString();
  if (const auto* const bytes = mail.Find<YBuffer>(key))
    return yinet::AttachmentFile::create(bytes->view(), name, counter);
  if (const auto* const text = mail.Find<YString>(key)) return yinet::AttachmentFile::create(*text, name, counter);
  return yinet::AttachmentFile::create(mail.GetString(key), name, counter);
}

}  // namespace

YString YMIMEMessage::m_CheckAttachments(YObject* mail) {
  namespace key = yinet::mail_key;
  attachment_files_.clear();
  YString paths;
  const std::int64_t text_size = mail->GetString(key::kText).Length();
  if (m_MaxMailSize != 0 && text_size > m_MaxMailSize) {
    report_size(*mail, yinet::message::kMailBodyTooLarge, text_size);
    return paths;
  }
  const YString list = mail->GetString(key::kAttachments);
  if (list.IsEmpty()) return paths;

  const auto keys = spelled_keys(*mail);
  int counter = kFirstTemporaryFile;
  std::int64_t total = 0;
  for (const std::string_view item : yinet::split(list, kDelimiters)) {
    YString path(yinet::trimmed(item));
    if (path.IsEmpty()) continue;
    std::shared_ptr<const yinet::AttachmentFile> file;
    if (const YString name = YFile::ExtractNameAndExtension(path); keys.contains(name.str())) {
      file = file_from_record(*mail, name, counter);
      if (!file) continue;
      path = file->path();
    }
    if (m_MaxMailSize != 0) {
      YFile on_disk(path);
      total += std::max<std::int64_t>(on_disk.GetFileSize(), 0);
      if (total > m_MaxMailSize) {
        report_size(*mail, yinet::message::kMailAttachmentsTooLarge, total);
        break;
      }
    }
    if (file) {
      paths.AddItem(path);
      attachment_files_.push_back(std::move(file));
    } else {
      // A path that cannot be resolved stays as it is: its agent will tell.
      const YString resolved = YFileManager.ResolvePath(path);
      paths.AddItem(resolved.IsEmpty() ? path : resolved);
    }
  }
  return paths;
}

YString YMIMEMessage::m_MakeAttachFileName(const YString& name) {
  if (name.IsEmpty()) return "Embeddedxxx";
  std::string safe = name.str();
  if (safe.front() == '"') safe.erase(0, 1);
  for (char& c : safe)
    if (yinet::kNotInFileNames.find(c) != std::string_view::npos) c = '_';
  if (yinet::equal_ignoring_case(safe, yinet::kMessageFile)) safe = yinet::kMessageFileRenamed;
  const YString extension = YFile::ExtractExtension(safe);
  return YFile::ExtractName(safe) + (extension.Length() > 1 ? extension : YString(yinet::kNoExtension));
}

void YMIMEMessage::m_ConvertHTM2TXT(YString& text) { text = yinet::html_to_text(text); }
