// "yinet ftp", "yinet sftp", "yinet get" and its kin, against real servers.

#include <gmock/gmock.h>

#include <algorithm>

#include "cli/program.h"
#include "support/requirements.h"
#include "support/scripted_peer.h"
#include "support/servers.h"

namespace yinet::test {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

TEST(TransferCommands, MoveListAndDeleteFilesAndTellWhyNot) {
  YINET_SKIP_FOR(SshServer::missing());
  YINET_SKIP_FOR(FtpServer::missing(FtpBrand::proftpd));
  YINET_SKIP_FOR(SocksServer::missing(SocksServer::Brand::dante));
  for (const char* program : {"nginx", "tinyproxy"}) YINET_REQUIRE_PROGRAM(program);
  const FtpServer ftp_server({.brand = FtpBrand::proftpd, .tls = true});
  const SshServer ssh_server;
  const NginxServer web;
  const SocksServer socks(SocksServer::Brand::dante);
  const HttpProxy http_proxy;
  const TempDir local;
  const std::string name = "50% M\xC3\xA4rz#1.txt", name_in_url = "50%25%20M%C3%A4rz%231.txt";
  const std::string source = local.write(name, "content").string(), none = (local / "none").string();
  const std::string back = (local / "back").string(), nowhere = (local / "none/x").string();
  const std::string by = "--proxy=socks5://" + socks.address(), by_http = "--proxy=http://" + http_proxy.address();
  const std::string ftp = "ftps://" + ftp_server.user() + "@" + ftp_server.address() + "/";
  const std::string sftp = "sftp://" + SshServer::user() + "@" + ssh_server.address() + "/";
  const std::string wrong_sftp = "sftp://" + SshServer::user() + ":falsch@" + ssh_server.address() + "/";
  const std::string folder = sftp + "B%C3%BC%20cher/", file = folder + name_in_url;
  const std::string refused = "127.0.0.1:" + std::to_string(refused_port()) + "/x";
  const std::map<std::string, std::string> environment = {{"YINET_FTP_PASSWORD", ftp_server.password()},
                                                          {"YINET_SFTP_PASSWORD", SshServer::password()},
                                                          {"YINET_PASSWORD", SshServer::password()},
                                                          {"YINET_KOMMUNIKATION_PAUSENACHVERBINDUNG", "0"},
                                                          {"YINET_DATEITRANSFER_VERBINDUNGSLIMIT", "120000"}};
  const struct {
    std::vector<std::string> arguments;
    int exit_code;
    std::string said = {};
  } steps[] = {{{"ftp", "put", ftp, source, by}, 0, "7 bytes in "},
               {{"ftp", "size", ftp + name_in_url, by}, 0, "7\n"},
               {{"ftp", "ls", ftp, by}, 0, name + "\n"},
               {{"ftp", "get", ftp + name_in_url, back, by}, 0},
               {{"ftp", "rm", ftp + name_in_url, by}, 0},
               {{"ftp", "rm", ftp + name_in_url, by}, 5},
               {{"ftp", "put", ftp, none, by}, 6},
               {{"ftp", "size", "ftp://" + refused}, 3},
               {{"ftp", "size", "ftps://u:falsch@" + ftp_server.address() + "/x"}, 4},
               {{"sftp", "ls", wrong_sftp}, 4},
               {{"sftp", "mkdir", folder, by}, 0},
               {{"sftp", "put", folder, source, by}, 0, "7 bytes in "},
               {{"sftp", "ls", folder, by}, 0, name + "\n"},
               {{"sftp", "get", file, back, by}, 0},
               {{"sftp", "ls", folder, by, "--trace"}, 0, "ssh-ed25519 SHA256:"},
               {{"sftp", "get", folder + "none", back, by}, 5},
               {{"sftp", "rm", file, by}, 0},
               {{"sftp", "put", file, none}, 6},
               {{"exists", file}, 5},  // nothing is emptied for a missing file
               {{"sftp", "rmdir", folder, by}, 0},
               {{"sftp", "ls", sftp, "--key", ssh_server.user_key().string()}, 0},
               {{"sftp", "ls", sftp, "--known-hosts", source}, 3},
               {{"mkdir", folder}, 0},
               {{"exists", folder}, 0},
               {{"put", source, folder, by_http}, 0},
               {{"get", file, back}, 0},
               {{"get", file, nowhere}, 6},
               {{"get", web.url("/status/401"), back}, 4},
               {{"put", source, web.url()}, 1},
               {{"get", web.tls_url("/hello.txt?x=1"), local.path().string()}, 0},
               {{"get", "sftp://u:p@" + refused, back}, 3},
               {{"rm", file}, 0},
               {{"rmdir", folder}, 0}};
  for (const auto& [arguments, exit_code, said] : steps) {
    std::filesystem::remove(back);
    const CommandResult result = run_program(arguments, "", environment);
    EXPECT_EQ(result.exit_code, exit_code) << testing::PrintToString(arguments) << result.errors;
    EXPECT_THAT(result.output + result.errors, AllOf(HasSubstr(said), Not(HasSubstr("falsch"))));
    EXPECT_TRUE(exit_code != 0 || !std::ranges::count(arguments, back) || read_file(back) == "content");
  }
  EXPECT_EQ(read_file(local / "hello.txt"), NginxServer::kHello);
  EXPECT_EQ(run_program({"ftp", "put", ftp, source, "--quiet"}, "", environment).errors, "");
  EXPECT_EQ(ftp_server.content(name), "content");
}

TEST(TransferCommands, ACutDownloadIsAFailure) {
  ScriptedPeer data(Script().send("0123").close());
  const int port = data.port();
  const std::string passive = "127,0,0,1," + std::to_string(port / 256) + "," + std::to_string(port % 256);
  Script script;
  script.send("220 hi\r\n").expect("USER u\r\n").send("331 a\r\n").expect("PASS p\r\n").send("230-b\r\n");
  script.pause(milliseconds(700)).send("230 b\r\n");  // later than the usual form would wait
  script.expect("TYPE I\r\n").send("200 c\r\n").expect("SIZE f\r\n").send("213 10\r\n");
  script.expect("PASV\r\n").send("227 (" + passive + ")\r\n").expect("RETR f\r\n").send("150 d\r\n226 e\r\n");
  script.expect("QUIT\r\n").send("221 f\r\n").read_to_end();
  ScriptedPeer server(script);
  const TempDir local;
  const CommandResult result =
      run_program({"ftp", "get", "ftp://u:p@" + server.target() + "/f", (local / "x").string()}, "",
                  {{"YINET_KOMMUNIKATION_PAUSENACHVERBINDUNG", "0"}});
  EXPECT_EQ(result.exit_code, 7) << result.errors;
}

}  // namespace
}  // namespace yinet::test
