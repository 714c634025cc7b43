// The keep-alive thread beside its owner's thread.

#include <atomic>

#include "ftp/ftp_test_kit.h"

namespace yinet::test {
namespace {

TEST_F(FtpTest, KeepAliveLastsUntilItIsStopped) {
  std::atomic<int> noops = 0;
  Dialogue ftp({}, {}, [&](Connection& connection) {
    // The thread may be at its next one while it is told to stop.
    for (std::string line = connection.read_line(); line != "QUIT\r\n"; line = connection.read_line()) {
      EXPECT_EQ(line, "NOOP\r\n");
      connection.send("200 alive " + std::to_string(++noops) + "\r\n");
    }
    connection.send("221 bye\r\n");
  });
  OpenFtps unconnected;
  const SettingChange interval(settings::kFtpNoopInterval, "5");
  tNoopThreadHandle handle = ftp->StartNoopThread(), other = unconnected.StartNoopThread();
  EXPECT_TRUE(eventually([&] {  // looks at what both threads touch
    EXPECT_LT(ftp->get_last_mesnum(), 400);
    return noops >= 5 && ftp->get_last_command() == "NOOP" && unconnected.get_last_mesnum() == 701;
  }));
  ftp->StopNOOPThread(handle);
  unconnected.StopNOOPThread(other);
  EXPECT_EQ(ftp->closeconnection(), 0);
  EXPECT_EQ(ftp->get_last_mes(0), "221 bye\r\n");
  const SettingChange longest(settings::kFtpNoopInterval, "60000");
  handle = ftp->StartNoopThread();
  EXPECT_LT(time_of([&] { ftp->StopNOOPThread(handle); }).count(), 20000);
  ftp->StopNOOPThread(handle);  // nothing left to stop
}

}  // namespace
}  // namespace yinet::test
