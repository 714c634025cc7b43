// The client against scripted servers: login, replies in every shape, data connections that never open, stall, close early
// or never end, and connections that die.

#include <atomic>
#include <tuple>

#include "ftp/ftp_test_kit.h"
#include "support/ports.h"
#include "support/servers.h"

namespace yinet::test {
namespace {

using FtpsTest = FtpTest;
using testing::HasSubstr;
using testing::Not;

TEST_F(FtpsTest, StartsWithoutAStatus) {
  OpenFtps ftp;
  EXPECT_EQ(ftp.get_last_mes(0), "700 No Status");
  EXPECT_EQ(ftp.get_ftpserver_mes(), 256) << "nothing can come";
  EXPECT_EQ(ftp.send_command("NOOP", ftps::kReadReply), -4);
  EXPECT_EQ(ftp.get_last_mes(1), "701 Not connected Letzter Befehl: NOOP");
  ftp.set_last_mes("hello");
  EXPECT_EQ(ftp.get_last_mesnum(), 701) << "no digits keep the number";
  const int results[] = {ftp.closeconnection(), ftp.upload_file("a", "b", 2), ftp.download_file("a", "b", 2),
                         ftp.del_file("a"),     ftp.cmp_filesizes("a", "b"),  ftp.download_files("a", "b", 0)};
  EXPECT_THAT(results, testing::ElementsAre(1, -4, 1, -4, -1, 1));
  const YString nobody("127.0.0.1:" + std::to_string(refused_port()));
  for (const int proxy_type : {0, 1, 2, 3, 4, 5, 6, -1}) {
    ftps unreachable(nobody, "u", "p", nobody, kPlainFtp, proxy_type, "", "", "");
    EXPECT_EQ(unreachable.connect(), -1);
    EXPECT_EQ(unreachable.get_last_mes(0), "702 Connect failed") << proxy_type;
  }
}

// Answers AUTH TLS, with `injected` behind it in clear, and goes on under TLS with a client that shows its certificate.
ConnectionScript tls_dialogue(const Turns& turns, const std::string& injected = {}) {
  return [=](Connection& connection) {
    const Certificates& all = Certificates::shared();
    const TlsContext context = TlsContext::server(all.good(), {.client_ca = all.ca_file()});
    dialogue({{"", "220 hi"}, {"AUTH TLS", "234 go" + injected}}, Script().start_tls(context))(connection);
    dialogue(turns)(connection);
  };
}
const Turns kTlsLogin = {{"USER u", "331 a"}, {"PASS secret", "230 b"}, {"PBSZ 0", "500 c"}, {"PROT P", "536 d"}};

TEST_F(FtpsTest, TheConnectionMayEndAtEveryStepOfALogin) {
  for (const bool tls : {false, true}) {
    const Turns& turns = tls ? kTlsLogin : kLogin;
    const YString certificate = tls ? Certificates::shared().client().both.string() : "";
    for (const std::string end : {"close", "reset"})
      for (auto step = turns.begin(); step != turns.end(); ++step) {
        const Turns until = Turns(turns.begin(), step) + Turns{{step->first, end}};
        ScriptedPeer server(tls ? tls_dialogue(until) : dialogue(until));
        ftps ftp(server.target(), "u", "secret", tls ? kTlsFtp : kPlainFtp, certificate);
        const bool counts = !step->first.starts_with('P') || step->first.starts_with("PASS");  // not PBSZ and PROT
        EXPECT_EQ(ftp.connect(), counts ? -1 : 0) << step->first << end;
        static_cast<void>(server.take_failures());
      }
  }
}

TEST_F(FtpsTest, LoginsGoAsTheServerAndTheProxyTypeSay) {
  const Script end = Script().expect_end();
  const Turns known = {{"", "220 hi"}, {"USER u", "331 go on"}}, asks_tls = {{"", "220 hi"}, {"AUTH TLS", "234 go"}};
  const Turns proxied = {{"", "220 hi"}, {"USER u@far.example:2121", "331 a"}, {"PASS secret", "331 b"}};
  std::string injected;  // more than one read takes
  for (int i = 0; i < 300; ++i) injected += "\r\n230 injected";
  const auto no_tls = [](Connection& connection) {  // nothing but the rest of the handshake follows
    connection.read_until("\x16\x03");
    connection.send("no TLS\r\n");
    EXPECT_EQ(connection.read_to_end().find("USER"), std::string::npos);
  };
  // FTP type, proxy type, proxy user, server; result, number
  const std::tuple<int, int, const char*, ConnectionScript, int, int> cases[] = {
      {kPlainFtp, 0, "", dialogue({{"", "220 hi"}, {"USER u", "530 no secret"}}, end), -1, 530},
      {kPlainFtp, 0, "", dialogue(known + Turns{{"PASS secret", "530 no secret"}}, end), -1, 530},
      {kPlainFtp, 0, "", dialogue({{"", "421 too many"}}), -1, 704},
      {kPlainFtp, 0, "", dialogue(known + Turns{{"PASS secret", "close"}}), -1, 704},
      {kPlainFtp, 1, "", dialogue(proxied + Turns{{"PASS secret", "230 c"}}), 0, 230},
      {kPlainFtp, 1, "", dialogue(proxied + Turns{{"PASS secret", "530 no"}}, end), -1, 530},
      {kPlainFtp, 1, "pu", dialogue({{"", "220 hi"}, {"USER u@pu@far.example:2121", "530 no"}}, end), -1, 530},
      {kTlsFtp, 0, "", dialogue({{"", "220 hi"}, {"AUTH TLS", "502 no"}}, end), -1, 502},
      {kTlsFtp, 0, "", dialogue({{"", "220 hi"}, {"AUTH TLS", "close"}}), -1, 704},
      {kTlsFtp, 0, "", dialogue(asks_tls, no_tls), -1, 234},
      {kTlsFtp, 0, "", tls_dialogue({{"USER u", "530 real"}}, injected), -1, 530},
      {kTlsFtp, 0, "", tls_dialogue(kTlsLogin), 0, 536},
  };
  set_debug_traces(true);
  for (const auto& [type, proxy_type, proxy_user, script, result, number] : cases) {
    SCOPED_TRACE(testing::Message() << type << proxy_type << number);
    log.clear();
    ScriptedPeer server(script);
    const YString host = server.target(), far = proxy_type == 0 ? host : "far.example:2121";
    const YString certificate = type == kTlsFtp ? Certificates::shared().client().both.string() : "";
    ftps ftp(far, "u", "secret", host, type, proxy_type, certificate, proxy_user, "");
    EXPECT_EQ(ftp.connect(), result);
    EXPECT_EQ(ftp.get_last_mesnum(), number);
    EXPECT_EQ(log.last(message::kFtpTlsRefused).number != 0, number == 502);
    EXPECT_EQ(log.last(message::kFtpConnected).text, proxy_type == 0 ? "FTP: connected to " + server.target() : "");
    for (const LogRecord& entry : log.records()) EXPECT_THAT(entry.text + entry.extra, Not(HasSubstr("secret")));
  }
  set_debug_traces(false);
}

// The exact form is the same in any pieces, which the fuzzer looks at.
TEST_F(FtpsTest, RepliesComeInEveryShape) {
  const std::string several = "230-Hi\r\n 231 x\r\n226 no\r\n230-x\r\n230 ok\r\n";
  const struct {
    std::vector<std::string> pieces, replies, exact;
    const char* rest = "5000";
  } cases[] = {
      {{"22", "0 rea", "dy\r", "\n"}, {"220 ready\r\n"}, {"220 ready\r\n"}},
      {{"150 a\r\n226 b", "\r\n"}, {"150 a\r\n", "226 b\r\n"}, {"150 a\r\n", "226 b\r\n"}},
      {{several + "250 c\n"}, {several, "250 c\n"}, {several, "250 c\n"}},
      {{"250-a\r\n", "250 b\r\n"}, {"250-a\r\n250 b\r\n"}, {"250-a\r\n250 b\r\n"}},
      {{"250-never ends\r\n"}, {"250-never ends\r\n"}, {}, "60"},
      {{"22 hello\r\n"}, {"22 hello\r\n"}, {}},
      {{"hello\r\n220 a\r\n"}, {"hello\r\n220 a\r\n"}, {"hello\r\n220 a\r\n"}},
      {{"220-Welcome", "220 ready\r\n"}, {"220-Welcome220 ready\r\n"}, {}, "60"},
      {{"220 a\r\nhello\r\n"}, {"220 a\r\nhello\r\n"}, {"220 a\r\n"}},
      {{"250-\x1B[31mM\xC3\xA4rz\n250 \xE6\x97\xA5\n"}, {"250-\x1B[31mM\xE4rz\n250 \xE6\x97\xA5\n"}, {}},
  };
  for (const auto& c : cases) {
    for (const bool exact : {false, true}) {
      if (exact && c.exact.empty()) break;
      SCOPED_TRACE(c.pieces.front() + (exact ? ", exact" : ""));
      const SettingChange rest(settings::kFtpReplyRest, c.rest), form(settings::kFtpExactReplies, exact ? "1" : "0");
      Script answer = Script().expect("NOOP\r\n");
      for (const std::string& piece : c.pieces) answer.send(piece).pause(milliseconds(50));
      Dialogue ftp({}, {}, answer.stay_silent());
      EXPECT_EQ(ftp->send_command("NOOP", 0), 0);
      for (const std::string& reply : exact ? c.exact : c.replies)
        EXPECT_EQ(ftp.after(ftp->get_ftpserver_mes()), "0 " + reply);
    }
  }
}

TEST_F(FtpsTest, SilenceAndEndlessRepliesCloseTheConnection) {
  const SettingChange size(settings::kFtpReplySize, "100000");
  const SettingChange rest(settings::kFtpReplyRest, "20000");
  for (const char* piece : {"", "250 and on", "250-x\r\n"}) {
    SCOPED_TRACE(piece);
    const SettingChange limit(settings::kFtpReplyLimit, *piece ? "20000" : "300");
    Script answer = Script().expect("SIZE g\r\n");
    if (*piece) answer.flood(piece, 50'000'000);
    Dialogue ftp({{"TYPE I", "200 ok"}, {"SIZE f", "213 10"}}, {}, answer.stay_silent());
    EXPECT_EQ(ftp->get_filesize("f"), 10);
    EXPECT_LT(time_of([&] { EXPECT_EQ(ftp->get_filesize("g"), -1) << "not the other's"; }).count(), 15000);
    EXPECT_EQ(ftp->get_last_mes(0), "213 10\r\n") << "the last message stays";
    EXPECT_EQ(ftp->GetScoketDescriptor(), -1);
    EXPECT_EQ(ftp.after(ftp->send_command("NOOP", ftps::kReadReply)), "-1 703 Send failed") << "counts as connected";
  }
}

TEST_F(FtpsTest, FlagsSayWhatIsReadAndSent) {
  Dialogue ftp(
      {{"A", "150 a\r\n226 b"}, {"B", "200 c"}, {"CWD", "250 d"}, {"PWD", "257 e\r\n250 f"}, {"TYPE ", "501 no"}});
  EXPECT_EQ(ftp.after(ftp->send_command("A", ftps::kReadPreliminary)), "0 226 b\r\n");
  EXPECT_EQ(ftp.after(ftp->send_command("B", 0)), "0 226 b\r\n") << "no reply is waited for";
  EXPECT_EQ(ftp.after(ftp->get_ftpserver_mes()), "0 200 c\r\n");
  EXPECT_EQ(ftp->ch_dir("anywhere"), "0") << "without its argument, and with one reply more";
  EXPECT_EQ(ftp.after(ftp->set_server_transfer_type(3, 0)), "0 501 no\r\n") << "only the dialogue counts";
  EXPECT_EQ(ftp->set_server_transfer_type(3, 0), 1);
  const SettingChange raw(settings::kRawNames, "1");
  Dialogue names(Turns{{"DELE M\xE4rz", "550 \xE6\x97\xA5 M\xE4rz"}});
  EXPECT_EQ(names.after(names->del_file("M\xE4rz")), "-32 550 \xE6\x97\xA5 M\xE4rz\r\n");
}

TEST_F(FtpsTest, LineBreaksNeverReachTheServer) {
  for (const char bad : {'\n', '\r', '\0'}) {
    const std::string name = std::string("a") + bad + "DELE b";
    Dialogue ftp({{"TYPE I", "200 ok"}}, {}, Script().expect_end());
    EXPECT_EQ(ftp.after(ftp->del_file(name)), "-1 703 Send failed");
    EXPECT_EQ(ftp.after(ftp->upload_file(local_file("x", "x"), name + "/x", 2)), "-1 703 Send failed");
    EXPECT_EQ(ftp.after(ftp->download_file(name, local_name("y"), 2)), "-1 703 Send failed");
    for (const long known : {1L, 2L}) {  // turns before the user, before the password
      ScriptedPeer stranger(dialogue(Turns(kLogin.begin(), kLogin.begin() + known), Script().expect_end()));
      ftps login(stranger.target(), known == 1 ? name : "u", name, kPlainFtp, "");
      EXPECT_EQ(login.connect(), -1);
      EXPECT_EQ(login.get_last_mesnum(), 703);
    }
    EXPECT_EQ(log.numbers(), std::vector<int>(5, message::kFtpLineBreakRefused));
    for (const LogRecord& record : log.records()) EXPECT_THAT(record.text, Not(HasSubstr("DELE b")));
    log.clear();
  }
}

TEST_F(FtpsTest, CopiesHaveTheSettingsAndStartUnconnected) {
  auto server = ScriptedPeer::for_every_connection(dialogue(kLogin + Turns{{"TYPE I", "200 ok"}}));
  ftps ftp(server.target(), "u", "secret", kPlainFtp, "");
  ASSERT_EQ(ftp.connect(), 0);
  EXPECT_EQ(ftp.set_server_transfer_type(2, 0), 0);
  ftps copy(ftp);
  EXPECT_EQ(copy.get_last_mes(128), "200 ok\r\n Letzter Befehl: TYPE I");
  EXPECT_EQ(copy.closeconnection(), 1);
  EXPECT_EQ(copy.connect(), 0);
  EXPECT_EQ(copy.set_server_transfer_type(2, 0), 0) << "a new connection does not know the type";
  ftp = copy;
  EXPECT_TRUE(ftp.closeconnection() == 1 && ftp.GetScoketDescriptor() == -1);
}

constexpr const char* kData = "0123456789";
const Turns kSizeKnown = {{"TYPE I", "200 ok"}, {"SIZE f", "213 10"}};
const Turns kPut = {{"PASV", "@"}, {"TYPE I", "200 ok"}};

// "Exact" is how the command line works: an incomplete download fails, and progress restarts its limit.
TEST_F(FtpsTest, TransfersTellHowTheyEnd) {
  const SettingChange control_address(settings::kFtpControlAddress, "1"), idle_limit(settings::kIdleLimit, "100");
  const auto get = [](const std::string& reply, const std::string& address = "@") {
    return kSizeKnown + Turns{{"PASV", address}, {"RETR f", reply}};
  };
  const auto put = [](const std::string& reply) { return kPut + Turns{{"STOR f", reply}}; };
  const auto no_data = [](const std::string& answer) { return kSizeKnown + Turns{{"PASV", answer}}; };
  const std::string large = pattern_bytes(30'000'000), done = "150 a\r\n226 b", nobody = passive(refused_port());
  const std::string source = local_file("f", large);
  const Script whole = Script().send(kData).close(), some = Script().send("0123"), all = Script().read_to_end();
  struct Case {
    const char* what;
    Turns turns;  // the last one's answer, or its first line when the transfer is given up, stays as the last message
    ConnectionScript data;
    int result, exact_result;
    const char* content = nullptr;  // of the downloaded file; null: not looked at
    const char* limit = "30000";
    int message = 0;
  };
  const Case cases[] = {
      {"whole", get(done), whole, 0, 0, kData},
      {"server elsewhere", get(done, "@10,255,255,1"), whole, 0, 0, kData},
      {"closed early", get("150 a\r\n426 b"), Script(some).close(), 0, -1, "0123"},
      {"short though praised", get(done), Script(some).close(), 0, -1, "0123"},
      {"reset", get("150 a\r\n426 b"), Script(some).pause(milliseconds(50)).reset(), 0, -1, "0123"},
      {"says nothing", get("150 a"), Script().stay_silent(), 256, 256, "", "500"},
      {"stalls", get("150 a"), Script(some).stay_silent(), 256, 256, "0123", "500"},
      {"slow", get(done), Script().send_slowly(kData, milliseconds(80)), 256, 0, nullptr, "400"},
      {"refused", get("550 no"), all, 256, 256, ""},
      {"full", get("421 away"), all, 256, 256, ""},
      {"no address", no_data("227 (300,1,1,1,1,1)"), all, -1, -1, "", "30000", message::kFtpPassiveAnswerUnusable},
      {"no data connection", no_data(nobody), all, -1, -1, "", "30000", message::kConnectFailed},
      {"taken", put(done), all, 0, 0},
      {"taken but not kept", put("150 a\r\n552 full"), all, -1, -1},
      {"upload refused", put("553 no"), Script().expect_end(), -1, -1},
      {"upload reset", put("150 a"), Script().skip(1'000'000).reset(), 256, 256},
      {"stuck", put("150 a"), Script().skip(1000).stay_silent(), 256, 256, nullptr, "300"},
      {"taken on after a while", put(done), Script().pause(milliseconds(500)).read_to_end(), 0, 0},
  };
  for (const Case& c : cases) {
    for (const char* exact : {"0", "1"}) {
      SCOPED_TRACE(c.what + (" " + c.turns.back().first) + exact);
      log.clear();
      const SettingChange strict(settings::kFtpExactDownloads, exact), idle(settings::kFtpDownloadIdle, exact);
      const SettingChange down(settings::kFtpDownloadLimit, c.limit), up(settings::kFtpUploadLimit, c.limit);
      Dialogue ftp(c.turns, c.data);
      const bool upload = c.turns.front().first == "PASV";
      const int expected = *exact == '1' ? c.exact_result : c.result;
      const auto work = [&] {
        return upload ? ftp->upload_file(source, "f", 2) : ftp->download_file("f", local_name("x"), 0);
      };
      int result = 0;
      EXPECT_LT(time_of([&] { result = work(); }).count(), 25000);
      static_cast<void>(ftp.data.take_failures());  // it may find the client gone
      EXPECT_EQ(result, expected);
      const std::string& reply = c.turns.back().second;
      EXPECT_EQ(ftp->get_last_mes(0),
                (expected == 256 ? reply.substr(0, reply.find('\r')) : reply.substr(reply.rfind('\n') + 1)) + "\r\n");
      EXPECT_EQ(log.last(c.message).number, c.message);
      EXPECT_TRUE(c.content == nullptr || read_file(local / "x") == c.content);
      EXPECT_TRUE(!upload || expected != 0 || ftp.data.received() == large);
    }
  }
}

TEST_F(FtpsTest, WithoutItsTlsADataConnectionBringsAndTakesNothing) {
  const SettingChange verify(settings::kTlsVerifyAlways, "1"), connects(settings::kConnectPause, "0");
  const TlsContext stranger = TlsContext::server(Certificates::shared().self_signed());
  const std::string source = local_file("f", kData), done = "150 a\r\n226 b";
  const Turns turns[] = {kSizeKnown + Turns{{"PASV", "@"}, {"RETR f", done}},
                         kPut + Turns{{"STOR f", done}},
                         {{"PASV", "@"}, {"LIST", done}}};
  // What the server does on the data connection, and the TLS version that has become the lowest by then.
  const std::pair<Script, const char*> cases[] = {{Script().send(kData), ""},
                                                  {Script(), ""},
                                                  {Script().start_tls(stranger).send(kData), ""},
                                                  {Script().read_to_end(), "9.9"}};
  for (const auto& [on_data, lowest] : cases)
    for (const Turns& commands : turns) {
      SCOPED_TRACE(testing::Message() << &on_data - &cases[0].first << commands.back().first);
      ScriptedPeer data(on_data);
      ScriptedPeer server([&](Connection& connection) {
        dialogue({{"", "220 hi"}, {"AUTH TLS", "234 go"}}, Script().start_tls())(connection);
        dialogue(kTlsLogin + with_data_port(commands, data.port()))(connection);
      });
      ftps ftp(server.target(), "u", "secret", kTlsFtp, Certificates::shared().ca_folder().string());
      ASSERT_EQ(ftp.connect(), 0);
      log.clear();
      const SettingChange version(settings::kTlsMinimumVersion, lowest);
      const YString outcome = &commands == &turns[0]   ? YString(ftp.download_file("f", local_name("x"), 0))
                              : &commands == &turns[1] ? YString(ftp.upload_file(source, "f", 2))
                                                       : ftp.get_dir_content();
      EXPECT_EQ(outcome, *lowest == '\0' || &commands != &turns[2] ? "-1" : "");
      EXPECT_THAT(log.numbers(), Not(testing::IsEmpty()));
      static_cast<void>(server.take_failures() + data.take_failures());
      EXPECT_TRUE(data.connection_count() == 0 || data.received().find(kData) == std::string::npos);
    }
}

TEST_F(FtpsTest, TheConnectionMayEndAtEveryStepOfACommand) {
  const std::string source = local_file("f", "x");
  const std::pair<Turns, std::function<bool(OpenFtps&)>> operations[] = {
      // commands, an operation, and what must hold of its result
      {{{"DELE x", ""}}, [](OpenFtps& ftp) { return ftp.del_file("x") <= 0; }},
      {{{"PASV", "@"}, {"LIST", ""}}, [](OpenFtps& ftp) { return ftp.get_dir_content().Length() <= 2; }},
      {kPut + Turns{{"STOR f", ""}}, [&](OpenFtps& ftp) { return ftp.upload_file(source, "f", 2) != 0; }},
      {kSizeKnown + Turns{{"PASV", "@"}, {"RETR f", ""}},
       [&](OpenFtps& ftp) { return ftp.download_file("f", local_name("x"), 0) != 0; }}};
  for (const auto& [commands, fails] : operations)
    for (const std::string end : {"close", "reset", "421 away"})
      for (auto step = commands.begin(); step != commands.end(); ++step) {
        SCOPED_TRACE(step->first + " " + end);
        Dialogue ftp(Turns(commands.begin(), step) + Turns{{step->first, end}});
        EXPECT_TRUE(fails(ftp.ftp));
        EXPECT_GE(ftp->get_last_mesnum(), 400);
        ftp->Close();
        static_cast<void>(ftp.server.take_failures() + ftp.data.take_failures());
      }
}

TEST_F(FtpsTest, AListingGoesOnWithoutDataConnectionUnlessItIsATunnelForTls) {
  YINET_SKIP_FOR(SocksServer::missing(SocksServer::Brand::dante));
  const SocksServer proxy(SocksServer::Brand::dante);
  const std::string nobody = passive(refused_port());
  for (const bool tls : {false, true}) {
    ScriptedPeer server(tls ? tls_dialogue(kTlsLogin + Turns{{"PASV", nobody}})
                            : dialogue(kLogin + Turns{{"PASV", nobody}, {"LIST", "425 none"}}));
    const YString certificate = tls ? Certificates::shared().client().both.string() : "";
    ftps ftp(server.target(), "u", "secret", proxy.address(), tls ? kTlsFtp : kPlainFtp, 5, certificate, "", "");
    ASSERT_EQ(ftp.connect(), 0);
    EXPECT_EQ(ftp.get_dir_content(), tls ? "-1" : "");
  }
}

TEST_F(FtpsTest, ListingsAreBounded) {
  const SettingChange size(settings::kFtpListingSize, "100000");
  const Turns first = {{"PASV", "@"}, {"LIST", "150 a\r\n226 b"}, {"PASV", "226 late"}, {"NLST", "450 busy"}};
  std::atomic<int> connections = 0;
  Dialogue ftp(first + Turns{{"PASV", "@"}, {"LIST", "150 c"}}, [&](Connection& connection) {
    connections++ == 0 ? connection.flood("line\r\n", 10'000'000) : connection.stay_silent();
  });
  EXPECT_EQ(ftp->get_dir_content().Length(), 100000);
  EXPECT_EQ(ftp->get_dir_content0(), "") << "the last listing's final reply answers this PASV";
  const SettingChange limit(settings::kFtpListingLimit, "100");
  EXPECT_EQ(ftp->get_dir_content(), "");
}

TEST_F(FtpsTest, LocalFilesThatCannotBeUsedAreToldApart) {
  Dialogue ftp(kSizeKnown + Turns{{"SIZE f", "213 10"}, {"PASV", "@"}, {"RETR f", "150 a"}},
               Script().send(kData).read_to_end());
  EXPECT_EQ(ftp.after(ftp->upload_file("none", "f", 2)), "-32 707 Open sourcefile failed");
  EXPECT_EQ(ftp.after(ftp->upload_file(local_file("empty", ""), "f", 2)), "-32 709 Read source file failed");
  EXPECT_EQ(ftp.after(ftp->download_file("f", local_name("no/x"), 2)), "-32 708 Open destination file failed");
  EXPECT_EQ(ftp.after(ftp->download_file("f", "/dev/full", 2)), "-32 710 Write destination file failed");
  EXPECT_EQ(ftp->download_files("a", "b", 0), 0);
}

TEST_F(FtpsTest, SizesAreComparedInOrder) {
  const std::tuple<const char*, const char*, int> cases[] = {
      // content, null: no file; reply; result
      {"abc", "213 3", 0},         {"", "213 0", 1},     {"", "213 5", 2},       {"abc", "213 0", 3},
      {"abc", "213 2", 4},         {"abc", "213 4", 5},  {nullptr, "213 4", 6},  {"abc", "500 no", 7},
      {"", "500 no", 7},           {"abc", "213 -5", 7}, {nullptr, "500 no", 8}, {"abc", "550 no", -256},
      {"abc", "213 5368709120", 5}};
  Turns turns{{"TYPE I", "200 ok"}};
  for (const auto& [content, reply, result] : cases) turns.emplace_back("SIZE f", reply);
  Dialogue ftp(turns);
  for (const auto& [content, reply, result] : cases)
    EXPECT_EQ(ftp->cmp_filesizes(content ? local_file("f", content) : "none", "f"), result) << reply;
}

}  // namespace
}  // namespace yinet::test
