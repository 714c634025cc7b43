// The control connection against scripted servers: login, replies in every shape, connections that end.

#include "ftp/ftp_test_kit.h"

namespace yinet::test {
namespace {

class FtpsControlTest : public FtpTest {};

TEST_F(FtpsControlTest, StartsWithoutAStatus) {
  OpenFtps ftp;
  EXPECT_EQ(ftp.get_last_mes(0), "700 No Status");
  EXPECT_EQ(ftp.get_last_mesnum(), 700);
  EXPECT_EQ(ftp.closeconnection(), 1);
  EXPECT_EQ(ftp.send_command("NOOP", ftps::kReadReply), -4);
  EXPECT_EQ(ftp.get_last_mes(4), "NOOP");
  EXPECT_EQ(ftp.get_last_mes(1), "701 Not connected Letzter Befehl: NOOP");
  EXPECT_EQ(ftp.get_ftpserver_mes(), 256) << "nothing can come";
  ftp.set_last_mes("hello");
  EXPECT_EQ(ftp.get_last_mes(0), "hello");
  EXPECT_EQ(ftp.get_last_mesnum(), 701) << "no digits keep the number";
}

TEST_F(FtpsControlTest, LoginsGoAsTheServerAndTheProxyTypeSay) {
  const Turns proxied = {{"", "220 hi"}, {"USER u@far.example:2121", "331 a"}, {"PASS p", "331 b"}};
  const struct {
    int type, proxy_type;
    const char* proxy_user;
    Turns turns;
    int result, number;
    std::vector<int> messages = {};
  } cases[] = {
      {kPlainFtp, 0, "", {{"", "220 hi"}, {"USER u", "530 no"}}, -1, 530},
      {kPlainFtp, 0, "", {{"", "220 hi"}, {"USER u", "331 go on"}, {"PASS p", "530 no"}}, -1, 530},
      {kPlainFtp, 0, "", {{"", "421 too many"}}, -1, 704},
      {kPlainFtp, 0, "", {{"", "220 hi"}, {"USER u", "331 go on"}, {"PASS p", "close"}}, -1, 704},
      {kPlainFtp, 1, "", proxied + Turns{{"PASS p", "230 c"}}, 0, 230},
      {kPlainFtp, 1, "", proxied + Turns{{"PASS p", "530 no"}}, -1, 530},
      {kPlainFtp, 1, "pu", {{"", "220 hi"}, {"USER u@pu@far.example:2121", "530 no"}}, -1, 530},
      {kTlsFtp, 0, "", {{"", "220 hi"}, {"AUTH TLS", "502 no"}}, -1, 502, {message::kFtpTlsRefused}},
      {kTlsFtp, 0, "", {{"", "220 hi"}, {"AUTH TLS", "close"}}, -1, 704},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.turns.back().first + " " + c.turns.back().second);
    log.clear();
    ScriptedPeer server(dialogue(c.turns, Script().expect_end()));
    const YString address = target_of(server);
    ftps ftp(c.proxy_type ? "far.example:2121" : address, "u", "p", address, c.type, c.proxy_type, "", c.proxy_user, "");
    EXPECT_EQ(ftp.connect(), c.result);
    EXPECT_EQ(ftp.get_last_mesnum(), c.number);
    EXPECT_EQ(log.numbers(), c.messages);
    ftp.Close();
  }
}

TEST_F(FtpsControlTest, UnreachableServersAndUnknownProxyTypesFailAtOnce) {
  const YString nobody("127.0.0.1:" + std::to_string(refused_port()));
  for (const int type : {0, 1, 2, 3, 4, 5, 6, -1}) {
    ftps ftp(nobody, "u", "p", nobody, kPlainFtp, type, "", "", "");
    EXPECT_EQ(ftp.connect(), -1);
    EXPECT_EQ(ftp.get_last_mes(0), "702 Connect failed") << type;
  }
}

// Answers AUTH TLS, with `injected` behind it in clear, and goes on under TLS.
ConnectionScript tls_dialogue(Turns turns, std::string injected = {}, TlsContext context = TlsContext::server()) {
  return [=](Connection& connection) {
    dialogue({{"", "220 hi"}, {"AUTH TLS", "234 go" + injected}}, Script().start_tls(context))(connection);
    dialogue(turns)(connection);
  };
}

TEST_F(FtpsControlTest, UnderTlsOnlyWhatCameUnderTlsCounts) {
  std::string injected;  // more than one read takes
  for (int i = 0; i < 300; ++i) injected += "\r\n230 injected";
  const ConnectionScript no_tls = dialogue({{"", "220 hi"}, {"AUTH TLS", "234 go"}}, Script().read_until("\x16\x03").send("no TLS\r\n").read_to_end());
  const struct {
    ConnectionScript server;
    int result, number;
  } cases[] = {
      {tls_dialogue({{"USER u", "530 real"}}, injected), -1, 530},
      {tls_dialogue({{"USER u", "331 a"}, {"PASS p", "230 b"}, {"PBSZ 0", "500 c"}, {"PROT P", "536 d"}}), 0, 536},
      {no_tls, -1, 234},
  };
  for (const auto& c : cases) {
    ScriptedPeer server(c.server);
    ftps ftp(target_of(server), "u", "p", kTlsFtp, "");
    EXPECT_EQ(ftp.connect(), c.result);
    EXPECT_EQ(ftp.get_last_mesnum(), c.number);
    ftp.Close();
    server.finish();
    EXPECT_EQ(server.received().find("USER") == std::string::npos, c.number == 234) << "nothing follows a failed handshake";
  }
}

TEST_F(FtpsControlTest, ClientCertificatesAreShown) {
  const YString certificate(Certificates::shared().client().both.string());
  const TlsContext context = TlsContext::server(Certificates::shared().good(), {.client_ca = Certificates::shared().ca_file()});
  ScriptedPeer server(tls_dialogue({{"USER u", "530 enough"}}, "", context));
  ftps ftp(target_of(server), "u", "p", kTlsFtp, certificate);
  EXPECT_EQ(ftp.get_certif(), certificate);
  EXPECT_EQ(ftp.connect(), -1);
  EXPECT_EQ(ftp.get_last_mesnum(), 530);
  EXPECT_THAT(server.tls().peer_subject, testing::HasSubstr("Test Client"));
}

// How replies are cut apart is the reader's affair; here, what waits, what is kept and what is converted.
TEST_F(FtpsControlTest, RepliesComeInEveryShape) {
  const struct {
    const char* what;
    std::vector<std::string> pieces;
    std::vector<std::string> replies;  // to NOOP, and to further reads
    const char* rest = "5000";
    const char* exact = "0";
  } cases[] = {
      {"in pieces", {"25", "0 o", "k\r", "\n"}, {"250 ok\r\n"}},
      {"two at once", {"150 a\r\n226 b\r\n"}, {"150 a\r\n", "226 b\r\n"}},
      {"a multi-line reply in two pieces", {"250-a\r\n", "250 b\r\n"}, {"250-a\r\n250 b\r\n"}},
      {"one that never ends", {"250-a\r\n"}, {"250-a\r\n"}, "60"},
      {"no code before one, exact", {"hello\r\n", "250 a\r\n"}, {"hello\r\n250 a\r\n"}, "60", "1"},
      {"bytes and escape sequences", {"250 \x1B[31m\xFF\r\n"}, {"250 \x1B[31m\xFF\r\n"}},
      {"UTF-8, one line beyond the code page", {"250-M\xC3\xA4rz\r\n250 \xE6\x97\xA5\r\n"}, {"250-M\xE4rz\r\n250 \xE6\x97\xA5\r\n"}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    const SettingChange rest(settings::kFtpReplyRest, c.rest);
    const SettingChange exact(settings::kFtpExactReplies, c.exact);
    Dialogue ftp({}, {}, Script().expect("NOOP\r\n").send_pieces(c.pieces, milliseconds(20)).stay_silent());
    EXPECT_EQ(ftp->send_command("NOOP", ftps::kReadReply), 0);
    EXPECT_EQ(ftp->get_last_mes(0).str(), c.replies.front());
    if (c.replies.size() == 1) continue;
    EXPECT_EQ(ftp->get_ftpserver_mes(), 0);
    EXPECT_EQ(ftp->get_last_mes(0).str(), c.replies.back());
  }
}

TEST_F(FtpsControlTest, SilenceAndEndlessRepliesCloseTheConnection) {
  const SettingChange size(settings::kFtpReplySize, "100000");
  const SettingChange rest(settings::kFtpReplyRest, "20000");
  for (const char* piece : {"", "250 and on", "250-x\r\n"}) {
    SCOPED_TRACE(piece);
    const SettingChange limit(settings::kFtpReplyLimit, *piece ? "20000" : "300");
    Script answer = Script().expect("SIZE g\r\n");
    if (*piece) answer.flood(piece, 50'000'000);
    Dialogue ftp({{"TYPE I", "200 ok"}, {"SIZE f", "213 10"}}, {}, answer.stay_silent());
    EXPECT_EQ(ftp->get_filesize("f"), 10);
    EXPECT_LT(time_of([&] { EXPECT_EQ(ftp->get_filesize("g"), -1) << "the other file's size is no answer"; }).count(), 15000);
    EXPECT_EQ(ftp->get_last_mes(0), "213 10\r\n") << "the last message stays";
    EXPECT_EQ(ftp->GetScoketDescriptor(), -1);
    EXPECT_EQ(ftp->send_command("NOOP", ftps::kReadReply), -1) << "still counts as connected";
    EXPECT_EQ(ftp->get_last_mes(0), "703 Send failed");
  }
}

TEST_F(FtpsControlTest, FlagsSayHowManyRepliesAreRead) {
  Dialogue ftp({{"A", "150 a\r\n226 b"}, {"B", "200 c"}, {"CWD", "250 d"}, {"PWD", "257 \"/\"\r\n250 more"}});
  EXPECT_EQ(ftp->send_command("A", ftps::kReadPreliminary), 0);
  EXPECT_EQ(ftp->get_last_mesnum(), 226);
  EXPECT_EQ(ftp->send_command("B", 0), 0);
  EXPECT_EQ(ftp->get_last_mesnum(), 226) << "no reply is waited for";
  EXPECT_EQ(ftp->get_ftpserver_mes(), 0);
  EXPECT_EQ(ftp->ch_dir("anywhere"), "0") << "without its argument, and with one reply more";
  EXPECT_EQ(ftp->get_last_mes(0), "250 more\r\n");
}

TEST_F(FtpsControlTest, LineBreaksNeverReachTheServer) {
  using namespace std::string_view_literals;
  for (const std::string_view bad : {"a\r\nDELE b"sv, "a\nDELE b"sv, "a\rDELE b"sv, "a\0DELE b"sv}) {
    const YString name(bad);
    Dialogue ftp({{"TYPE I", "200 ok"}}, {}, Script().expect_end());
    EXPECT_EQ(ftp->del_file(name), -1);
    EXPECT_EQ(ftp->get_last_mes(0), "703 Send failed");
    EXPECT_EQ(ftp->upload_file(local_file("x", "x"), name + "/x", 2), -1);
    EXPECT_EQ(ftp->download_file(name, local_name("y"), 2), -1);
    EXPECT_EQ(log.last(message::kFtpLineBreakRefused).text, "The FTP command SIZE was not sent: its text holds CR, LF or NUL.");
    for (const std::size_t known : {1U, 2U}) {  // turns before the user, before the password
      ScriptedPeer stranger(dialogue(Turns(kLogin.begin(), kLogin.begin() + static_cast<long>(known)), Script().expect_end()));
      ftps login(target_of(stranger), known == 1 ? name : "u", known == 1 ? "p" : name, kPlainFtp, "");
      EXPECT_EQ(login.connect(), -1);
      EXPECT_EQ(login.get_last_mesnum(), 703);
    }
    for (const LogRecord& record : log.records()) EXPECT_EQ(record.text.find("DELE b"), std::string::npos) << record.text;
  }
}

TEST_F(FtpsControlTest, NamesKeepTheirBytesOnDemandOrWhenTheyAreUtf8) {
  const std::pair<const char*, const char*> cases[] = {{"1", "M\xE4rz"}, {"0", "\xE6\x97\xA5"}};
  for (const auto& [raw, name] : cases) {
    const SettingChange setting(settings::kRawNames, raw);
    Dialogue ftp({{std::string("DELE ") + name, std::string("550 ") + name}});
    EXPECT_EQ(ftp->del_file(name), -32);
    EXPECT_EQ(ftp->get_last_mes(0).str(), std::string("550 ") + name + "\r\n");
  }
}

TEST_F(FtpsControlTest, CopiesHaveTheSettingsAndStartUnconnected) {
  const ConnectionScript session = dialogue(kLogin + Turns{{"TYPE I", "200 ok"}});
  ScriptedPeer server(std::vector<ConnectionScript>{session, session});
  ftps ftp(target_of(server), "u", "p", kPlainFtp, "");
  ASSERT_EQ(ftp.connect(), 0);
  EXPECT_EQ(ftp.set_server_transfer_type(2, 0), 0);
  ftps copy(ftp);
  EXPECT_EQ(copy.get_last_mes(128), "200 ok\r\n Letzter Befehl: TYPE I");
  EXPECT_EQ(copy.closeconnection(), 1);
  EXPECT_EQ(copy.connect(), 0);
  EXPECT_EQ(copy.set_server_transfer_type(2, 0), 0) << "a new connection does not know the type";
  ftp = copy;
  EXPECT_EQ(ftp.closeconnection(), 1);
  EXPECT_EQ(ftp.GetScoketDescriptor(), -1);
}

TEST_F(FtpsControlTest, NoTraceHoldsThePassword) {
  ScriptedPeer server(dialogue({{"", "220 hi"}, {"USER u", "331 a"}, {"PASS secret", "230 in"}, {"QUIT", "221 secret"}}));
  set_debug_traces(true);
  ftps ftp(target_of(server), "u", "secret", kPlainFtp, "");
  EXPECT_EQ(ftp.connect(), 0);
  ftp.closeconnection();
  set_debug_traces(false);
  EXPECT_EQ(log.last(message::kFtpConnected).text, "FTP: connected to " + server.target());
  for (const LogRecord& record : log.records()) EXPECT_EQ((record.text + record.extra).find("secret"), std::string::npos);
}

}  // namespace
}  // namespace yinet::test
