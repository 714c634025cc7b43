// sshClient and the functions on it: against a real sshd, a small SFTP server behind one that answers what sshd never does,
// and peers that say nothing.

#include <filesystem>
#include <optional>
#include <tuple>

#include "ftp/ftp_test_kit.h"
#include "support/child_process.h"
#include "support/resource_check.h"
#include "support/servers.h"
#include "yinet/host/messages.h"
#include "yinet/ssh/ssh_address.h"
#include "yinet/ssh/ssh_client.h"

namespace yinet::test {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t kFixedSize = 5242880;

class SshTest : public FtpTest {
 protected:
  void SetUp() override { YINET_SKIP_FOR(SshServer::missing()); }
  static bool log_in(sshClient& client, const SshServer& server, const YString& password = SshServer::password()) {
    return client.connect("127.0.0.1", server.port(), SshServer::user(), password, "", 0, 0, "", "");
  }
  static std::string login(const SshServer& server) {
    return "pHost=" + server.address() + "|pUser=" + server.user() + "|pPasswd=" + server.password() + "|";
  }
  // What was logged besides the host keys.
  [[nodiscard]] std::vector<int> numbers() const {
    std::vector<int> all = log.numbers();
    std::erase(all, 21813);
    return all;
  }
};

TEST_F(SshTest, FunctionsWorkOnEveryRoute) {
  const std::string folder("B\xFChne 1"), name("M\xE4rz 'a' \"b\" %.txt"), file = folder + "/" + name;
  const std::string folder_on_disk("B\xC3\xBChne 1/"), name_on_disk("M\xC3\xA4rz 'a' \"b\" %.txt");
  const std::array<const char*, 3> families[] = {{"SSH_UPLOAD", "SSH_DOWNLOAD", "SSH_DELETE"},
                                                 {"FTPS_UPLOAD", "FTPS_DOWNLOADDATEI", "FTPS_LOESCHE"}};  // type 5
  for (const Route& route : kRoutes) {
    SCOPED_TRACE(route.name);
    if (route.proxy_type != 0) YINET_SKIP_FOR(SocksServer::missing(route.brand));
    const SshServer server;
    std::optional<SocksServer> proxy;
    if (route.proxy_type != 0) proxy.emplace(route.brand, route.user, route.password);
    const std::string way = "pProxyAdr=" + (proxy ? proxy->address() : "") + "|pProxyBenutzer=" + route.user +
                            "|pProxyPassword=" + route.password +
                            (route.proxy_type == 5 ? "|pProxyTyp=5" : "");  // 4 goes without saying
    const std::string given = login(server) + way +
                              "|pFTPTyp=5|pQuellDateiname=" + local_file(name_on_disk, "content") +
                              "|pZieldateiname=" + file + "|pDateiname=" + file + "|pZielverzeichnis=" + folder;
    const std::string back = given + "|pZielverzeichnis=" + local.make_folder("back").string();
    const ResourceCheck resources;
    const auto done = [&](const char* function) { return call(function, given).GetBool("_RETV"); };
    EXPECT_TRUE(done("SSH_CREATEDIRECTORY") && done("SSH_CREATEDIRECTORY")) << "nothing is left to do";
    EXPECT_EQ(fs::status(server.folder() / folder_on_disk).permissions(), static_cast<fs::perms>(0705));
    for (const auto& [upload, download, remove] : families) {
      EXPECT_TRUE(done(upload));
      EXPECT_EQ(server.content(folder_on_disk + name_on_disk), "content");
      EXPECT_THAT(call("SSH_GETDIRECTORY", given).GetString("_RETV").Items(),
                  testing::UnorderedElementsAre(".", "..", name));
      EXPECT_FALSE(done("SSH_REMOVEDIRECTORY")) << "it is not empty";
      EXPECT_EQ(call(download, back).GetInteger("_RETV"), 1);
      EXPECT_EQ(read_file(local / ("back/" + name_on_disk)).size(), *download == 'F' ? 7U : kFixedSize);
      EXPECT_TRUE(done(remove) && !done(remove));
    }
    EXPECT_TRUE(done("SSH_REMOVEDIRECTORY"));
    EXPECT_THAT(numbers(), testing::ElementsAre(21810, 21810));
    server.add("..\\evil", "content");
    EXPECT_EQ(call("SSH_DOWNLOAD", back + "|pDateiname=./..\\evil|pVollstaendig=1").GetInteger("_RETV"), 1);
    EXPECT_EQ(read_file(local / "back/evil"), "content") << "a remote name never chooses the local folder";
    log.clear();
  }
}

TEST_F(SshTest, FilesOfEverySizeArrive) {
  const SshServer server;
  sshClient client;
  ASSERT_TRUE(log_in(client, server));
  sftp_session_struct* const session = client.initFileTransferSession();
  ASSERT_NE(session, nullptr);
  for (const std::size_t size : {0U, 1U, 121072U, 250000U, 5242880U, 5242881U}) {
    SCOPED_TRACE(size);
    const SettingChange piece(settings::kSshReadPiece, size % 2 == 0 ? "1000000" : "30000");  // sshd gives less at once
    const std::string content = pattern_bytes(size);
    std::vector<std::int64_t> steps;
    client.on_progress([&](std::int64_t done, std::int64_t total) {
      steps.push_back(done);
      EXPECT_EQ(total, static_cast<std::int64_t>(size));
    });
    ASSERT_TRUE(client.uploadFile(local_file("a", content), "a", session));
    EXPECT_TRUE(server.content("a") == content);
    EXPECT_TRUE(size != 250000 || steps == (std::vector<std::int64_t>{121072, 242144, 250000}));
    ASSERT_TRUE(client.downloadWholeFile("a", local_name("whole"), session));
    EXPECT_TRUE(read_file(local / "whole") == content);
    ASSERT_TRUE(client.downloadFile("a", local_name("fixed"), nullptr));
    std::string fixed = content;
    fixed.resize(kFixedSize);
    EXPECT_TRUE(read_file(local / "fixed") == fixed) << "cut or filled up";
  }
  client.on_progress({});
  ASSERT_TRUE(client.uploadFile("/proc/version", "a", session)) << "0 bytes long, says the system";
  EXPECT_EQ(server.content("a"), read_file("/proc/version"));
  local_file("longer", std::string(kFixedSize + 3, 'x'));
  ASSERT_TRUE(client.downloadFile("a", local_name("longer"), session));
  EXPECT_EQ(read_file(local / "longer").substr(kFixedSize), "xxx") << "an existing file is opened, not made anew";
  EXPECT_TRUE(client.existDirectory(".", session));
  client.disconnect();
  EXPECT_FALSE(client.existDirectory(".", session)) << "a session ends with its connection";
  client.closeFileTransferSession(session);
  EXPECT_EQ(client.initFileTransferSession(), nullptr);
}

TEST_F(SshTest, FailuresAreToldAndLeaveNothing) {
  const SshServer server;
  server.add("secret", "x");
  server.add("big", pattern_bytes(3'000'000));
  server.make_folder("closed");
  fs::permissions(server.folder() / "secret", fs::perms::none);
  fs::permissions(server.folder() / "closed", fs::perms::owner_read | fs::perms::owner_exec);
  const std::string source = local_file("source", pattern_bytes(3'000'000));
  const std::string here = "|pZielverzeichnis=" + local.path().string();
  fs::create_symlink("/dev/full", local / "full");
  const ResourceCheck resources;
  const std::tuple<std::string, std::string, std::vector<int>> cases[] = {
      {"SSH_UPLOAD", "", {21805}},
      {"SSH_UPLOAD", "pQuellDateiname=" + source, {21806}},
      {"SSH_UPLOAD", "pQuellDateiname=/none|pZieldateiname=x", {21827, 21829, 21803}},
      {"SSH_UPLOAD", "pQuellDateiname=" + source + "|pZieldateiname=full/x", {21829, 21803}},
      {"SSH_UPLOAD", "pQuellDateiname=" + source + "|pZieldateiname=closed/x", {21820, 21803}},
      {"SSH_DOWNLOAD", "", {21805}},
      {"SSH_DOWNLOAD", "pDateiname=x", {21806}},
      {"SSH_DOWNLOAD", "pDateiname=secret" + here, {21804}},
      {"SSH_DOWNLOAD", "pDateiname=a/.." + here, {21804}},
      {"SSH_DOWNLOAD", "pDateiname=a/" + here, {21804}},
      {"SSH_DOWNLOAD", "pDateiname=closed|pLokalerName=source" + here, {21804}},
      {"SSH_DOWNLOAD", "pDateiname=big|pLokalerName=full" + here, {21804}},
      {"SSH_DOWNLOAD", "pDateiname=big|pZielverzeichnis=/nowhere", {21804}},
      {"SSH_DELETE", "", {}},
      {"SSH_DELETE", std::string("pDateiname=big\0x", 16), {}},
      {"SSH_CREATEDIRECTORY", "", {21812}},
      {"SSH_CREATEDIRECTORY", "pZielverzeichnis=big", {21811}},
      {"SSH_REMOVEDIRECTORY", "", {}},
      {"SSH_GETDIRECTORY", "", {21808}},
      {"SSH_GETDIRECTORY", "pZielverzeichnis=none", {}},
      {"SSH_DELETE", "pHost=", {21801}},
      {"SSH_DELETE", "pPasswd=wrong", {21802}},
      {"SSH_DELETE", "pPasswd=wrong|pSchluessel=" + server.user_key().string(), {}},  // logs in
  };
  for (const auto& [function, texts, expected] : cases) {
    for (const bool whole : {false, true}) {
      SCOPED_TRACE(function + texts + (whole ? ", whole" : ""));
      log.clear();
      const YObject result = call(function, login(server) + texts + (whole ? "|pVollstaendig=1" : ""));
      EXPECT_EQ(result.GetType("_RETV"), function == "SSH_GETDIRECTORY" ? kTypeString : kTypeBool);
      EXPECT_FALSE(result.GetBool("_RETV"));
      EXPECT_EQ(numbers(), expected);
      for (const LogRecord& entry : log.records()) {
        EXPECT_EQ(entry.level, find_message(entry.number)->level);
        EXPECT_FALSE(entry.text.ends_with(": ")) << entry.text;
      }
    }
  }
  EXPECT_TRUE(fs::is_symlink(local / "full")) << "no device is deleted";
  EXPECT_EQ(fs::file_size(local / "source"), 3'000'000U) << "what can't be read replaces nothing";
  EXPECT_EQ(std::distance(fs::directory_iterator(local.path()), fs::directory_iterator()), 2);
  EXPECT_TRUE(server.has("x")) << "the remote file is opened first";
}

TEST_F(SshTest, LoginsNeedAHostKeyAndAKeyOrAPassword) {
  const SshServer server;
  const std::string line = "[127.0.0.1]:" + std::to_string(server.port()) + " " + server.host_key();
  const std::string known = local_file("known", line + "\n");
  const std::string other = local_file("other", line.substr(0, line.size() - 1) + (line.back() == 'A' ? "B\n" : "A\n"));
  const std::string key = server.user_key().string(), locked = local_file("locked", read_file(key));
  const std::string pass = server.password(), no_key = local_file("no key", "x");
  fs::permissions(locked, fs::perms::owner_read | fs::perms::owner_write);
  ASSERT_EQ(run_command({"ssh-keygen", "-q", "-p", "-N", "key pass", "-f", locked}).exit_code, 0);
  EXPECT_TRUE(sshClient::key_needs_password(locked));
  EXPECT_FALSE(sshClient::key_needs_password(key));
  const struct {
    std::string known_hosts, key, key_password, password;
    SshFailure failure = SshFailure::none;
  } cases[] = {
      {"", "", "", pass},
      {"", "", "", "wrong", SshFailure::login},
      {known, "", "", pass},
      {other, "", "", pass, SshFailure::host_key},
      {known + "x", "", "", pass, SshFailure::host_key},
      {"", key, "", "wrong"},
      {"", no_key, "", pass},  // the password still counts
      {"", locked, "key pass", ""},
      {"", locked, "no", "", SshFailure::login},
      {"", no_key, "", "", SshFailure::login},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(&c - cases);
    const SettingChange hosts(settings::kSshKnownHosts, c.known_hosts), key_file(settings::kSshKeyFile, c.key);
    const SettingChange key_password(settings::kSshKeyPassword, c.key_password);
    log.clear();
    sshClient client;
    EXPECT_EQ(log_in(client, server, c.password), c.failure == SshFailure::none);
    EXPECT_EQ(client.last_failure(), c.failure);
    const bool by_key = !c.key.empty() && c.failure == SshFailure::login;
    EXPECT_EQ(client.last_failure_text() == "the key file " + c.key + " cannot be used", by_key);
    EXPECT_THAT(log.last(21813).text, testing::HasSubstr("ssh-ed25519 SHA256:"));
    EXPECT_EQ(log.last(21814).number != 0, c.failure == SshFailure::host_key);
    EXPECT_EQ(log.last(21815).number != 0, c.key == no_key || c.key_password == "no");
    if (!c.key.empty() || c.failure == SshFailure::login) continue;
    YInetFileTransfer through_libcurl = transfer_to("sftp://" + server.address(), server.user(), pass);
    EXPECT_EQ(through_libcurl.ExistsDirectory("/"), c.failure == SshFailure::none) << "the same file holds for libcurl";
  }
}

TEST(SshAddress, IsSplitAtItsLastColon) {
  const auto split = [](const std::string& text) {
    const SshAddress found = split_ssh_address(text, 22);
    return found.host.str() + " " + std::to_string(found.port);
  };
  expect_rows(split, {"h -> h 22", "h:2200 -> h 2200", "a:b:7 -> a:b 7", "h: -> h 22", "[::1] -> ::1 22",
                      "[::1]:7 -> ::1 7", "h:7x -> h -1", "h:70000 -> h -1", "[::1]7 -> ::1 -1"});
}

// SFTP 3 on standard input and output, with folders that hold odd names; that of "9" has no end.
constexpr const char* kServer = R"(
import struct, sys
take = lambda count: sys.stdin.buffer.read(count)
number = lambda value: struct.pack('>I', value)
text = lambda value: number(len(value)) + value
names = [b'../x', b'a\x01b', b'c\r\nd', b'M\xc3\xa4rz', b'\xff\xfe']
while head := take(4):
    packet = take(struct.unpack('>I', head)[0])
    kind, id = packet[0], packet[1:5]
    reply = 101, id + number(1 if kind == 12 else 0) + text(b'') * 2
    if kind == 1: reply = 2, number(3)
    elif kind == 11: reply, listed, endless = (102, id + text(b'h')), False, packet[-1:] == b'9'
    elif kind == 12 and not listed:
        listed, some = not endless, names * (200 if endless else 1)
        reply = 104, id + number(len(some)) + b''.join(text(n) + text(b'- 1 o g 0 x') + number(0) for n in some)
    sys.stdout.buffer.write(number(len(reply[1]) + 1) + bytes([reply[0]]) + reply[1])
    sys.stdout.buffer.flush()
)";

TEST_F(SshTest, NamesOfAListingAreData) {
  TempDir scripts("scripts");
  scripts.open_to_everybody();
  const SshServer server("ForceCommand python3 " + scripts.write("server.py", kServer).string());
  sshClient client;
  ASSERT_TRUE(log_in(client, server));
  EXPECT_THAT(client.getDirectory(".", nullptr).Items(),
              testing::ElementsAre("../x", "a?b", "c\r\nd", "M\xE4rz", "\xFF\xFE"));
  EXPECT_EQ(client.getDirectory("9", nullptr).Items().size(), 1'000'000U);
  const SettingChange two(settings::kSshListingEntries, "2");
  EXPECT_THAT(client.getDirectory(".", nullptr).Items(), testing::ElementsAre("../x", "a?b"));
  const SettingChange six(settings::kSshListingSize, "6");
  EXPECT_EQ(client.getDirectory(".", nullptr), "../x");
}

TEST_F(SshTest, SilenceEndsAtTheLimit) {
  const SettingChange limit(settings::kSshLimit, "700");
  ScriptedPeer silent(Script().read_to_end());
  ScriptedPeer rude(Script().send("220 no SSH here\r\n").close());
  const SshServer server("ForceCommand sleep 30");
  const ResourceCheck resources;
  sshClient client;
  for (const std::uint16_t port : {silent.port(), rude.port()}) {
    const auto fails = [&] { EXPECT_FALSE(client.connect("127.0.0.1", port, "u", "p", "", 0, 0, "", "")); };
    EXPECT_LT(time_of(fails).count(), 10000);
    EXPECT_EQ(client.last_failure(), SshFailure::not_connected);
  }
  const SettingChange longer(settings::kSshLimit, "3000");
  ASSERT_TRUE(log_in(client, server)) << client.last_failure_text().str();
  EXPECT_FALSE(client.existDirectory(".", nullptr));
  EXPECT_EQ(client.last_failure(), SshFailure::broken);
  EXPECT_THAT(client.last_failure_text().str(), testing::HasSubstr("3000 ms"));
}

}  // namespace
}  // namespace yinet::test
