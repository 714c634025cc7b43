// Transfers against scripted servers: data connections that never open, stall, close early or never end, and refusals.

#include <filesystem>
#include <string>
#include <vector>

#include "ftp/ftp_test_kit.h"

namespace yinet::test {
namespace {

using Turns = std::vector<std::pair<std::string, std::string>>;

std::string passive(std::uint16_t port) {
  return "227 (127,0,0,1," + std::to_string(port / 256) + "," + std::to_string(port % 256) + ")\r\n";
}

ConnectionScript session(Turns turns) {
  return [turns = std::move(turns)](Connection& connection) {
    connection.send("220 hi\r\n");
    connection.expect("USER u\r\n");
    connection.send("331 go on\r\n");
    connection.expect("PASS p\r\n");
    connection.send("230 in\r\n");
    for (const auto& [command, reply] : turns) {
      connection.expect(command);
      if (reply == "close") return connection.close();
      if (reply == "reset") return connection.reset();
      connection.send(reply);
      if (reply.starts_with("421")) return connection.close();
    }
    connection.read_to_end();
  };
}

class FtpsTransferTest : public FtpTest {
 protected:
  static OpenFtps connected(const ScriptedPeer& server) {
    OpenFtps ftp(server.target(), "u", "p", kPlainFtp, "");
    EXPECT_EQ(ftp.connect(), 0);
    return ftp;
  }
  static constexpr const char* kData = "0123456789";
};

const Turns kSizeKnown = {{"TYPE I\r\n", "200 ok\r\n"}, {"SIZE f\r\n", "213 10\r\n"}};

Turns operator+(Turns a, const Turns& b) {
  a.insert(a.end(), b.begin(), b.end());
  return a;
}

TEST_F(FtpsTransferTest, DownloadsTellHowTheyEnd) {
  struct Case {
    const char* what;
    ConnectionScript data;
    std::string reply;  // to RETR
    int result;
    int exact_result;
    std::string content;
  };
  const Case cases[] = {
      {"whole", Script().send(kData).close(), "150 a\r\n226 b\r\n", 0, 0, kData},
      {"closed early", Script().send("0123").close(), "150 a\r\n426 b\r\n", 0, -1, "0123"},
      {"short though praised", Script().send("0123").close(), "150 a\r\n226 b\r\n", 0, -1, "0123"},
      {"reset in the middle", Script().send("0123").pause(milliseconds(50)).reset(), "150 a\r\n426 b\r\n", 0, -1, "0123"},
      {"says nothing", Script().stay_silent(), "150 a\r\n", 256, 256, ""},
      {"stalls", Script().send("0123").stay_silent(), "150 a\r\n", 256, 256, "0123"},
      {"refused", Script().read_to_end(), "550 no\r\n", 256, 256, ""},
      {"refused by a full server", Script().read_to_end(), "421 away\r\n", 256, 256, ""},
  };
  for (const Case& c : cases) {
    for (const bool exact : {false, true}) {
      SCOPED_TRACE(std::string(c.what) + (exact ? ", exact" : ""));
      const SettingChange setting(settings::kFtpExactDownloads, exact ? "1" : "0");
      const bool silent = c.result == 256 && c.reply.starts_with("150");
      const SettingChange limit(settings::kFtpDownloadLimit, silent ? "1000" : "30000");
      ScriptedPeer data(c.data);
      ScriptedPeer server(session(kSizeKnown + Turns{{"PASV\r\n", passive(data.port())}, {"RETR f\r\n", c.reply}}));
      OpenFtps ftp = connected(server);
      const auto time = time_of([&] { EXPECT_EQ(ftp.download_file("f", local_name("x"), 0), exact ? c.exact_result : c.result); });
      EXPECT_LT(time.count(), 15000);
      EXPECT_EQ(read_file(local / "x"), c.content);
      if (c.reply.starts_with("550")) {
        EXPECT_EQ(ftp.get_last_mes(0), "550 no\r\n") << "the refusal stays";
      }
      ftp.Close();
    }
  }
}

TEST_F(FtpsTransferTest, TheLimitOfADownloadCountsInAllUnlessProgressRestartsIt) {
  const SettingChange limit(settings::kFtpDownloadLimit, "400");
  for (const bool restarts : {false, true}) {
    const SettingChange idle(settings::kFtpDownloadIdle, restarts ? "1" : "0");
    ScriptedPeer data([](Connection& connection) {
      for (int i = 0; i < 15; ++i) {
        connection.send("x");
        connection.pause(milliseconds(60));
      }
      connection.close();
    });
    ScriptedPeer server(session(kSizeKnown + Turns{{"PASV\r\n", passive(data.port())}, {"RETR f\r\n", "150 a\r\n226 b\r\n"}}));
    OpenFtps ftp = connected(server);
    EXPECT_EQ(ftp.download_file("f", local_name("x"), 0), restarts ? 0 : 256);
    ftp.Close();
    static_cast<void>(data.take_failures());  // it may find the client gone
  }
}

TEST_F(FtpsTransferTest, UnusablePassiveAnswersConnectNowhere) {
  for (const std::string answer : {"227 (300,1,1,1,1,1)", "227 (1,2,3,4)", "227 (127,0,0,1,0,0)", "227 nothing", "425 no",
                                   "227 (127,0,0,1,1,)"}) {
    SCOPED_TRACE(answer);
    log.clear();
    ScriptedPeer server(session(kSizeKnown + Turns{{"PASV\r\n", answer + "\r\n"}, {"PASV\r\n", answer + "\r\n"}, {"LIST\r\n", "425 no\r\n"}}));
    OpenFtps ftp = connected(server);
    EXPECT_EQ(ftp.download_file("f", local_name("x"), 0), -1);
    EXPECT_EQ(ftp.get_last_mes(0).str(), answer + "\r\n");
    EXPECT_EQ(log.numbers(), std::vector<int>{message::kFtpPassiveAnswerUnusable});
    EXPECT_EQ(ftp.get_dir_content(), "") << "a listing goes on, but has nothing to read";
    ftp.Close();
  }
}

TEST_F(FtpsTransferTest, ADataConnectionThatIsRefusedFailsTheTransfer) {
  const std::string answer = passive(refused_port());
  ScriptedPeer server(session(Turns{{"PASV\r\n", answer}}));
  OpenFtps ftp = connected(server);
  EXPECT_EQ(ftp.upload_file(local_file("f", "x"), "f", 2), -1);
  ftp.Close();
}

TEST_F(FtpsTransferTest, TheControlAddressCanTakeThePlaceOfTheServersWord) {
  const SettingChange setting(settings::kFtpControlAddress, "1");
  ScriptedPeer data(Script().send(kData).close());
  const std::string elsewhere = "227 (10,255,255,1," + std::to_string(data.port() / 256) + "," + std::to_string(data.port() % 256) + ")\r\n";
  ScriptedPeer server(session(kSizeKnown + Turns{{"PASV\r\n", elsewhere}, {"RETR f\r\n", "150 a\r\n226 b\r\n"}}));
  OpenFtps ftp = connected(server);
  EXPECT_EQ(ftp.download_file("f", local_name("x"), 0), 0);
  EXPECT_EQ(read_file(local / "x"), kData);
}

TEST_F(FtpsTransferTest, UploadsTellHowTheyEnd) {
  const std::string large = pattern_bytes(30'000'000);
  struct Case {
    const char* what;
    ConnectionScript data;
    Turns store;
    int result;
  };
  const Case cases[] = {
      {"taken", Script().read_to_end(), {{"STOR f\r\n", "150 a\r\n226 b\r\n"}}, 0},
      {"taken but not kept", Script().read_to_end(), {{"STOR f\r\n", "150 a\r\n552 full\r\n"}}, -1},
      {"refused", Script().expect_end(), {{"STOR f\r\n", "553 no\r\n"}}, -1},
      {"reset in the middle", Script().skip(1'000'000).reset(), {{"STOR f\r\n", "150 a\r\n"}}, 256},
      {"stuck", Script().skip(1000).stay_silent(), {{"STOR f\r\n", "150 a\r\n"}}, 256},
      {"server dies after the data", Script().read_to_end(), {{"STOR f\r\n", "150 a\r\n"}, {"", "close"}}, -1},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    const bool stuck = c.what == std::string_view("stuck");
    const SettingChange limit(settings::kFtpUploadLimit, stuck ? "200" : "30000");
    const SettingChange idle(settings::kIdleLimit, stuck ? "100" : "30000");
    ScriptedPeer data(c.data);
    ScriptedPeer server(session(Turns{{"PASV\r\n", passive(data.port())}, {"TYPE I\r\n", "200 ok\r\n"}} + c.store));
    OpenFtps ftp = connected(server);
    const auto time = time_of([&] { EXPECT_EQ(ftp.upload_file(local_file("f", large), "f", 2), c.result); });
    EXPECT_LT(time.count(), 25000);
    ftp.Close();
    if (c.result == 0) {
      data.finish();
      EXPECT_EQ(data.received().size(), large.size());
    }
  }
}

TEST_F(FtpsTransferTest, LocalFilesThatCannotBeUsedAreToldApart) {
  ScriptedPeer server(session(kSizeKnown));
  OpenFtps ftp = connected(server);
  EXPECT_EQ(ftp.upload_file(local_name("missing"), "f", 2), -32);
  EXPECT_EQ(ftp.get_last_mes(0), "707 Open sourcefile failed");
  EXPECT_EQ(ftp.upload_file(local_file("empty", ""), "f", 2), -32);
  EXPECT_EQ(ftp.get_last_mes(0), "709 Read source file failed");
  EXPECT_EQ(ftp.download_file("f", local_name("no/folder/x"), 2), -32);
  EXPECT_EQ(ftp.get_last_mes(0), "708 Open destination file failed");
  OpenFtps unconnected;
  EXPECT_EQ(unconnected.upload_file("a", "b", 2), -4);
  EXPECT_EQ(unconnected.download_file("a", "b", 2), 1);
  EXPECT_EQ(unconnected.del_file("a"), -4);
  EXPECT_EQ(unconnected.cmp_filesizes("a", "b"), -1);
  EXPECT_EQ(unconnected.download_files("a", "b", 0), 1);
  EXPECT_EQ(ftp.download_files("a", "b", 0), 0);
}

TEST_F(FtpsTransferTest, AFullDiskEndsADownload) {
  if (!std::filesystem::exists("/dev/full")) GTEST_SKIP() << "there is no /dev/full";
  ScriptedPeer data(Script().send(kData).read_to_end());
  ScriptedPeer server(session(kSizeKnown + Turns{{"PASV\r\n", passive(data.port())}, {"RETR f\r\n", "150 a\r\n"}}));
  OpenFtps ftp = connected(server);
  EXPECT_EQ(ftp.download_file("f", "/dev/full", 2), -32);
  EXPECT_EQ(ftp.get_last_mes(0), "710 Write destination file failed");
  ftp.Close();
}

TEST_F(FtpsTransferTest, TheTypeIsSetOnceUnlessForced) {
  ScriptedPeer server(session({{"TYPE I\r\n", "200 ok\r\n"}, {"TYPE I\r\n", "504 no\r\n"}, {"TYPE A\r\n", "200 ok\r\n"}, {"TYPE \r\n", "501 what\r\n"}}));
  OpenFtps ftp = connected(server);
  EXPECT_EQ(ftp.set_server_transfer_type(2, 0), 0);
  EXPECT_EQ(ftp.set_server_transfer_type(2, 0), 1);
  EXPECT_EQ(ftp.set_server_transfer_type(2, ftps::kForce), 0) << "only the dialogue counts, not the reply";
  EXPECT_EQ(ftp.set_server_transfer_type(1, 0), 0);
  EXPECT_EQ(ftp.set_server_transfer_type(3, 0), 0);
}

TEST_F(FtpsTransferTest, SizesAreComparedInOrder) {
  const struct {
    const char* local;  // content; null: no file
    const char* reply;
    int result;
  } cases[] = {{"abc", "213 3", 0},  {"", "213 0", 1},      {"", "213 5", 2},     {"abc", "213 0", 3},
               {"abc", "213 2", 4},  {"abc", "213 4", 5},   {nullptr, "213 4", 6}, {nullptr, "213 0", 6},
               {"abc", "500 no", 7}, {"", "500 no", 7},     {nullptr, "500 no", 8}, {"abc", "550 no", -256},
               {"abc", "213 5368709120", 5}, {"abc", "213 99999999999999999999", 7}, {"abc", "213 -5", 7}};
  Turns turns{{"TYPE I\r\n", "200 ok\r\n"}};
  for (const auto& c : cases) turns.emplace_back("SIZE f\r\n", std::string(c.reply) + "\r\n");
  ScriptedPeer server(session(turns));
  OpenFtps ftp = connected(server);
  for (const auto& c : cases)
    EXPECT_EQ(ftp.cmp_filesizes(c.local ? local_file("f", c.local) : local_name("none"), "f"), c.result) << c.reply;
}

TEST_F(FtpsTransferTest, PathsEnterFoldersBeforeTheFileIsStored) {
  const std::pair<const char*, Turns> cases[] = {
      {"dir/sub/a.txt", {{"CWD dir/sub\r\n", "250 ok\r\n"}}}, {"/a.txt", {{"CWD /\r\n", "250 ok\r\n"}}}, {"a.txt", {}}};
  for (const auto& [path, enter] : cases) {
    ScriptedPeer data(Script().read_to_end());
    ScriptedPeer server(session(enter + Turns{{"PASV\r\n", passive(data.port())}, {"TYPE I\r\n", "200 ok\r\n"}, {"STOR a.txt\r\n", "150 a\r\n226 b\r\n"}}));
    OpenFtps ftp = connected(server);
    EXPECT_EQ(ftp.upload_file(local_file("f", "x"), path, 2), 0) << path;
    ftp.Close();
    data.finish();
    EXPECT_EQ(data.received(), "x");
  }
}

TEST_F(FtpsTransferTest, ListingsAreBounded) {
  const SettingChange size(settings::kFtpListingSize, "100000");
  const SettingChange limit(settings::kFtpListingLimit, "20000");
  auto data = ScriptedPeer::for_every_connection([](Connection& connection) {
    if (connection.index() == 0) connection.flood("line\r\n", 10'000'000);
    else connection.stay_silent();
  });
  ScriptedPeer server(session({{"PASV\r\n", passive(data.port())}, {"LIST\r\n", "150 a\r\n226 b\r\n"}, {"PASV\r\n", "226 late\r\n"},
                               {"NLST\r\n", "450 busy\r\n"}}));
  OpenFtps ftp = connected(server);
  EXPECT_EQ(ftp.get_dir_content().Length(), 100000);
  EXPECT_EQ(ftp.get_dir_content0(), "") << "the last listing's final reply answers this PASV";
  ftp.Close();
}

// The control connection dies after every command in turn: each operation ends, and none takes that for success.
TEST_F(FtpsTransferTest, AControlConnectionThatDiesEndsEveryOperation) {
  const SettingChange limit(settings::kFtpReplyLimit, "30000");
  const YString source = local_file("f", "0123456789");
  for (const bool upload : {true, false}) {
    for (const char* end : {"close", "reset", "421 away\r\n"}) {
      const std::size_t steps = upload ? 3 : 4;
      for (std::size_t step = 0; step < steps; ++step) {
        SCOPED_TRACE(std::string(upload ? "upload " : "download ") + end + " at " + std::to_string(step));
        auto data = ScriptedPeer::for_every_connection(Script().read_to_end());
        Turns turns = upload ? Turns{{"PASV\r\n", passive(data.port())}, {"TYPE I\r\n", "200 ok\r\n"}, {"STOR f\r\n", "150 a\r\n226 b\r\n"}}
                             : kSizeKnown + Turns{{"PASV\r\n", passive(data.port())}, {"RETR f\r\n", "150 a\r\n"}};
        turns[step].second = end;
        turns.resize(step + 1);
        ScriptedPeer server([&](Connection& connection) {
          session(turns)(connection);
          connection.close();
        });
        OpenFtps ftp = connected(server);
        const auto time = time_of([&] {
          EXPECT_NE(upload ? ftp.upload_file(source, "f", 2) : ftp.download_file("f", local_name("x"), 2), 0);
        });
        EXPECT_LT(time.count(), 15000);
        ftp.Close();
        static_cast<void>(server.take_failures());  // what follows the end is not its business
        static_cast<void>(data.take_failures());
      }
    }
  }
}

}  // namespace
}  // namespace yinet::test
