// The SSH script functions, through the table as a script calls them, and the script class behind FTP type 5.

#include <filesystem>

#include "ssh/ssh_test_kit.h"
#include "yinet/host/messages.h"
#include "yinet/script/function_table.h"

namespace yinet::test {
namespace {

namespace fs = std::filesystem;

class SshFunctionsTest : public SshTest {
 protected:
  static YObject call(std::string_view name, const YObject& parameters) {
    YObject block;
    block.Store<YObject>("PARAMETER", parameters);
    find_script_function(name)->entry(&block);
    return *block.FindAt<YObject>(0);
  }
  static YObject login(const SshServer& server) {
    YObject parameters;
    parameters.StoreText("pHost", server.address());
    parameters.StoreText("pUser", SshServer::user());
    parameters.StoreText("pPasswd", SshServer::password());
    return parameters;
  }
  // What was logged besides the host keys.
  [[nodiscard]] std::vector<int> numbers() const {
    std::vector<int> all = log.numbers();
    std::erase(all, 21813);
    return all;
  }
};

TEST_F(SshFunctionsTest, AFileGoesThereAndBackAndAway) {
  YINET_SKIP_FOR(SocksServer::missing(SocksServer::Brand::dante));
  const SshServer server;
  const SocksServer proxy(SocksServer::Brand::dante);
  YObject parameters = login(server);
  parameters.StoreText("pProxyAdr", proxy.address());  // SOCKS 4 without a type
  parameters.StoreText("pZielverzeichnis", "in");
  EXPECT_TRUE(call("SSH_CREATEDIRECTORY", parameters).GetBool("_RETV"));
  parameters.Store<YString>("pQuellDateiname", local_file("there.txt", "content"));
  parameters.StoreText("pZieldateiname", "in/c.txt");
  EXPECT_TRUE(call("SSH_UPLOAD", parameters).GetBool("_RETV"));
  EXPECT_EQ(server.content("in/c.txt"), "content");
  const YObject listed = call("SSH_GETDIRECTORY", parameters);
  EXPECT_EQ(listed.GetType("_RETV"), kTypeString);
  EXPECT_THAT(listed.GetString("_RETV").Items(), testing::UnorderedElementsAre(".", "..", "c.txt"));

  parameters.StoreText("pDateiname", "in/c.txt");
  parameters.Store<YString>("pZielverzeichnis", YString(local.path().string()));
  EXPECT_TRUE(call("SSH_DOWNLOAD", parameters).GetBool("_RETV"));
  EXPECT_EQ(fs::file_size(local / "c.txt"), 5242880U);
  parameters.Store<bool>("pVollstaendig", true);
  parameters.StoreText("pLokalerName", "d.txt");
  EXPECT_TRUE(call("SSH_DOWNLOAD", parameters).GetBool("_RETV"));
  EXPECT_EQ(read_file(local / "d.txt"), "content");
  EXPECT_TRUE(call("SSH_DELETE", parameters).GetBool("_RETV"));
  EXPECT_FALSE(server.has("in/c.txt"));
  server.add("..\\evil", "content");
  parameters.StoreText("pLokalerName", "");
  parameters.StoreText("pDateiname", "./..\\evil");
  parameters.Store<YString>("pZielverzeichnis", YString(local.make_folder("b").string()));
  EXPECT_TRUE(call("SSH_DOWNLOAD", parameters).GetBool("_RETV"));
  EXPECT_EQ(read_file(local / "b/evil"), "content") << "a remote name never chooses the local folder";
  parameters.StoreText("pZielverzeichnis", "in");
  EXPECT_TRUE(call("SSH_REMOVEDIRECTORY", parameters).GetBool("_RETV"));
  EXPECT_EQ(numbers(), std::vector<int>());
  EXPECT_TRUE(raised.empty());
}

TEST_F(SshFunctionsTest, FailuresAreLogged) {
  const SshServer server;
  const struct {
    const char* function;
    std::vector<std::pair<const char*, const char*>> parameters;
    std::vector<int> messages;
  } cases[] = {
      {"SSH_UPLOAD", {}, {21805}},
      {"SSH_UPLOAD", {{"pQuellDateiname", "x"}}, {21806}},
      {"SSH_UPLOAD", {{"pQuellDateiname", "/none"}, {"pZieldateiname", "x"}}, {21803}},
      {"SSH_DOWNLOAD", {}, {21805}},
      {"SSH_DOWNLOAD", {{"pDateiname", "x"}}, {21806}},
      {"SSH_DOWNLOAD", {{"pDateiname", "none"}, {"pZielverzeichnis", "/tmp"}}, {21804}},
      {"SSH_DOWNLOAD", {{"pDateiname", "a/.."}, {"pZielverzeichnis", "/tmp"}}, {21804}},
      {"SSH_DELETE", {}, {}},
      {"SSH_DELETE", {{"pDateiname", "none"}}, {}},
      {"SSH_CREATEDIRECTORY", {}, {21812}},
      {"SSH_CREATEDIRECTORY", {{"pZielverzeichnis", "a/b"}}, {21811}},
      {"SSH_REMOVEDIRECTORY", {}, {}},
      {"SSH_REMOVEDIRECTORY", {{"pZielverzeichnis", "none"}}, {21810}},
      {"SSH_GETDIRECTORY", {}, {21808}},
      {"SSH_DELETE", {{"pHost", ""}}, {21801}},
      {"SSH_GETDIRECTORY", {{"pPasswd", "wrong"}}, {21802}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(std::string(c.function) + (c.parameters.empty() ? "" : c.parameters.back().first));
    log.clear();
    YObject parameters = login(server);
    for (const auto& [key, text] : c.parameters) parameters.StoreText(key, text);
    const YObject result = call(c.function, parameters);
    EXPECT_EQ(numbers(), c.messages);
    ASSERT_TRUE(result.Exist("_RETV"));
    EXPECT_FALSE(result.GetBool("_RETV"));
    const bool missing_folder = c.messages == std::vector<int>{21808};
    EXPECT_EQ(result.GetType("_RETV"), missing_folder ? kTypeString : kTypeBool);
    for (const int number : c.messages) EXPECT_EQ(log.last(number).level, find_message(number)->level);
  }
}

TEST_F(SshFunctionsTest, FtpTypeFiveWorksOutOfTheBox) {
  const SshServer server;
  YObject parameters = login(server);
  parameters.Store<std::int32_t>("pFTPTyp", 5);
  parameters.Store<YString>("pQuellDateiname", local_file("a", "content"));
  parameters.StoreText("pZieldateiname", "a");
  parameters.StoreText("pDateiname", "a");
  parameters.Store<YString>("pZielverzeichnis", YString(local.make_folder("to").string()));
  for (const char* function : {"FTPS_UPLOAD", "FTPS_DOWNLOADDATEI", "FTPS_LOESCHE"}) {
    const YObject result = call(function, parameters);
    EXPECT_EQ(result.GetType("_RETV"), kTypeInteger) << function;
    EXPECT_EQ(result.GetInteger("_RETV"), 1) << function;
  }
  EXPECT_EQ(read_file(local / "to/a"), "content") << "whole files, no more";
  EXPECT_FALSE(server.has("a"));
  EXPECT_EQ(call("FTPS_LOESCHE", parameters).GetInteger("_RETV"), 0);
}

}  // namespace
}  // namespace yinet::test
