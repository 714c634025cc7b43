// Every operation against real servers of every protocol, directly and through proxies, and what servers refuse.

#include <sys/mount.h>

#include <cstdlib>
#include <filesystem>
#include <optional>
#include <ostream>
#include <utility>

#include "filetransfer/transfer_test_kit.h"
#include "support/resource_check.h"
#include "support/servers.h"

namespace yinet::test {
namespace {

namespace fs = std::filesystem;
using testing::IsEmpty;

struct Site {
  std::string name, protocol;
  FtpServer::Options ftp = {};
  friend void PrintTo(const Site& site, std::ostream* out) { *out << site.name; }
};
const Site kFtpProftpd{"ftp_proftpd", "ftp", {.brand = FtpBrand::proftpd}}, kSftp{"sftp", "sftp"};
const Site kSites[] = {
    {"ftp", "ftp"},
    kFtpProftpd,
    {"ftps", "ftps", {.tls = true}},
    {"ftps_proftpd", "ftps", {.brand = FtpBrand::proftpd, .tls = true}},
    {"ftps_implicit", "ftps", {.tls = true, .implicit_tls = true}},
    kSftp,
    {"http", "http"},
    {"https", "https"},
};
const auto kSiteName = [](const auto& info) { return info.param.name; };

// With a server of the site.
class TransferSites : public TransferTest, public testing::WithParamInterface<Site> {
 protected:
  void SetUp() override {
    const FtpServer::Options& options = GetParam().ftp;
    YINET_SKIP_FOR(is_sftp()  ? SshServer::missing()
                   : is_web() ? missing_program("nginx")
                              : FtpServer::missing(options.brand));
    if (options.implicit_tls) {
      YINET_REQUIRE_NETWORK_NAMESPACES();
      enter_network_namespace();  // where port 990 is free
    }
    start();
  }
  void start() {
    if (is_web())
      web.emplace();
    else if (is_sftp())
      files = &ssh.emplace();
    else
      files = &ftp.emplace(GetParam().ftp);
    const std::uint16_t web_port = !web ? 0 : GetParam().protocol == "http" ? web->port() : web->tls_port();
    const std::string address = ssh ? ssh->address() : ftp ? ftp->address() : "127.0.0.1:" + std::to_string(web_port);
    connection.StoreText("ServerUrl", GetParam().protocol + "://" + address);
    connection.StoreText("Benutzername", ssh ? ssh->user() : ftp ? ftp->user() : "");
    connection.StoreText("Passwort", ssh ? ssh->password() : ftp ? ftp->password() : "");
  }
  void stop() { web ? web->stop() : ssh ? ssh->stop() : ftp->stop(); }
  [[nodiscard]] bool is_sftp() const { return GetParam().protocol == "sftp"; }
  [[nodiscard]] bool is_web() const { return GetParam().protocol.starts_with("http"); }
  void add(std::string_view name, std::string_view content) const {
    web ? web->add_document(name, content) : files->add(name, content);
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

  std::optional<FtpServer> ftp;
  std::optional<SshServer> ssh;
  std::optional<NginxServer> web;
  const ServedFolder* files = nullptr;  // of ftp or ssh
  YObject connection;                   // as a script gives it
};

TEST_P(TransferSites, MoveFiles) {
  YInetFileTransfer transfer = this->transfer();
  if (files) files->make_folder("dir");
  for (const std::size_t size : {0, 1, 121072, 5242880}) {
    const std::string content = pattern_bytes(size);
    if (web) add("dir/file", content);
    ASSERT_TRUE(web || transfer.UploadFile(local_file("source", content), "dir/file")) << size << error_of(transfer);
    ASSERT_TRUE(web || files->content("dir/file") == content) << size;
    ASSERT_TRUE(transfer.DownloadToFile("/dir/file", local_name("back"))) << size << error_of(transfer);
    ASSERT_TRUE(read_file(local / "back") == content) << size;
  }
  const std::string text("a\0\r\nb\xE4", 6);  // no byte is changed
  const std::string remote("dir/M\xE4rz \"b\" 'c' \\ 100% #1?;type=a"), on_disk("dir/M\xC3\xA4rz" + remote.substr(8));
  if (files) {
    EXPECT_TRUE(does("UPLOAD_TEXT", "pInhalt=" + text + "|pZielPfad=" + remote));
    EXPECT_EQ(files->content(on_disk), text);
    EXPECT_EQ(called("DOWNLOAD_TEXT", "pQuellPfad=" + remote).GetString("pInhalt"), text);
    EXPECT_TRUE(does("DOWNLOAD_DATEI", "pQuellPfad=" + remote + "|pZielPfad=" + local_name("t")));
    EXPECT_TRUE(does("LOESCHE_DATEI", "pPfad=" + remote));
    EXPECT_FALSE(files->has(on_disk));
    EXPECT_TRUE(does("UPLOAD_DATEI", "pQuellPfad=" + local_name("t") + "|pZielPfad=" + remote));
    EXPECT_EQ(files->content(on_disk), text);
    EXPECT_TRUE(does("LOESCHE_DATEI", "pPfad=" + remote));
    EXPECT_TRUE(does("ERSTELLE_VERZEICHNIS", "pPfad=" + remote));
    EXPECT_TRUE(fs::is_directory(files->folder() / on_disk));
    EXPECT_TRUE(does("EXISTIERT_VERZEICHNIS", "pPfad=" + remote));
    EXPECT_TRUE(does("LOESCHE_VERZEICHNIS", "pPfad=" + remote));
    EXPECT_FALSE(does("EXISTIERT_VERZEICHNIS", "pPfad=" + remote));
  }
  EXPECT_THAT(log.numbers(), IsEmpty());
}

TEST_P(TransferSites, TellWhatFailed) {
  YInetFileTransfer transfer = this->transfer();
  if (files) files->make_folder("dir");
  YString text("left over");
  const std::string source = local_file("source", "x");
  const struct {
    int number, web_number;
    std::function<bool()> act;
  } cases[] = {
      {21540, 21528, [&] { return transfer.UploadFile(source, "none/x"); }},
      {21531, 21528, [&] { return transfer.UploadFile(local_name("none"), "x"); }},
      {21541, 21529, [&] { return transfer.UploadString("x", "none/x"); }},
      {21542, 21548, [&] { return transfer.DownloadToFile("none", local_name("none")); }},
      {21532, 21532, [&] { return transfer.DownloadToFile("none", local_name("none/x")); }},
      {21543, 21548, [&] { return transfer.DownloadToString("none", text); }},
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
      {0, 21530, [&] { return transfer.ExistsDirectory("none"); }},  // an answer, not an error
  };
  for (const auto& c : cases) {
    const int number = web ? c.web_number : c.number;
    log.clear();
    EXPECT_FALSE(c.act()) << number;
    EXPECT_EQ(transfer.GetLastErrorNumber(), number) << error_of(transfer);
    EXPECT_EQ(log.numbers(), number == 0 ? std::vector<int>() : std::vector<int>{number});
  }
  EXPECT_EQ(text, "");
  EXPECT_FALSE(fs::exists(local / "none"));
  if (web) return;
  EXPECT_TRUE(transfer.UploadString("x", "x")) << "after all that: " << error_of(transfer);
  if (connection.GetString("Benutzername") == "anonymous") return;
  transfer.SetPassword("wrong & secret");
  EXPECT_FALSE(transfer.UploadString("x", "x")) << "the open connection is not for another login";
  EXPECT_EQ(transfer.last_cause().failure, TransferFailure::login_refused);
  EXPECT_THAT(transfer.GetLastErrorMsg().str(),
              testing::AllOf(testing::HasSubstr("password=***"), testing::Not(testing::HasSubstr("secret"))));
}

TEST_P(TransferSites, AreVerifiedOnDemand) {
  YInetFileTransfer transfer = this->transfer();
  YString text;
  add("hello.txt", "content");
  const bool clear = GetParam().protocol != "https" && GetParam().protocol != "ftps";
  const SettingChange verify(settings::kTlsVerifyAlways, "1");
  EXPECT_EQ(transfer.DownloadToString("hello.txt", text), clear);
  ::setenv("SSL_CERT_FILE", Certificates::shared().ca_file().c_str(), 1);
  EXPECT_TRUE(transfer.DownloadToString("hello.txt", text)) << error_of(transfer);
  const SettingChange version(settings::kTlsMinimumVersion, "9.9");
  EXPECT_EQ(transfer.DownloadToString("hello.txt", text), clear) << "a policy that is not understood";
  ::unsetenv("SSL_CERT_FILE");
}

TEST_P(TransferSites, AreReachedThroughEveryProxy) {
  YINET_REQUIRE_PROGRAM("tinyproxy");
  for (const auto brand : {SocksServer::Brand::dante, SocksServer::Brand::microsocks})
    YINET_SKIP_FOR(SocksServer::missing(brand));
  const HttpProxy http("puser", "ppass");
  const SocksServer dante(SocksServer::Brand::dante), microsocks(SocksServer::Brand::microsocks, "puser", "ppass");
  const std::string content = pattern_bytes(300'000);
  add("file", content);
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
    add("file", content);
    YInetFileTransfer transfer = this->transfer();
    bool stopped = false;
    transfer.on_progress([&](std::int64_t done, std::int64_t total) {
      EXPECT_TRUE(total == 48'000'000 || done == 0) << total;
      if (done > 0 && !std::exchange(stopped, true)) stop();
    });
    EXPECT_FALSE(upload ? transfer.UploadFile(source, "up") : transfer.DownloadToFile("file", local_name("none")));
    EXPECT_EQ(transfer.GetLastErrorNumber(), upload ? 21540 : 21542) << error_of(transfer);
    EXPECT_EQ(transfer.last_cause().failure, TransferFailure::broken_off) << error_of(transfer);
    EXPECT_FALSE(fs::exists(local / "none"));
  }
}

INSTANTIATE_TEST_SUITE_P(Transfer, TransferSites, testing::ValuesIn(kSites), kSiteName);

using GuardedSites = TransferSites;

TEST_P(GuardedSites, PermissionsAndFullDisksAreErrors) {
  YINET_REQUIRE_ROOT();
  const std::string content = pattern_bytes(3'000'000);
  add("file", content);
  add("secret", "x");
  files->make_folder("closed");
  for (const char* name : {"secret", "closed"}) fs::permissions(files->folder() / name, fs::perms::none);
  const ResourceCheck resources;
  YInetFileTransfer transfer = this->transfer();
  YString text;
  EXPECT_FALSE(transfer.DownloadToString("secret", text));
  EXPECT_FALSE(transfer.UploadString("x", "closed/x"));
  EXPECT_FALSE(transfer.CreateDirectoryA("closed/x"));
  EXPECT_EQ(transfer.ExistsDirectory("closed"), is_sftp()) << "SFTP tells missing from forbidden, FTP does not";
  EXPECT_FALSE(is_sftp() && transfer.UploadFile(local_file("source", content), "full/x"));
  enter_mount_namespace();
  const fs::path small = local.make_folder("small");
  ASSERT_EQ(::mount("none", small.c_str(), "tmpfs", 0, "size=1m"), 0);
  EXPECT_FALSE(transfer.DownloadToFile("file", local_name("small/x")));
  EXPECT_EQ(transfer.last_cause().failure, TransferFailure::local_file) << error_of(transfer);
  std::vector<int> expected = {21543, 21541, 21546, 21542};
  if (is_sftp()) expected.insert(expected.end() - 1, 21540);
  EXPECT_EQ(log.numbers(), expected);
  EXPECT_TRUE(fs::is_empty(small));
  ASSERT_EQ(::umount(small.c_str()), 0);
}

INSTANTIATE_TEST_SUITE_P(Transfer, GuardedSites, testing::Values(kFtpProftpd, kSftp), kSiteName);

}  // namespace
}  // namespace yinet::test
