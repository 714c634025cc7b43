#pragma once

// A mail record, a message whose steps can be reached, and temporary files of their own.

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "support/log_capture.h"
#include "support/temp_dir.h"
#include "yinet/host/settings.h"
#include "yinet/host/yfile.h"
#include "yinet/host/yobject.h"
#include "yinet/mime/ymime_message.h"

namespace yinet::test {

class OpenMessage : public YMIMEMessage {
 public:
  explicit OpenMessage(int max_mail_size = 0) : YMIMEMessage(YString(), max_mail_size, 10240, 0) {}
  using YMIMEMessage::append_mime_parts;
  using YMIMEMessage::m_AddRecipient;
  using YMIMEMessage::m_CheckAttachments;
  using YMIMEMessage::m_ConvertHTM2TXT;
  using YMIMEMessage::m_EncodeHeaderLine;
  using YMIMEMessage::m_FormatMessage;
  using YMIMEMessage::m_IsDateInDST;
  using YMIMEMessage::m_MakeAttachFileName;

  using YMIMEMessage::m_Body;
  using YMIMEMessage::m_Date;
  using YMIMEMessage::m_EnvelopeHeaders;
  using YMIMEMessage::m_Header;
  using YMIMEMessage::m_MaxBodySize;
  using YMIMEMessage::m_MaxLineLength;
  using YMIMEMessage::m_Parts;
  using YMIMEMessage::m_Subject;
};

class ComposeTest : public testing::Test {
 protected:
  ComposeTest() {
    set_temporary_folder(temporary_.path().string());
    mail_.StoreText("ABSENDER", "eva@example.org");
    mail_.StoreText("BETREFF", "Hallo");
    mail_.StoreText("NACHRICHT", "Text");
    mail_.StoreText("EMPF\xC4NGER", "max@example.org");
  }
  ~ComposeTest() override {
    for (const auto& name : changed_) set_setting("Mail", name, std::nullopt);
    set_temporary_folder({});
  }

  void set(const std::string& name, const std::string& value) {
    set_setting("Mail", name, value);
    changed_.push_back(name);
  }
  void attach_from_record(const std::string& key, std::string_view bytes) {
    mail_.Store<YBuffer>(key, YBuffer(bytes));
    attach(key);
  }
  void attach(const std::string& item) {
    const std::string list = mail_.GetString("ANLAGEN").str();
    mail_.StoreText("ANLAGEN", list.empty() ? item : list + "|" + item);
  }

  // The value of the first such field, continuation lines joined as they stand; "(none)" when there is none.
  static std::string field(const YMIMEMessage& message, std::string_view name) {
    const std::string header = "\r\n" + message.GetHeader().str();
    const std::size_t at = header.find("\r\n" + std::string(name) + ":");
    if (at == std::string::npos) return "(none)";
    const std::size_t value = at + 3 + name.size();
    std::size_t end = header.find("\r\n", value);
    while (end + 2 < header.size() && (header[end + 2] == '\t' || header[end + 2] == ' '))
      end = header.find("\r\n", end + 2);
    return header.substr(value, end - value);
  }

  [[nodiscard]] std::vector<std::string> temporary_files() const {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(temporary_.path()))
      names.push_back(entry.path().filename().string());
    return names;
  }

  TempDir temporary_{"mailtemp"};
  TempDir folder_{"mail"};
  YObject mail_;
  LogCapture log_;

 private:
  std::vector<std::string> changed_;
};

inline const std::string kOuter = "KV_MAIL_PaRt_BoUnDaRy_28052007_XJ";
inline const std::string kInner = "KV_MAIL_PaRt_BoUnDaRy_30032012_WN";
inline const std::string kPreamble = "This is a multi-part message in MIME format.\r\n\r\n";

}  // namespace yinet::test
