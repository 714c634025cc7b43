#include "mail_compose.h"

#include <atomic>
#include <cstring>
#include <filesystem>
#include <string_view>

#include "command.h"
#include "record_input.h"
#include "terminal.h"
#include "yinet/host/codepage.h"
#include "yinet/host/message_numbers.h"
#include "yinet/host/setting_table.h"
#include "yinet/host/yfile.h"
#include "yinet/host/ylog.h"
#include "yinet/host/yobject.h"
#include "yinet/mime/mail_keys.h"
#include "yinet/mime/ymime_message.h"

namespace yinet::cli {
namespace {

// Counts the attachments that composing could not send: it says so in the log alone.
class UnsentAttachments {
 public:
  UnsentAttachments() {
    set_log_sink([this](const LogRecord& record) {
      if (record.number == message::kMailAttachmentFailed) ++count_;
      print_log(record);
    });
  }
  UnsentAttachments(const UnsentAttachments&) = delete;
  UnsentAttachments& operator=(const UnsentAttachments&) = delete;
  ~UnsentAttachments() { set_log_sink(&print_log); }
  [[nodiscard]] int count() const { return count_; }

 private:
  std::atomic<int> count_ = 0;
};

// People name files by their keys and write texts with any line end; --set still decides.
void compose_readably_by_default() {
  for (const Setting* setting : {&settings::kMailKeepAttachmentNames, &settings::kMailUnifyLineEnds})
    set_setting_default(setting->section, setting->name, "1");
}

// A list may be a JSON array, which comes in as an item list, and so do the lists of a decoded mail.
void take_lists(YObject& record) {
  struct List {
    std::string_view key;
    char separator;
  };
  for (const auto& [key, separator] : {List{mail_key::kTo, ';'}, List{mail_key::kCc, ';'}, List{mail_key::kBcc, ';'},
                                       List{mail_key::kAttachments, '|'}})
    if (auto* list = record.Find<YString>(key)) list->ReplaceChar(YString::kItemDelimiter, separator);
}

void remark_missing_recipients(const YObject& record) {
  for (const std::string_view key : {mail_key::kTo, mail_key::kCc, mail_key::kBcc})
    if (!record.GetString(key).IsEmpty()) return;
  remark("the record has no \"EMPF\xC3\x84NGER\", \"KOPIE\" or \"BLINDKOPIE\": the mail has no recipients");
}

int write_mail(const std::string& name, const YString& header, const YString& body) {
  if (name.empty() || name == "-") {
    print(header);
    print(body);
    return kSucceeded;
  }
  YFile file(YString(name_from_utf8(name)));
  const bool opened = file.Open(kCreateAlways, kAccessWrite);
  if (opened && file.Write(header) && file.Write(body) && file.Close()) return kSucceeded;
  remark(name + " could not be written: " + std::strerror(file.LastError()));
  file.Close();
  std::error_code ignored;
  if (opened && std::filesystem::is_regular_file(name, ignored)) YFile::Delete(file.GetName());  // half a mail is none
  return kFailed;
}

}  // namespace

int compose_mail(const ComposeArguments& arguments) {
  compose_readably_by_default();
  YObject record;
  if (const auto problem = take_json_file(arguments.record, record)) {
    remark(*problem);
    return kFailed;
  }
  take_lists(record);
  if (record.GetString(mail_key::kSender).IsEmpty()) {
    remark("the record has no \"ABSENDER\": no mail goes out without a sender");
    return kFailed;
  }
  remark_missing_recipients(record);

  const UnsentAttachments unsent;
  YMIMEMessage message(YString(), 0, kUsualBodySize, 0);
  message.CreateMessage(&record);
  if (message.GetHeader().IsEmpty() || unsent.count() > 0) {
    remark("no mail is written; the messages above say why");
    return kFailed;
  }
  return write_mail(arguments.out, message.GetHeader(), message.GetBody());
}

}  // namespace yinet::cli
