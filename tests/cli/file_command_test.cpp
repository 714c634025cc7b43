// "yinet get", "put", "mkdir", "rmdir", "rm" and "exists" against real servers.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "cli/program.h"
#include "support/http_proxy.h"
#include "support/nginx_server.h"
#include "support/ports.h"
#include "support/requirements.h"
#include "support/ssh_server.h"
#include "support/temp_dir.h"

namespace yinet::test {
namespace {

TEST(FileCommands, MoveFilesAndTellWhy) {
  YINET_SKIP_FOR(SshServer::missing());
  for (const char* program : {"nginx", "tinyproxy"}) YINET_REQUIRE_PROGRAM(program);
  const SshServer server;
  const NginxServer web;
  const HttpProxy proxy;
  const TempDir local;
  const std::string source = local.write("50% M\xC3\xA4rz#1.txt", "content").string();
  const std::string base = "sftp://" + SshServer::user() + "@" + server.address() + "/";
  const std::string file = base + "d%20x/50%25%20M%C3%A4rz%231.txt";
  const std::string back = (local / "back").string();
  const auto run = [&](std::vector<std::string> arguments, const std::string& password = SshServer::password()) {
    ChildOptions options;
    options.argv = program_call(std::move(arguments));
    options.environment = {{"YINET_PASSWORD", password}, {"YINET_DATEITRANSFER_VERBINDUNGSLIMIT", "120000"}};
    return run_command(std::move(options));
  };
  const struct {
    std::vector<std::string> arguments;
    int exit_code;
  } steps[] = {
      {{"exists", base + "d%20x"}, 5},
      {{"mkdir", base + "d%20x"}, 0},
      {{"exists", base + "d%20x"}, 0},
      {{"put", source, base + "d%20x/", "--proxy", "http://" + proxy.address()}, 0},
      {{"get", file, back}, 0},
      {{"get", base + "none", back}, 5},
      {{"get", file, (local / "none/x").string()}, 6},
      {{"get", web.url("/status/401"), back}, 4},
      {{"put", source, web.url()}, 1},
      {{"get", "sftp://u:p@127.0.0.1:" + std::to_string(refused_port()) + "/x", back}, 3},
      {{"get", "gopher://127.0.0.1/x"}, 2},
      {{"get", file, back, "--proxy", "socks6://127.0.0.1"}, 2},
      {{"get", web.tls_url("/hello.txt?x=1"), local.path().string()}, 0},
  };
  for (const auto& [arguments, exit_code] : steps) {
    const CommandResult result = run(arguments);
    EXPECT_EQ(result.exit_code, exit_code) << arguments[0] << " " << arguments[1] << ": " << result.errors;
    if (arguments.back() == back && exit_code == 0) {
      EXPECT_EQ(read_file(back), "content");
    }
  }
  EXPECT_EQ(server.content("d x/50% M\xC3\xA4rz#1.txt"), "content");
  EXPECT_EQ(read_file(local / "hello.txt"), NginxServer::kHello);
  const CommandResult refused = run({"rm", file}, "not the password");
  EXPECT_EQ(refused.exit_code, 4) << refused.errors;
  EXPECT_THAT(refused.errors, testing::Not(testing::HasSubstr("not the password")));
  EXPECT_EQ(run({"rm", base + "d%20x/50%25%20M%C3%A4rz%231.txt"}).exit_code, 0);
  const CommandResult removed = run({"rmdir", base + "d%20x", "--quiet"});
  EXPECT_EQ(removed.exit_code, 0);
  EXPECT_EQ(removed.output + removed.errors, "");
}

}  // namespace
}  // namespace yinet::test
