// The script functions of the families FTP and Internet against real servers.

#include <filesystem>

#include "filetransfer/transfer_test_kit.h"
#include "support/ftp_server.h"
#include "support/nginx_server.h"
#include "yinet/host/yfile.h"
#include "yinet/host/yobject.h"
#include "yinet/script/call_function.h"

namespace yinet::test {
namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

bool call(std::string_view function, YObject& parameters) {
  return call_function(function, parameters).status == CallStatus::succeeded;
}

std::vector<std::string> items(const YObject& parameters, std::string_view key) {
  std::vector<std::string> names;
  const YString list = parameters.GetString(key);
  for (const std::string_view item : list.Items()) names.emplace_back(item);
  return names;
}

std::vector<std::string> names_in(const fs::path& folder) {
  std::vector<std::string> names;
  for (const auto& entry : fs::directory_iterator(folder)) names.push_back(entry.path().filename().string());
  return names;
}

struct FtpCase {
  FtpBrand brand;
  bool tls;
};
class FtpFamily : public TransferTest, public testing::WithParamInterface<FtpCase> {};

TEST_P(FtpFamily, MovesFilesSinglyAndByWildcard) {
  YINET_SKIP_FOR(FtpServer::missing(GetParam().brand));
  const FtpServer server({.brand = GetParam().brand, .tls = GetParam().tls});
  const auto record = [&](std::initializer_list<std::pair<const char*, YString>> more) {
    YObject parameters;
    parameters.Store<std::int32_t>("pFTPTyp", GetParam().tls ? 4 : 0);
    parameters.StoreText("pHOST", server.address());
    parameters.StoreText("pUser", server.user());
    parameters.StoreText("pPasswd", server.password());
    for (const auto& [key, value] : more) parameters.Store<YString>(key, value);
    return parameters;
  };
  server.make_folder("in");
  const YString here(local.make_folder("here").string());
  const fs::path folder = local / "here";

  YObject upload = record({{"pQuellDateiname", local_file("M\xC3\xA4rz 1.csv", "eins")}, {"pZieldateiname", "in/"}});
  EXPECT_TRUE(call("FTP_UPLOAD", upload));
  EXPECT_EQ(server.content("in/M\xC3\xA4rz 1.csv"), "eins");
  server.add("in/100%41.csv", std::string(300'000, 'x'));
  server.add("in/empty.csv", "");
  server.add("in/[a].csv", "a");
  server.add("in/a\\out.csv", "leads to another folder here");
  server.add("in/other.txt", "stays");
  server.make_folder("in/folder.csv");

  YObject one = record({{"pDateiname", "in/100%41.csv"}, {"pZielverzeichnis", here}});
  EXPECT_TRUE(call("FTP_DOWNLOADDATEI", one));
  EXPECT_EQ(fs::file_size(folder / "100%41.csv"), 300'000U);

  YObject some = record({{"pDateiname", "in/[*.csv"}, {"pZielverzeichnis", here}});
  EXPECT_TRUE(call("FTP_DOWNLOADDATEIEN", some));
  EXPECT_THAT(items(some, "pDateien"), ElementsAre("[a].csv"));
  YObject none = record({{"pDateiname", "in/*.none"}, {"pZielverzeichnis", here}});
  EXPECT_TRUE(call("FTP_DOWNLOADDATEIEN", none)) << "nothing to fetch is no failure";
  EXPECT_THAT(items(none, "pDateien"), IsEmpty());
  EXPECT_THAT(log.numbers(), IsEmpty());

  YObject all = record({{"pDateiname", "in/*.csv"}, {"pZielverzeichnis", here}});
  EXPECT_FALSE(call("FTP_DOWNLOADDATEIENMITLOESCHEN", all)) << "one name is none here";
  EXPECT_THAT(log.numbers(), ElementsAre(21550));
  EXPECT_THAT(items(all, "pDateien"), UnorderedElementsAre("M\xE4rz 1.csv", "100%41.csv", "empty.csv", "[a].csv"));
  EXPECT_THAT(names_in(server.folder() / "in"), UnorderedElementsAre("a\\out.csv", "other.txt", "folder.csv"));
  EXPECT_THAT(names_in(folder), UnorderedElementsAre("M\xC3\xA4rz 1.csv", "100%41.csv", "empty.csv", "[a].csv"));

  fs::create_symlink("/dev/null", folder / "other.txt");  // what arrives here is lost
  YObject unverified = record({{"pDateiname", "in/o*.txt"}, {"pZielverzeichnis", here}});
  EXPECT_FALSE(call("FTP_DOWNLOADDATEIENMITLOESCHEN", unverified));
  EXPECT_TRUE(server.has("in/other.txt"));

  YObject gone = record({{"pDateiname", "in/other.txt"}});
  EXPECT_TRUE(call("FTP_LOESCHE", gone));
  EXPECT_FALSE(server.has("in/other.txt"));
  EXPECT_FALSE(call("FTP_LOESCHE", gone));
  YObject missing = record({{"pDateiname", "nowhere/*.csv"}, {"pZielverzeichnis", here}});
  EXPECT_FALSE(call("FTP_DOWNLOADDATEIEN", missing));
  EXPECT_THAT(log.numbers(), ElementsAre(21550, 21551, 21544, 21549));
  YObject nothing;
  EXPECT_TRUE(call("FTP_BEENDE", nothing));
}

INSTANTIATE_TEST_SUITE_P(Transfer, FtpFamily,
                         testing::Values(FtpCase{FtpBrand::vsftpd, false}, FtpCase{FtpBrand::proftpd, true},
                                         FtpCase{FtpBrand::pure_ftpd, false}),
                         [](const auto& info) { return name_of(info.param.brand) == "Pure-FTPd" ? "pure_ftpd" : name_of(info.param.brand); });

TEST_F(TransferTest, ListsFilesWithTheirSizes) {
  YINET_SKIP_FOR(FtpServer::missing(FtpBrand::vsftpd));
  const FtpServer server({.brand = FtpBrand::vsftpd});
  server.add("a.csv", "listed first");
  server.add("b.csv", "short");
  YInetFileTransfer transfer;
  transfer.SetServerUrl(YString("ftp://" + server.address()));
  std::vector<RemoteFile> files;
  ASSERT_TRUE(transfer.list_files("?.csv", files)) << error_of(transfer);
  ASSERT_EQ(files.size(), 2U);
  EXPECT_EQ(files[0].size + files[1].size, 12 + 5);
  set(settings::kTransferListLimit, "1");
  EXPECT_FALSE(transfer.list_files("*", files));
  EXPECT_EQ(transfer.GetLastErrorNumber(), 21549);
}

TEST_F(TransferTest, InternetFunctionsFollowUrls) {
  YINET_REQUIRE_PROGRAM("nginx");
  const NginxServer server;
  const std::string root = "http://127.0.0.1:" + std::to_string(server.port()) + "/";
  server.add_document("a b.txt", "found");
  const YString here(local.make_folder("here").string());

  YObject download;
  download.StoreText("pUrl", root + "a%20b.txt?x=1");
  download.Store<YString>("pZielverzeichnis", here);
  EXPECT_TRUE(call("INTERNET_DOWNLOAD", download));
  EXPECT_EQ(read_file(local / "here" / "a b.txt"), "found");
  EXPECT_EQ(download.GetString("pResponseFile").str(), (local / "here" / "a b.txt").string());

  YObject read;
  read.StoreText("pUrl", root + "redirect/302");
  EXPECT_TRUE(call("INTERNET_LESEDATEI", read));
  EXPECT_EQ(read.GetString("pInhalt").str(), NginxServer::kHello);
  YObject missing;
  missing.StoreText("pUrl", root + "none");
  EXPECT_FALSE(call("INTERNET_LESEDATEI", missing));
  YObject wrong;
  wrong.StoreText("pUrl", "no url");
  EXPECT_FALSE(call("INTERNET_LESEDATEI", wrong));
  set(settings::kTransferTextLimit, "4");
  read.StoreText("pUrl", root + "a%20b.txt");
  EXPECT_FALSE(call("INTERNET_LESEDATEI", read));
  EXPECT_EQ(read.GetString("pInhalt"), "");
  EXPECT_THAT(log.numbers(), ElementsAre(21548, 21520, 21542));

  server.add_document("D\xC3\xBCse & Co", "page");
  set(settings::kSearchUrl, root + "$1$");
  YObject search;
  search.StoreText("pSuchbegriffe", " D\xFCse & Co ");
  EXPECT_TRUE(call("INTERNET_WEBSUCHE", search));
  YFile page(search.GetString("pResponseFile"));
  std::string text;
  EXPECT_TRUE(page.Open(kOpenExisting, kAccessRead) && page.ReadAll(text));
  EXPECT_EQ(text, "page");
  YFile::Delete(page.GetName());
}

}  // namespace
}  // namespace yinet::test
