// Every operation against real servers of every protocol, directly and through proxies, and what servers refuse.

#include <sys/mount.h>

#include <array>
#include <filesystem>
#include <functional>
#include <memory>
#include <utility>
#include <vector>

#include "filetransfer/transfer_test_kit.h"
#include "support/ftp_server.h"
#include "support/http_proxy.h"
#include "support/nginx_server.h"
#include "support/resource_check.h"
#include "support/socks_server.h"
#include "support/ssh_server.h"
#include "yinet/host/yobject.h"
#include "yinet/script/call_function.h"

namespace yinet::test {
namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::IsEmpty;

enum class Site { ftp, ftp_proftpd, ftps, ftps_proftpd, ftps_implicit, sftp, http, https };
constexpr Site kFolderSites[] = {Site::ftp, Site::ftp_proftpd, Site::ftps, Site::ftps_proftpd, Site::ftps_implicit, Site::sftp};

std::string name_of(Site site) {
  constexpr const char* kNames[] = {"ftp", "ftp_proftpd", "ftps", "ftps_proftpd", "ftps_implicit", "sftp", "http", "https"};
  return kNames[static_cast<int>(site)];
}
std::string protocol_of(Site site) { return name_of(site).substr(0, name_of(site).find('_')); }
FtpBrand brand_of(Site site) { return name_of(site).ends_with("proftpd") ? FtpBrand::proftpd : FtpBrand::vsftpd; }

// A server of one of the sites.
class Server {
 public:
  static std::string missing(Site site) {
    if (site == Site::sftp) return SshServer::missing();
    if (site == Site::http || site == Site::https) return missing_program("nginx");
    const std::string reason = site == Site::ftps_implicit ? missing_network_namespaces() : std::string();
    return reason.empty() ? FtpServer::missing(brand_of(site)) : reason;
  }
  explicit Server(Site site) : site_(site) {
    if (site == Site::sftp)
      ssh_ = std::make_unique<SshServer>();
    else if (site == Site::http || site == Site::https)
      web_ = std::make_unique<NginxServer>();
    else
      ftp_ = std::make_unique<FtpServer>(FtpServer::Options{.brand = brand_of(site),
                                                            .tls = protocol_of(site) == "ftps",
                                                            .implicit_tls = site == Site::ftps_implicit});
  }

  // As a script gives it.
  [[nodiscard]] YObject connection() const {
    YObject record;
    record.StoreText("ServerUrl", protocol_of(site_) + "://" + address());
    record.StoreText("Benutzername", ssh_ ? SshServer::user() : ftp_ ? ftp_->user() : "");
    record.StoreText("Passwort", ssh_ ? SshServer::password() : ftp_ ? ftp_->password() : "");
    return record;
  }
  [[nodiscard]] YInetFileTransfer transfer() const {
    YInetFileTransfer transfer;
    const YObject record = connection();
    EXPECT_TRUE(transfer.SetServerUrl(record.GetString("ServerUrl")));
    transfer.SetUsername(record.GetString("Benutzername"));
    transfer.SetPassword(record.GetString("Passwort"));
    return transfer;
  }
  [[nodiscard]] const ServedFolder& files() const { return ssh_ ? static_cast<const ServedFolder&>(*ssh_) : *ftp_; }
  void add(std::string_view name, std::string_view content) const {
    web_ ? web_->add_document(name, content) : files().add(name, content);
  }
  void stop() { ssh_ ? ssh_->stop() : ftp_ ? ftp_->stop() : web_->stop(); }

 private:
  [[nodiscard]] std::string address() const {
    if (web_) return "127.0.0.1:" + std::to_string(site_ == Site::http ? web_->port() : web_->tls_port());
    return ssh_ ? ssh_->address() : ftp_->address();
  }
  Site site_;
  std::unique_ptr<FtpServer> ftp_;
  std::unique_ptr<SshServer> ssh_;
  std::unique_ptr<NginxServer> web_;
};

class TransferSites : public TransferTest, public testing::WithParamInterface<Site> {
 protected:
  void SetUp() override {
    YINET_SKIP_FOR(Server::missing(GetParam()));
    if (GetParam() == Site::ftps_implicit) enter_network_namespace();  // where port 990 is free
  }
  [[nodiscard]] bool sftp() const { return GetParam() == Site::sftp; }
};
std::string case_name(const testing::TestParamInfo<Site>& info) { return name_of(info.param); }

// --- Each operation on each protocol --------------------------------------------------------------------------------------

class FolderSites : public TransferSites {};

TEST_P(FolderSites, MoveFilesAndFolders) {
  const Server server(GetParam());
  const ServedFolder& files = server.files();
  files.make_folder("dir");
  YInetFileTransfer transfer = server.transfer();
  for (const std::size_t size : {0, 1, 121072, 5242880}) {
    const std::string content = pattern_bytes(size);
    ASSERT_TRUE(transfer.UploadFile(local_file("source", content), "dir/file")) << size << error_of(transfer);
    ASSERT_TRUE(files.content("dir/file") == content) << size;
    ASSERT_TRUE(transfer.DownloadToFile("/dir/file", local_name("back"))) << size << error_of(transfer);
    ASSERT_TRUE(read_file(local / "back") == content) << size;
  }
  const std::string text("a\0\r\nb\xE4", 6);  // no byte is changed
  const std::pair<const char*, const char*> names[] = {
      {"a \"b\" 'c' \\ 100% #1?;type=a", "a \"b\" 'c' \\ 100% #1?;type=a"}, {"M\xE4rz \xDC", "M\xC3\xA4rz \xC3\x9C"}};
  for (const auto& [name, on_disk] : names) {
    const YString remote = YString("dir/") + name;
    const std::string there = std::string("dir/") + on_disk;
    YString back;
    ASSERT_TRUE(transfer.UploadString(YString(text), remote)) << name << error_of(transfer);
    EXPECT_EQ(files.content(there), text) << name;
    EXPECT_TRUE(transfer.DownloadToString(remote, back)) << name << error_of(transfer);
    EXPECT_EQ(back.str(), text) << name;
    EXPECT_TRUE(transfer.DeleteFileA(remote)) << name << error_of(transfer);
    EXPECT_FALSE(files.has(there)) << name;
    EXPECT_TRUE(transfer.CreateDirectoryA(remote)) << name << error_of(transfer);
    EXPECT_TRUE(fs::is_directory(files.folder() / there)) << name;
    EXPECT_TRUE(transfer.ExistsDirectory(remote)) << name << error_of(transfer);
    EXPECT_TRUE(transfer.DeleteDirectory(remote)) << name << error_of(transfer);
    EXPECT_FALSE(transfer.ExistsDirectory(remote)) << name;
    EXPECT_EQ(transfer.GetLastErrorNumber(), 0) << "no such folder is no error";
  }
  EXPECT_THAT(log.numbers(), IsEmpty());
}

TEST_P(FolderSites, TellWhatFailed) {
  const Server server(GetParam());
  server.files().make_folder("dir");
  YInetFileTransfer transfer = server.transfer();
  YString text("left over");
  const YString source = local_file("source", "x");
  const std::pair<int, std::function<bool()>> cases[] = {
      {21540, [&] { return transfer.UploadFile(source, "none/x"); }},
      {21531, [&] { return transfer.UploadFile(local_name("none"), "x"); }},
      {21541, [&] { return transfer.UploadString("x", "none/x"); }},
      {21542, [&] { return transfer.DownloadToFile("none", local_name("none")); }},
      {21532, [&] { return transfer.DownloadToFile("none", local_name("none/x")); }},
      {21543, [&] { return transfer.DownloadToString("none", text); }},
      {21544, [&] { return transfer.DeleteFileA("none"); }},
      {21545, [&] { return transfer.DeleteDirectory("none"); }},
      {21546, [&] { return transfer.CreateDirectoryA("dir"); }},
      {21546, [&] { return transfer.CreateDirectoryA("x\nDELE source"); }},
      {21545, [&] { return transfer.DeleteDirectory("x\rDELE source"); }},
      {21544, [&] { return transfer.DeleteFileA(YString("x\0y", 3)); }},
      {21541, [&] { return transfer.UploadString("x", "x%0D%0ADELE source"); }},
      {21540, [&] { return transfer.UploadFile(source, YString("x\0y", 3)); }},
      {21542, [&] { return transfer.DownloadToFile("x%00y", local_name("none")); }},
      {21547, [&] { return transfer.ExistsDirectory("dir\n"); }},
  };
  std::vector<int> expected;
  for (const auto& [number, operation] : cases) {
    EXPECT_FALSE(operation()) << number;
    EXPECT_EQ(transfer.GetLastErrorNumber(), number) << error_of(transfer);
    expected.push_back(number);
  }
  EXPECT_EQ(log.numbers(), expected);
  EXPECT_EQ(text, "");
  EXPECT_FALSE(fs::exists(local / "none"));
  EXPECT_FALSE(server.files().has("x")) << "nothing was cut off and taken";
  EXPECT_TRUE(transfer.UploadString("x", "x")) << "after all that: " << error_of(transfer);

  if (server.connection().GetString("Benutzername").Equals("anonymous")) return;
  transfer.SetPassword("wrong & secret");
  EXPECT_FALSE(transfer.UploadString("x", "x")) << "the open connection is not for another login";
  EXPECT_EQ(transfer.last_cause().failure, TransferFailure::login_refused);
  EXPECT_EQ(transfer.GetLastErrorNumber(), 21541);
  EXPECT_THAT(std::string(transfer.GetLastErrorMsg()),
              testing::AllOf(testing::HasSubstr("password=***"), testing::Not(testing::HasSubstr("secret"))));
}

INSTANTIATE_TEST_SUITE_P(Transfer, FolderSites, testing::ValuesIn(kFolderSites), case_name);

class WebSites : public TransferSites {};

TEST_P(WebSites, ServeDownloadsOnly) {
  const Server server(GetParam());
  const std::string content = pattern_bytes(5242880);
  server.add("a b.bin", content);
  YInetFileTransfer transfer = server.transfer();
  YString text;
  EXPECT_TRUE(transfer.DownloadToFile("a b.bin", local_name("back"))) << error_of(transfer);
  EXPECT_TRUE(read_file(local / "back") == content);
  EXPECT_TRUE(transfer.DownloadToString("/a%20b.bin?x=1#y", text)) << error_of(transfer);
  EXPECT_TRUE(text.str() == content);
  EXPECT_TRUE(transfer.DownloadToFile("redirect/302", local_name("back"))) << error_of(transfer);
  EXPECT_EQ(read_file(local / "back"), NginxServer::kHello);
  EXPECT_THAT(log.numbers(), IsEmpty());

  EXPECT_FALSE(transfer.DownloadToString("redirect/302", text)) << "only downloads to files follow";
  EXPECT_FALSE(transfer.DownloadToFile("none", local_name("none")));
  EXPECT_EQ(transfer.last_cause().response, 404);
  EXPECT_FALSE(fs::exists(local / "none"));
  EXPECT_FALSE(transfer.UploadFile(local_name("none"), "x"));
  EXPECT_FALSE(transfer.UploadString("x", "x"));
  EXPECT_FALSE(transfer.DeleteFileA("x"));
  EXPECT_FALSE(transfer.DeleteDirectory("x"));
  EXPECT_FALSE(transfer.CreateDirectoryA("x"));
  EXPECT_FALSE(transfer.ExistsDirectory("x"));
  EXPECT_THAT(log.numbers(), ElementsAre(21548, 21548, 21528, 21529, 21525, 21526, 21527, 21530));
}

TEST_P(WebSites, AreVerifiedWhenTheHostWantsIt) {
  const Server server(GetParam());
  YInetFileTransfer transfer = server.transfer();
  YString text;
  EXPECT_TRUE(transfer.DownloadToString("hello.txt", text));
  set(settings::kTlsVerifyAlways, "1");
  EXPECT_EQ(transfer.DownloadToString("hello.txt", text), GetParam() == Site::http);
  ::setenv("SSL_CERT_FILE", Certificates::shared().ca_file().c_str(), 1);
  EXPECT_TRUE(transfer.DownloadToString("hello.txt", text)) << error_of(transfer);
  set(settings::kTlsMinimumVersion, "9.9");
  EXPECT_EQ(transfer.DownloadToString("hello.txt", text), GetParam() == Site::http) << "a policy that is not understood";
  ::unsetenv("SSL_CERT_FILE");
}

INSTANTIATE_TEST_SUITE_P(Transfer, WebSites, testing::Values(Site::http, Site::https), case_name);

// --- Proxies --------------------------------------------------------------------------------------------------------------

class ProxiedSites : public TransferSites {};

TEST_P(ProxiedSites, AreReachedThroughEveryProxy) {
  YINET_REQUIRE_PROGRAM("tinyproxy");
  for (const auto brand : {SocksServer::Brand::dante, SocksServer::Brand::microsocks}) YINET_SKIP_FOR(SocksServer::missing(brand));
  const Server server(GetParam());
  const HttpProxy http("puser", "ppass");
  const SocksServer dante(SocksServer::Brand::dante);
  const SocksServer microsocks(SocksServer::Brand::microsocks, "puser", "ppass");
  const std::string content = pattern_bytes(300'000);
  server.add("file", content);
  const std::pair<const char*, std::string> proxies[] = {
      {"http", http.address()},    {"socks4", dante.address()},      {"socks5", dante.address()},
      {"socks5h", dante.address()}, {"socks5", microsocks.address()}};
  for (const auto& [protocol, address] : proxies) {
    SCOPED_TRACE(std::string(protocol) + "://" + address);
    YInetFileTransfer transfer = server.transfer();
    ASSERT_TRUE(transfer.SetProxyServerUrl(YString(std::string(protocol) + "://" + address)));
    transfer.SetProxyUsername("puser");
    transfer.SetProxyPassword("ppass");
    EXPECT_TRUE(transfer.DownloadToFile("file", local_name("back"))) << error_of(transfer);
    EXPECT_TRUE(read_file(local / "back") == content);
    const bool uploaded = transfer.UploadString(YString(content), "up");
    EXPECT_EQ(uploaded, protocol_of(GetParam()).find("ftp") != std::string::npos) << error_of(transfer);
    if (uploaded) {
      EXPECT_TRUE(transfer.CreateDirectoryA("made") && transfer.DeleteDirectory("made")) << error_of(transfer);
    }
  }
  YInetFileTransfer refused = server.transfer();
  refused.SetProxyServerUrl(YString("http://" + http.address()));
  refused.SetProxyUsername("puser");
  refused.SetProxyPassword("not that");
  YString text;
  EXPECT_FALSE(refused.DownloadToString("file", text));
  EXPECT_NE(refused.GetLastErrorNumber(), 0);
}

INSTANTIATE_TEST_SUITE_P(Transfer, ProxiedSites,
                         testing::Values(Site::ftp, Site::ftps, Site::sftp, Site::http, Site::https), case_name);

// --- Trouble --------------------------------------------------------------------------------------------------------------

class TroubledSites : public TransferSites {};

TEST_P(TroubledSites, AServerThatIsKilledBreaksOffATransfer) {
  const std::string content = pattern_bytes(48'000'000);
  const YString source = local_file("source", content);
  const bool uploads = protocol_of(GetParam()).find("ftp") != std::string::npos;
  for (const bool upload : {false, true}) {
    if (upload && !uploads) break;
    Server server(GetParam());
    server.add("file", content);
    YInetFileTransfer transfer = server.transfer();
    bool stopped = false;
    transfer.on_progress([&](std::int64_t done, std::int64_t total) {
      EXPECT_TRUE(total == 48'000'000 || done == 0) << total;
      if (done > 0 && !std::exchange(stopped, true)) server.stop();
    });
    EXPECT_FALSE(upload ? transfer.UploadFile(source, "up") : transfer.DownloadToFile("file", local_name("none")));
    EXPECT_EQ(transfer.GetLastErrorNumber(), upload ? 21540 : 21542) << error_of(transfer);
    EXPECT_EQ(transfer.last_cause().failure, TransferFailure::broken_off) << error_of(transfer);
    EXPECT_FALSE(fs::exists(local / "none"));
  }
}

INSTANTIATE_TEST_SUITE_P(Transfer, TroubledSites,
                         testing::Values(Site::ftp, Site::ftps_proftpd, Site::sftp, Site::http, Site::https), case_name);

class GuardedSites : public TransferSites {};

TEST_P(GuardedSites, PermissionsAndFullDisksAreErrors) {
  YINET_REQUIRE_ROOT();
  const Server server(GetParam());
  const ServedFolder& files = server.files();
  files.add("secret", "x");
  files.make_folder("closed");
  fs::permissions(files.folder() / "secret", fs::perms::none);
  fs::permissions(files.folder() / "closed", fs::perms::none);
  const std::string content = pattern_bytes(3'000'000);
  files.add("file", content);
  const ResourceCheck resources;
  YInetFileTransfer transfer = server.transfer();
  YString text;
  EXPECT_FALSE(transfer.DownloadToString("secret", text));
  EXPECT_FALSE(transfer.UploadString("x", "closed/x"));
  EXPECT_FALSE(transfer.CreateDirectoryA("closed/x"));
  EXPECT_EQ(transfer.ExistsDirectory("closed"), sftp()) << "SFTP tells missing from forbidden, FTP does not";
  EXPECT_THAT(log.numbers(), ElementsAre(21543, 21541, 21546));
  if (sftp()) {
    EXPECT_FALSE(transfer.UploadFile(local_file("source", content), "full/x"));
    EXPECT_EQ(transfer.GetLastErrorNumber(), 21540);
  }
  enter_mount_namespace();
  const fs::path small = local.make_folder("small");
  ASSERT_EQ(::mount("none", small.c_str(), "tmpfs", 0, "size=1m"), 0);
  EXPECT_FALSE(transfer.DownloadToFile("file", local_name("small/x")));
  EXPECT_EQ(transfer.GetLastErrorNumber(), 21542);
  EXPECT_EQ(transfer.last_cause().failure, TransferFailure::local_file) << error_of(transfer);
  EXPECT_TRUE(fs::is_empty(small));
  ASSERT_EQ(::umount(small.c_str()), 0);
}

INSTANTIATE_TEST_SUITE_P(Transfer, GuardedSites, testing::Values(Site::ftp_proftpd, Site::sftp), case_name);

// --- Script functions -----------------------------------------------------------------------------------------------------

class TransferFunctions : public TransferTest {};

TEST_F(TransferFunctions, DoOneOperationEach) {
  YINET_SKIP_FOR(Server::missing(Site::ftps_implicit));
  enter_network_namespace();
  const Server server(Site::ftps_implicit);  // the URL without a port leads to 990
  const auto call = [&](const char* name, std::initializer_list<std::pair<const char*, YString>> texts, bool connected = true) {
    YObject parameters;
    if (connected) parameters.Store<YObject>("pVerbindungsdaten", server.connection());
    for (const auto& [key, value] : texts) parameters.StoreText(key, value);
    call_function(name, parameters);
    EXPECT_EQ(parameters.GetType("_RETV"), kTypeBool);
    return parameters;
  };
  const auto succeeds = [&](const char* name, std::initializer_list<std::pair<const char*, YString>> texts) {
    return call(name, texts).GetBool("_RETV");
  };
  EXPECT_TRUE(succeeds("YINETFILETRANSFER_ERSTELLE_VERZEICHNIS", {{"pPfad", "d"}}));
  EXPECT_TRUE(succeeds("YINETFILETRANSFER_EXISTIERT_VERZEICHNIS", {{"pPfad", "d"}}));
  EXPECT_TRUE(succeeds("YINETFILETRANSFER_UPLOAD_TEXT", {{"pInhalt", "text"}, {"pZielPfad", "d/t"}}));
  EXPECT_EQ(call("YINETFILETRANSFER_DOWNLOAD_TEXT", {{"pQuellPfad", "d/t"}}).GetString("pInhalt"), "text");
  EXPECT_TRUE(succeeds("YINETFILETRANSFER_DOWNLOAD_DATEI", {{"pQuellPfad", "d/t"}, {"pZielPfad", local_name("t")}}));
  EXPECT_TRUE(succeeds("YINETFILETRANSFER_UPLOAD_DATEI", {{"pQuellPfad", local_name("t")}, {"pZielPfad", "d/u"}}));
  EXPECT_EQ(server.files().content("d/u"), "text");
  for (const char* name : {"d/t", "d/u"}) EXPECT_TRUE(succeeds("YINETFILETRANSFER_LOESCHE_DATEI", {{"pPfad", name}}));
  EXPECT_TRUE(succeeds("YINETFILETRANSFER_LOESCHE_VERZEICHNIS", {{"pPfad", "d"}}));
  EXPECT_FALSE(succeeds("YINETFILETRANSFER_EXISTIERT_VERZEICHNIS", {{"pPfad", "d"}}));
  EXPECT_THAT(log.numbers(), IsEmpty());

  YObject bytes;
  bytes.Store<YObject>("pVerbindungsdaten", server.connection()).StoreText("Protokoll", "FTPS");  // replaces the URL's
  bytes.StoreText("pZielPfad", "b");
  bytes.Store<YBuffer>("pInhalt", YBuffer(std::string_view("\0\1", 2)));
  call_function("YINETFILETRANSFER_UPLOAD_TEXT", bytes);
  EXPECT_EQ(server.files().content("b"), std::string("\0\1", 2));

  const YObject failed = call("YINETFILETRANSFER_DOWNLOAD_TEXT", {{"pQuellPfad", "none"}, {"pInhalt", "old"}});
  EXPECT_EQ(failed.GetString("pInhalt"), "");
  EXPECT_FALSE(failed.GetBool("_RETV"));
  EXPECT_FALSE(call("YINETFILETRANSFER_DOWNLOAD_TEXT", {{"pQuellPfad", "none"}}, false).GetBool("_RETV"));
  EXPECT_THAT(log.numbers(), ElementsAre(21543, 21520));
}

}  // namespace
}  // namespace yinet::test
