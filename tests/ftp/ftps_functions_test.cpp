// The FTPS script functions, through the table as a script calls them.

#include <filesystem>

#include "ftp/ftp_test_kit.h"
#include "yinet/host/yerror.h"
#include "yinet/host/yfile.h"
#include "yinet/host/yscript.h"
#include "yinet/script/function_table.h"

namespace yinet::test {
namespace {

class FtpsFunctionsTest : public FtpTest {
 protected:
  FtpsFunctionsTest() {
    set_error_handler([this](const ErrorMessage& message) {
      EXPECT_EQ(message.level, 6);
      raised.push_back(message.number);
      context = message.context;
    });
  }
  ~FtpsFunctionsTest() override { set_error_handler(nullptr); }

  static YObject call(std::string_view name, const YObject& parameters) {
    YObject block;
    block.Store<YObject>("PARAMETER", parameters);
    find_script_function(name)->entry(&block);
    return *block.FindAt<YObject>(0);
  }
  static bool succeeds(std::string_view name, const YObject& parameters) {
    const YObject result = call(name, parameters);
    EXPECT_EQ(result.GetType("_RETV"), kTypeInteger);
    return result.GetInteger("_RETV") == 1;
  }
  // All texts that the three functions need: `local_path` there, `remote` here, back again into the folder under its name.
  YObject parameters(std::string_view host, std::string_view user, std::string_view password, int type,
                     const YString& local_path = {}, std::string_view remote = "f") {
    YObject all;
    const std::pair<std::string_view, std::string_view> texts[] = {
        {"pHOST", host}, {"pUser", user}, {"pPasswd", password}, {"pQuellDateiname", local_path}, {"pZieldateiname", remote},
        {"pDateiname", remote}};
    for (const auto& [key, text] : texts) all.StoreText(key, text);
    all.Store<YString>("pZielverzeichnis", local_name(""));
    all.Store<std::int32_t>("pFTPTyp", type);
    return all;
  }

  std::vector<int> raised;
  std::string context;  // of the last message
};

TEST_F(FtpsFunctionsTest, AFileGoesThereAndBackAndAway) {
  YINET_SKIP_FOR(FtpServer::missing(FtpBrand::proftpd));
  const FtpServer server({.brand = FtpBrand::proftpd, .tls = true});
  server.make_folder("in");
  YObject file = parameters(server.address(), server.user(), server.password(), 0, local_file("source", "content"), "in/there.txt");
  EXPECT_TRUE(succeeds("FTPS_UPLOAD", file)) << "type 0 counts as 4";
  EXPECT_EQ(server.content("in/there.txt"), "content");
  file.Store<std::int32_t>("pOptionen", 4);
  EXPECT_TRUE(succeeds("FTPS_DOWNLOADDATEI", file));
  EXPECT_EQ(read_file(local / "there.txt"), "content");
  EXPECT_TRUE(succeeds("FTPS_LOESCHE", file));
  EXPECT_FALSE(server.has("in/there.txt"));

  file.StoreText("pLokalerName", "none.txt");
  file.StoreText("pZieldateiname", "nowhere/x");
  for (const char* function : {"FTPS_LOESCHE", "FTPS_DOWNLOADDATEI", "FTPS_UPLOAD"}) {
    EXPECT_FALSE(succeeds(function, file));
    EXPECT_THAT(context, testing::HasSubstr(server.password())) << "the host gets it";
  }
  EXPECT_THAT(raised, testing::ElementsAre(21712, 21736, 21710));
  EXPECT_FALSE(std::filesystem::exists(local / "none.txt"));

  std::string lines;  // as the log has them without a host's own handler
  set_error_handler(nullptr);
  set_log_sink([&](const LogRecord& record) { lines += log_line(record) + "\n"; });
  EXPECT_FALSE(succeeds("FTPS_LOESCHE", file));
  EXPECT_THAT(lines, testing::AllOf(testing::HasSubstr("***"), testing::Not(testing::HasSubstr(server.password()))));
  lines.clear();
  file.StoreText("pPasswd", "wrong");
  EXPECT_FALSE(succeeds("FTPS_LOESCHE", file));
  EXPECT_EQ(lines, "") << "a failed login raises nothing";
}

TEST_F(FtpsFunctionsTest, ResultsTurnIntoMessages) {
  const Turns size_known = {{"TYPE I", "200 ok"}, {"SIZE f", "213 7"}};
  const Turns stored = {{"PASV", "@"}, {"TYPE I", "200 ok"}, {"STOR f", "150 go\r\n226 done"}};
  const Turns fetched = size_known + Turns{{"PASV", "@"}, {"RETR f", "150 go\r\n226 done"}};
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
      {"FTPS_DOWNLOADDATEI", fetched, "213 7", 0},
      {"FTPS_DOWNLOADDATEI", fetched, "213 0", 0, ""},
      {"FTPS_DOWNLOADDATEI", fetched, "500 what", 21745},
      {"FTPS_DOWNLOADDATEI", fetched, "550 no", 21746},
      {"FTPS_DOWNLOADDATEI", fetched, "", 21749},
      {"FTPS_DOWNLOADDATEI", {{"TYPE I", "200 ok"}, {"SIZE f", "500 what"}}, nullptr, 21738},
      {"FTPS_DOWNLOADDATEI", size_known + Turns{{"PASV", "@"}, {"RETR f", "550 no"}}, nullptr, 1},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.function + std::string(" ") + (c.check ? c.check : "no check"));
    raised.clear();
    const bool upload = c.function == std::string_view("FTPS_UPLOAD");
    ScriptedPeer data = ScriptedPeer::for_every_connection(upload ? Script().read_to_end() : Script().send(c.content).close());
    Turns turns = kLogin + c.turns + Turns{{"QUIT", "221 bye"}};
    for (auto& [command, reply] : turns)
      if (reply == "@") reply = passive(data.port());
    std::vector<ConnectionScript> connections = {dialogue(turns)};
    if (c.check) connections.push_back(*c.check ? dialogue(kLogin + Turns{{"TYPE I", "200 ok"}, {"SIZE f", c.check}}) : dialogue({{"", "421 full"}}));
    ScriptedPeer server(connections);
    YObject file = parameters(server.target(), "u", "p", kPlainFtp, local_file("source", "content"));
    file.Store<std::int32_t>("pOptionen", 4);
    EXPECT_EQ(succeeds(c.function, file), c.message == 0);
    EXPECT_EQ(raised, c.message > 1 ? std::vector<int>{c.message} : std::vector<int>());
    static_cast<void>(data.take_failures());  // a refused download leaves its data unread
  }
}

TEST_F(FtpsFunctionsTest, LocalHostsWorkOnFiles) {
  local.make_folder("b");
  const YString source = local_file("a.txt", "content");
  YObject file = parameters("lokal", "u", "p", 0, source, std::string_view(local_name("b/c.txt")));
  file.Store<YString>("pDateiname", local_name("b\\..\\a.txt"));  // "..", whatever its separators, never chooses the folder
  file.Store<YString>("pZielverzeichnis", local_name("b"));
  EXPECT_FALSE(call("FTPS_DOWNLOADDATEI", file).Exist("_RETV")) << "success leaves it untouched";
  EXPECT_EQ(read_file(local / "b/a.txt"), "content");
  for (const YString& folder : {local_name("b"), YString("Q:\\nowhere")}) {  // the file is there, the folder means nothing
    file.Store<YString>("pZielverzeichnis", folder);
    const YObject result = call("FTPS_DOWNLOADDATEI", file);
    EXPECT_EQ(result.GetType("_RETV"), kTypeBool);
    EXPECT_FALSE(result.GetBool("_RETV"));
  }
  EXPECT_THAT(raised, testing::ElementsAre(21734, 21734));

  file.StoreText("pHOST", "LOCAL");
  file.Store<YString>("pDateiname", source);
  for (const char* function : {"FTPS_UPLOAD", "FTPS_LOESCHE"}) {
    const YObject result = call(function, file);
    EXPECT_EQ(result.GetType("_RETV"), kTypeBool);
    EXPECT_TRUE(result.GetBool("_RETV"));
    EXPECT_FALSE(call(function, file).GetBool("_RETV")) << "exists already, is gone";
  }
  EXPECT_EQ(read_file(local / "b/c.txt"), "content");
  EXPECT_FALSE(std::filesystem::exists(local / "a.txt"));
}

TEST_F(FtpsFunctionsTest, TypeFiveGoesToTheScriptClass) {
  const SettingChange user(settings::kProxyUser, "host user");
  const SettingChange password(settings::kProxyPassword, "host password");
  const std::pair<const char*, const char*> functions[] = {
      {"FTPS_DOWNLOADDATEI", "Download"}, {"FTPS_UPLOAD", "Upload"}, {"FTPS_LOESCHE", "L\xF6sche"}};
  for (const auto& [function, name] : functions) {
    YObject seen;
    register_script_function("SSHClient", name, [&](YObject& given) {
      seen = given;
      given.Store<std::int32_t>("_RETV", 7);
    });
    YObject file = parameters("nowhere.invalid", "u", "p", 5);
    file.StoreText("pProxyBenutzer", "");
    EXPECT_EQ(call(function, file).GetInteger("_RETV"), 7);
    register_script_function("SSHClient", name, nullptr);
    EXPECT_EQ(seen.GetString("pHOST"), "nowhere.invalid");
    EXPECT_EQ(seen.GetString("pProxyBenutzer"), "") << "given, though empty";
    EXPECT_EQ(seen.GetString("pProxyPassword"), "host password");
  }
}

}  // namespace
}  // namespace yinet::test
