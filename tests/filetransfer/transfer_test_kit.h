#pragma once

#include "ftp/ftp_test_kit.h"
#include "yinet/filetransfer/yinet_file_transfer.h"

namespace yinet::test {

class TransferTest : public FtpTest {
  SettingChange patience_{settings::kTransferConnectLimit, "120000"};  // a busy machine is no failure
};

inline YInetFileTransfer transfer_to(const std::string& url, const YString& user = {}, const YString& password = {}) {
  YInetFileTransfer transfer;
  EXPECT_TRUE(transfer.SetServerUrl(url));
  transfer.SetUsername(user);
  transfer.SetPassword(password);
  return transfer;
}

// An assertion's text: what went wrong in `transfer`.
inline std::string error_of(YInetFileTransfer& transfer) {
  return transfer.GetLastErrorMsg().str() + " / " + transfer.last_cause().text.str();
}

}  // namespace yinet::test
