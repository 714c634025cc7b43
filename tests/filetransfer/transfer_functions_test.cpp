// The script functions of the families FTP and Internet against real servers.

#include <filesystem>

#include "filetransfer/transfer_test_kit.h"
#include "support/servers.h"
#include "yinet/host/yfile.h"

namespace yinet::test {
namespace {

namespace fs = std::filesystem;
using testing::UnorderedElementsAre;

std::vector<std::string> names_in(const fs::path& folder) {
  std::vector<std::string> names;
  for (const auto& entry : fs::directory_iterator(folder)) names.push_back(entry.path().filename().string());
  return names;
}

class FtpFamily : public TransferTest, public testing::WithParamInterface<FtpBrand> {};

TEST_P(FtpFamily, MovesFilesSinglyAndByWildcard) {
  YINET_SKIP_FOR(FtpServer::missing(GetParam()));
  const bool tls = GetParam() == FtpBrand::proftpd;
  const FtpServer server({.brand = GetParam(), .tls = tls});
  const fs::path here = local.make_folder("here");
  const auto run = [&](const char* function, const std::string& remote) {
    return call(function, "pHOST=" + server.address() + "|pUser=" + server.user() + "|pPasswd=" + server.password() +
                              (tls ? "|pFTPTyp=4" : "") + "|pDateiname=" + remote + "|pZieldateiname=" + remote +
                              "|pZielverzeichnis=" + here.string() +
                              "|pQuellDateiname=" + local_name("M\xC3\xA4rz 1.csv"));
  };
  const auto done = [&](const char* function, const std::string& remote) {
    return run(function, remote).GetBool("_RETV");
  };
  for (const char* folder : {"in", "in/folder.csv"}) server.make_folder(folder);
  local.write("M\xC3\xA4rz 1.csv", "eins");
  EXPECT_TRUE(done("FTP_UPLOAD", "in/"));
  EXPECT_EQ(server.content("in/M\xC3\xA4rz 1.csv"), "eins");
  server.add("in/100%41.csv", std::string(300'000, 'x'));
  server.add("in/empty.csv", "");
  server.add("in/[a].csv", "a");
  server.add("in/a\\out.csv", "leads to another folder here");
  server.add("in/other.txt", "stays");

  EXPECT_TRUE(done("FTP_DOWNLOADDATEI", "in/100%41.csv"));
  EXPECT_EQ(fs::file_size(here / "100%41.csv"), 300'000U);
  EXPECT_EQ(run("FTP_DOWNLOADDATEIEN", "in/[*.csv").GetString("pDateien"), "[a].csv");
  EXPECT_TRUE(done("FTP_DOWNLOADDATEIEN", "in/*.none")) << "nothing to fetch is no failure";
  EXPECT_THAT(log.numbers(), testing::IsEmpty());

  const YObject all = run("FTP_DOWNLOADDATEIENMITLOESCHEN", "in/*.csv");
  EXPECT_FALSE(all.GetBool("_RETV")) << "one name is none here";
  EXPECT_THAT(all.GetString("pDateien").Items(),
              UnorderedElementsAre("M\xE4rz 1.csv", "100%41.csv", "empty.csv", "[a].csv"));
  EXPECT_THAT(names_in(server.folder() / "in"), UnorderedElementsAre("a\\out.csv", "other.txt", "folder.csv"));
  EXPECT_THAT(names_in(here), UnorderedElementsAre("M\xC3\xA4rz 1.csv", "100%41.csv", "empty.csv", "[a].csv"));
  fs::create_symlink("/dev/null", here / "other.txt");  // what arrives here is lost
  EXPECT_FALSE(done("FTP_DOWNLOADDATEIENMITLOESCHEN", "in/o*.txt"));
  EXPECT_TRUE(server.has("in/other.txt"));
  const SettingChange limit(settings::kTransferListLimit, "0");
  EXPECT_FALSE(done("FTP_DOWNLOADDATEIEN", "in/*"));

  EXPECT_TRUE(done("FTP_LOESCHE", "in/other.txt"));
  EXPECT_FALSE(server.has("in/other.txt"));
  EXPECT_FALSE(done("FTP_LOESCHE", "in/other.txt"));
  EXPECT_FALSE(done("FTP_DOWNLOADDATEIEN", "nowhere/*.csv"));
  EXPECT_THAT(log.numbers(), testing::ElementsAre(21550, 21551, 21549, 21544, 21549));
  EXPECT_TRUE(done("FTP_BEENDE", ""));
}

INSTANTIATE_TEST_SUITE_P(Transfer, FtpFamily, testing::Values(FtpBrand::vsftpd, FtpBrand::proftpd, FtpBrand::pure_ftpd),
                         [](const auto& info) { return name_of(info.param); });

TEST_F(TransferTest, InternetFunctionsFollowUrls) {
  YINET_REQUIRE_PROGRAM("nginx");
  const NginxServer server;
  server.add_document("a b.txt", "found");
  server.add_document("D\xC3\xBCse & Co", "page");
  const SettingChange search(settings::kSearchUrl, server.url("/$1$"));
  const auto run = [&](const char* function, const std::string& text) {
    return call(function, "pUrl=" + text + "|pSuchbegriffe=" + text + "|pZielverzeichnis=" + local_name(""));
  };
  EXPECT_EQ(run("INTERNET_DOWNLOAD", server.url("/a%20b.txt?x=1")).GetString("pResponseFile"), local_name("a b.txt"));
  EXPECT_EQ(read_file(local / "a b.txt"), "found");
  EXPECT_EQ(run("INTERNET_LESEDATEI", server.url("/redirect/302")).GetString("pInhalt").str(), NginxServer::kHello);
  YFile page(run("INTERNET_WEBSUCHE", " D\xFCse & Co ").GetString("pResponseFile"));
  std::string text;
  EXPECT_TRUE(page.Open(kOpenExisting, kAccessRead) && page.ReadAll(text));
  EXPECT_EQ(text, "page");
  YFile::Delete(page.GetName());
  for (const std::string& wrong : {server.url("/none"), std::string("no url")})
    EXPECT_FALSE(run("INTERNET_LESEDATEI", wrong).GetBool("_RETV"));
  EXPECT_THAT(log.numbers(), testing::ElementsAre(21548, 21520));
}

}  // namespace
}  // namespace yinet::test
