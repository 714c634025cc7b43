#pragma once

// Mails in folders of their own: decoded from a file, as mail programs leave them, and composed from a record.

#include <gmock/gmock.h>

#include "support/log_capture.h"
#include "support/temp_dir.h"
#include "yinet/yinet.h"

namespace yinet::test {

inline const std::string kText = "Content-Type: text/plain\r\n\r\n";
inline const std::string kMail = "Content-Type: message/rfc822\r\n\r\n";

// A message whose steps can be reached.
class OpenMessage : public YMIMEMessage {
 public:
  explicit OpenMessage(int max_mail_size = 0) : YMIMEMessage(YString(), max_mail_size, 10240, 0) {}
  explicit OpenMessage(YObject& mail, int max_mail_size = 0) : OpenMessage(max_mail_size) { CreateMessage(&mail); }
  using YMIMEMessage::append_mime_parts;
  using YMIMEMessage::m_Body;
  using YMIMEMessage::m_Date;
  using YMIMEMessage::m_FormatMessage;
  using YMIMEMessage::m_Parts;
};

// A record as JSON with simple quotes.
inline std::string told(const YObject& record) { return replaced(YJSON::Write(record), "\"", "'"); }

class MailTest : public testing::Test {
 protected:
  MailTest() { set_temporary_folder(temporary_.path().string()); }
  ~MailTest() override {
    for (const char* name : {"Lesefreundlich", "AnlagenNamenBehalten"}) set_setting("Mail", name, std::nullopt);
    set_temporary_folder({});
  }

  // Decodes `text` as the file "mail.eml" of the folder into mail_.
  bool decode(std::string_view text, unsigned long flags = 0) {
    mail_ = YObject();
    return OpenMessage().Decode(YString(folder_.write("mail.eml", text).string()), &mail_, flags);
  }
  [[nodiscard]] std::string text(std::string_view key) const { return mail_.GetString(key).str(); }
  [[nodiscard]] std::vector<std::string> attachments() const {
    const YString list = mail_.GetString("ANLAGEN");
    const auto items = list.Items();
    return {items.begin(), items.end()};
  }
  // Everything in the mail's folder and in the temporary one but the mail itself.
  [[nodiscard]] std::vector<std::string> files_left() const {
    std::vector<std::string> names;
    for (const auto* folder : {&folder_, &temporary_})
      for (const auto& entry : std::filesystem::recursive_directory_iterator(folder->path()))
        if (entry.path().filename() != "mail.eml") names.push_back(entry.path().filename().string());
    return names;
  }

  // Makes mail_ a record to compose from, which tests then change.
  void start_record() {
    mail_ = YObject();
    store("ABSENDER=eva@example.org|BETREFF=Hallo|NACHRICHT=Text|EMPF\xC4NGER=max@example.org");
  }
  void store(std::string_view fields) {  // "KEY=text|KEY=text"
    for (const auto field : split(fields, "|"))
      mail_.StoreText(field.substr(0, field.find('=')), field.substr(field.find('=') + 1));
  }
  void attach(const std::string& item) { mail_.StoreText("ANLAGEN", text("ANLAGEN") + "|" + item); }
  void attach_file(const std::string& name, std::string_view bytes) {
    attach(name_from_utf8(folder_.write(name_to_utf8(name), bytes).string()));
  }

  TempDir folder_{"mail"};
  TempDir temporary_{"mailtemp"};
  YObject mail_;
  LogCapture log_;
};

}  // namespace yinet::test
