// Every operation and the script functions against real servers, directly and through proxies, and what servers refuse.

#include <sched.h>

#include <cstdlib>
#include <filesystem>
#include <memory>
#include <ostream>
#include <tuple>
#include <utility>

#include "ftp/ftp_test_kit.h"
#include "support/resource_check.h"
#include "support/servers.h"
#include "yinet/host/yfile.h"

namespace yinet::test {
namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

struct Site {
  std::string name, protocol;
  FtpServer::Options ftp = {};
  friend void PrintTo(const Site& site, std::ostream* out) { *out << site.name; }
};
const Site kSites[] = {
    {"ftp", "ftp"},
    {"ftp_proftpd", "ftp", {.brand = FtpBrand::proftpd}},
    {"ftps", "ftps", {.tls = true}},
    {"ftps_proftpd", "ftps", {.brand = FtpBrand::proftpd, .tls = true}},
    {"ftps_implicit", "ftps", {.tls = true, .lines = "implicit_ssl=YES\n", .port = 990}},
    {"sftp", "sftp"},
    {"http", "http"},
    {"https", "https"},
};

// With a server of the site.
class TransferSites : public FtpTest, public testing::WithParamInterface<Site> {
 protected:
  void SetUp() override {
    const FtpServer::Options& options = GetParam().ftp;
    YINET_SKIP_FOR(sftp ? SshServer::missing() : web ? missing_program("nginx") : FtpServer::missing(options.brand));
    if (options.port != 0) {  // it is free in a network of the test's own, which all that it starts later shares
      YINET_REQUIRE_NETWORK_NAMESPACES();
      ASSERT_EQ(::unshare(CLONE_NEWNET), 0) << "needs root";
      ASSERT_EQ(run_command({"ip", "link", "set", "lo", "up"}).exit_code, 0);
    }
    start();
  }
  void start() {
    using Server = std::shared_ptr<ServedFolder>;
    server = web ? Server(new NginxServer) : sftp ? Server(new SshServer) : Server(new FtpServer(GetParam().ftp));
    const std::string address = server->address(GetParam().protocol == "https");
    connection.StoreText("ServerUrl", GetParam().protocol + "://" + address.substr(0, address.find(":990")));
    connection.StoreText("Benutzername", anonymous ? "anonymous" : SshServer::user());
    connection.StoreText("Passwort", ServedFolder::password());
  }
  [[nodiscard]] YInetFileTransfer transfer() const {
    return transfer_to(connection.GetString("ServerUrl").str(), connection.GetString("Benutzername"),
                       connection.GetString("Passwort"));
  }
  [[nodiscard]] YObject called(const std::string& function, const std::string& texts) const {
    YObject given;
    given.Store<YObject>("pVerbindungsdaten", connection);
    return call("YINETFILETRANSFER_" + function, texts, given);
  }
  [[nodiscard]] bool does(const std::string& function, const std::string& texts) const {
    return called(function, texts).GetBool("_RETV");
  }

  const bool sftp = GetParam().protocol == "sftp", web = GetParam().protocol.starts_with("http");
  const bool anonymous = !sftp && !web && GetParam().ftp.brand == FtpBrand::vsftpd;  // who may do everything there
  std::shared_ptr<ServedFolder> server;
  YObject connection;  // as a script gives it
};

TEST_P(TransferSites, MoveFiles) {
  YInetFileTransfer transfer = this->transfer();
  server->make_folder("dir");
  for (const std::size_t size : {0, 1, 121072, 5242880}) {
    const std::string content = pattern_bytes(size);
    if (web) server->add("dir/file", content);
    ASSERT_TRUE(web || transfer.UploadFile(local_file("source", content), "dir/file")) << size << error_of(transfer);
    ASSERT_TRUE(server->content("dir/file") == content) << size;
    ASSERT_TRUE(transfer.DownloadToFile("/dir/file", local_name("back"))) << size << error_of(transfer);
    ASSERT_TRUE(read_file(local / "back") == content) << size;
  }
  const std::string text("a\0\r\nb\xE4", 6);  // no byte is changed
  const std::string remote("dir/M\xE4rz \"b\" 'c' \\ 100% #1?;type=a"), on_disk("dir/M\xC3\xA4rz" + remote.substr(8));
  if (!web) {
    EXPECT_TRUE(does("UPLOAD_TEXT", "pInhalt=" + text + "|pZielPfad=" + remote));
    EXPECT_EQ(server->content(on_disk), text);
    EXPECT_EQ(called("DOWNLOAD_TEXT", "pQuellPfad=" + remote).GetString("pInhalt"), text);
    EXPECT_TRUE(does("DOWNLOAD_DATEI", "pQuellPfad=" + remote + "|pZielPfad=" + local_name("t")));
    EXPECT_TRUE(does("LOESCHE_DATEI", "pPfad=" + remote) && !server->has(on_disk));
    EXPECT_TRUE(does("UPLOAD_DATEI", "pQuellPfad=" + local_name("t") + "|pZielPfad=" + remote));
    EXPECT_EQ(server->content(on_disk), text);
    for (const char* function :
         {"LOESCHE_DATEI", "ERSTELLE_VERZEICHNIS", "EXISTIERT_VERZEICHNIS", "LOESCHE_VERZEICHNIS"})
      EXPECT_TRUE(does(function, "pPfad=" + remote)) << function;
    EXPECT_FALSE(does("EXISTIERT_VERZEICHNIS", "pPfad=" + remote) || server->has(on_disk));
  }
  EXPECT_THAT(log.numbers(), IsEmpty());
}

TEST_P(TransferSites, TellWhatFailed) {
  for (const char* name : {"secret", "file"}) server->add(name, "x");
  for (const char* name : {"dir", "closed"}) server->make_folder(name);
  for (const char* name : {"secret", "closed"}) fs::permissions(server->folder() / name, fs::perms::none);
  const std::string secret = anonymous ? "none" : "secret", closed = anonymous ? "none" : "closed";
  const std::string source = local_file("source", "x"), large = local_file("large", pattern_bytes(3'000'000));
  fs::create_symlink("/dev/full", local / "disk");
  const ResourceCheck resources;
  YInetFileTransfer transfer = this->transfer();
  YString text("left over");
  const std::tuple<int, int, std::function<bool()>> cases[] = {
      // the error, that over HTTP
      {21540, 21528, [&] { return transfer.UploadFile(source, "none/x"); }},
      {21531, 21528, [&] { return transfer.UploadFile(local_name("none"), "x"); }},
      {21541, 21529, [&] { return transfer.UploadString("x", "none/x"); }},
      {21542, 21548, [&] { return transfer.DownloadToFile("none", local_name("none")); }},
      {21532, 21532, [&] { return transfer.DownloadToFile("none", local_name("none/x")); }},
      {21543, 21548, [&] { return transfer.DownloadToString("none", text); }},
      {21543, 21548, [&] { return transfer.DownloadToString(secret, text); }},
      {21543, 21548, [&] { return transfer.DownloadToString("redirect/302", text); }},  // only into files
      {21544, 21525, [&] { return transfer.DeleteFileA("none"); }},
      {21545, 21526, [&] { return transfer.DeleteDirectory("none"); }},
      {21546, 21527, [&] { return transfer.CreateDirectoryA("dir"); }},
      {21546, 21527, [&] { return transfer.CreateDirectoryA("x\nDELE source"); }},
      {21545, 21526, [&] { return transfer.DeleteDirectory("x\rDELE source"); }},
      {21544, 21525, [&] { return transfer.DeleteFileA(YString("x\0y", 3)); }},
      {21541, 21529, [&] { return transfer.UploadString("x", "x%0D%0ADELE source"); }},
      {21540, 21528, [&] { return transfer.UploadFile(source, YString("x\0y", 3)); }},
      {21542, 21548, [&] { return transfer.DownloadToFile("x%00y", local_name("none")); }},
      {21547, 21530, [&] { return transfer.ExistsDirectory("dir\n"); }},
      {21541, 21529, [&] { return transfer.UploadString("x", closed + "/x"); }},
      {21546, 21527, [&] { return transfer.CreateDirectoryA(closed + "/y"); }},
      {21540, 21528, [&] { return transfer.UploadFile(large, "full/x"); }},  // sshd's; elsewhere there is none
      {0, 21530, [&] { return transfer.ExistsDirectory("none"); }},          // an answer, not an error
      {0, 21530, [&] { return transfer.ExistsDirectory(closed) != sftp; }},  // FTP takes forbidden for missing
      {21542, 21542, [&] { return transfer.DownloadToFile("file", local_name("disk")); }},
  };
  const std::function<bool()> refusals[] = {[&] { return transfer.CreateDirectoryA("dir"); },
                                            [&] { return transfer.DownloadToFile("dir", local_name("none")); },
                                            [&] { return transfer.UploadFile(source, "dir"); }};
  for (const auto& [general, over_http, act] : cases) {
    const int number = web ? over_http : general;
    log.clear();
    EXPECT_FALSE(act()) << number;
    EXPECT_EQ(transfer.GetLastErrorNumber(), number) << error_of(transfer);
    EXPECT_EQ(log.numbers(), number == 0 ? std::vector<int>() : std::vector<int>{number});
  }
  EXPECT_EQ(transfer.last_cause().failure, TransferFailure::local_file) << error_of(transfer);
  for (const auto& act : refusals) {
    EXPECT_FALSE(act());
    EXPECT_TRUE(web || transfer.last_cause().failure == TransferFailure::refused) << error_of(transfer);
    EXPECT_TRUE(web || sftp || transfer.last_cause().text.StartsWith("55"))
        << error_of(transfer) << ": the server's own words";
  }
  EXPECT_EQ(text, "");
  EXPECT_FALSE(fs::exists(local / "none"));
  if (web) return;
  EXPECT_TRUE(transfer.UploadString("x", "x")) << "after all that: " << error_of(transfer);
  if (anonymous) return;
  transfer.SetPassword("wrong & secret");
  EXPECT_FALSE(transfer.UploadString("x", "x")) << "the open connection is not for another login";
  EXPECT_EQ(transfer.last_cause().failure, TransferFailure::login_refused);
  EXPECT_THAT(transfer.GetLastErrorMsg().str(),
              testing::AllOf(testing::HasSubstr("password=***"), testing::Not(testing::HasSubstr("secret"))));
}

TEST_P(TransferSites, AreVerifiedOnDemand) {
  YInetFileTransfer transfer = this->transfer();
  YString text;
  server->add("hello.txt", "content");
  const bool clear = GetParam().protocol != "https" && GetParam().protocol != "ftps";
  const SettingChange verify(settings::kTlsVerifyAlways, "1");
  EXPECT_EQ(transfer.DownloadToString("hello.txt", text), clear);
  ::setenv("SSL_CERT_FILE", Certificates::shared().ca_file().c_str(), 1);
  EXPECT_TRUE(transfer.DownloadToString("hello.txt", text)) << error_of(transfer);
  const SettingChange version(settings::kTlsMinimumVersion, "9.9");
  EXPECT_EQ(transfer.DownloadToString("hello.txt", text), clear) << "a policy that is not understood";
  EXPECT_THAT(transfer.GetLastErrorMsg().str(), testing::HasSubstr(clear ? "" : "\"TLS\"/\"MindestVersion\""));
  ::unsetenv("SSL_CERT_FILE");
}

TEST_P(TransferSites, AreReachedThroughEveryProxy) {
  YINET_REQUIRE_PROGRAM("tinyproxy");
  for (const auto brand : {SocksServer::Brand::dante, SocksServer::Brand::microsocks})
    YINET_SKIP_FOR(SocksServer::missing(brand));
  const HttpProxy http("puser", "ppass");
  const SocksServer dante(SocksServer::Brand::dante), microsocks(SocksServer::Brand::microsocks, "puser", "ppass");
  const std::string content = pattern_bytes(300'000);
  server->add("file", content);
  for (const std::string& proxy :
       {"http://" + http.address(), "socks4://" + dante.address(), "socks5://" + dante.address(),
        "socks5h://" + dante.address(), "socks5://" + microsocks.address()}) {
    SCOPED_TRACE(proxy);
    YInetFileTransfer transfer = this->transfer();
    ASSERT_TRUE(transfer.SetProxyServerUrl(proxy));
    transfer.SetProxyUsername("puser");
    transfer.SetProxyPassword("ppass");
    EXPECT_TRUE(transfer.DownloadToFile("file", local_name("back"))) << error_of(transfer);
    EXPECT_TRUE(read_file(local / "back") == content);
    EXPECT_TRUE(web || transfer.UploadString(content, "up")) << error_of(transfer);
    EXPECT_TRUE(web || (transfer.CreateDirectoryA("made") && transfer.DeleteDirectory("made"))) << error_of(transfer);
    if (!proxy.starts_with("http")) continue;
    transfer.SetProxyPassword("not that");
    EXPECT_FALSE(transfer.DownloadToFile("file", local_name("back")));
    EXPECT_NE(transfer.GetLastErrorNumber(), 0);
  }
}

TEST_P(TransferSites, AServerThatIsKilledBreaksOffATransfer) {
  const std::string content = pattern_bytes(48'000'000);
  const std::string source = local_file("source", content);
  for (const bool upload : {false, true}) {
    if (upload && web) break;
    if (upload) start();
    server->add("file", content);
    YInetFileTransfer transfer = this->transfer();
    bool stopped = false;
    transfer.on_progress([&](std::int64_t done, std::int64_t total) {
      EXPECT_TRUE(total == 48'000'000 || done == 0) << total;
      if (done > 0 && !std::exchange(stopped, true)) server->stop();
    });
    EXPECT_FALSE(upload ? transfer.UploadFile(source, "up") : transfer.DownloadToFile("file", local_name("none")));
    EXPECT_EQ(transfer.GetLastErrorNumber(), upload ? 21540 : 21542) << error_of(transfer);
    EXPECT_EQ(transfer.last_cause().failure, TransferFailure::broken_off) << error_of(transfer);
    EXPECT_FALSE(fs::exists(local / "none"));
  }
}

INSTANTIATE_TEST_SUITE_P(Transfer, TransferSites, testing::ValuesIn(kSites),
                         [](const auto& info) { return info.param.name; });

std::vector<std::string> names_in(const fs::path& folder) {
  std::vector<std::string> names;
  for (const auto& entry : fs::directory_iterator(folder)) names.push_back(entry.path().filename().string());
  return names;
}

class FtpFamily : public FtpTest, public testing::WithParamInterface<FtpBrand> {};

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
  EXPECT_THAT(log.numbers(), IsEmpty());

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
  EXPECT_THAT(log.numbers(), ElementsAre(21550, 21551, 21549, 21544, 21549));
  EXPECT_TRUE(done("FTP_BEENDE", ""));
}

INSTANTIATE_TEST_SUITE_P(Transfer, FtpFamily, testing::Values(FtpBrand::vsftpd, FtpBrand::proftpd, FtpBrand::pure_ftpd),
                         [](const auto& info) { return name_of(info.param); });

TEST_F(FtpTest, InternetFunctionsFollowUrls) {
  YINET_REQUIRE_PROGRAM("nginx");
  const NginxServer server;
  server.add("a b.txt", "found");
  server.add("D\xC3\xBCse & Co", "page");
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
  for (const std::string& wrong : {server.url("/none"), std::string("no url"), std::string("file:///etc/passwd")})
    EXPECT_FALSE(run("INTERNET_LESEDATEI", wrong).GetBool("_RETV"));
  EXPECT_FALSE(run("INTERNET_DOWNLOAD", server.url("/")).GetBool("_RETV"));
  EXPECT_FALSE(run("INTERNET_WEBSUCHE", " ").GetBool("_RETV"));
  EXPECT_THAT(log.numbers(), ElementsAre(21548, 21520, 21522, 21542, 21542));
}

}  // namespace
}  // namespace yinet::test
