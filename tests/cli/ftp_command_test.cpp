// "yinet ftp" against real servers and scripted ones.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "cli/program.h"
#include "support/ftp_server.h"
#include "support/requirements.h"
#include "support/scripted_peer.h"
#include "support/socks_server.h"
#include "support/temp_dir.h"

namespace yinet::test {
namespace {

CommandResult run_ftp(std::vector<std::string> arguments, const std::string& password) {
  arguments.insert(arguments.begin(), "ftp");
  ChildOptions options;
  options.argv = program_call(std::move(arguments));
  options.environment = {{"YINET_FTP_PASSWORD", password}, {"YINET_KOMMUNIKATION_PAUSENACHVERBINDUNG", "0"}};
  return run_command(std::move(options));
}

TEST(FtpCommand, MovesListsAndDeletesFiles) {
  YINET_SKIP_FOR(FtpServer::missing(FtpBrand::proftpd));
  YINET_SKIP_FOR(SocksServer::missing(SocksServer::Brand::dante));
  const FtpServer server({.brand = FtpBrand::proftpd, .tls = true});
  const SocksServer proxy(SocksServer::Brand::dante);
  const TempDir local;
  server.make_folder("reports");
  const std::string source = local.write("M\xC3\xA4rz 1.txt", "content").string();
  const std::string folder = "ftps://" + server.user() + "@" + server.address() + "/reports/";
  const std::string file = folder + "M%C3%A4rz%201.txt";
  const auto run = [&](std::vector<std::string> arguments) {
    arguments.insert(arguments.end(), {"--proxy", "socks5://" + proxy.address()});
    return run_ftp(std::move(arguments), server.password());
  };

  CommandResult result = run({"put", folder, source});
  EXPECT_EQ(result.exit_code, 0) << result.errors;
  EXPECT_EQ(server.content("reports/M\xC3\xA4rz 1.txt"), "content");
  EXPECT_EQ(run({"size", file}).output, "7\n");
  EXPECT_THAT(run({"ls", folder}).output, testing::HasSubstr("M\xC3\xA4rz 1.txt\n"));
  result = run({"get", file, (local / "back").string(), "--quiet"});
  EXPECT_EQ(result.exit_code, 0);
  EXPECT_EQ(result.errors, "");
  EXPECT_EQ(read_file(local / "back"), "content");
  EXPECT_EQ(run({"rm", file}).exit_code, 0);
  EXPECT_EQ(run({"rm", file}).exit_code, 5);
  EXPECT_EQ(run({"put", folder, (local / "none").string()}).exit_code, 6);

  result = run_ftp({"size", file}, "not the password");
  EXPECT_EQ(result.exit_code, 4);
  EXPECT_THAT(result.errors, testing::Not(testing::HasSubstr("not the password")));
  EXPECT_EQ(run_ftp({"size", "ftp://127.0.0.1:" + std::to_string(refused_port()) + "/x"}, "").exit_code, 3);
  for (const char* wrong : {"http://x/y", "127.0.0.1/x", "ftp://", "ftp:///x", "ftp://x/", "ftp://x/a%0Ab"})
    EXPECT_EQ(run_ftp({"size", wrong}, "").exit_code, 2) << wrong;
}

TEST(FtpCommand, ACutDownloadIsAFailure) {
  ScriptedPeer data(Script().send("0123").close());
  const int port = data.port();
  const std::string passive = "127,0,0,1," + std::to_string(port / 256) + "," + std::to_string(port % 256);
  Script script;
  script.send("220 \x1B[31mhi\r\n").expect("USER u\r\n").send("331 a\r\n").expect("PASS p\r\n").send("230-b\r\n");
  script.pause(milliseconds(700)).send("230 b\r\n");  // later than the usual form would wait
  script.expect("TYPE I\r\n").send("200 c\r\n").expect("SIZE f\r\n").send("213 10\r\n");
  script.expect("PASV\r\n").send("227 (" + passive + ")\r\n").expect("RETR f\r\n").send("150 d\r\n226 e\r\n");
  script.expect("QUIT\r\n").send("221 f\r\n").read_to_end();
  ScriptedPeer server(script);
  const TempDir local;
  const CommandResult result = run_ftp({"get", "ftp://u:p@" + server.target() + "/f", (local / "x").string()}, "");
  EXPECT_EQ(result.exit_code, 7) << result.errors;
}

}  // namespace
}  // namespace yinet::test
