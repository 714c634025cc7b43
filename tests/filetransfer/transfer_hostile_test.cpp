// Settings and their checks, and servers that say what real ones do not.

#include <cstdlib>
#include <filesystem>
#include <iterator>
#include <string>
#include <utility>

#include "filetransfer/transfer_test_kit.h"
#include "support/cutting_relay.h"
#include "support/ftp_server.h"
#include "support/ports.h"
#include "support/resource_check.h"
#include "support/scripted_peer.h"
#include "support/ssh_server.h"
#include "yinet/host/yfile.h"
#include "yinet/host/yobject.h"
#include "yinet/script/call_function.h"

namespace yinet::test {
namespace {

using testing::HasSubstr;
using testing::Not;

class TransferSettings : public TransferTest {};

TEST_F(TransferSettings, AreChecked) {
  using Setter = bool (YInetFileTransfer::*)(const YString&);
  const struct {
    Setter setter;
    const char* text;
    int number;
  } cases[] = {
      {&YInetFileTransfer::SetProtocol, "SFTP", 0},
      {&YInetFileTransfer::SetProtocol, "", 21520},
      {&YInetFileTransfer::SetProtocol, "file", 21522},
      {&YInetFileTransfer::SetServer, "", 21521},
      {&YInetFileTransfer::SetServer, "host:", 0},
      {&YInetFileTransfer::SetServer, "host:1", 0},
      {&YInetFileTransfer::SetServer, "host:0", 21533},
      {&YInetFileTransfer::SetServer, "host:21x", 21533},
      {&YInetFileTransfer::SetServer, "host:21:21", 21533},
      {&YInetFileTransfer::SetServer, "user:topsecret@host", 21533},
      {&YInetFileTransfer::SetServer, "[::1]", 0},
      {&YInetFileTransfer::SetServer, "[::1]:21", 0},
      {&YInetFileTransfer::SetServer, "[::1]:x", 21533},
      {&YInetFileTransfer::SetServer, "host/path", 21534},
      {&YInetFileTransfer::SetServer, "user@host", 21534},
      {&YInetFileTransfer::SetServer, "host?x", 21534},
      {&YInetFileTransfer::SetServer, "host\r\nx", 21534},
      {&YInetFileTransfer::SetServerUrl, "ftps://host", 0},
      {&YInetFileTransfer::SetServerUrl, "ftp://", 21521},
      {&YInetFileTransfer::SetServerUrl, "gopher://host", 21522},
      {&YInetFileTransfer::SetProxyProtocol, "Socks5H", 0},
      {&YInetFileTransfer::SetProxyProtocol, "", 21523},
      {&YInetFileTransfer::SetProxyProtocol, "socks", 21524},
      {&YInetFileTransfer::SetProxyServerUrl, "socks5h://proxy:1080", 0},
      {&YInetFileTransfer::SetProxyServerUrl, "", 0},
      {&YInetFileTransfer::SetProxyServerUrl, "://proxy", 21523},
      {&YInetFileTransfer::SetProxyServer, "proxy/x", 21534},
  };
  for (const auto& row : cases) {
    YInetFileTransfer transfer;
    EXPECT_EQ((transfer.*row.setter)(row.text), row.number == 0) << row.text;
    EXPECT_EQ(transfer.GetLastErrorNumber(), row.number) << row.text;
    EXPECT_THAT(std::string(transfer.GetLastErrorMsg()), Not(HasSubstr("topsecret")));
  }
  YInetFileTransfer bare;
  EXPECT_TRUE(bare.SetServerUrl("host"));
  EXPECT_FALSE(bare.DeleteFileA("x"));
  EXPECT_EQ(bare.GetLastErrorNumber(), 21520) << "what stands without ://, is the server";
}

TEST_F(TransferSettings, DetailsTellAllButPasswords) {
  YInetFileTransfer transfer;
  transfer.SetServerUrl("ftps://127.0.0.1");
  const std::uint16_t port = refused_port();
  transfer.SetPortA(port);
  transfer.SetUsername("me");
  transfer.SetPassword("topsecret");
  const std::string proxy = "127.0.0.1:" + std::to_string(port);
  transfer.SetProxyServerUrl(YString("socks5h://" + proxy));
  transfer.SetProxyPassword("topsecret");
  YString text;
  EXPECT_FALSE(transfer.DownloadToString("a b", text));
  const std::string details = "url=ftps://" + proxy + "/a%20b, username=me, password=***, proxyServerUrl=socks5h://" + proxy +
                              ", proxyPassword=***";
  EXPECT_EQ(transfer.GetLastErrorMsg(), YString("The text could not be downloaded: Couldn't connect to server [" + details + "]"));
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

class TransferOverHttp : public TransferTest {
 protected:
  static std::string reply(std::string_view head, std::string_view body = "body") {
    return "HTTP/1.1 " + std::string(head) + "\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" + std::string(body);
  }
  static YInetFileTransfer transfer_to(const ScriptedPeer& peer) {
    YInetFileTransfer transfer;
    transfer.SetServerUrl(YString(peer.url("")));
    return transfer;
  }
};

TEST_F(TransferOverHttp, ConnectionsAreReusedAndCopiesIndependent) {
  ::setenv("http_proxy", "http://127.0.0.1:1", 1);  // never the environment's
  const Script twice = Script().read_until("\r\n\r\n").send(reply("200 OK")).read_until("\r\n\r\n").send(reply("200 OK"));
  const ResourceCheck resources;
  ScriptedPeer peer({twice, Script().read_until("\r\n\r\n").send(reply("200 OK"))});
  YString text;
  auto original = std::make_unique<YInetFileTransfer>(transfer_to(peer));
  original->SetUsername("u");
  original->SetPassword("p");
  EXPECT_TRUE(original->DownloadToString("1", text));
  EXPECT_TRUE(original->DownloadToString("2", text));
  YInetFileTransfer copy(*original);
  original->SetServer("127.0.0.1:1");
  original.reset();
  EXPECT_TRUE(copy.DownloadToString("3", text)) << error_of(copy);
  peer.finish();
  EXPECT_THAT(peer.received(1), HasSubstr("Authorization: Basic dTpw\r\n"));
}

TEST_F(TransferOverHttp, RedirectsLeadToHttpOnlyAndWithoutTheLogin) {
  ScriptedPeer other(Script().read_until("\r\n\r\n").send(reply("200 OK", "other")));
  const std::string targets[] = {"file:///etc/hostname", "ftp://127.0.0.1:1/x", "sftp://127.0.0.1:1/x", other.url("/x")};
  for (const std::string& target : targets) {
    ScriptedPeer peer(Script().read_until("\r\n\r\n").send(reply("302 Found\r\nLocation: " + target)));
    YInetFileTransfer transfer = transfer_to(peer);
    transfer.SetUsername("u");
    transfer.SetPassword("p");
    EXPECT_EQ(transfer.DownloadToFile("x", local_name("x")), target.starts_with("http")) << error_of(transfer);
    EXPECT_EQ(std::filesystem::exists(local / "x"), target.starts_with("http"));
  }
  other.finish();
  EXPECT_THAT(other.received(), Not(HasSubstr("Authorization")));
}

TEST_F(TransferOverHttp, EndlessBodiesEndAtALimit) {
  ScriptedPeer endless = ScriptedPeer::for_every_connection([](Connection& connection) {
    connection.read_until("\r\n\r\n");
    connection.send("HTTP/1.1 200 OK\r\n\r\n");
    connection.flood(std::string(1000, 'x'), 1'000'000'000);
  });
  const ResourceCheck resources;
  set(settings::kTransferTextLimit, "100000");
  YString text;
  YInetFileTransfer transfer = transfer_to(endless);
  EXPECT_FALSE(transfer.DownloadToString("x", text));
  EXPECT_EQ(text, "");
  set(settings::kTransferTimeLimit, "300");
  EXPECT_FALSE(transfer.DownloadToFile("x", "/dev/null"));
  EXPECT_TRUE(std::filesystem::exists("/dev/null")) << "no file of ours";
  EXPECT_EQ(transfer.last_cause().failure, TransferFailure::broken_off);
}

// --- FTP dialogues --------------------------------------------------------------------------------------------------------

// Answers every command as an FTP server would, with these two for the greeting and the start folder.
ConnectionScript ftp_dialogue(std::string greeting, std::string start_folder, std::uint16_t data_port) {
  return [=](Connection& connection) {
    const std::pair<std::string_view, std::string> replies[] = {
        {"USER", "331 a\r\n"}, {"PASS", "230 b\r\n"},          {"PWD", start_folder},
        {"EPSV", "229 (|||" + std::to_string(data_port) + "|)\r\n"}, {"LIST", "150 c\r\n226 d\r\n"},
        {"NLST", "150 c\r\n226 d\r\n"}, {"RETR", "150 c\r\n226 d\r\n"}, {"SIZE", "213 10\r\n"}, {"", "250 e\r\n"}};
    connection.send(greeting);
    for (std::string line; line != "QUIT\r\n";) {
      line = connection.read_line();
      for (const auto& [command, reply] : replies) {
        if (!line.starts_with(command)) continue;
        connection.send(reply);
        break;
      }
    }
  };
}

class TransferOverFtp : public TransferTest {
 protected:
  ScriptedPeer data = ScriptedPeer::for_every_connection(Script().close());
};

TEST_F(TransferOverFtp, CommandsNameTheStartFolderOnceItIsKnown) {
  const std::string usual = "220 hi\r\n";
  const std::string longest(10'000, 'a');
  const struct {
    std::string greeting, answer, command;
  } cases[] = {
      {usual, "257 \"/home/me\" is the current directory\r\n", "MKD /home/me/new\r\n"},
      {usual, "257 \"/my home\" is current directory.\r\n", "MKD /my home/new\r\n"},
      {usual, "257 \"/\" is the current directory\r\n", "MKD /new\r\n"},
      {usual, "257 \"/a \"\"b\"\"\" is the current directory\r\n", "MKD /new\r\n"},
      {usual, "257 \"/\" is your current location\r\n", "MKD /new\r\n"},
      {usual, "550 no\r\n", "MKD /new\r\n"},
      {"220 \"Files\" ready\r\n", "257 \"/x\" is the current directory\r\n", "MKD /new\r\n"},
      {usual, "257 \"/" + longest + "\" is the current directory\r\n", "MKD /" + longest + "/new\r\n"},
      {"220-\"/x\r\n220-DELE y\r\n220 z\" is the current directory\r\n", "257 \"/\"\r\n", ""},  // would be two commands
  };
  for (const auto& row : cases) {
    ScriptedPeer server = ScriptedPeer::for_every_connection(ftp_dialogue(row.greeting, row.answer, data.port()));
    {
      YInetFileTransfer transfer;
      transfer.SetServerUrl(YString("ftp://" + server.target()));
      EXPECT_EQ(transfer.CreateDirectoryA("new"), !row.command.empty()) << error_of(transfer);
      EXPECT_EQ(transfer.GetLastErrorNumber(), row.command.empty() ? 21546 : 0);
    }
    server.finish();
    EXPECT_EQ(server.connection_count(), 1U);
    if (row.command.empty())
      EXPECT_THAT(server.received(), Not(HasSubstr("MKD")));
    else
      EXPECT_THAT(server.received(), HasSubstr(row.command));
  }
}

TEST_F(TransferOverFtp, ALoginAsksForTheStartFolderAnew) {
  ScriptedPeer server = ScriptedPeer::for_every_connection(
      ftp_dialogue("220 hi\r\n", "257 \"/me\" is the current directory\r\n", data.port()));
  {
    YInetFileTransfer transfer;
    transfer.SetServerUrl(YString("ftp://" + server.target()));
    for (int i = 0; i < 2; ++i) {  // the same login: libcurl alone would go on with the connection that has told it
      transfer.SetUsername("u");
      EXPECT_TRUE(transfer.DeleteFileA("x") && transfer.DeleteFileA("y")) << error_of(transfer);
    }
  }
  server.finish();
  EXPECT_EQ(server.connection_count(), 2U);
  for (const std::size_t index : {0U, 1U}) EXPECT_THAT(server.received(index), HasSubstr("PWD\r\n"));
  EXPECT_THAT(server.received(0) + server.received(1), Not(HasSubstr("DELE /x")));
}

TEST_F(TransferOverFtp, AServerThatNeverEndsItsGreetingIsLeft) {
  ScriptedPeer server([](Connection& connection) { connection.flood("220-hello\r\n", 100'000'000); });
  set(settings::kTransferReplySize, "100000");
  YInetFileTransfer transfer;
  transfer.SetServerUrl(YString("ftp://" + server.target()));
  EXPECT_FALSE(transfer.DeleteFileA("x"));
  EXPECT_EQ(transfer.GetLastErrorNumber(), 21544);
}

TEST_F(TransferOverFtp, NamesOfAListingAreData) {
  ScriptedPeer names = ScriptedPeer::for_every_connection(Script().send("../x\r\n..\r\n").close());
  ScriptedPeer server = ScriptedPeer::for_every_connection(ftp_dialogue("220 hi\r\n", "550 no\r\n", names.port()));
  YObject parameters;
  parameters.StoreText("pHOST", server.target());
  parameters.StoreText("pDateiname", "*");
  parameters.Store<YString>("pZielverzeichnis", YString(local.path().string()));
  call_function("FTP_DOWNLOADDATEIEN", parameters);
  EXPECT_EQ(parameters.GetString("pDateien"), "x");
  EXPECT_THAT(log.numbers(), testing::ElementsAre(21550));
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(local.path()), {}), 1);
}

// --- Lost connections -----------------------------------------------------------------------------------------------------

TEST_F(TransferTest, AConnectionMayEndAnywhere) {
  YINET_SKIP_FOR(SshServer::missing());
  YINET_SKIP_FOR(FtpServer::missing(FtpBrand::proftpd));
  const SshServer ssh;
  const FtpServer ftp({.brand = FtpBrand::proftpd, .tls = true});
  const YString source = local_file("source", "content");
  const YString target = local_name("target");
  const struct {
    std::string protocol, user, password;
    std::uint16_t port;
  } servers[] = {{"sftp", SshServer::user(), SshServer::password(), ssh.port()},
                 {"ftps", ftp.user(), ftp.password(), ftp.port()}};
  for (const auto& server : servers) {
    const CuttingRelay relay(server.port, 400);
    int rounds = 1;
    for (bool done = false; !done; ++rounds) {
      ASSERT_LT(rounds, 200) << server.protocol;
      const ResourceCheck resources;
      YInetFileTransfer transfer;
      transfer.SetServerUrl(YString(server.protocol + "://127.0.0.1:" + std::to_string(relay.port())));
      transfer.SetUsername(YString(server.user));
      transfer.SetPassword(YString(server.password));
      transfer.DeleteDirectory("d");  // of the round before
      done = transfer.CreateDirectoryA("d") && transfer.UploadFile(source, "x") && transfer.ExistsDirectory("d") &&
             transfer.DownloadToFile("x", target) && transfer.DeleteFileA("x") && transfer.DeleteDirectory("d");
      EXPECT_EQ(transfer.GetLastErrorNumber() == 0, done) << error_of(transfer);
      EXPECT_TRUE(!YFile::Exist(target) || read_file(local / "target") == "content");
      YFile::Delete(target);
    }
    EXPECT_GT(rounds, 5) << server.protocol;
  }
}

}  // namespace
}  // namespace yinet::test
