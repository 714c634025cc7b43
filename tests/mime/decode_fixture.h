#pragma once

// Decodes a mail text from a file in a folder of its own, as mail programs leave them.

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include "support/temp_dir.h"
#include "yinet/host/codepage.h"
#include "yinet/host/settings.h"
#include "yinet/host/yobject.h"
#include "yinet/mime/ymime_message.h"

namespace yinet::test {

class DecodeTest : public testing::Test {
 protected:
  DecodeTest() { set_setting("Dateien", "TempVerzeichnis", temporary_.path().string()); }
  ~DecodeTest() override {
    for (const auto& name : changed_) set_setting("Mail", name, std::nullopt);
    set_setting("Dateien", "TempVerzeichnis", std::nullopt);
  }

  void set(const std::string& name, const std::string& value) {
    set_setting("Mail", name, value);
    changed_.push_back(name);
  }

  // Decodes `text` as the file "mail.eml" of the folder.
  bool decode(std::string_view text, unsigned long flags = 0) {
    const std::string file = folder_.write("mail.eml", text).string();
    mail_ = YObject();
    return YMIMEMessage(YString(), 0, 10240, 0).Decode(YString(name_from_utf8(file)), &mail_, flags);
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

  TempDir folder_{"mail"};
  TempDir temporary_{"mailtemp"};
  YObject mail_;

 private:
  std::vector<std::string> changed_;
};

}  // namespace yinet::test
