// The client against the servers people run, in clear and with TLS, directly and through proxies.

#include <filesystem>
#include <optional>
#include <ostream>

#include "ftp/ftp_test_kit.h"
#include "support/resource_check.h"
#include "support/servers.h"
#include "yinet/net/partner_info.h"

namespace yinet::test {
namespace {

// A server and the way there.
struct Place {
  std::string name;
  FtpServer::Options server;
  Route route = kRoutes[0];
};
void PrintTo(const Place& place, std::ostream* out) { *out << place.name; }

std::vector<Place> places() {
  std::vector<Place> all = {
      {"proftpd_tls12", {.brand = FtpBrand::proftpd, .tls = true, .lines = "TLSProtocol TLSv1.2\n"}},
      {"proftpd_tls_ipv6", {.brand = FtpBrand::proftpd, .tls = true, .host = "::1"}},
      {"proftpd_plain_ipv6", {.brand = FtpBrand::proftpd, .host = "::1"}}};
  for (const FtpBrand brand : {FtpBrand::vsftpd, FtpBrand::proftpd, FtpBrand::pure_ftpd})
    for (const bool tls : {false, true})
      for (const Route& route : kRoutes)
        all.push_back({name_of(brand) + (tls ? "_tls_" : "_plain_") + route.name, {.brand = brand, .tls = tls}, route});
  return all;
}

class FtpMatrix : public FtpTest, public testing::WithParamInterface<Place> {};

TEST_P(FtpMatrix, MovesFiles) {
  const auto& [name, options, route] = GetParam();
  YINET_SKIP_FOR(FtpServer::missing(options.brand));
  if (route.proxy_type != 0) YINET_SKIP_FOR(SocksServer::missing(route.brand));
  if (options.host == "::1") YINET_REQUIRE_IPV6();
  const FtpServer server(options);
  std::optional<SocksServer> proxy;
  if (route.proxy_type != 0) proxy.emplace(route.brand, route.user, route.password);
  const auto client = [&](const YString& certificate) {
    return OpenFtps(server.address(), server.user(), server.password(), proxy ? proxy->address() : "",
                    GetParam().server.tls ? kTlsFtp : kPlainFtp, GetParam().route.proxy_type, certificate,
                    GetParam().route.user, GetParam().route.password);
  };
  server.make_folder("dir/sub");
  OpenFtps ftp = client("");
  ASSERT_EQ(ftp.connect(), 0) << ftp.get_last_mes(0).Ptr();
  const ResourceCheck nothing_is_left;
  const YString protocol = ftp.get_partner_info(true).GetString(partner::kProtocol);
  EXPECT_EQ(protocol, !options.tls ? "" : options.lines.empty() ? "TLSv1.3" : "TLSv1.2");

  const bool much = name.starts_with("vsftpd") && (name.ends_with("direct") || name.ends_with("socks5"));
  const std::string content = pattern_bytes(much ? 300'000'000 : 3'000'000);
  ASSERT_EQ(ftp.upload_file(local_file("source", content), "dir/sub/a.txt", 2), 0) << ftp.get_last_mes(128).Ptr();
  EXPECT_TRUE(server.content("dir/sub/a.txt") == content);
  local.make_folder("folder");
  EXPECT_EQ(ftp.download_file("a.txt", local_name("folder\\"), 2), 0);
  EXPECT_TRUE(read_file(local / "folder/a.txt") == content);
  EXPECT_EQ(ftp.get_last_mesnum(), 226);
  for (int i = 0; i < (name == "vsftpd_plain_direct" ? 500 : 5); ++i) {  // there and back
    const YString remote("Datei " + std::to_string(i));
    const std::string small = pattern_bytes(2000, static_cast<unsigned>(i));
    ASSERT_EQ(ftp.upload_file(local_file("source", small), remote, 2), 0) << i << ftp.get_last_mes(128).Ptr();
    ASSERT_EQ(ftp.download_file(remote, local_name("back"), 2), 0) << i;
    ASSERT_EQ(ftp.get_last_mesnum(), 226) << i;
    ASSERT_TRUE(read_file(local / "back") == small) << i;
  }

  const YString source = local_name("source");
  EXPECT_EQ(ftp.upload_file(source, "", 1), 0) << "into the folder that was entered, under its own name";
  EXPECT_EQ(ftp.cmp_filesizes(source, "source"), 0);
  server.add("dir/sub/empty", "");
  EXPECT_EQ(ftp.download_file("empty", local_name("empty"), 2), 0);
  EXPECT_EQ(ftp.cmp_filesizes(local_name("empty"), "empty"), 1);
  const YString umlauts("M\xE4rz \xDC.txt");  // in UTF-8 on the server
  EXPECT_EQ(ftp.upload_file(source, umlauts, 2), 0) << ftp.get_last_mes(128).Ptr();
  EXPECT_TRUE(server.has("dir/sub/M\xC3\xA4rz \xC3\x9C.txt"));
  EXPECT_EQ(ftp.get_filesize(umlauts), 2000);
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

  // The authority is unknown here: scripts take it, unless the host wants every server verified.
  if (!options.tls) return;
  const SettingChange verify(settings::kTlsVerifyAlways, "1");
  OpenFtps unknown = client("");
  EXPECT_EQ(unknown.connect(), -1);
  EXPECT_EQ(unknown.get_last_command(), "AUTH TLS") << "no name and no password went out";
  OpenFtps known = client(Certificates::shared().ca_folder().string());
  ASSERT_EQ(known.connect(), 0) << known.get_last_mes(0).Ptr();
  EXPECT_EQ(known.upload_file(source, "f", 2), 0) << "the data connection trusts whom this one trusts";
}

INSTANTIATE_TEST_SUITE_P(Servers, FtpMatrix, testing::ValuesIn(places()),
                         [](const auto& info) { return info.param.name; });

}  // namespace
}  // namespace yinet::test
