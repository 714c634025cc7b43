// The control connection against scripted servers: login, replies in every shape, connections that end.

#include <chrono>
#include <string>
#include <vector>

#include "ftp/ftp_test_kit.h"
#include "yinet/host/text.h"
#include "yinet/net/partner_info.h"

namespace yinet::test {
namespace {

class FtpsControlTest : public FtpTest {
 protected:
  static OpenFtps client(const ScriptedPeer& server, int type = kPlainFtp, const char* user = "me",
                         const char* password = "secret") {
    return OpenFtps(server.target(), user, password, type, "");
  }
};

// A server that lets anyone in and then goes on with `rest`.
ConnectionScript after_login(ConnectionScript rest) {
  return [rest = std::move(rest)](Connection& connection) {
    connection.send("220 hi\r\n");
    connection.expect("USER me\r\n");
    connection.send("331 password\r\n");
    connection.expect("PASS secret\r\n");
    connection.send("230 in\r\n");
    rest(connection);
  };
}

TEST_F(FtpsControlTest, StartsWithoutAStatus) {
  OpenFtps ftp;
  EXPECT_EQ(ftp.get_last_mes(0), "700 No Status");
  EXPECT_EQ(ftp.get_last_mesnum(), 700);
  EXPECT_EQ(ftp.closeconnection(), 1);
  EXPECT_EQ(ftp.send_command("NOOP", ftps::kReadReply), -4);
  EXPECT_EQ(ftp.get_last_mes(0), "701 Not connected");
  EXPECT_EQ(ftp.get_last_mes(4), "NOOP");
  EXPECT_EQ(ftp.get_last_mes(1), "701 Not connected Letzter Befehl: NOOP");
  EXPECT_EQ(ftp.get_ftpserver_mes(), 256) << "nothing can come";
  ftp.set_last_mes("hello");
  EXPECT_EQ(ftp.get_last_mes(0), "hello");
  EXPECT_EQ(ftp.get_last_mesnum(), 701) << "no digits keep the number";
  ftp.set_last_mes("");
  EXPECT_EQ(ftp.get_last_mes(0), "");
}

TEST_F(FtpsControlTest, LogsIn) {
  ScriptedPeer server(after_login(Script().expect("QUIT\r\n").send("221 bye\r\n").expect_end()));
  {
    OpenFtps ftp = client(server);
    EXPECT_EQ(ftp.connect(), 0);
    EXPECT_EQ(ftp.get_partner_info(true).GetInteger(partner::kPort), server.port());
    EXPECT_EQ(ftp.closeconnection(), 0);
    EXPECT_EQ(ftp.get_last_mes(0), "221 bye\r\n");
  }
}

TEST_F(FtpsControlTest, RefusalsEndTheLogin) {
  const struct {
    std::vector<std::string> replies;  // to the connection itself, USER, PASS
    int number;
  } cases[] = {{{"220 hi\r\n", "530 no\r\n"}, 530},
               {{"220 hi\r\n", "331 go on\r\n", "530 no\r\n"}, 530},
               {{"421 too many\r\n"}, 704},
               {{"220 hi\r\n"}, 704},
               {{"220 hi\r\n", "331 go on\r\n"}, 704},
               {{"220 hi\r\n", "331 go on\r\n", "421 away\r\n"}, 421}};
  for (const auto& c : cases) {
    ScriptedPeer server([&](Connection& connection) {
      for (const std::string& reply : c.replies) {
        if (&reply != &c.replies.front()) connection.read_line();
        connection.send(reply);
      }
      if (c.number == 704) connection.read_line();
      connection.close();
    });
    OpenFtps ftp = client(server);
    EXPECT_EQ(ftp.connect(), -1);
    EXPECT_EQ(ftp.get_last_mesnum(), c.number) << c.replies.back();
  }
}

TEST_F(FtpsControlTest, UnreachableServersAndUnknownProxyTypesFailAtOnce) {
  OpenFtps refused("127.0.0.1:" + YString(refused_port()), "me", "secret", kPlainFtp, "");
  EXPECT_EQ(refused.connect(), -1);
  EXPECT_EQ(refused.get_last_mes(0), "702 Connect failed");
  for (const int type : {2, 3, 6, -1}) {
    OpenFtps ftp("127.0.0.1", "me", "secret", "127.0.0.1:1", kPlainFtp, type, "", "", "");
    EXPECT_EQ(ftp.connect(), -1);
    EXPECT_EQ(ftp.get_last_mesnum(), 702) << type;
  }
}

TEST_F(FtpsControlTest, AnFtpProxyGetsThePasswordTwice) {
  for (const char* proxy_user : {"", "pu"}) {
    const std::string name = std::string("USER me@") + (*proxy_user ? "pu@" : "") + "far.example:2121\r\n";
    ScriptedPeer proxy(Script()
                           .send("220 proxy\r\n")
                           .expect(name)
                           .send("331 a\r\n")
                           .expect("PASS secret\r\n")
                           .send("331 b\r\n")
                           .expect("PASS secret\r\n")
                           .send("230 c\r\n"));
    OpenFtps ftp("far.example:2121", "me", "secret", YString(proxy.target()), kPlainFtp, 1, "", proxy_user, "pp");
    EXPECT_EQ(ftp.connect(), 0);
  }
}

TEST_F(FtpsControlTest, TlsIsNeverGivenUpForAPassword) {
  {
    ScriptedPeer server(Script().send("220 hi\r\n").expect("AUTH TLS\r\n").send("502 no\r\n").expect_end());
    OpenFtps ftp = client(server, kTlsFtp);
    EXPECT_EQ(ftp.connect(), -1);
    EXPECT_EQ(ftp.get_last_mesnum(), 502);
    EXPECT_EQ(log.numbers(), std::vector<int>{message::kFtpTlsRefused});
  }
  {
    ScriptedPeer server([](Connection& connection) {
      connection.send("220 hi\r\n");
      connection.expect("AUTH TLS\r\n");
      connection.send("234 go\r\n");
      connection.read_until("\x16\x03");  // its handshake begins
      connection.send("this is no TLS\r\n");
      connection.read_to_end();
    });
    OpenFtps ftp = client(server, kTlsFtp);
    EXPECT_EQ(ftp.connect(), -1);
    ftp.Close();
    server.finish();
    EXPECT_EQ(server.received().find("secret"), std::string::npos);
  }
}

TEST_F(FtpsControlTest, RepliesInjectedBeforeTlsAreThrownAway) {
  ScriptedPeer server([](Connection& connection) {
    connection.send("220 hi\r\n");
    connection.expect("AUTH TLS\r\n");
    std::string injected;  // more than one read takes
    for (int i = 0; i < 300; ++i) injected += "230 injected\r\n";
    connection.send("234 go\r\n" + injected);
    connection.start_tls(TlsContext::server());
    connection.expect("USER me\r\n");
    connection.send("530 real\r\n");
    connection.close();
  });
  OpenFtps ftp = client(server, kTlsFtp);
  EXPECT_EQ(ftp.connect(), -1);
  EXPECT_EQ(ftp.get_last_mes(0), "530 real\r\n");
}

TEST_F(FtpsControlTest, TlsSecuresCommandsAndAsksForSecuredData) {
  ScriptedPeer server([](Connection& connection) {
    connection.send("220 hi\r\n");
    connection.expect("AUTH TLS\r\n");
    connection.send("234 go\r\n");
    connection.start_tls(TlsContext::server());
    const std::pair<const char*, const char*> dialogue[] = {{"USER me\r\n", "331 go on\r\n"},
                                                            {"PASS secret\r\n", "230 in\r\n"},
                                                            {"PBSZ 0\r\n", "500 what\r\n"},
                                                            {"PROT P\r\n", "536 no\r\n"}};
    for (const auto& [command, reply] : dialogue) {
      connection.expect(command);
      connection.send(reply);
    }
    connection.expect_end();
  });
  OpenFtps ftp = client(server, kTlsFtp);
  EXPECT_EQ(ftp.connect(), 0) << "what the server says to the last two does not matter";
  EXPECT_EQ(ftp.get_last_mesnum(), 536);
  EXPECT_TRUE(server.tls().active);
  ftp.Close();
}

TEST_F(FtpsControlTest, ClientCertificatesAreShown) {
  const PemPair pair = Certificates::shared().client();
  ScriptedPeer server([&](Connection& connection) {
    connection.send("220 hi\r\n");
    connection.expect("AUTH TLS\r\n");
    connection.send("234 go\r\n");
    connection.start_tls(TlsContext::server(Certificates::shared().good(), {.client_ca = Certificates::shared().ca_file()}));
    connection.expect("USER me\r\n");
    connection.send("530 enough\r\n");
    connection.close();
  });
  OpenFtps ftp(server.target(), "me", "secret", kTlsFtp, YString(pair.both.string()));
  EXPECT_EQ(ftp.get_certif(), pair.both.string().c_str());
  EXPECT_EQ(ftp.connect(), -1);
  EXPECT_EQ(ftp.get_last_mesnum(), 530);
  EXPECT_THAT(server.tls().peer_subject, testing::HasSubstr("Test Client"));
}

TEST_F(FtpsControlTest, RepliesComeInEveryShape) {
  const SettingChange rest(settings::kFtpReplyRest, "5000");
  const struct {
    const char* what;
    std::vector<std::string> pieces;
    std::vector<std::string> replies;
    bool exact = false;
  } cases[] = {
      {"in pieces", {"25", "0 o", "k\r", "\n"}, {"250 ok\r\n"}},
      {"two at once", {"150 a\r\n226 b\r\n"}, {"150 a\r\n", "226 b\r\n"}},
      {"a multi-line reply in two pieces", {"250-a\r\n", "250 b\r\n"}, {"250-a\r\n250 b\r\n"}},
      {"a multi-line reply and another one", {"250-a\r\n 250 x\r\n250 b\r\n226 c\r\n"}, {"250-a\r\n 250 x\r\n250 b\r\n", "226 c\r\n"}},
      {"no code", {"hello\r\n"}, {"hello\r\n"}},
      {"no code before one, exact", {"hello\r\n", "250 a\r\n"}, {"hello\r\n250 a\r\n"}, true},
      {"escape sequences and bytes", {"250 \x1B[31m\xFF\r\n"}, {"250 \x1B[31m\xFF\r\n"}},
      {"UTF-8", {"250 M\xC3\xA4rz\r\n"}, {"250 M\xE4rz\r\n"}},
      {"UTF-8 beyond the code page", {"250-\xE2\x82\xAC\r\n250 \xE6\x97\xA5\r\n"}, {"250-\x80\r\n250 \xE6\x97\xA5\r\n"}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    const SettingChange exact(settings::kFtpExactReplies, c.exact ? "1" : "0");
    ScriptedPeer server(after_login(Script().expect("NOOP\r\n").send_pieces(c.pieces, milliseconds(20)).stay_silent()));
    OpenFtps ftp = client(server);
    ASSERT_EQ(ftp.connect(), 0);
    EXPECT_EQ(ftp.send_command("NOOP", ftps::kReadReply), 0);
    for (const std::string& reply : c.replies) {
      EXPECT_EQ(ftp.get_last_mes(0).str(), reply);
      if (&reply != &c.replies.back()) {
        EXPECT_EQ(ftp.get_ftpserver_mes(), 0);
      }
    }
    ftp.Close();
  }
}

TEST_F(FtpsControlTest, AnUnfinishedReplyIsWaitedForALittle) {
  const SettingChange rest(settings::kFtpReplyRest, "60");
  for (const bool closes : {false, true}) {
    ScriptedPeer server(after_login([&](Connection& connection) {
      connection.expect("NOOP\r\n");
      connection.send("250-never ends\r\n");
      if (closes) connection.close();
      else connection.stay_silent();
    }));
    OpenFtps ftp = client(server);
    ASSERT_EQ(ftp.connect(), 0);
    EXPECT_EQ(ftp.send_command("NOOP", ftps::kReadReply), 0);
    EXPECT_EQ(ftp.get_last_mes(0), "250-never ends\r\n");
    ftp.Close();
  }
}

TEST_F(FtpsControlTest, SilenceAndEndlessRepliesCloseTheConnection) {
  const SettingChange size(settings::kFtpReplySize, "100000");
  const SettingChange rest(settings::kFtpReplyRest, "20000");
  const struct {
    const char* what;
    std::string piece;
  } cases[] = {{"silence", ""}, {"no line end", "250 and on"}, {"lines without end", "250-x\r\n"}, {"no code, no end", "x"}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    ScriptedPeer server(after_login([&](Connection& connection) {
      connection.expect("NOOP\r\n");
      if (c.piece.empty()) connection.stay_silent();
      else connection.flood(c.piece, 50'000'000);
    }));
    const SettingChange limit(settings::kFtpReplyLimit, c.piece.empty() ? "100" : "20000");
    OpenFtps ftp = client(server);
    ASSERT_EQ(ftp.connect(), 0);
    const auto time = time_of([&] { EXPECT_EQ(ftp.send_command("NOOP", ftps::kReadReply), 256); });
    EXPECT_LT(time.count(), 15000);
    EXPECT_EQ(ftp.get_last_mes(0), "230 in\r\n") << "the last message stays";
    EXPECT_EQ(ftp.GetScoketDescriptor(), -1);
    EXPECT_EQ(ftp.send_command("NOOP", ftps::kReadReply), -1) << "still counts as connected";
    EXPECT_EQ(ftp.get_last_mes(0), "703 Send failed");
  }
}

TEST_F(FtpsControlTest, APreliminaryReplyIsReadBeforeTheLastOne) {
  ScriptedPeer server(after_login(Script().expect("A\r\n").send("150 a\r\n").pause(milliseconds(20)).send("226 b\r\n").expect("B\r\n")));
  OpenFtps ftp = client(server);
  ASSERT_EQ(ftp.connect(), 0);
  EXPECT_EQ(ftp.send_command("A", ftps::kReadPreliminary), 0);
  EXPECT_EQ(ftp.get_last_mesnum(), 226);
  EXPECT_EQ(ftp.send_command("B", 0), 0) << "no reply is waited for";
  EXPECT_EQ(ftp.get_last_command(), "B");
  ftp.Close();
}

TEST_F(FtpsControlTest, LineBreaksNeverReachTheServer) {
  using namespace std::string_view_literals;
  for (const std::string_view bad : {"a\r\nDELE b"sv, "a\nb"sv, "a\rb"sv, "a\0b"sv}) {
    const YString name(bad);
    ScriptedPeer server(after_login(Script().expect("TYPE I\r\n").send("200 ok\r\n").expect_end()));
    OpenFtps ftp = client(server);
    ASSERT_EQ(ftp.connect(), 0);
    log.clear();
    EXPECT_EQ(ftp.del_file(name), -1);
    EXPECT_EQ(ftp.get_last_mes(0), "703 Send failed");
    EXPECT_EQ(ftp.get_filesize(name), -1);
    EXPECT_EQ(ftp.upload_file(local_file("x", "x"), name + "/x", 2), -1);
    EXPECT_EQ(ftp.download_file(name, local_name("y"), 2), -1);
    EXPECT_EQ(log.last(message::kFtpLineBreakRefused).text, "The FTP command SIZE was not sent: its text holds CR, LF or NUL.");
    ftp.Close();

    ScriptedPeer stranger(Script().send("220 hi\r\n").expect_end());
    OpenFtps login(stranger.target(), name, "secret", kPlainFtp, "");
    EXPECT_EQ(login.connect(), -1);
    login.Close();
    ScriptedPeer half(Script().send("220 hi\r\n").expect("USER me\r\n").send("331 go\r\n").expect_end());
    OpenFtps password(half.target(), "me", name, kPlainFtp, "");
    EXPECT_EQ(password.connect(), -1);
    EXPECT_EQ(password.get_last_mesnum(), 703);
    password.Close();
    for (const LogRecord& record : log.records()) EXPECT_EQ(record.text.find("DELE b"), std::string::npos) << record.text;
  }
}

TEST_F(FtpsControlTest, NamesGoOutInUtf8UnlessTheirBytesAreWanted) {
  const struct {
    const char* raw;
    const char* name;
    const char* wire;
  } cases[] = {{"0", "M\xE4rz", "M\xC3\xA4rz"}, {"1", "M\xE4rz", "M\xE4rz"}, {"0", "\xE6\x97\xA5", "\xE6\x97\xA5"}};
  for (const auto& c : cases) {
    const SettingChange raw(settings::kRawNames, c.raw);
    ScriptedPeer server(after_login(Script().expect("DELE " + std::string(c.wire) + "\r\n").send("550 " + std::string(c.wire) + "\r\n")));
    OpenFtps ftp = client(server);
    ASSERT_EQ(ftp.connect(), 0);
    EXPECT_EQ(ftp.del_file(c.name), -32);
    EXPECT_EQ(ftp.get_last_mes(0).str(), "550 " + std::string(c.name) + "\r\n");
  }
}

TEST_F(FtpsControlTest, CopiesHaveTheSettingsAndStartUnconnected) {
  ScriptedPeer server(std::vector<ConnectionScript>{after_login(Script().read_to_end()), after_login(Script().read_to_end())});
  OpenFtps ftp = client(server);
  ASSERT_EQ(ftp.connect(), 0);
  OpenFtps copy(ftp);
  EXPECT_EQ(copy.get_last_mes(0), "230 in\r\n");
  EXPECT_EQ(copy.get_last_command(), "PASS secret");
  EXPECT_EQ(copy.closeconnection(), 1);
  EXPECT_EQ(copy.connect(), 0);
  ftp = copy;
  EXPECT_EQ(ftp.closeconnection(), 1);
  EXPECT_EQ(ftp.GetScoketDescriptor(), -1);
}

TEST_F(FtpsControlTest, NoTraceHoldsThePassword) {
  ScriptedPeer server(after_login(Script().expect("QUIT\r\n").send("221 secret\r\n")));
  set_debug_traces(true);
  OpenFtps ftp = client(server);
  EXPECT_EQ(ftp.connect(), 0);
  ftp.closeconnection();
  set_debug_traces(false);
  EXPECT_EQ(log.last(message::kFtpConnected).text, "FTP: connected to " + server.target());
  for (const LogRecord& record : log.records()) EXPECT_EQ((record.text + record.extra).find("secret"), std::string::npos);
}

TEST_F(FtpsControlTest, PwdAndCwdWithoutAnArgumentReadOneReplyMore) {
  ScriptedPeer server(after_login(Script().expect("CWD\r\n").send("250 root\r\n").expect("PWD\r\n").send("257 \"/\"\r\n250 more\r\n")));
  OpenFtps ftp = client(server);
  ASSERT_EQ(ftp.connect(), 0);
  EXPECT_EQ(ftp.ch_dir("anywhere"), "0");
  EXPECT_EQ(ftp.get_last_mesnum(), 250);
}

}  // namespace
}  // namespace yinet::test
