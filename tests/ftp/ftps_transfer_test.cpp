// Transfers against scripted servers: data connections that never open, stall, close early or never end, and refusals.

#include "ftp/ftp_test_kit.h"

namespace yinet::test {
namespace {

class FtpsTransferTest : public FtpTest {};

constexpr const char* kData = "0123456789";
const Turns kSizeKnown = {{"TYPE I", "200 ok"}, {"SIZE f", "213 10"}};

TEST_F(FtpsTransferTest, DownloadsTellHowTheyEnd) {
  const struct {
    const char* what;
    ConnectionScript data;
    const char* reply;  // to RETR
    int result, exact_result;
    const char* last;  // message
    std::string content = {};
    const char* limit = "30000";
    const char* address = "@";
  } cases[] = {
      {"whole", Script().send(kData).close(), "150 a\r\n226 b", 0, 0, "226 b", kData},
      {"closed early", Script().send("0123").close(), "150 a\r\n426 b", 0, -1, "426 b", "0123"},
      {"short though praised", Script().send("0123").close(), "150 a\r\n226 b", 0, -1, "226 b", "0123"},
      {"reset", Script().send("0123").pause(milliseconds(50)).reset(), "150 a\r\n426 b", 0, -1, "426 b", "0123"},
      {"says nothing", Script().stay_silent(), "150 a", 256, 256, "150 a", "", "500"},
      {"stalls", Script().send("0123").stay_silent(), "150 a", 256, 256, "150 a", "0123", "500"},
      {"refused", Script().read_to_end(), "550 no", 256, 256, "550 no"},
      {"full", Script().read_to_end(), "421 away", 256, 256, "421 away"},
      {"server elsewhere", Script().send(kData).close(), "150 a\r\n226 b", 0, 0, "226 b", kData, "30000", "@10,255,255,1"},
  };
  for (const auto& c : cases) {
    for (const bool exact : {false, true}) {
      SCOPED_TRACE(std::string(c.what) + (exact ? ", exact" : ""));
      const SettingChange setting(settings::kFtpExactDownloads, exact ? "1" : "0");
      const SettingChange limit(settings::kFtpDownloadLimit, c.limit);
      const SettingChange control_address(settings::kFtpControlAddress, c.address[1] ? "1" : "0");
      Dialogue ftp(kSizeKnown + Turns{{"PASV", c.address}, {"RETR f", c.reply}}, c.data);
      const auto work = [&] { EXPECT_EQ(ftp->download_file("f", local_name("x"), 0), exact ? c.exact_result : c.result); };
      EXPECT_LT(time_of(work).count(), 15000);
      EXPECT_EQ(ftp->get_last_mes(0), c.last + YString("\r\n"));
      EXPECT_EQ(read_file(local / "x"), c.content);
    }
  }
}

TEST_F(FtpsTransferTest, TheLimitOfADownloadCountsInAllUnlessProgressRestartsIt) {
  const SettingChange limit(settings::kFtpDownloadLimit, "400");
  for (const bool restarts : {false, true}) {
    const SettingChange idle(settings::kFtpDownloadIdle, restarts ? "1" : "0");
    Dialogue ftp(kSizeKnown + Turns{{"PASV", "@"}, {"RETR f", "150 a\r\n226 b"}}, Script().send_slowly(kData, milliseconds(80)));
    EXPECT_EQ(ftp->download_file("f", local_name("x"), 0), restarts ? 0 : 256);
    static_cast<void>(ftp.data.take_failures());  // it may find the client gone
  }
}

TEST_F(FtpsTransferTest, DataConnectionsThatCannotBeMadeFailTheTransfer) {
  const std::string refused = passive(refused_port());
  for (const std::string& answer : {std::string("227 (300,1,1,1,1,1)"), std::string("425 no"), refused}) {
    SCOPED_TRACE(answer);
    log.clear();
    Dialogue ftp(kSizeKnown + Turns{{"PASV", answer}, {"PASV", answer}, {"LIST", "425 none"}});
    EXPECT_EQ(ftp->download_file("f", local_name("x"), 0), -1);
    EXPECT_EQ(ftp->get_last_mes(0).str(), answer + "\r\n");
    EXPECT_EQ(log.numbers(), std::vector<int>{answer == refused ? message::kConnectFailed : message::kFtpPassiveAnswerUnusable});
    EXPECT_EQ(ftp->get_dir_content(), "") << "a listing goes on, but has nothing to read";
  }
}

// A proxy that reaches the server, but not its data connections.
TEST_F(FtpsTransferTest, AListingThroughAProxyGoesOnInClearOnly) {
  for (const bool tls : {false, true}) {
    ScriptedPeer proxy(std::vector<ConnectionScript>{
        [&](Connection& connection) {
          connection.expect(from_hex("05 01 00"));
          connection.send(from_hex("05 00"));
          connection.skip(10);
          connection.send(from_hex("05 00 00 01 7F 00 00 01 00 00"));
          if (!tls) return dialogue(kLogin + Turns{{"PASV", passive(9)}, {"LIST", "425 none"}})(connection);
          dialogue({{"", "220 hi"}, {"AUTH TLS", "234 go"}}, Script().start_tls())(connection);
          dialogue({{"USER u", "331 a"}, {"PASS p", "230 b"}, {"PBSZ 0", "200 c"}, {"PROT P", "200 d"}, {"PASV", passive(9)}})(connection);
        },
        Script().expect(from_hex("05 01 00")).send(from_hex("05 FF")).read_to_end()});
    ftps ftp("127.0.0.1:21", "u", "p", target_of(proxy), tls ? kTlsFtp : kPlainFtp, 5, "", "", "");
    ASSERT_EQ(ftp.connect(), 0);
    EXPECT_EQ(ftp.get_dir_content(), tls ? "-1" : "");
    ftp.Close();
  }
}

TEST_F(FtpsTransferTest, UploadsTellHowTheyEnd) {
  const std::string large = pattern_bytes(30'000'000);
  const YString source = local_file("f", large);
  const Script all = Script().read_to_end();
  const struct {
    const char* what;
    ConnectionScript data;
    Turns turns;  // from STOR on
    int result;
    const char* idle_limit = "30000";
    const char* upload_limit = "30000";
  } cases[] = {
      {"taken", all, {{"STOR f", "150 a\r\n226 b"}}, 0},
      {"taken but not kept", all, {{"STOR f", "150 a\r\n552 full"}}, -1},
      {"refused", Script().expect_end(), {{"STOR f", "553 no"}}, -1},
      {"reset", Script().skip(1'000'000).reset(), {{"STOR f", "150 a"}}, 256},
      {"stuck", Script().skip(1000).stay_silent(), {{"STOR f", "150 a"}}, 256, "100", "300"},
      {"taken on after a while", Script().pause(milliseconds(500)).read_to_end(), {{"STOR f", "150 a\r\n226 b"}}, 0, "100"},
      {"server dies after the data", all, {{"STOR f", "150 a"}, {"", "close"}}, -1},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    const SettingChange idle(settings::kIdleLimit, c.idle_limit);
    const SettingChange limit(settings::kFtpUploadLimit, c.upload_limit);
    Dialogue ftp(Turns{{"PASV", "@"}, {"TYPE I", "200 ok"}} + c.turns, c.data);
    EXPECT_LT(time_of([&] { EXPECT_EQ(ftp->upload_file(source, "f", 2), c.result); }).count(), 25000);
    if (c.result != 0) continue;
    ftp.data.finish();
    EXPECT_TRUE(ftp.data.received() == large);
  }
}

TEST_F(FtpsTransferTest, LocalFilesThatCannotBeUsedAreToldApart) {
  Dialogue ftp(kSizeKnown + Turns{{"SIZE f", "213 10"}, {"PASV", "@"}, {"RETR f", "150 a"}}, Script().send(kData).read_to_end());
  EXPECT_EQ(ftp->upload_file(local_name("missing"), "f", 2), -32);
  EXPECT_EQ(ftp->get_last_mes(0), "707 Open sourcefile failed");
  EXPECT_EQ(ftp->upload_file(local_file("empty", ""), "f", 2), -32);
  EXPECT_EQ(ftp->get_last_mes(0), "709 Read source file failed");
  EXPECT_EQ(ftp->download_file("f", local_name("no/folder/x"), 2), -32);
  EXPECT_EQ(ftp->get_last_mes(0), "708 Open destination file failed");
  EXPECT_EQ(ftp->download_file("f", "/dev/full", 2), -32);
  EXPECT_EQ(ftp->get_last_mes(0), "710 Write destination file failed");
  EXPECT_EQ(ftp->download_files("a", "b", 0), 0);
  ftps unconnected;
  EXPECT_EQ(unconnected.upload_file("a", "b", 2), -4);
  EXPECT_EQ(unconnected.download_file("a", "b", 2), 1);
  EXPECT_EQ(unconnected.del_file("a"), -4);
  EXPECT_EQ(unconnected.cmp_filesizes("a", "b"), -1);
  EXPECT_EQ(unconnected.download_files("a", "b", 0), 1);
}

TEST_F(FtpsTransferTest, TheTypeIsSetOnceUnlessForced) {
  Dialogue ftp({{"TYPE I", "200 ok"}, {"TYPE I", "504 no"}, {"TYPE A", "200 ok"}, {"TYPE ", "501 what"}});
  EXPECT_EQ(ftp->set_server_transfer_type(2, 0), 0);
  EXPECT_EQ(ftp->set_server_transfer_type(2, 0), 1);
  EXPECT_EQ(ftp->set_server_transfer_type(2, ftps::kForce), 0) << "only the dialogue counts, not the reply";
  EXPECT_EQ(ftp->set_server_transfer_type(1, 0), 0);
  EXPECT_EQ(ftp->set_server_transfer_type(3, 0), 0);
}

TEST_F(FtpsTransferTest, SizesAreComparedInOrder) {
  const struct {
    const char* local;  // content; null: no file
    const char* reply;
    int result;
  } cases[] = {{"abc", "213 3", 0},  {"", "213 0", 1},       {"", "213 5", 2},      {"abc", "213 0", 3},     {"abc", "213 2", 4},
               {"abc", "213 4", 5},  {nullptr, "213 4", 6},  {nullptr, "213 0", 6}, {"abc", "500 no", 7},    {"", "500 no", 7},
               {"abc", "213 -5", 7}, {nullptr, "500 no", 8}, {"abc", "550 no", -256}, {"abc", "213 5368709120", 5}};
  Turns turns{{"TYPE I", "200 ok"}};
  for (const auto& c : cases) turns.emplace_back("SIZE f", c.reply);
  Dialogue ftp(turns);
  for (const auto& c : cases)
    EXPECT_EQ(ftp->cmp_filesizes(c.local ? local_file("f", c.local) : local_name("none"), "f"), c.result) << c.reply;
}

TEST_F(FtpsTransferTest, PathsEnterFoldersBeforeTheFileIsStored) {
  const std::pair<const char*, Turns> cases[] = {
      {"dir/sub/a.txt", {{"CWD dir/sub", "250 ok"}}}, {"/a.txt", {{"CWD /", "250 ok"}}}, {"a.txt", {}}};
  for (const auto& [path, enter] : cases) {
    Dialogue ftp(enter + Turns{{"PASV", "@"}, {"TYPE I", "200 ok"}, {"STOR a.txt", "150 a\r\n226 b"}});
    EXPECT_EQ(ftp->upload_file(local_file("f", "x"), path, 2), 0) << path;
  }
}

TEST_F(FtpsTransferTest, ListingsAreBounded) {
  const SettingChange size(settings::kFtpListingSize, "100000");
  Dialogue ftp({{"PASV", "@"}, {"LIST", "150 a\r\n226 b"}, {"PASV", "226 late"}, {"NLST", "450 busy"}, {"PASV", "@"}, {"LIST", "150 c"}},
               [](Connection& connection) {
                 if (connection.index() == 0) connection.flood("line\r\n", 10'000'000);
                 else connection.stay_silent();
               });
  EXPECT_EQ(ftp->get_dir_content().Length(), 100000);
  EXPECT_EQ(ftp->get_dir_content0(), "") << "the last listing's final reply answers this PASV";
  const SettingChange limit(settings::kFtpListingLimit, "100");
  EXPECT_EQ(ftp->get_dir_content(), "");
}

// The control connection dies after every command in turn: each operation ends, and none takes that for success.
TEST_F(FtpsTransferTest, AControlConnectionThatDiesEndsEveryOperation) {
  const YString source = local_file("f", kData);
  const Turns upload = {{"PASV", "@"}, {"TYPE I", "200 ok"}, {"STOR f", "150 a"}};
  const Turns download = kSizeKnown + Turns{{"PASV", "@"}, {"RETR f", "150 a"}};
  for (const Turns& whole : {upload, download}) {
    for (const char* end : {"close", "reset", "421 away"}) {
      for (std::size_t step = 0; step < whole.size(); ++step) {
        SCOPED_TRACE(whole[step].first + ": " + end);
        Turns turns(whole.begin(), whole.begin() + static_cast<long>(step) + 1);
        turns.back().second = end;
        Dialogue ftp(turns, Script().read_to_end());
        const auto work = [&] { EXPECT_NE(whole == upload ? ftp->upload_file(source, "f", 2) : ftp->download_file("f", local_name("x"), 2), 0); };
        EXPECT_LT(time_of(work).count(), 15000);
        ftp->Close();
        static_cast<void>(ftp.server.take_failures());  // what follows the end is not its business
        static_cast<void>(ftp.data.take_failures());
      }
    }
  }
}

}  // namespace
}  // namespace yinet::test
