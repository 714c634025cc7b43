// The FTPS script functions, as a script calls them.

#include <filesystem>

#include "ftp/ftp_test_kit.h"
#include "yinet/host/yscript.h"

namespace yinet::test {
namespace {

using FtpsFunctions = FtpTest;

TEST_F(FtpsFunctions, ResultsTurnIntoMessages) {
  const Turns size_known = {{"TYPE I", "200 ok"}, {"SIZE /f", "213 7"}};
  const Turns stored = {{"CWD /", "250 ok"}, {"PASV", "@"}, {"TYPE I", "200 ok"}, {"STOR f", "150 go\r\n226 done"}};
  const Turns fetched = size_known + Turns{{"PASV", "@"}, {"RETR /f", "150 go\r\n226 done"}};
  const char* const kLoad = "FTPS_DOWNLOADDATEI";
  const struct {
    const char* function;
    Turns turns;
    const char* check;  // the reply to the size check; empty: its login fails; null: there is none
    int message;        // 0 for success, 1 for a silent failure
    const char* content = "content";
  } cases[] = {
      {"FTPS_UPLOAD", stored, "213 7", 0},
      {"FTPS_UPLOAD", stored, "213 8", 21742},
      {"FTPS_UPLOAD", stored, "550 no", 21743},
      {"FTPS_UPLOAD", stored, "", 21749},
      {"FTPS_UPLOAD", {{"CWD /", "550 no"}}, nullptr, 21710},
      {kLoad, fetched, "213 7", 0},
      {kLoad, fetched, "213 0", 0, ""},
      {kLoad, fetched, "500 what", 21745},
      {kLoad, fetched, "550 no", 21746},
      {kLoad, fetched, "", 21749},
      {kLoad, {{"TYPE I", "200 ok"}, {"SIZE /f", "550 no"}}, nullptr, 21736},
      {kLoad, {{"TYPE I", "200 ok"}, {"SIZE /f", "500 what"}}, nullptr, 21738},
      {kLoad, size_known + Turns{{"PASV", "@"}, {"RETR /f", "550 no"}}, nullptr, 1},
      {"FTPS_LOESCHE", {{"DELE /f", "250 ok"}}, nullptr, 0},
      {"FTPS_LOESCHE", {{"DELE /f", "550 no"}}, nullptr, 21712},
  };
  std::vector<int> raised;
  std::string context, lines;
  set_log_sink([&](const LogRecord& record) {
    EXPECT_EQ(record.level, 6);
    raised.push_back(record.number);
    context = record.extra;
    lines += log_line(record);
  });
  for (const auto& c : cases) {
    SCOPED_TRACE(&c - cases);
    raised.clear();
    const bool upload = c.function == std::string("FTPS_UPLOAD");
    ScriptedPeer data =
        ScriptedPeer::for_every_connection(upload ? Script().read_to_end() : Script().send(c.content).close());
    Turns turns = kLogin + c.turns + Turns{{"QUIT", "221 bye"}};
    for (auto& [command, reply] : turns)
      if (reply == "@") reply = passive(data.port());
    std::vector<ConnectionScript> connections = {dialogue(turns)};
    if (c.check)
      connections.push_back(*c.check ? dialogue(kLogin + Turns{{"TYPE I", "200 ok"}, {"SIZE /f", c.check}})
                                     : dialogue({{"", "421 full"}}));
    ScriptedPeer server(connections);
    const std::string file =
        "pHOST=" + server.target() +
        "|pUser=u|pPasswd=secret|pFTPTyp=1|pOptionen=4|pDateiname=/f|pZieldateiname=/f|pQuellDateiname=" +
        local_file("source", "content") + "|pZielverzeichnis=" + local_name("");
    const YObject result = call(c.function, file);
    EXPECT_EQ(result.GetType("_RETV"), kTypeInteger);
    EXPECT_EQ(result.GetInteger("_RETV"), c.message == 0 ? 1 : 0);
    EXPECT_EQ(raised, c.message > 1 ? std::vector<int>{c.message} : std::vector<int>());
    EXPECT_TRUE(c.message <= 1 || context.find("secret") != std::string::npos) << "the host gets it";
    EXPECT_TRUE(c.function != kLoad || c.message != 0 || read_file(local / "f") == c.content);
    static_cast<void>(data.take_failures());  // a refused download leaves its data unread
  }
  set_log_sink(nullptr);
  EXPECT_THAT(lines, testing::AllOf(testing::HasSubstr("***"), testing::Not(testing::HasSubstr("secret"))));
  ScriptedPeer server(dialogue({{"", "220 hi"}, {"AUTH TLS", "502 no"}}));
  EXPECT_EQ(call("FTPS_LOESCHE", "pHOST=" + server.target()).GetInteger("_RETV"), 0) << "type 0 counts as 4";
}

TEST_F(FtpsFunctions, LocalHostsWorkOnFiles) {
  local.make_folder("b");
  // "..", whatever its separators, never chooses the folder.
  const std::string file = "pHOST=lokal|pQuellDateiname=" + local_file("a.txt", "content") +
                           "|pZieldateiname=" + local_name("b/c.txt") + "|pDateiname=" + local_name("b\\..\\a.txt") +
                           "|pZielverzeichnis=" + local_name("b");
  EXPECT_FALSE(call("FTPS_DOWNLOADDATEI", file).Exist("_RETV")) << "success leaves it untouched";
  EXPECT_EQ(read_file(local / "b/a.txt"), "content");
  std::string results;
  for (const char* again : {"FTPS_DOWNLOADDATEI", "FTPS_UPLOAD", "FTPS_UPLOAD", "FTPS_LOESCHE", "FTPS_LOESCHE"}) {
    const YObject result = call(again, file);
    EXPECT_EQ(result.GetType("_RETV"), kTypeBool);
    results += result.GetString("_RETV").str();
  }
  EXPECT_EQ(results, "01010") << "exists already, is gone";
  EXPECT_THAT(log.numbers(), testing::ElementsAre(21734));
  EXPECT_EQ(read_file(local / "b/c.txt"), "content");
  EXPECT_FALSE(std::filesystem::exists(local / "a.txt"));
}

TEST_F(FtpsFunctions, TypeFiveGoesToTheScriptClass) {
  const SettingChange user(settings::kProxyUser, "host user");
  const SettingChange password(settings::kProxyPassword, "host password");
  const std::pair<const char*, const char*> functions[] = {
      {"FTPS_DOWNLOADDATEI", "Download"}, {"FTPS_UPLOAD", "Upload"}, {"FTPS_LOESCHE", "L\xF6sche"}};
  for (const auto& [function, name] : functions) {
    register_script_function("SSHClient", name, [](YObject& given) { given.StoreText("seen", "yes"); });
    const YObject seen = call(function, "pFTPTyp=5|pHOST=nowhere.invalid|pProxyBenutzer=");
    register_script_function("SSHClient", name, nullptr);
    EXPECT_EQ(seen.GetString("seen"), "yes");
    EXPECT_EQ(seen.GetString("pProxyBenutzer"), "") << "given, though empty";
    EXPECT_EQ(seen.GetString("pProxyPassword"), "host password");
  }
}

}  // namespace
}  // namespace yinet::test
