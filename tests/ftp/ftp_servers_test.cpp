// The client against the servers people run, in clear and with TLS, directly and through proxies.

#include <filesystem>
#include <tuple>

#include "ftp/ftp_test_kit.h"
#include "yinet/net/partner_info.h"

namespace yinet::test {
namespace {

constexpr FtpBrand kAllBrands[] = {FtpBrand::vsftpd, FtpBrand::proftpd, FtpBrand::pure_ftpd};
enum class Channel { plain, tls };

using MatrixCase = std::tuple<FtpBrand, Channel, Route>;

class FtpMatrix : public FtpTest, public testing::WithParamInterface<MatrixCase> {};

std::string case_name(const testing::TestParamInfo<MatrixCase>& info) {
  const auto& [brand, channel, route] = info.param;
  return name_of(brand) + (channel == Channel::tls ? "_tls_" : "_plain_") + name_of(route);
}

TEST_P(FtpMatrix, MovesFiles) {
  const auto [brand, channel, route] = GetParam();
  YINET_SKIP_FOR(FtpServer::missing(brand));
  YINET_SKIP_FOR(Way::missing(route));
  const bool tls = channel == Channel::tls;
  const FtpServer server({.brand = brand, .tls = tls});
  server.make_folder("dir");
  server.make_folder("dir/sub");
  const Way way(route);
  OpenFtps ftp = way.client(server, tls ? kTlsFtp : kPlainFtp);
  ASSERT_EQ(ftp.connect(), 0) << ftp.get_last_mes(0).Ptr();
  EXPECT_EQ(ftp.get_partner_info(true).Exist(partner::kProtocol), tls);

  const std::string content = pattern_bytes(3'000'000);
  const YString source = local_file("source", content);
  ASSERT_EQ(ftp.upload_file(source, "dir/sub/a.txt", 2), 0) << ftp.get_last_mes(128).Ptr();
  EXPECT_TRUE(server.content("dir/sub/a.txt") == content);
  EXPECT_EQ(ftp.upload_file(source, "", 1), 0) << "into the folder that was entered, under its own name";
  EXPECT_TRUE(server.has("dir/sub/source"));

  EXPECT_EQ(ftp.get_filesize("a.txt"), 3'000'000);
  EXPECT_EQ(ftp.cmp_filesizes(source, "a.txt"), 0);
  EXPECT_EQ(ftp.download_file("a.txt", local_name("folder/") + "", 2), -32) << "there is no such local folder";
  local.make_folder("folder");
  EXPECT_EQ(ftp.download_file("a.txt", local_name("folder\\"), 2), 0);
  EXPECT_TRUE(read_file(local / "folder/a.txt") == content);
  EXPECT_EQ(ftp.get_last_mesnum(), 226);

  server.add("dir/sub/empty", "");
  EXPECT_EQ(ftp.download_file("empty", local_name("empty"), 2), 0);
  EXPECT_EQ(read_file(local / "empty"), "");
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
  EXPECT_EQ(ftp.cmp_filesizes(source, "missing"), -256);
  EXPECT_EQ(ftp.upload_file(source, "/nowhere/a.txt", 2), -1);
  EXPECT_EQ(ftp.get_last_mesnum(), 550);
  EXPECT_EQ(ftp.del_file("a.txt"), 0);
  EXPECT_FALSE(server.has("dir/sub/a.txt"));
  EXPECT_EQ(ftp.del_file("a.txt"), -32);
  EXPECT_EQ(ftp.closeconnection(), 0);
  EXPECT_EQ(ftp.get_last_mesnum(), 221);
  EXPECT_THAT(log.numbers(), testing::IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(Servers, FtpMatrix,
                         testing::Combine(testing::ValuesIn(kAllBrands), testing::Values(Channel::plain, Channel::tls),
                                          testing::ValuesIn(kAllRoutes)),
                         case_name);

class FtpServers : public FtpTest {};

TEST_F(FtpServers, Tls12AndIpv6ServeToo) {
  YINET_SKIP_FOR(FtpServer::missing(FtpBrand::proftpd));
  YINET_REQUIRE_IPV6();
  const std::string content = pattern_bytes(500'000);
  const YString source = local_file("source", content);
  const FtpServer::Options cases[] = {
      {.brand = FtpBrand::proftpd, .tls = true, .lines = "TLSProtocol TLSv1.2\n"},
      {.brand = FtpBrand::proftpd, .tls = true, .ipv6 = true},
      {.brand = FtpBrand::proftpd, .ipv6 = true},
  };
  for (const auto& options : cases) {
    const FtpServer server(options);
    OpenFtps ftp = Way(Route::direct).client(server, options.tls ? kTlsFtp : kPlainFtp);
    ASSERT_EQ(ftp.connect(), 0) << ftp.get_last_mes(0).Ptr();
    if (!options.lines.empty()) {
      EXPECT_EQ(ftp.get_partner_info(true).GetString(partner::kProtocol), "TLSv1.2");
    }
    for (int i = 0; i < 3; ++i) ASSERT_EQ(ftp.upload_file(source, "f", 2), 0) << ftp.get_last_mes(128).Ptr();
    EXPECT_EQ(ftp.download_file("f", local_name("back"), 2), 0);
    EXPECT_TRUE(read_file(local / "back") == content);
    EXPECT_EQ(ftp.get_last_command(), "RETR f");
  }
}

// One certificate of an unknown authority: scripts take it, unless the host wants every server verified.
TEST_F(FtpServers, TheHostCanWantEveryServerVerified) {
  YINET_SKIP_FOR(FtpServer::missing(FtpBrand::proftpd));
  const FtpServer server({.brand = FtpBrand::proftpd, .tls = true});
  const SettingChange verify(settings::kTlsVerifyAlways, "1");
  OpenFtps unknown = Way(Route::direct).client(server, kTlsFtp);
  EXPECT_EQ(unknown.connect(), -1);
  EXPECT_EQ(unknown.get_last_command(), "AUTH TLS") << "no name and no password went out";
  OpenFtps ftp(server.address(), server.user(), server.password(), kTlsFtp,
               YString(Certificates::shared().ca_folder().string()));
  ASSERT_EQ(ftp.connect(), 0) << ftp.get_last_mes(0).Ptr();
  EXPECT_EQ(ftp.upload_file(local_file("f", "x"), "f", 2), 0) << "the data connection goes on with that session";
}

TEST_F(FtpServers, ManySmallFilesGoThroughOneConnection) {
  constexpr int kFiles = 60;
  for (const FtpBrand brand : kAllBrands) {
    YINET_SKIP_FOR(FtpServer::missing(brand));
    SCOPED_TRACE(name_of(brand));
    const FtpServer server({.brand = brand, .tls = true});
    OpenFtps ftp = Way(Route::direct).client(server, kTlsFtp);
    ASSERT_EQ(ftp.connect(), 0) << ftp.get_last_mes(0).Ptr();
    for (int i = 0; i < kFiles; ++i) {
      const std::string name = std::to_string(i);
      const std::string content = pattern_bytes(2000, static_cast<unsigned>(i));
      ASSERT_EQ(ftp.upload_file(local_file("source", content), YString(name), 2), 0) << i << ftp.get_last_mes(128).Ptr();
      ASSERT_EQ(ftp.download_file(YString(name), local_name("back"), 2), 0) << i;
      ASSERT_EQ(ftp.get_last_mesnum(), 226) << i;
      ASSERT_TRUE(read_file(local / "back") == content) << i;
    }
  }
}

TEST_F(FtpServers, LargeFilesArriveByteForByte) {
  YINET_SKIP_FOR(FtpServer::missing(FtpBrand::vsftpd));
  YINET_SKIP_FOR(Way::missing(Route::socks5));
  constexpr int kMegabytes = 300;
  std::string content = pattern_bytes(1'000'000);
  const std::string block = content;
  content.reserve(kMegabytes * block.size());
  for (int i = 1; i < kMegabytes; ++i) (content += block).back() = static_cast<char>(i);  // no two blocks are equal
  const YString source = local_file("source", content);
  for (const bool tls : {false, true}) {
    const FtpServer server({.brand = FtpBrand::vsftpd, .tls = tls});
    for (const Route route : {Route::direct, Route::socks5}) {
      SCOPED_TRACE(name_of(route) + (tls ? " with TLS" : ""));
      const Way way(route);
      OpenFtps ftp = way.client(server, tls ? kTlsFtp : kPlainFtp);
      ASSERT_EQ(ftp.connect(), 0) << ftp.get_last_mes(0).Ptr();
      ASSERT_EQ(ftp.upload_file(source, "large", 2), 0) << ftp.get_last_mes(128).Ptr();
      EXPECT_TRUE(server.content("large") == content);
      ASSERT_EQ(ftp.download_file("large", local_name("back"), 2), 0) << ftp.get_last_mes(128).Ptr();
      EXPECT_TRUE(read_file(local / "back") == content);
    }
  }
}

}  // namespace
}  // namespace yinet::test
