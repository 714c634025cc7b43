// sshClient against a real sshd.

#include <filesystem>
#include <optional>

#include "ssh/ssh_test_kit.h"
#include "yinet/filetransfer/yinet_file_transfer.h"
#include "yinet/ssh/ssh_address.h"

namespace yinet::test {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t kFixedSize = 5242880;
constexpr const char* kName = "M\xE4rz 'a' \"b\" %.txt";           // for the library
constexpr const char* kNameOnDisk = "M\xC3\xA4rz 'a' \"b\" %.txt";

class SshClientTest : public SshTest {};

TEST_F(SshClientTest, EveryOperationWorksOnEveryRoute) {
  for (const Route& route : kRoutes) {
    SCOPED_TRACE(route.name);
    if (route.proxy_type != 0) YINET_SKIP_FOR(SocksServer::missing(route.brand));
    const SshServer server;
    std::optional<SocksServer> proxy;
    if (route.proxy_type != 0) proxy.emplace(route.brand, route.user, route.password);
    const ResourceCheck resources;
    sshClient client;
    ASSERT_TRUE(client.connect("127.0.0.1", server.port(), YString(SshServer::user()), YString(SshServer::password()),
                               proxy ? "127.0.0.1" : "", proxy ? proxy->port() : 0, route.proxy_type, route.user, route.password));
    sftp_session_struct* const shared = client.initFileTransferSession();
    ASSERT_NE(shared, nullptr);
    for (sftp_session_struct* const session : {static_cast<sftp_session_struct*>(nullptr), shared}) {
      const YString folder("B\xFC" "cher 1");
      const YString file = folder + "/" + kName;
      EXPECT_FALSE(client.existDirectory(folder, session));
      EXPECT_TRUE(client.createDirectory(folder, session));
      EXPECT_TRUE(client.createDirectory(folder, session)) << "nothing is left to do";
      EXPECT_TRUE(client.existDirectory(folder, session));
      EXPECT_EQ(fs::status(server.folder() / "B\xC3\xBC" "cher 1").permissions(), static_cast<fs::perms>(0705));
      EXPECT_TRUE(client.uploadFile(local_file(kNameOnDisk, "content"), file, session));
      EXPECT_EQ(server.content(std::string("B\xC3\xBC" "cher 1/") + kNameOnDisk), "content");
      EXPECT_THAT(client.getDirectory(folder, session).Items(), testing::UnorderedElementsAre(".", "..", kName));
      EXPECT_TRUE(client.downloadWholeFile(file, local_name("back"), session));
      EXPECT_EQ(read_file(local / "back"), "content");
      EXPECT_FALSE(client.removeDirectory(folder, session)) << "it is not empty";
      EXPECT_TRUE(client.deleteFile(file, session));
      EXPECT_FALSE(client.deleteFile(file, session));
      EXPECT_TRUE(client.removeDirectory(folder, session));
      EXPECT_FALSE(client.removeDirectory(folder, session));
    }
    client.disconnect();
    EXPECT_FALSE(client.deleteFile("x", shared)) << "a session ends with its connection";
    client.closeFileTransferSession(shared);
    EXPECT_EQ(client.initFileTransferSession(), nullptr);
  }
}

TEST_F(SshClientTest, FilesOfEverySizeArrive) {
  const SshServer server;
  sshClient client;
  ASSERT_TRUE(log_in(client, server));
  for (const std::size_t size : {std::size_t{0}, std::size_t{1}, std::size_t{121072}, std::size_t{250000}, kFixedSize,
                                 kFixedSize + 1}) {
    SCOPED_TRACE(size);
    const std::string content = bytes_of(size);
    std::vector<std::int64_t> steps;
    client.on_progress([&](std::int64_t done, std::int64_t total) {
      steps.push_back(done);
      EXPECT_EQ(total, static_cast<std::int64_t>(size));
    });
    ASSERT_TRUE(client.uploadFile(local_file("a", content), "a", nullptr));
    EXPECT_TRUE(server.content("a") == content);
    if (size == 250000) {
      EXPECT_EQ(steps, (std::vector<std::int64_t>{121072, 242144, 250000}));
    }
    ASSERT_TRUE(client.downloadWholeFile("a", local_name("whole"), nullptr));
    EXPECT_TRUE(read_file(local / "whole") == content);

    ASSERT_TRUE(client.downloadFile("a", local_name("fixed"), nullptr));
    std::string fixed = content;
    fixed.resize(kFixedSize);
    EXPECT_TRUE(read_file(local / "fixed") == fixed) << "cut or filled up";
  }
  local_file("longer", std::string(kFixedSize + 3, 'x'));
  ASSERT_TRUE(client.downloadFile("a", local_name("longer"), nullptr));
  EXPECT_EQ(read_file(local / "longer").substr(kFixedSize), "xxx") << "an existing file is opened, not made anew";
}

// What can go wrong, why, and what was raised; nothing may be left behind.
TEST_F(SshClientTest, FailuresSayWhyAndLeaveNothing) {
  const SshServer server;
  server.add("secret", "x");
  server.make_folder("closed");
  fs::permissions(server.folder() / "secret", fs::perms::none);
  fs::permissions(server.folder() / "closed", fs::perms::owner_read | fs::perms::owner_exec);
  const YString source = local_file("source", bytes_of(3000000));
  fs::create_symlink("/dev/full", local / "full");
  const ResourceCheck resources;
  sshClient client;
  EXPECT_FALSE(log_in(client, server, "wrong"));
  EXPECT_EQ(client.last_failure(), SshFailure::login);
  EXPECT_FALSE(client.deleteFile("secret", nullptr));
  EXPECT_EQ(client.last_failure(), SshFailure::not_connected);
  ASSERT_TRUE(log_in(client, server));
  server.add("big", bytes_of(3000000));

  const YString target = local_name("target");
  const YString full = local_name("full");
  const struct {
    const char* what;
    std::function<bool()> act;
    SshFailure why;
    std::vector<int> messages = {};
  } cases[] = {
      {"a missing file", [&] { return client.downloadWholeFile("none", target, nullptr); }, SshFailure::refused},
      {"a missing file, in part", [&] { return client.downloadFile("none", target, nullptr); }, SshFailure::refused},
      {"a folder as file", [&] { return client.downloadWholeFile("closed", source, nullptr); }, SshFailure::refused},
      {"no right to read", [&] { return client.downloadWholeFile("secret", target, nullptr); }, SshFailure::refused},
      {"a full local disk", [&] { return client.downloadWholeFile("big", full, nullptr); }, SshFailure::local_file},
      {"a missing folder", [&] { return !client.getDirectory("none", nullptr).IsEmpty(); }, SshFailure::refused},
      {"a NUL", [&] { return client.deleteFile(YString(std::string_view("big\0x", 5)), nullptr); }, SshFailure::refused},
      {"a file in the way", [&] { return client.createDirectory("big", nullptr); }, SshFailure::refused},
      {"a full disk", [&] { return client.uploadFile(source, "full/x", nullptr); }, SshFailure::refused, {21829}},
      {"an upload into nowhere", [&] { return client.uploadFile(source, "none/x", nullptr); }, SshFailure::refused, {21820}},
      {"no right to write", [&] { return client.uploadFile(source, "closed/x", nullptr); }, SshFailure::refused, {21820}},
      {"a missing source", [&] { return client.uploadFile(target, "x", nullptr); }, SshFailure::local_file, {21827, 21829}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    raised.clear();
    EXPECT_FALSE(c.act());
    EXPECT_EQ(client.last_failure(), c.why) << client.last_failure_text().str();
    EXPECT_FALSE(client.last_failure_text().IsEmpty());
    EXPECT_EQ(raised, c.messages);
    EXPECT_FALSE(fs::exists(local / "target"));
  }
  EXPECT_TRUE(fs::is_symlink(local / "full")) << "no device is deleted";
  EXPECT_EQ(fs::file_size(local / "source"), 3000000U) << "what can't be read replaces nothing";
  EXPECT_TRUE(server.has("x")) << "the remote file is opened first";
}

TEST_F(SshClientTest, AServerThatDiesInMidTransferIsNoticed) {
  const YString source = local_file("source", bytes_of(20000000));
  for (const bool upload : {true, false}) {
    SCOPED_TRACE(upload);
    raised.clear();
    SshServer server;
    server.add("big", bytes_of(20000000));
    const ResourceCheck resources;
    sshClient client;
    ASSERT_TRUE(log_in(client, server));
    client.on_progress([&](std::int64_t done, std::int64_t) {
      if (done < 5000000) server.stop();
    });
    EXPECT_FALSE(upload ? client.uploadFile(source, "x", nullptr)
                        : client.downloadWholeFile("big", local_name("target"), nullptr));
    EXPECT_EQ(client.last_failure(), SshFailure::broken) << client.last_failure_text().str();
    EXPECT_EQ(raised, upload ? (std::vector<int>{21829, 21830}) : std::vector<int>());
    EXPECT_FALSE(fs::exists(local / "target"));
    client.on_progress(nullptr);
    EXPECT_FALSE(client.existDirectory(".", nullptr));
    EXPECT_FALSE(log_in(client, server));
    EXPECT_EQ(client.last_failure(), SshFailure::not_connected);
  }
}

TEST_F(SshClientTest, HostKeysAreToldAndCheckedOnDemand) {
  const SshServer server;
  const std::string host = "[127.0.0.1]:" + std::to_string(server.port()) + " ";
  const std::string right = local.write("right", host + server.host_key() + "\n").string();
  std::string other_key = server.host_key();
  other_key.back() = other_key.back() == 'A' ? 'B' : 'A';
  const std::string wrong = local.write("wrong", host + other_key + "\n").string();
  const std::pair<std::string, bool> cases[] = {{"", true}, {right, true}, {wrong, false}, {right + "x", false}};
  for (const auto& [file, accepted] : cases) {
    const SettingChange known_hosts(settings::kSshKnownHosts, file);
    log.clear();
    sshClient client;
    EXPECT_EQ(log_in(client, server), accepted) << file;
    EXPECT_THAT(log.last(21813).text, testing::HasSubstr("ssh-ed25519 SHA256:"));
    EXPECT_EQ(log.last(21814).number, accepted ? 0 : 21814);
    EXPECT_EQ(client.last_failure(), accepted ? SshFailure::none : SshFailure::host_key);
    YInetFileTransfer through_libcurl;
    through_libcurl.SetServerUrl(YString("sftp://" + server.address()));
    through_libcurl.SetUsername(YString(SshServer::user()));
    through_libcurl.SetPassword(YString(SshServer::password()));
    EXPECT_EQ(through_libcurl.ExistsDirectory("/"), accepted) << file;
  }
}

TEST_F(SshClientTest, PrivateKeysGoBeforePasswords) {
  const SshServer server;
  sshClient client;
  client.set_private_key(YString(server.user_key().string()), "");
  EXPECT_TRUE(log_in(client, server, "wrong"));
  client.set_private_key(local_file("no key", "x"), "");
  EXPECT_TRUE(log_in(client, server)) << "the password still counts";
  EXPECT_EQ(log.last(21815).number, 21815);

  const std::string locked = (local / "locked").string();
  ASSERT_EQ(run_command({"cp", server.user_key().string(), locked}).exit_code, 0);
  ASSERT_EQ(run_command({"ssh-keygen", "-q", "-p", "-N", "key pass", "-f", locked}).exit_code, 0);
  EXPECT_TRUE(sshClient::key_needs_password(YString(locked)));
  EXPECT_FALSE(sshClient::key_needs_password(YString(server.user_key().string())));
  const SettingChange file(settings::kSshKeyFile, locked);
  for (const bool right : {true, false}) {
    const SettingChange password(settings::kSshKeyPassword, right ? "key pass" : "no");
    sshClient with_setting;
    EXPECT_EQ(log_in(with_setting, server, ""), right);
  }
}

TEST(SshAddress, IsSplitAtItsLastColon) {
  const struct {
    const char *text, *host;
    int port;
  } cases[] = {{"", "", 22},           {"h", "h", 22},         {"h:2200", "h", 2200}, {"a:b:7", "a:b", 7},  {"h:", "h", 22},
               {"[::1]", "::1", 22},   {"[::1]:7", "::1", 7}, {"h:7x", "h", -1},     {"h:70000", "h", -1}, {"[::1]7", "::1", -1}};
  for (const auto& c : cases) {
    const SshAddress address = split_ssh_address(c.text, 22);
    EXPECT_EQ(address.host, c.host) << c.text;
    EXPECT_EQ(address.port, c.port) << c.text;
  }
}

}  // namespace
}  // namespace yinet::test
