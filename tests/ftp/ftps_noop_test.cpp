// The keep-alive thread beside its owner's thread.

#include <atomic>

#include "ftp/ftp_test_kit.h"

namespace yinet::test {
namespace {

class FtpsNoopTest : public FtpTest {};

TEST_F(FtpsNoopTest, KeepsTheConnectionAliveUntilItIsStopped) {
  const SettingChange interval(settings::kFtpNoopInterval, "5");
  std::atomic<int> noops = 0;
  Dialogue ftp({}, {}, [&](Connection& connection) {
    // The thread may be at its next one while it is told to stop.
    for (std::string line = connection.read_line(); line != "QUIT\r\n"; line = connection.read_line()) {
      EXPECT_EQ(line, "NOOP\r\n");
      connection.send("200 alive " + std::to_string(++noops) + "\r\n");
    }
    connection.send("221 bye\r\n");
  });
  tNoopThreadHandle handle = ftp.ftp.StartNoopThread();
  ASSERT_NE(handle.thread, nullptr);
  EXPECT_TRUE(eventually([&] {  // looks at what both threads touch
    EXPECT_LT(ftp->get_last_mesnum(), 400);
    EXPECT_FALSE(ftp->get_last_mes(1).IsEmpty());
    return noops >= 5 && ftp->get_last_command() == "NOOP";
  }));
  ftp.ftp.StopNOOPThread(handle);
  EXPECT_EQ(handle.thread, nullptr);
  EXPECT_EQ(ftp->closeconnection(), 0);
  EXPECT_EQ(ftp->get_last_mes(0), "221 bye\r\n");
  ftp.ftp.StopNOOPThread(handle);  // nothing left to stop
}

TEST_F(FtpsNoopTest, SaysSoWithoutAConnectionUnlessItIsStoppedBefore) {
  OpenFtps ftp;
  for (const bool stopped : {true, false}) {
    const SettingChange interval(settings::kFtpNoopInterval, stopped ? "60000" : "5");
    tNoopThreadHandle handle = ftp.StartNoopThread();
    EXPECT_TRUE(stopped || eventually([&] { return ftp.get_last_mesnum() == 701; }));
    EXPECT_LT(time_of([&] { ftp.StopNOOPThread(handle); }).count(), 20000);
    EXPECT_EQ(ftp.get_last_command(), stopped ? "" : "NOOP");
  }
}

}  // namespace
}  // namespace yinet::test
