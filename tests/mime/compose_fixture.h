#pragma once

// A mail record, a message whose steps can be reached, and temporary files of their own.

#include "mime/decode_fixture.h"
#include "support/log_capture.h"
#include "yinet/host/yfile.h"

namespace yinet::test {

class OpenMessage : public YMIMEMessage {
 public:
  explicit OpenMessage(int max_mail_size = 0) : YMIMEMessage(YString(), max_mail_size, 10240, 0) {}
  explicit OpenMessage(YObject& mail, int max_mail_size = 0) : OpenMessage(max_mail_size) { CreateMessage(&mail); }
  using YMIMEMessage::append_mime_parts;
  using YMIMEMessage::m_Body;
  using YMIMEMessage::m_Date;
  using YMIMEMessage::m_FormatMessage;
  using YMIMEMessage::m_Header;
  using YMIMEMessage::m_Parts;
  using YMIMEMessage::m_Subject;

  // From the label on, continuation lines included; empty when there is no such field.
  [[nodiscard]] std::string field(const std::string& label) const {
    const std::string header = "\r\n" + m_Header.str();
    const std::size_t at = header.find("\r\n" + label);
    if (at == std::string::npos) return {};
    std::size_t end = header.find("\r\n", at + 2);
    while (header.substr(end + 2, 1) == "\t") end = header.find("\r\n", end + 2);
    return header.substr(at + 2, end - at - 2);
  }
};

class ComposeTest : public DecodeTest {
 protected:
  ComposeTest() {
    set_temporary_folder(temporary_.path().string());
    mail_.StoreText("ABSENDER", "eva@example.org");
    mail_.StoreText("BETREFF", "Hallo");
    mail_.StoreText("NACHRICHT", "Text");
    mail_.StoreText("EMPF\xC4NGER", "max@example.org");
  }
  ~ComposeTest() override { set_temporary_folder({}); }

  void attach(const std::string& item) {
    const std::string list = text("ANLAGEN");
    mail_.StoreText("ANLAGEN", list.empty() ? item : list + "|" + item);
  }
  void attach_file(const std::string& name, std::string_view bytes) {
    attach(name_from_utf8(folder_.write(name_to_utf8(name), bytes).string()));
  }
  void attach_from_record(const std::string& key, std::string_view bytes) {
    mail_.Store<YBuffer>(key, YBuffer(bytes));
    attach(key);
  }
  [[nodiscard]] std::vector<std::string> temporary_files() const {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(temporary_.path()))
      names.push_back(entry.path().filename().string());
    return names;
  }

  LogCapture log_;
};

inline const std::string kOuter = "KV_MAIL_PaRt_BoUnDaRy_28052007_XJ";
inline const std::string kInner = "KV_MAIL_PaRt_BoUnDaRy_30032012_WN";
inline const std::string kPreamble = "This is a multi-part message in MIME format.\r\n\r\n";

}  // namespace yinet::test
