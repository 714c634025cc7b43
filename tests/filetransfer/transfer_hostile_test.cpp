// Settings and their checks, and servers that say what real ones do not.

#include <array>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <optional>
#include <tuple>

#include "ftp/ftp_test_kit.h"
#include "support/ports.h"
#include "support/resource_check.h"
#include "support/servers.h"
#include "yinet/host/yjson.h"
#include "yinet/ssh/ssh_client.h"

namespace yinet::test {
namespace {

using testing::HasSubstr;
using testing::Not;

TEST_F(FtpTest, SettingsAreChecked) {
  using Transfer = YInetFileTransfer;
  // A setter, the number of its error, texts.
  const std::tuple<bool (Transfer::*)(const YString&), int, std::vector<const char*>> cases[] = {
      {&Transfer::SetProtocol, 0, {"SFTP"}},
      {&Transfer::SetProtocol, 21520, {""}},
      {&Transfer::SetProtocol, 21522, {"file"}},
      {&Transfer::SetServer, 0, {"host:", "host:1", "[::1]", "[::1]:21"}},
      {&Transfer::SetServer, 21533, {"host:0", "host:21x", "host:21:21", "[::1]:x", "user:topsecret@host"}},
      {&Transfer::SetServer, 21534, {"host/path", "user@host", "host?x", "host\r\nx"}},
      {&Transfer::SetServerUrl, 0, {"ftps://host"}},
      {&Transfer::SetServerUrl, 21521, {"ftp://", "foo://"}},
      {&Transfer::SetServerUrl, 21533, {"foo://h:0"}},
      {&Transfer::SetServerUrl, 21522, {"gopher://host"}},
      {&Transfer::SetProxyProtocol, 0, {"Socks5H"}},
      {&Transfer::SetProxyProtocol, 21523, {""}},
      {&Transfer::SetProxyProtocol, 21524, {"socks"}},
      {&Transfer::SetProxyServerUrl, 21523, {"://proxy"}},
      {&Transfer::SetProxyServerUrl, 21533, {"foo://h:0"}},
      {&Transfer::SetProxyServerUrl, 0, {"socks5h://proxy:1080", ""}},
      {&Transfer::SetProxyServer, 21534, {"proxy/x"}},
  };
  for (const auto& [setter, number, texts] : cases) {
    for (const char* text : texts) {
      Transfer transfer;
      EXPECT_EQ((transfer.*setter)(text), number == 0) << text;
      EXPECT_EQ(transfer.GetLastErrorNumber(), number) << text;
      EXPECT_THAT(transfer.GetLastErrorMsg().str(), Not(HasSubstr("topsecret")));
    }
  }
  EXPECT_FALSE(transfer_to("host").DeleteFileA("x"));
  EXPECT_EQ(log.numbers().back(), 21520) << "what stands without ://, is the server";
}

TEST_F(FtpTest, DetailsTellAllButPasswords) {
  const std::uint16_t port = refused_port();
  const std::string address = "127.0.0.1:" + std::to_string(port);
  YInetFileTransfer transfer = transfer_to("ftps://127.0.0.1", "me", "topsecret");
  transfer.SetPortA(port);
  transfer.SetProxyServerUrl("socks5h://" + address);
  transfer.SetProxyPassword("topsecret");
  YString text;
  EXPECT_FALSE(transfer.DownloadToString("a b", text));
  const std::string details = "url=ftps://" + address + "/a%20b, username=me, password=***, proxyServerUrl=socks5h://" +
                              address + ", proxyPassword=***";
  EXPECT_EQ(transfer.GetLastErrorMsg(),
            YString("The text could not be downloaded: Couldn't connect to server [" + details + "]"));
  EXPECT_EQ(log.last(21543).extra, details);
  EXPECT_EQ(transfer.last_cause().failure, TransferFailure::no_connection);
  log.clear();
  transfer.SetErrorReporting(false);
  EXPECT_FALSE(transfer.DownloadToString("x", text));
  EXPECT_THAT(log.numbers(), testing::IsEmpty());
  transfer.SetUsername("me\r\nDELE x");
  EXPECT_FALSE(transfer.DownloadToString("x", text));
  EXPECT_EQ(transfer.GetLastErrorNumber(), 21535);
}

Script answer(const std::string& head) {
  return Script().read_until("\r\n\r\n").send("HTTP/1.1 " + head + "\r\nContent-Length: 4\r\n\r\nbody");
}

TEST_F(FtpTest, ConnectionsAreReusedAndCopiesIndependent) {
  ::setenv("http_proxy", "http://127.0.0.1:1", 1);  // never the environment's
  const ResourceCheck resources;
  ScriptedPeer peer({answer("200 OK").then(answer("200 OK")), answer("200 OK")});
  YString text;
  std::optional<YInetFileTransfer> original = transfer_to(peer.url(""), "u", "p");
  EXPECT_TRUE(original->DownloadToString("1", text));
  EXPECT_TRUE(original->DownloadToString("2", text));
  YInetFileTransfer copy(*original);
  original->SetServer("127.0.0.1:1");
  original.reset();
  EXPECT_TRUE(copy.DownloadToString("3", text)) << error_of(copy);
  peer.finish();
  EXPECT_THAT(peer.received(1), HasSubstr("Authorization: Basic dTpw\r\n"));
}

TEST_F(FtpTest, RedirectsLeadToHttpOnlyAndWithoutTheLogin) {
  ScriptedPeer other(answer("200 OK"));
  for (const std::string& target : {std::string("file:///etc/hostname"), std::string("ftp://127.0.0.1:1/x"),
                                    std::string("sftp://127.0.0.1:1/x"), other.url("/x")}) {
    ScriptedPeer peer(answer("302 Found\r\nLocation: " + target));
    YInetFileTransfer transfer = transfer_to(peer.url(""), "u", "p");
    EXPECT_EQ(transfer.DownloadToFile("x", local_name("x")), target.starts_with("http")) << error_of(transfer);
    EXPECT_EQ(std::filesystem::exists(local / "x"), target.starts_with("http"));
  }
  other.finish();
  EXPECT_THAT(other.received(), Not(HasSubstr("Authorization")));
}

TEST_F(FtpTest, EndlessBodiesAndGreetingsEndAtALimit) {
  ScriptedPeer body = ScriptedPeer::for_every_connection(
      Script().read_until("\r\n\r\n").send("HTTP/1.1 200 OK\r\n\r\n").flood(std::string(1000, 'x'), 1'000'000'000));
  ScriptedPeer greeting(Script().flood("220-hello\r\n", 100'000'000));
  const ResourceCheck resources;
  const SettingChange texts(settings::kTransferTextLimit, "100000"), replies(settings::kTransferReplySize, "100000");
  EXPECT_FALSE(transfer_to(greeting.url("", "ftp")).DeleteFileA("x"));
  YString text;
  YInetFileTransfer transfer = transfer_to(body.url(""));
  EXPECT_FALSE(transfer.DownloadToString("x", text));
  EXPECT_THAT(transfer.GetLastErrorMsg().str(), HasSubstr("longer than \"Dateitransfer\"/\"TextLimit\" allows"));
  EXPECT_EQ(text, "");
  const SettingChange time_limit(settings::kTransferTimeLimit, "300");
  EXPECT_FALSE(transfer.DownloadToFile("x", "/dev/null"));
  EXPECT_TRUE(std::filesystem::exists("/dev/null")) << "no file of ours";
  EXPECT_EQ(transfer.last_cause().failure, TransferFailure::broken_off);
}

TEST_F(FtpTest, NoConnectionIsToldFromABrokenOne) {
  const FullListener silent;
  const SettingChange limit(settings::kTransferConnectLimit, "300");
  ScriptedPeer no_ssh(Script().send("220 hello\r\n").close());
  const std::string silent_address = "127.0.0.1:" + std::to_string(silent.port());
  for (const std::string& url : {"http://" + silent_address, "ftp://" + silent_address, no_ssh.url("", "sftp")}) {
    YInetFileTransfer transfer = transfer_to(url, "u", "p");
    EXPECT_FALSE(transfer.DownloadToFile("x", local_name("x")));
    EXPECT_EQ(transfer.last_cause().failure, TransferFailure::no_connection) << url << error_of(transfer);
  }
}

TEST_F(FtpTest, PortsOfARecordAreNumbersOrLeftOut) {
  const std::string port = std::to_string(refused_port());
  const std::pair<std::string, std::string> cases[] = {
      // the port, what is told
      {"null", "url=http://[::1]/x"}, {R"("")", "url=http://[::1]/x"}, {"\"" + port + "\"", "[::1]:" + port + "/x"},
      {"true", "port \"bool\""},      {R"("80 ")", "port \"80 \""},    {R"("0")", "port \"0\""}};
  for (const auto& [given, told] : cases) {
    YObject connection, all;
    ASSERT_FALSE(YJSON::Parse(R"({"ServerUrl":"http://[::1]","Port":)" + given + "}", connection));
    all.Store<YObject>("pVerbindungsdaten", connection);
    log.clear();
    EXPECT_FALSE(call("YINETFILETRANSFER_DOWNLOAD_TEXT", "pQuellPfad=x", all).GetBool("_RETV"));
    EXPECT_THAT(log.records().back().text + log.records().back().extra, HasSubstr(told));
  }
}

// Answers every command as an FTP server would, with these two for the greeting and the start folder.
ConnectionScript ftp_dialogue(const std::string& greeting, const std::string& start_folder, std::uint16_t data_port) {
  return [=](Connection& connection) {
    const std::map<std::string, std::string> replies = {
        {"USER", "331 a"},          {"PASS", "230 b"},
        {"PWD\r", start_folder},    {"EPSV", "229 (|||" + std::to_string(data_port) + "|)"},
        {"LIST", "150 c\r\n226 d"}, {"NLST", "150 c\r\n226 d"},
        {"RETR", "150 c\r\n226 d"}, {"SIZE", "213 10"}};
    connection.send(greeting + "\r\n");
    for (std::string line; line != "QUIT\r\n";) {
      line = connection.read_line();
      const auto reply = replies.find(line.substr(0, 4));
      connection.send((reply == replies.end() ? "250 e" : reply->second) + "\r\n");
    }
  };
}

TEST_F(FtpTest, CommandsNameTheStartFolderOnceItIsKnown) {
  const std::string longest(10'000, 'a');
  const std::array<std::string, 3> cases[] = {
      // greeting, answer, folder; without one the command is refused
      {"220 hi", "257 \"/my home/\" is current directory.", "/my home/"},
      {"220 hi", "257 \"/\" is the current directory", "/"},
      {"220 hi", "257 \"/a \"\"b\"\"\" is the current directory", "/"},
      {"220 \"Files\" ready", "257 \"/x\" is the current directory", "/"},
      {"220 hi", "257 \"/x", "/"},
      {"220 hi", "257 \"/" + longest + "\" is the current directory", "/" + longest + "/"},
      {"220-\"/x\r\n220-DELE y\r\n220 z\" is the current directory", "257 \"/\"", ""},  // would be two commands
  };
  ScriptedPeer data = ScriptedPeer::for_every_connection(Script().close());
  for (const auto& [greeting, answer, folder] : cases) {
    ScriptedPeer server(ftp_dialogue(greeting, answer, data.port()));
    EXPECT_EQ(transfer_to(server.url("", "ftp")).CreateDirectoryA("new"), !folder.empty()) << answer;
    server.finish();
    const std::string command = folder.empty() ? "" : "MKD " + folder + "new\r\n";
    EXPECT_THAT(server.received(), testing::AllOf(HasSubstr(command), Not(HasSubstr("DELE"))));
  }
}

TEST_F(FtpTest, ALoginAsksForTheStartFolderAnew) {
  ScriptedPeer data = ScriptedPeer::for_every_connection(Script().close());
  const ConnectionScript session = ftp_dialogue("220 hi", "257 \"/me\" is the current directory", data.port());
  ScriptedPeer server({session, session});
  std::optional<YInetFileTransfer> transfer = transfer_to(server.url("", "ftp"));
  for (int i = 0; i < 2; ++i) {  // the same login: libcurl alone would go on with the connection that has told it
    transfer->SetUsername("u");
    EXPECT_TRUE(transfer->DeleteFileA("x") && transfer->DeleteFileA("y")) << error_of(*transfer);
  }
  transfer.reset();
  server.finish();
  for (const std::size_t index : {0U, 1U}) EXPECT_THAT(server.received(index), HasSubstr("PWD\r\n"));
  EXPECT_THAT(server.received(0) + server.received(1), Not(HasSubstr("DELE /x")));
}

TEST_F(FtpTest, NamesOfAListingAreData) {
  ScriptedPeer names =
      ScriptedPeer::for_every_connection(Script().send("../x\r\nsub/x\r\nx\r\n./x\r\n/home/x\r\n..\r\n").close());
  ScriptedPeer server =
      ScriptedPeer::for_every_connection(ftp_dialogue("220 hi", "257 \"/home\" is current directory", names.port()));
  const std::string given = "pHOST=" + server.target() + "|pDateiname=*|pZielverzeichnis=" + local.path().string();
  EXPECT_EQ(call("FTP_DOWNLOADDATEIEN", given).GetString("pDateien"), "x");
  EXPECT_THAT(log.numbers(), testing::ElementsAre(21550));
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(local.path()), {}), 1);
}

// A way to a server on loopback whose n-th connection ends once n * `step` bytes of the server's went through, wherever that
// is: a client that is used again and again meets a lost connection at each of its steps.
class CuttingRelay : public ServerProcess {
 public:
  CuttingRelay(std::uint16_t server, unsigned step) : ServerProcess("relay") {
    start({.command = "python3 {CONFIG} {PORT} " + std::to_string(server) + " " + std::to_string(step),
           .configuration = kProgram});
  }

 private:
  static constexpr const char* kProgram = R"(
import contextlib, itertools, socket, sys, threading
port, to, step = map(int, sys.argv[1:])
def pump(source, target, left):
    with contextlib.suppress(OSError):
        while data := source.recv(min(left, 65536)):
            target.sendall(data)
            left -= len(data)
    for end in (source, target):
        with contextlib.suppress(OSError): end.shutdown(socket.SHUT_RDWR)
listener = socket.create_server(('127.0.0.1', port))
for left in itertools.count(step, step):
    ends = listener.accept()[0], socket.create_connection(('127.0.0.1', to))
    for end in ends: end.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
    for source, target, most in ((*ends, 1 << 60), (*reversed(ends), left)):
        threading.Thread(target=pump, args=(source, target, most), daemon=True).start()
)";
};

TEST_F(FtpTest, AConnectionMayEndAnywhere) {
  YINET_SKIP_FOR(SshServer::missing());
  YINET_SKIP_FOR(FtpServer::missing(FtpBrand::proftpd));
  const SshServer ssh;
  const FtpServer ftp({.brand = FtpBrand::proftpd, .tls = true});
  const YString user = ftp.user(), password = ftp.password();  // those of sshd too
  const std::string content = pattern_bytes(20'000), source = local_file("source", content),
                    target = local_name("target");
  const auto transfer_does_all = [&](const std::string& url) {
    YInetFileTransfer transfer = transfer_to(url, user, password);
    transfer.DeleteDirectory("d");  // of the round before
    const bool done = transfer.CreateDirectoryA("d") && transfer.UploadFile(source, "x") &&
                      transfer.ExistsDirectory("d") && transfer.DownloadToFile("x", target) &&
                      transfer.DeleteFileA("x") && transfer.DeleteDirectory("d");
    EXPECT_EQ(transfer.GetLastErrorNumber() == 0, done) << error_of(transfer);
    return done;
  };
  const auto client_does_all = [&](std::uint16_t port) {
    sshClient client;
    const bool done = client.connect("127.0.0.1", port, user, password, "", 0, 0, "", "") &&
                      client.createDirectory("d", nullptr) && client.uploadFile(source, "d/x", nullptr) &&
                      !client.getDirectory("d", nullptr).IsEmpty() &&
                      client.downloadWholeFile("d/x", target, nullptr) && client.deleteFile("d/x", nullptr) &&
                      client.removeDirectory("d", nullptr);
    EXPECT_EQ(client.last_failure() == SshFailure::none, done);
    EXPECT_TRUE(done || !client.existDirectory(".", nullptr)) << "what is broken stays so";
    return done;
  };
  for (const std::string protocol : {"sftp", "ftps", ""}) {
    SCOPED_TRACE(protocol);
    const CuttingRelay relay(protocol == "ftps" ? ftp.port() : ssh.port(), 400);
    int rounds = 1;
    for (bool done = false; !done; ++rounds) {
      ASSERT_LT(rounds, 200);
      const ResourceCheck resources;
      done = protocol.empty() ? client_does_all(relay.port()) : transfer_does_all(protocol + "://" + relay.address());
      EXPECT_TRUE(!std::filesystem::exists(target) || read_file(target) == content);
      std::filesystem::remove(target);
    }
    EXPECT_GT(rounds, protocol == "ftps" ? 5 : 50);
  }
}

}  // namespace
}  // namespace yinet::test
