// sshClient and servers that say what sshd never does: a small SFTP server behind a real sshd, and peers that say nothing.

#include <filesystem>

#include "ssh/ssh_test_kit.h"
#include "support/cutting_relay.h"
#include "yinet/host/yfile.h"

namespace yinet::test {
namespace {

// SFTP 3 on standard input and output. Reads bring 1000 bytes at most of 10,000, and fail from the byte on that the name
// of the file tells; listings have odd names, and that of "9" has no end.
constexpr const char* kServer = R"(
import struct, sys
take = lambda n: sys.stdin.buffer.read(n)
text = lambda s: struct.pack('>I', len(s)) + s
failures = {}
while True:
    head = take(4)
    if len(head) < 4: break
    packet = take(struct.unpack('>I', head)[0])
    kind, id, body = packet[0], packet[1:5], packet[5:]
    def answer(kind, data):
        sys.stdout.buffer.write(struct.pack('>IB', len(data) + 1, kind) + data)
        sys.stdout.buffer.flush()
    first = lambda: body[4:4 + struct.unpack('>I', body[:4])[0]]
    if kind == 1: answer(2, struct.pack('>I', 3))
    elif kind in (3, 11):
        failures['at'], listed = int(b'0' + first()), False
        answer(102, id + text(b'h'))
    elif kind == 5:
        offset, size = struct.unpack('>QI', body[5:17])
        data = (b'0123456789' * 1000)[offset:offset + min(size, 1000)]
        if failures['at'] and offset + len(data) > failures['at']: answer(101, id + struct.pack('>I', 4) + text(b'') * 2)
        elif data: answer(103, id + text(data))
        else: answer(101, id + struct.pack('>I', 1) + text(b'') * 2)
    elif kind == 12 and not listed:
        listed = failures['at'] != 9
        names = [b'../x', b'a\x01b', b'c\r\nd', b'M\xc3\xa4rz', b'\xff\xfe'] * (1 if listed else 200)
        answer(104, id + struct.pack('>I', len(names)) + b''.join(text(n) + text(b'- 1 o g 0 x') + struct.pack('>I', 0) for n in names))
    else: answer(101, id + struct.pack('>I', 1 if kind == 12 else 0) + text(b'') * 2)
)";

class SshHostileTest : public SshTest {
 protected:
  SshHostileTest() { scripts.open_to_everybody(); }
  std::string odd_server() { return "ForceCommand python3 " + scripts.write("server.py", kServer).string(); }
  TempDir scripts{"scripts"};
};

TEST_F(SshHostileTest, ShortAnswersAreNoEnd) {
  const SshServer server(odd_server());
  sshClient client;
  ASSERT_TRUE(log_in(client, server));
  std::string content;
  for (int i = 0; i < 1000; ++i) content += "0123456789";
  ASSERT_TRUE(client.downloadWholeFile("0", local_name("whole"), nullptr)) << client.last_failure_text().str();
  EXPECT_TRUE(read_file(local / "whole") == content);
  ASSERT_TRUE(client.downloadFile("0", local_name("fixed"), nullptr));
  EXPECT_TRUE(read_file(local / "fixed").substr(0, content.size() + 1) == content + '\0');

  for (const char* fails_at : {"1", "5000"}) {
    EXPECT_FALSE(client.downloadWholeFile(fails_at, local_name("no"), nullptr));
    EXPECT_FALSE(client.downloadFile(fails_at, local_name("no"), nullptr));
    EXPECT_FALSE(std::filesystem::exists(local / "no")) << fails_at;
    EXPECT_FALSE(client.downloadFile(fails_at, local_name("whole"), nullptr));
    EXPECT_TRUE(read_file(local / "whole") == content) << "nothing is written";
  }
}

TEST_F(SshHostileTest, NamesOfAListingAreData) {
  const SshServer server(odd_server());
  sshClient client;
  ASSERT_TRUE(log_in(client, server));
  EXPECT_THAT(client.getDirectory("0", nullptr).Items(),
              testing::ElementsAre("../x", "a?b", "c\r\nd", "M\xE4rz", "\xFF\xFE"));
  EXPECT_EQ(client.getDirectory("9", nullptr).Items().size(), 1'000'000U);
  const SettingChange two(settings::kSshListingEntries, "2");
  EXPECT_EQ(client.getDirectory("0", nullptr), "../x\x01" "a?b");
  const SettingChange six(settings::kSshListingSize, "6");
  EXPECT_EQ(client.getDirectory("0", nullptr), "../x");
}

TEST_F(SshHostileTest, SilenceEndsAtTheLimit) {
  const SettingChange limit(settings::kSshLimit, "700");
  ScriptedPeer silent(Script().read_to_end());
  ScriptedPeer rude(Script().send("220 no SSH here\r\n").close());
  const SshServer server("ForceCommand sleep 30");
  const ResourceCheck resources;
  sshClient client;
  const auto passed = time_of([&] {
    for (ScriptedPeer* const peer : {&silent, &rude}) {
      EXPECT_FALSE(client.connect("127.0.0.1", peer->port(), "u", "p", "", 0, 0, "", ""));
      EXPECT_EQ(client.last_failure(), SshFailure::not_connected);
    }
  });
  EXPECT_LT(passed, std::chrono::seconds(20));
  const SettingChange longer(settings::kSshLimit, "3000");
  ASSERT_TRUE(log_in(client, server)) << client.last_failure_text().str();
  EXPECT_FALSE(client.existDirectory(".", nullptr));
  EXPECT_EQ(client.last_failure(), SshFailure::broken) << client.last_failure_text().str();
  EXPECT_THAT(client.last_failure_text().str(), testing::HasSubstr("3000 ms"));
}

TEST_F(SshHostileTest, AConnectionMayEndAnywhere) {
  const SshServer server;
  const CuttingRelay relay(server.port(), 150);
  const YString source = local_file("source", "content");
  const YString target = local_name("target");
  int connections = 1;
  for (bool done = false; !done; ++connections) {
    ASSERT_LT(connections, 200);
    const ResourceCheck resources;
    sshClient client;
    done = client.connect("127.0.0.1", relay.port(), YString(SshServer::user()), YString(SshServer::password()), "", 0, 0, "", "") &&
           client.createDirectory("d", nullptr) && client.uploadFile(source, "d/x", nullptr) &&
           !client.getDirectory("d", nullptr).IsEmpty() && client.downloadWholeFile("d/x", target, nullptr) &&
           client.deleteFile("d/x", nullptr) && client.removeDirectory("d", nullptr);
    EXPECT_EQ(client.last_failure() == SshFailure::none, done);
    EXPECT_TRUE(!YFile::Exist(target) || read_file(local / "target") == "content");
    YFile::Delete(target);
  }
  EXPECT_GT(connections, 20);
}

}  // namespace
}  // namespace yinet::test
