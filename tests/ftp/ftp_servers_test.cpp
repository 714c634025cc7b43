// The client against the servers people run, in clear and with TLS, directly and through proxies.

#include <filesystem>
#include <optional>
#include <ostream>
#include <vector>

#include "ftp/ftp_test_kit.h"
#include "support/resource_check.h"
#include "yinet/net/partner_info.h"

namespace yinet::test {
namespace {

// A server and the way there: directly or through a proxy.
struct Place {
  std::string name;
  FtpServer::Options server;
  Route route = kRoutes[0];
};
void PrintTo(const Place& place, std::ostream* out) { *out << place.name; }

std::vector<Place> places() {
  std::vector<Place> all = {{"proftpd_tls12", {.brand = FtpBrand::proftpd, .tls = true, .lines = "TLSProtocol TLSv1.2\n"}},
                            {"proftpd_tls_ipv6", {.brand = FtpBrand::proftpd, .tls = true, .ipv6 = true}},
                            {"proftpd_plain_ipv6", {.brand = FtpBrand::proftpd, .ipv6 = true}}};
  for (const FtpBrand brand : {FtpBrand::vsftpd, FtpBrand::proftpd, FtpBrand::pure_ftpd}) {
    for (const bool tls : {false, true}) {
      for (const Route& route : kRoutes) {
        all.push_back({name_of(brand) + (tls ? "_tls_" : "_plain_") + route.name, {.brand = brand, .tls = tls}, route});
      }
    }
  }
  return all;
}

class Site {
 public:
  static std::string missing(const Place& place) {
    std::string reason = FtpServer::missing(place.server.brand);
    if (reason.empty() && place.route.proxy_type != 0) reason = SocksServer::missing(place.route.brand);
    return reason.empty() && place.server.ipv6 ? missing_ipv6() : reason;
  }
  explicit Site(Place place) : server(place.server), place_(std::move(place)) {
    if (place_.route.proxy_type != 0) proxy_.emplace(place_.route.brand, place_.route.user, place_.route.password);
  }
  [[nodiscard]] OpenFtps client(const YString& certificate = {}) const {
    return OpenFtps(YString(server.address()), YString(server.user()), YString(server.password()),
                    proxy_ ? YString(proxy_->address()) : YString(), place_.server.tls ? kTlsFtp : kPlainFtp,
                    place_.route.proxy_type, certificate, place_.route.user, place_.route.password);
  }
  const FtpServer server;

 private:
  Place place_;
  std::optional<SocksServer> proxy_;
};

class FtpMatrix : public FtpTest, public testing::WithParamInterface<Place> {};

TEST_P(FtpMatrix, MovesFiles) {
  YINET_SKIP_FOR(Site::missing(GetParam()));
  const Site site(GetParam());
  const FtpServer& server = site.server;
  server.make_folder("dir/sub");
  OpenFtps ftp = site.client();
  ASSERT_EQ(ftp.connect(), 0) << ftp.get_last_mes(0).Ptr();
  const YString protocol = ftp.get_partner_info(true).GetString(partner::kProtocol);
  EXPECT_EQ(protocol, !GetParam().server.tls ? "" : GetParam().server.lines.empty() ? "TLSv1.3" : "TLSv1.2");

  const std::string content = pattern_bytes(3'000'000);
  const YString source = local_file("source", content);
  ASSERT_EQ(ftp.upload_file(source, "dir/sub/a.txt", 2), 0) << ftp.get_last_mes(128).Ptr();
  EXPECT_TRUE(server.content("dir/sub/a.txt") == content);
  EXPECT_EQ(ftp.upload_file(source, "", 1), 0) << "into the folder that was entered, under its own name";
  EXPECT_EQ(ftp.cmp_filesizes(source, "source"), 0);
  local.make_folder("folder");
  EXPECT_EQ(ftp.download_file("a.txt", local_name("folder\\"), 2), 0);
  EXPECT_TRUE(read_file(local / "folder/a.txt") == content);
  EXPECT_EQ(ftp.get_last_mesnum(), 226);

  server.add("dir/sub/empty", "");
  EXPECT_EQ(ftp.download_file("empty", local_name("empty"), 2), 0);
  EXPECT_EQ(ftp.cmp_filesizes(local_name("empty"), "empty"), 1);

  const YString umlauts("M\xE4rz \xDC" "bersicht.txt");  // in UTF-8 on the server
  EXPECT_EQ(ftp.upload_file(source, umlauts, 2), 0) << ftp.get_last_mes(128).Ptr();
  EXPECT_TRUE(server.has("dir/sub/M\xC3\xA4rz \xC3\x9C" "bersicht.txt"));
  EXPECT_EQ(ftp.get_filesize(umlauts), 3'000'000);
  for (const bool names_only : {true, false}) {
    const YString listing = names_only ? ftp.get_dir_content0() : ftp.get_dir_content();
    EXPECT_GE(listing.Find(umlauts), 0) << listing.Ptr();
    EXPECT_EQ(ftp.get_ftpserver_mes(), 0) << "the listing's own reply was left for this read";
    EXPECT_EQ(ftp.get_last_mesnum(), 226);
  }

  EXPECT_EQ(ftp.download_file("missing", local_name("missing"), 2), -256);
  EXPECT_FALSE(std::filesystem::exists(local / "missing"));
  EXPECT_EQ(ftp.upload_file(source, "/nowhere/a.txt", 2), -1);
  EXPECT_EQ(ftp.get_last_mesnum(), 550);
  EXPECT_EQ(ftp.del_file("a.txt"), 0);
  EXPECT_FALSE(server.has("dir/sub/a.txt"));
  EXPECT_EQ(ftp.del_file("a.txt"), -32);
  EXPECT_EQ(ftp.closeconnection(), 0);
  EXPECT_EQ(ftp.get_last_mesnum(), 221);
  EXPECT_THAT(log.numbers(), testing::IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(Servers, FtpMatrix, testing::ValuesIn(places()), [](const auto& info) { return info.param.name; });

class FtpServers : public FtpTest {};

// One certificate of an unknown authority: scripts take it, unless the host wants every server verified.
TEST_F(FtpServers, TheHostCanWantEveryServerVerified) {
  YINET_SKIP_FOR(FtpServer::missing(FtpBrand::proftpd));
  const Site site({"", {.brand = FtpBrand::proftpd, .tls = true}});
  const SettingChange verify(settings::kTlsVerifyAlways, "1");
  OpenFtps unknown = site.client();
  EXPECT_EQ(unknown.connect(), -1);
  EXPECT_EQ(unknown.get_last_command(), "AUTH TLS") << "no name and no password went out";
  OpenFtps ftp = site.client(YString(Certificates::shared().ca_folder().string()));
  ASSERT_EQ(ftp.connect(), 0) << ftp.get_last_mes(0).Ptr();
  EXPECT_EQ(ftp.upload_file(local_file("f", "x"), "f", 2), 0) << "the data connection goes on with that session";
}

TEST_F(FtpServers, AThousandSmallTransfersGoThroughOneConnection) {
  const struct {
    FtpBrand brand;
    bool tls;
    int files;  // there and back
  } cases[] = {{FtpBrand::vsftpd, false, 500}, {FtpBrand::vsftpd, true, 10}, {FtpBrand::proftpd, true, 10}, {FtpBrand::pure_ftpd, true, 10}};
  for (const auto& c : cases) {
    YINET_SKIP_FOR(FtpServer::missing(c.brand));
    SCOPED_TRACE(name_of(c.brand) + (c.tls ? " with TLS" : ""));
    const Site site({"", {.brand = c.brand, .tls = c.tls}});
    OpenFtps ftp = site.client();
    ASSERT_EQ(ftp.connect(), 0) << ftp.get_last_mes(0).Ptr();
    const ResourceCheck nothing_is_left;
    for (int i = 0; i < c.files; ++i) {
      const YString name("Datei " + std::to_string(i));
      const std::string content = pattern_bytes(2000, static_cast<unsigned>(i));
      ASSERT_EQ(ftp.upload_file(local_file("source", content), name, 2), 0) << i << ftp.get_last_mes(128).Ptr();
      ASSERT_EQ(ftp.download_file(name, local_name("back"), 2), 0) << i;
      ASSERT_EQ(ftp.get_last_mesnum(), 226) << i;
      ASSERT_TRUE(read_file(local / "back") == content) << i;
    }
  }
}

TEST_F(FtpServers, LargeFilesArriveByteForByte) {
  YINET_SKIP_FOR(FtpServer::missing(FtpBrand::vsftpd));
  YINET_SKIP_FOR(SocksServer::missing(SocksServer::Brand::dante));
  std::string content = pattern_bytes(1'000'000);
  const std::string block = content;
  content.reserve(300 * block.size());
  for (int i = 1; i < 300; ++i) (content += block).back() = static_cast<char>(i);  // no two blocks are equal
  const YString source = local_file("source", content);
  for (const bool tls : {false, true}) {
    for (const Route& route : {kRoutes[0], kRoutes[1]}) {
      SCOPED_TRACE(std::string(route.name) + (tls ? " with TLS" : ""));
      const Site site({"", {.brand = FtpBrand::vsftpd, .tls = tls}, route});
      OpenFtps ftp = site.client();
      ASSERT_EQ(ftp.connect(), 0) << ftp.get_last_mes(0).Ptr();
      ASSERT_EQ(ftp.upload_file(source, "large", 2), 0) << ftp.get_last_mes(128).Ptr();
      EXPECT_TRUE(site.server.content("large") == content);
      ASSERT_EQ(ftp.download_file("large", local_name("back"), 2), 0) << ftp.get_last_mes(128).Ptr();
      EXPECT_TRUE(read_file(local / "back") == content);
    }
  }
}

}  // namespace
}  // namespace yinet::test
