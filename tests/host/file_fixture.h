#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <mutex>
#include <string>
#include <vector>

#include "support/temp_dir.h"
#include "yinet/host/settings.h"
#include "yinet/host/yfile.h"
#include "yinet/host/ylog.h"

namespace yinet::test {

// A folder of the test's own, with "TEMP:" in a sub-folder of it, and the numbers of what was logged.
class FileTest : public testing::Test {
 protected:
  FileTest() : base(folder.make_folder("base")) {
    set_setting("Dateien", "TempVerzeichnis", base.string());
    set_log_sink([this](const LogRecord& record) {
      const std::lock_guard guard(mutex_);
      logged_.push_back(record.number);
    });
  }
  ~FileTest() override {
    set_log_sink(nullptr);
    set_temporary_folder("");
    for (const char* name : {"TempVerzeichnis", "LaufwerkC"}) set_setting("Dateien", name, std::nullopt);
  }

  [[nodiscard]] long times_logged(int number) const { return std::count(logged_.begin(), logged_.end(), number); }
  // What a name of the library stands for on the disk.
  static std::filesystem::path on_disk(const YString& name) { return YFileManager.ResolveSystemPath(name); }
  [[nodiscard]] YString name_of(std::string_view name) const { return YString((folder / name).string()); }

  TempDir folder;
  std::filesystem::path base;  // where the private temporary folder is made

 private:
  std::mutex mutex_;
  std::vector<int> logged_;
};

}  // namespace yinet::test
