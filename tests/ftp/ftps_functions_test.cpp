// The FTPS script functions, through the table as a script calls them.

#include <filesystem>

#include "ftp/ftp_test_kit.h"
#include "yinet/host/yerror.h"
#include "yinet/host/yfile.h"
#include "yinet/host/yscript.h"
#include "yinet/script/function_table.h"

namespace yinet::test {
namespace {

struct Raised {
  int number;
  std::string text, context;
};

class FtpsFunctionsTest : public FtpTest {
 protected:
  FtpsFunctionsTest() {
    set_error_handler([this](const ErrorMessage& message) {
      EXPECT_EQ(message.level, 6);
      raised.push_back({message.number, std::string(message.text), std::string(message.context)});
    });
  }
  ~FtpsFunctionsTest() override { set_error_handler(nullptr); }

  static YObject call(std::string_view name, const YObject& parameters) {
    YObject block;
    block.Store<YObject>("PARAMETER", parameters);
    find_script_function(name)->entry(&block);
    return *block.FindAt<YObject>(0);
  }
  static YObject login(const YString& host, const YString& user, const YString& password, int type) {
    YObject parameters;
    parameters.Store<YString>("pHOST", host);
    parameters.Store<YString>("pUser", user);
    parameters.Store<YString>("pPasswd", password);
    parameters.Store<std::int32_t>("pFTPTyp", type);
    return parameters;
  }
  static YObject login(const FtpServer& server, int type) {
    return login(server.address(), server.user(), server.password(), type);
  }

  std::vector<Raised> raised;
};

TEST_F(FtpsFunctionsTest, AFileGoesThereAndBackAndAway) {
  YINET_SKIP_FOR(FtpServer::missing(FtpBrand::proftpd));
  const FtpServer server({.brand = FtpBrand::proftpd, .tls = true});
  server.make_folder("in");
  YObject parameters = login(server, 0);  // counts as 4
  parameters.Store<YString>("pQuellDateiname", local_file("there.txt", "content"));
  parameters.StoreText("pZieldateiname", "in/there.txt");
  parameters.Store<std::int32_t>("pOptionen", 0);
  EXPECT_EQ(call("FTPS_UPLOAD", parameters).GetInteger("_RETV"), 1);
  EXPECT_EQ(server.content("in/there.txt"), "content");

  parameters.StoreText("pDateiname", "in/there.txt");
  parameters.Store<YString>("pZielverzeichnis", local_name(""));
  parameters.StoreText("pLokalerName", "back.txt");
  parameters.Store<std::int32_t>("pOptionen", 4);
  YObject result = call("FTPS_DOWNLOADDATEI", parameters);
  EXPECT_EQ(result.GetType("_RETV"), kTypeInteger);
  EXPECT_EQ(result.GetInteger("_RETV"), 1);
  EXPECT_EQ(read_file(local / "back.txt"), "content");
  EXPECT_EQ(call("FTPS_LOESCHE", parameters).GetInteger("_RETV"), 1);
  EXPECT_FALSE(server.has("in/there.txt"));
  EXPECT_TRUE(raised.empty());

  result = call("FTPS_LOESCHE", parameters);
  EXPECT_EQ(result.GetInteger("_RETV"), 0);
  parameters.StoreText("pLokalerName", "none.txt");
  EXPECT_EQ(call("FTPS_DOWNLOADDATEI", parameters).GetInteger("_RETV"), 0);
  EXPECT_FALSE(std::filesystem::exists(local / "none.txt"));
  parameters.StoreText("pZieldateiname", "nowhere/x");
  EXPECT_EQ(call("FTPS_UPLOAD", parameters).GetInteger("_RETV"), 0);
  ASSERT_EQ(raised.size(), 3U);
  EXPECT_EQ(raised[0].number, 21712);
  EXPECT_EQ(raised[1].number, 21736);
  EXPECT_EQ(raised[2].number, 21710);
  for (const Raised& message : raised)
    EXPECT_THAT(message.context, testing::HasSubstr(server.password().c_str())) << "the host gets it";

  parameters.StoreText("pPasswd", "wrong");
  EXPECT_EQ(call("FTPS_LOESCHE", parameters).GetInteger("_RETV"), 0);
  EXPECT_EQ(raised.size(), 3U) << "a failed login raises nothing";
}

TEST_F(FtpsFunctionsTest, TheLogMasksThePasswordOfAContext) {
  YINET_SKIP_FOR(FtpServer::missing(FtpBrand::proftpd));
  const FtpServer server({.brand = FtpBrand::proftpd});
  set_error_handler(nullptr);
  std::string lines;
  set_log_sink([&](const LogRecord& record) { lines += log_line(record) + "\n"; });
  YObject parameters = login(server, kPlainFtp);
  parameters.StoreText("pDateiname", "missing");
  EXPECT_EQ(call("FTPS_LOESCHE", parameters).GetInteger("_RETV"), 0);
  EXPECT_THAT(lines, testing::HasSubstr("***"));
  EXPECT_THAT(lines, testing::Not(testing::HasSubstr(server.password())));
}

// One connection of a scripted server: the login, then a dialogue, then whatever the client sends.
ConnectionScript session(std::vector<std::pair<std::string, std::string>> turns) {
  return [turns = std::move(turns)](Connection& connection) {
    connection.send("220 hi\r\n");
    connection.expect("USER u\r\n");
    connection.send("331 go on\r\n");
    connection.expect("PASS p\r\n");
    connection.send("230 in\r\n");
    for (const auto& [command, reply] : turns) {
      connection.expect(command);
      connection.send(reply);
    }
    connection.read_to_end();
  };
}

TEST_F(FtpsFunctionsTest, TheSizeCheckTellsWhatIsWrong) {
  const struct {
    const char* size_reply;  // empty: the second login fails
    int upload, download;    // messages, 0 for success
  } cases[] = {{"213 7\r\n", 0, 0},
               {"213 8\r\n", 21742, 21745},
               {"550 no\r\n", 21743, 21746},
               {"500 what\r\n", 21742, 21745},
               {"", 21749, 21749}};
  for (const auto& c : cases) {
    for (const bool upload : {true, false}) {
      SCOPED_TRACE(std::string(c.size_reply) + (upload ? "upload" : "download"));
      raised.clear();
      ScriptedPeer data(upload ? Script().read_to_end() : Script().send("content").close());
      const std::string passive = "227 (127,0,0,1," + std::to_string(data.port() / 256) + "," +
                                  std::to_string(data.port() % 256) + ")\r\n";
      std::vector<std::pair<std::string, std::string>> turns;
      if (!upload) turns.insert(turns.end(), {{"TYPE I\r\n", "200 ok\r\n"}, {"SIZE f\r\n", "213 7\r\n"}});
      turns.emplace_back("PASV\r\n", passive);
      if (upload) turns.emplace_back("TYPE I\r\n", "200 ok\r\n");
      turns.emplace_back(upload ? "STOR f\r\n" : "RETR f\r\n", "150 go\r\n226 done\r\n");
      turns.emplace_back("QUIT\r\n", "221 bye\r\n");
      ScriptedPeer server(std::vector<ConnectionScript>{
          session(turns), *c.size_reply ? session({{"TYPE I\r\n", "200 ok\r\n"}, {"SIZE f\r\n", c.size_reply}})
                                        : ConnectionScript(Script().send("421 full\r\n").close())});
      YObject parameters = login(YString(server.target()), "u", "p", kPlainFtp);
      parameters.Store<std::int32_t>("pOptionen", 4);
      parameters.Store<YString>("pQuellDateiname", local_file("f", "content"));
      parameters.StoreText("pZieldateiname", "f");
      parameters.StoreText("pDateiname", "f");
      parameters.Store<YString>("pZielverzeichnis", local_name(""));
      const int wanted = upload ? c.upload : c.download;
      EXPECT_EQ(call(upload ? "FTPS_UPLOAD" : "FTPS_DOWNLOADDATEI", parameters).GetInteger("_RETV"), wanted == 0 ? 1 : 0);
      EXPECT_EQ(raised.empty() ? 0 : raised.front().number, wanted);
    }
  }
}

TEST_F(FtpsFunctionsTest, LocalHostsWorkOnFiles) {
  const YString source = local_file("a.txt", "content");
  local.make_folder("b");
  YObject parameters = login("lokal", "u", "p", 0);
  parameters.Store<YString>("pDateiname", source);
  parameters.Store<YString>("pZielverzeichnis", local_name("b"));
  YObject result = call("FTPS_DOWNLOADDATEI", parameters);
  EXPECT_FALSE(result.Exist("_RETV")) << "success leaves it untouched";
  EXPECT_EQ(read_file(local / "b/a.txt"), "content");
  result = call("FTPS_DOWNLOADDATEI", parameters);
  EXPECT_EQ(result.GetType("_RETV"), kTypeBool) << "an existing file stays";
  EXPECT_FALSE(result.GetBool("_RETV"));
  ASSERT_EQ(raised.size(), 1U);
  EXPECT_EQ(raised[0].number, 21734);

  parameters.Store<YString>("pQuellDateiname", source);
  parameters.Store<YString>("pZieldateiname", local_name("b/c.txt"));
  EXPECT_TRUE(call("FTPS_UPLOAD", parameters).GetBool("_RETV"));
  EXPECT_FALSE(call("FTPS_UPLOAD", parameters).GetBool("_RETV"));
  parameters.StoreText("pHOST", "LOCAL");
  result = call("FTPS_LOESCHE", parameters);
  EXPECT_EQ(result.GetType("_RETV"), kTypeBool);
  EXPECT_TRUE(result.GetBool("_RETV"));
  EXPECT_FALSE(std::filesystem::exists(local / "a.txt"));
  EXPECT_FALSE(call("FTPS_LOESCHE", parameters).GetBool("_RETV"));
}

TEST_F(FtpsFunctionsTest, ARemoteNameNeverChoosesTheLocalFolder) {
  local_file("evil", "content");
  local.make_folder("b");
  for (const char* name : {"b/../evil", "b\\..\\evil", "b\\../evil"}) {
    YObject parameters = login("LOCAL", "", "", 0);
    parameters.Store<YString>("pDateiname", local_name(name));
    parameters.Store<YString>("pZielverzeichnis", local_name("b"));
    EXPECT_FALSE(call("FTPS_DOWNLOADDATEI", parameters).Exist("_RETV")) << name;
    EXPECT_TRUE(std::filesystem::remove(local / "b/evil")) << name;
  }
}

TEST_F(FtpsFunctionsTest, TypeFiveGoesToTheScriptClass) {
  const SettingChange user(settings::kProxyUser, "host user");
  const SettingChange password(settings::kProxyPassword, "host password");
  const std::pair<const char*, const char*> functions[] = {
      {"FTPS_DOWNLOADDATEI", "Download"}, {"FTPS_UPLOAD", "Upload"}, {"FTPS_LOESCHE", "L\xF6sche"}};
  for (const auto& [function, name] : functions) {
    YObject seen;
    register_script_function("SSHClient", name, [&](YObject& parameters) {
      seen = parameters;
      parameters.Store<std::int32_t>("_RETV", 7);
    });
    YObject parameters = login("nowhere.invalid", "u", "p", 5);
    parameters.StoreText("pProxyBenutzer", "");
    const YObject result = call(function, parameters);
    register_script_function("SSHClient", name, nullptr);
    EXPECT_EQ(result.GetInteger("_RETV"), 7);
    EXPECT_EQ(seen.GetString("pHOST"), "nowhere.invalid");
    EXPECT_EQ(seen.GetString("pProxyBenutzer"), "") << "given, though empty";
    EXPECT_EQ(seen.GetString("pProxyPassword"), "host password");
  }
  EXPECT_TRUE(log.numbers().empty());
}

}  // namespace
}  // namespace yinet::test
