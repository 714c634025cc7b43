// "yinet sftp" against a real sshd.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "cli/program.h"
#include "support/requirements.h"
#include "support/socks_server.h"
#include "support/ssh_server.h"
#include "support/temp_dir.h"

namespace yinet::test {
namespace {

CommandResult run_sftp(std::vector<std::string> arguments, const std::string& password) {
  arguments.insert(arguments.begin(), "sftp");
  ChildOptions options;
  options.argv = program_call(std::move(arguments));
  options.environment = {{"YINET_SFTP_PASSWORD", password}, {"YINET_KOMMUNIKATION_PAUSENACHVERBINDUNG", "0"}};
  return run_command(std::move(options));
}

TEST(SftpCommand, MovesListsAndDeletesFiles) {
  YINET_SKIP_FOR(SshServer::missing());
  YINET_SKIP_FOR(SocksServer::missing(SocksServer::Brand::dante));
  const SshServer server;
  const SocksServer proxy(SocksServer::Brand::dante);
  const TempDir local;
  const std::string source = local.write("M\xC3\xA4rz 1.txt", "content").string();
  const std::string home = "sftp://" + SshServer::user() + "@" + server.address() + "/";
  const std::string folder = home + "B%C3%BC%20cher/";
  const std::string file = folder + "M%C3%A4rz%201.txt";
  const auto run = [&](std::vector<std::string> arguments) {
    arguments.insert(arguments.end(), {"--proxy", "socks5://" + proxy.address()});
    return run_sftp(std::move(arguments), SshServer::password());
  };

  EXPECT_EQ(run({"mkdir", folder}).exit_code, 0);
  CommandResult result = run({"put", folder, source});
  EXPECT_EQ(result.exit_code, 0) << result.errors;
  EXPECT_THAT(result.errors, testing::HasSubstr("7 bytes in "));
  EXPECT_EQ(server.content("B\xC3\xBC cher/M\xC3\xA4rz 1.txt"), "content");
  EXPECT_EQ(run({"ls", folder}).output, "M\xC3\xA4rz 1.txt\n");
  result = run({"get", file, (local / "back").string(), "--quiet"});
  EXPECT_EQ(result.exit_code, 0);
  EXPECT_EQ(result.errors, "");
  EXPECT_THAT(run({"ls", folder, "--trace"}).errors, testing::HasSubstr("ssh-ed25519 SHA256:"));
  EXPECT_EQ(read_file(local / "back"), "content");
  EXPECT_EQ(run({"rm", file}).exit_code, 0);
  EXPECT_EQ(run({"get", file, (local / "none").string()}).exit_code, 5);
  EXPECT_EQ(run({"rmdir", folder}).exit_code, 0);
  EXPECT_EQ(run({"put", home + "x", (local / "none").string()}).exit_code, 6);
  EXPECT_FALSE(server.has("x")) << "nothing is emptied for a missing file";

  result = run_sftp({"ls", home}, "not the password");
  EXPECT_EQ(result.exit_code, 4);
  EXPECT_THAT(result.errors, testing::Not(testing::HasSubstr("not the password")));
  EXPECT_EQ(run_sftp({"ls", home, "--key", server.user_key().string()}, "").exit_code, 0);
  EXPECT_EQ(run_sftp({"ls", home, "--known-hosts", source}, SshServer::password()).exit_code, 3);
  EXPECT_EQ(run_sftp({"ls", "sftp://u@127.0.0.1:" + std::to_string(refused_port()) + "/"}, "").exit_code, 3);
  EXPECT_EQ(run_sftp({"ls", "sftp://x/y"}, "").exit_code, 2) << "no user";
}

}  // namespace
}  // namespace yinet::test
