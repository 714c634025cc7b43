#pragma once

// Vocabulary of the file transfer tests.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "support/bytes.h"
#include "support/log_capture.h"
#include "support/requirements.h"
#include "support/temp_dir.h"
#include "yinet/filetransfer/yinet_file_transfer.h"
#include "yinet/host/setting_table.h"

namespace yinet::test {

class TransferTest : public testing::Test {
 protected:
  TransferTest() { set(settings::kTransferConnectLimit, "120000"); }  // a busy machine is no failure
  ~TransferTest() override {
    for (const Setting* setting : changed_) set_setting(setting->section, setting->name, std::nullopt);
  }
  // For the rest of the test.
  void set(const Setting& setting, std::string value) {
    set_setting(setting.section, setting.name, std::move(value));
    changed_.push_back(&setting);
  }
  YString local_file(std::string_view name, std::string_view content) { return YString(local.write(name, content).string()); }
  YString local_name(std::string_view name) { return YString((local / name).string()); }

  LogCapture log;
  TempDir local{"local"};

 private:
  std::vector<const Setting*> changed_;
};

// An assertion's text: what went wrong in `transfer`.
inline std::string error_of(YInetFileTransfer& transfer) {
  return std::string(transfer.GetLastErrorMsg()) + " / " + std::string(transfer.last_cause().text);
}

}  // namespace yinet::test
