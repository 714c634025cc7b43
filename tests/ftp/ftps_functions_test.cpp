// The FTPS script functions, as a script calls them, and what servers answer, taken apart without a connection.

#include <filesystem>

#include "ftp/ftp_test_kit.h"
#include "yinet/ftp/ftp_answers.h"
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
  set_log_sink([&](const LogRecord& record) {  // a line hides passwords as long as they are in use
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
    std::vector<ConnectionScript> connections = {
        dialogue(kLogin + with_data_port(c.turns, data.port()) + Turns{{"QUIT", "221 bye"}})};
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
  register_script_function("SSHClient", "L\xF6sche", [](YObject& given) { given.StoreText("seen", "yes"); });
  const YObject seen = call("FTPS_LOESCHE", "pFTPTyp=5|pHOST=nowhere.invalid|pProxyBenutzer=");
  register_script_function("SSHClient", "L\xF6sche", nullptr);
  EXPECT_EQ(seen.GetString("seen"), "yes");
  EXPECT_EQ(seen.GetString("pProxyBenutzer"), "") << "given, though empty";
  EXPECT_EQ(seen.GetString("pProxyPassword"), "host password");
}

// Address, port and where to connect to: nowhere, unless it says otherwise.
TEST(FtpAnswers, AreReadWithTheirOdditiesAndLimits) {
  const std::pair<std::string, const char*> addresses[] = {
      {"227 Entering Passive Mode (192,168,1,10,19,137).\r\n", "192.168.1.10 5001 to 192.168.1.10 5001"},
      {"227 ok (010,0,0,1,1,0)\r\n", "010.0.0.1 256 to 10.0.0.1 256"},
      {"227 (1,2,3,4)\r\n", " 772"},
      {"227 (300,1,1,1,1,1)\r\n", "300.1.1.1 257"},
      {"227 (1,1,1,1,1,256)\r\n", "1.1.1.1 512"},
      {"227 (1,1,1,1,0,0)\r\n", "1.1.1.1 0"},
      {"227 (1,2,3,4,5,6,7,8)\r\n", "1.2.3.4.5.6 1800"},
      {"227 (1,1,1,1,1,99999999999999999999)\r\n", "1.1.1.1 65792"},
      {"227 (" + std::string(1000, ',') + ")\r\n", "..... 0"},
      {"500 no\r\n", " 0"},
  };
  for (const auto& [answer, expected] : addresses) {
    const auto usable = usable_passive_address(answer);
    EXPECT_EQ(passive_address(answer) + " " + std::to_string(passive_port(answer)) +
                  (usable ? " to " + usable->host + " " + std::to_string(usable->port) : ""),
              expected);
  }
  EXPECT_EQ(passive_port_text(addresses[0].first), "19,137");
  const auto extended_port = [](const std::string& answer) {
    const auto found = usable_extended_address(answer);
    return std::to_string(found ? found->port : 0);
  };
  expect_rows(extended_port, {"229 (|||6446|)\r\n -> 6446", "229 (!!!1!) -> 1", "229 (|||0|) -> 0",
                              "229 (|||65536|) -> 0", "229 (|||12x|) -> 0", "229 (|||12 -> 0", "229 (11112345) -> 0"});
  expect_rows([](const std::string& answer) { return std::to_string(size_in_answer(answer, 4)); },
              {"213 5368709120\r\n SIZE x -> 5368709120", "213 9223372036854775808 -> -1", "213 -5 -> -1", "213 x -> 0",
               "213 -> 0"});
  const auto host_and_port = [](const std::string& text) {
    const auto found = split_host_and_port(text);
    return YString(found.host).str() + " " + std::to_string(found.port);
  };
  expect_rows(host_and_port, {"h -> h 0", "h:0 -> h 0", "h:2121 -> h 2121", "h:x -> h 0", "h:1:2 -> h 1",
                              "[h]:21 -> h 21", "[h] -> h 0"});
}

}  // namespace
}  // namespace yinet::test
