// The keep-alive thread beside its owner's thread.

#include <atomic>

#include "ftp/ftp_test_kit.h"

namespace yinet::test {
namespace {

class FtpsNoopTest : public FtpTest {
 protected:
  SettingChange interval{settings::kFtpNoopInterval, "5"};
};

TEST_F(FtpsNoopTest, KeepsTheConnectionAliveUntilItIsStopped) {
  std::atomic<int> noops = 0;
  ScriptedPeer server([&](Connection& connection) {
    connection.send("220 hi\r\n");
    connection.expect("USER u\r\n");
    connection.send("331 go on\r\n");
    connection.expect("PASS p\r\n");
    connection.send("230 in\r\n");
    while (noops < 5) {
      connection.expect("NOOP\r\n");
      connection.send("200 alive " + std::to_string(++noops) + "\r\n");
    }
    // The thread may be at its next one while it is told to stop.
    for (std::string line = connection.read_line(); line != "QUIT\r\n"; line = connection.read_line()) connection.send("200 more\r\n");
    connection.send("221 bye\r\n");
  });
  OpenFtps ftp(server.target(), "u", "p", kPlainFtp, "");
  ASSERT_EQ(ftp.connect(), 0);
  tNoopThreadHandle handle = ftp.StartNoopThread();
  ASSERT_NE(handle.thread, nullptr);
  ASSERT_TRUE(eventually([&] {  // looks at what both threads touch
    EXPECT_LT(ftp.get_last_mesnum(), 400);
    EXPECT_FALSE(ftp.get_last_mes(1).IsEmpty());
    return noops >= 5 && ftp.get_last_command() == "NOOP";
  }));
  ftp.StopNOOPThread(handle);
  EXPECT_EQ(handle.thread, nullptr);
  EXPECT_EQ(handle.stop_event, nullptr);
  EXPECT_EQ(ftp.closeconnection(), 0);
  EXPECT_EQ(ftp.get_last_mes(0), "221 bye\r\n");
  ftp.StopNOOPThread(handle);  // nothing left to stop
}

TEST_F(FtpsNoopTest, SaysSoWithoutAConnection) {
  OpenFtps ftp;
  tNoopThreadHandle handle = ftp.StartNoopThread();
  EXPECT_TRUE(eventually([&] { return ftp.get_last_mesnum() == 701; }));
  ftp.StopNOOPThread(handle);
  EXPECT_EQ(ftp.get_last_command(), "NOOP");
}

TEST_F(FtpsNoopTest, StopsBeforeItsFirstCommand) {
  const SettingChange long_interval(settings::kFtpNoopInterval, "60000");
  OpenFtps ftp;
  tNoopThreadHandle handle = ftp.StartNoopThread();
  EXPECT_LT(time_of([&] { ftp.StopNOOPThread(handle); }).count(), 20000);
  EXPECT_EQ(ftp.get_last_mesnum(), 700);
}

}  // namespace
}  // namespace yinet::test
