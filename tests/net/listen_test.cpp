// Listening and the server's side of TLS: what a listener binds, what it accepts, and that neither many peers nor hostile
// ones lose a connection or hold up the others.

#include <fcntl.h>
#include <poll.h>
#include <sys/resource.h>

#include <array>

#include "net/socket_test_kit.h"
#include "support/requirements.h"
#include "support/servers.h"
#include "yinet/net/partner_info.h"

namespace yinet::test {
namespace {

using Accepted = std::unique_ptr<SecureSocket>;

const Certificates& certificates() { return Certificates::shared(); }

std::uint16_t port_of(SecureSocket& socket) { return local_port(socket.GetScoketDescriptor()); }

void listen(SecureSocket& socket, Mode mode, bool tls = false) {
  const std::string pem = certificates().good().both;
  EXPECT_TRUE((!tls || socket.InitSSLSeverContext(pem, "", "", "", false)) &&
              socket.PrepareForAccepting(0, is_blocking(mode), ""));
}

Accepted accept_one(SecureSocket& listener, Mode mode) {
  if (is_blocking(mode)) return Accepted(listener.Accept());
  SecureSocket* connection = &listener;
  EXPECT_TRUE(listener.wait_for_input(static_cast<int>(kPatience.count())));
  EXPECT_TRUE(listener.Accept(&connection));
  return Accepted(connection);
}

// A listener, with or without TLS, and one scripted client that it has accepted.
struct Guest {
  Guest(Mode mode, const ConnectionScript& script, bool tls = false) {
    listen(listener, mode, tls);
    client.emplace(port_of(listener), script);
    socket = accept_one(listener, mode);
    const int descriptor = socket->GetScoketDescriptor();
    EXPECT_EQ(fcntl(descriptor, F_GETFL) & O_NONBLOCK, is_blocking(mode) ? 0 : O_NONBLOCK);
    EXPECT_NE(fcntl(descriptor, F_GETFD) & fcntl(listener.GetScoketDescriptor(), F_GETFD) & FD_CLOEXEC, 0);
  }
  SecureSocket listener;
  std::optional<ScriptedClient> client;
  Accepted socket;
};

class Listen : public NetTest {};

TEST_F(Listen, ARealClientTalksTlsToIt) {
  YINET_REQUIRE_PROGRAM("openssl");
  SecureSocket listener;
  listen(listener, Mode::blocking, true);
  for (const std::string version : {"-tls1_2", "-tls1_3"}) {
    ChildProcess client({"openssl", "s_client", "-quiet", version, "-verify_return_error", "-CAfile",
                         certificates().ca_file(), "-connect", "127.0.0.1:" + std::to_string(port_of(listener))},
                        {}, "hello\n");
    Accepted accepted = accept_one(listener, Mode::blocking);
    EXPECT_EQ(accepted->GetPartnerInfo(true).GetString(partner::kAddress), "127.0.0.1");
    EXPECT_EQ(receive_exactly(*accepted, 6), "hello\n");
    EXPECT_FALSE(accepted->GetPartnerInfo(false).Exist(partner::kProtocol)) << "what was known before";
    EXPECT_EQ(accepted->GetPartnerInfo(true).GetString(partner::kProtocol),
              version == "-tls1_3" ? "TLSv1.3" : "TLSv1.2");
    EXPECT_TRUE(accepted->Send(YString("world\n")));
    accepted.reset();
    EXPECT_EQ(client.wait(), 0) << client.errors();
    EXPECT_EQ(client.output(), "world\n");
  }
}

TEST_F(Listen, WrongUseIsRefused) {
  SecureSocket unprepared, polling, client;
  SecureSocket* connection = nullptr;
  listen(polling, Mode::polling);
  EXPECT_TRUE(unprepared.Accept() == nullptr && !unprepared.Accept(&connection) && polling.Accept() == nullptr);
  ASSERT_EQ(client.Connect("127.0.0.1", port_of(polling), false), 0);
  connection = &client;
  EXPECT_FALSE(client.Accept(&connection) || connection != nullptr) << "a connection must not hand itself out";
  EXPECT_FALSE(polling.Accept(nullptr) || polling.Send(YString("x"))) << "nothing goes to whoever comes next";
  EXPECT_THAT(log.numbers(),
              testing::ElementsAre(message::kAcceptBlockingNotListening, message::kAcceptNeedsNonBlocking,
                                   message::kAcceptNeedsBlocking, message::kAcceptNotListening));
}

#ifndef __SANITIZE_ADDRESS__  // its companion for undefined behaviour needs descriptors of its own
TEST_F(Listen, WithoutDescriptorsAcceptFailsOnceAndLaterGoesOn) {
  rlimit before{};
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
  for (const Mode mode : kBothModes) {
    log.clear();
    SecureSocket listener;
    listen(listener, mode);
    const ScriptedClient client(port_of(listener), Script().read_to_end());
    ASSERT_TRUE(listener.wait_for_input(static_cast<int>(kPatience.count())));
    const rlimit none{.rlim_cur = 3, .rlim_max = before.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
    SecureSocket* connection = nullptr;
    const bool failed = is_blocking(mode) ? listener.Accept() == nullptr : !listener.Accept(&connection);
    setrlimit(RLIMIT_NOFILE, &before);
    EXPECT_TRUE(failed);
    EXPECT_THAT(log.numbers(),
                testing::ElementsAre(is_blocking(mode) ? message::kAcceptBlockingFailed : message::kAcceptFailed));
    EXPECT_NE(accept_one(listener, mode), nullptr);
  }
}
#endif

TEST_F(Listen, AFailedBindNamesThePortTheServiceAndWhoHoldsThePort) {
  YINET_REQUIRE_PROGRAM("nginx");
  SecureSocket own;
  listen(own, Mode::blocking);
  const NginxServer other;
  const unsigned own_port = port_of(own);
  const std::string self = std::filesystem::read_symlink("/proc/self/exe");
  const std::string program = std::filesystem::canonical(*find_program("nginx"));
  const struct {
    unsigned port;
    const char *address, *description;
    std::string holder, cause;
  } kCases[] = {{other.port(), "", "Mail gate", program, "Address already in use"},
                {own_port, "127.0.0.1", "", self, "Address already in use"},
                {refused, "192.0.2.77", "Mail gate", "", "Cannot assign requested address"},
                {65536U + own_port, "", "Mail gate", "", "not in 0 to 65535"}};
  for (const auto& one : kCases) {
    const SettingChange address(settings::kDefaultAddress, one.address);
    log.clear();
    SecureSocket socket;
    EXPECT_FALSE(socket.PrepareForAccepting(one.port, false, one.description));
    ASSERT_THAT(log.numbers(), testing::ElementsAre(message::kListenFailed));
    const auto& [text, extra] = std::pair(log.records()[0].text, log.records()[0].extra);
    for (const std::string& part : {std::string(one.description), std::to_string(one.port), one.holder})
      EXPECT_THAT(text, testing::HasSubstr(part));
    for (const std::string& part : {"processFile: " + one.holder + "\r\n", one.cause})
      EXPECT_THAT(extra, testing::HasSubstr(part));
  }
  SecureSocket client;
  ASSERT_EQ(client.Connect("127.0.0.1", own_port, false), 0);
  EXPECT_EQ(SecureSocket::GetProcessByPort(port_of(client)), self.c_str()) << "held by a connection";
}

TEST_F(Listen, TheSettingsChooseAddressAndFamilies) {
  YINET_REQUIRE_IPV6();
  const struct {
    const char *address, *both;
    bool open[3];
  } kCases[] = {{"", "0", {true, true, false}},
                {"127.0.0.1", "1", {true, false, false}},
                {"::1", "0", {false, false, true}},
                {"", "1", {true, true, true}}};
  for (const auto& one : kCases) {
    const SettingChange address(settings::kDefaultAddress, one.address), both(settings::kListenBothFamilies, one.both);
    SecureSocket listener;
    listen(listener, Mode::blocking);
    const char* const addresses[] = {"127.0.0.1", "127.0.0.2", "::1"};
    for (std::size_t i = 0; i < 3; ++i) {
      EXPECT_EQ(connected_socket(port_of(listener), addresses[i]).valid(), one.open[i])
          << one.address << one.both << addresses[i];
      if (!one.open[i]) continue;
      const YObject peer = accept_one(listener, Mode::blocking)->GetPartnerInfo(false);
      EXPECT_EQ(peer.GetString(partner::kAddress), i == 2 ? "::1" : "127.0.0.1") << "and not ::ffff:127.0.0.1";
    }
  }
  const SettingChange address(settings::kDefaultAddress, "a:b");
  SecureSocket plain, tls;
  ASSERT_TRUE(tls.InitSSLSeverContext(certificates().good().both.string(), "", "", "", false));
  EXPECT_FALSE(plain.PrepareForAccepting(0, true, "") || tls.PrepareForAccepting(0, true, ""));
  EXPECT_THAT(log.numbers(), testing::ElementsAre(message::kListenAddressFailed, message::kListenTlsAddressFailed));
}

TEST_F(Listen, ARestartGetsThePortAtOnce) {
  SecureSocket listener, client, again;
  listen(listener, Mode::blocking);
  const unsigned port = port_of(listener);
  ASSERT_EQ(client.Connect("127.0.0.1", port, true), 0);
  Accepted accepted = accept_one(listener, Mode::blocking);
  EXPECT_EQ(accepted->GetPartnerInfo(true).GetInteger(partner::kPort), port_of(client));
  accepted.reset();  // ends first, so that the connection's remains are on this side
  EXPECT_EQ(receive_all(client), "");
  client.Close();
  EXPECT_FALSE(again.PrepareForAccepting(port, true, ""));
  listener.Close();
  for (int i = 0; i < 2; ++i) EXPECT_TRUE(again.PrepareForAccepting(port, true, "")) << "a listener may begin anew";
}

// Gives everybody back what he sends, all in one thread, which never waits for one of them.
class EchoServer {
 public:
  explicit EchoServer(bool tls) {
    listen(listener_, Mode::polling, tls);
    port = port_of(listener_);
    thread_ = std::thread([this] { run(); });
  }
  ~EchoServer() { finish(); }
  int finish() {  // gives the number of all connections
    stop_.set();
    if (thread_.joinable()) thread_.join();
    return accepted_;
  }
  std::uint16_t port = 0;

 private:
  void run() {
    for (bool going = true; going;) {
      std::vector<pollfd> waits = {{stop_.descriptor(), POLLIN, 0}, {listener_.GetScoketDescriptor(), POLLIN, 0}};
      for (const Accepted& each : connections_) waits.push_back({each->GetScoketDescriptor(), POLLIN, 0});
      ::poll(waits.data(), waits.size(), -1);
      going = !stop_.is_set();
      std::erase_if(connections_, [](const Accepted& each) { return !serve(*each); });
      SecureSocket* connection = nullptr;
      for (; listener_.Accept(&connection) && connection; ++accepted_) connections_.emplace_back(connection);
    }
  }
  static bool serve(SecureSocket& connection) {
    YString bytes;
    for (;;) {
      const int count = connection.Receive(bytes, 4096, false);
      if (count <= 0) return count == 0;
      bytes.SetLength(count);
      connection.Send(bytes);
    }
  }

  SecureSocket listener_;
  Signal stop_;
  std::vector<Accepted> connections_;
  int accepted_ = 0;
  std::thread thread_;
};

#ifdef NDEBUG
constexpr int kOneAfterAnother = 10000, kMostGrowthKib = 2048;
#else
constexpr int kOneAfterAnother = 1000, kMostGrowthKib = 1 << 30;  // and perhaps sanitizers, whose memory says nothing
#endif
constexpr int kAtOnce = 500;

TEST_F(Listen, ThousandsOfConnectionsLoseAndLeakNothing) {
  rlimit files{};
  getrlimit(RLIMIT_NOFILE, &files);
  files.rlim_cur = std::min<rlim_t>(files.rlim_max, 3 * kAtOnce);
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &files), 0);
  for (const bool tls : {false, true}) {
    EchoServer server(tls);
    SecureSocket one;
    ASSERT_TRUE(!tls || one.InitSSLClientContext(certificates().ca_folder().string(), false, false));
    std::size_t before = 0;
    for (int i = 0; i < kOneAfterAnother; ++i) {
      ASSERT_EQ(one.Connect("127.0.0.1", server.port, false), 0) << i;
      ASSERT_TRUE(one.Send(YString("x"))) << i;
      ASSERT_EQ(receive_exactly(one, 1), "x") << i;
      if (i == kOneAfterAnother / 2) before = memory_kib("VmRSS:");
    }
    EXPECT_LT(memory_kib("VmRSS:"), before + kMostGrowthKib);
    std::array<SecureSocket, kAtOnce> clients;
    for (SecureSocket& client : clients) {
      client.SetDataChannel(true);  // the handshakes of all begin before one of them goes on
      ASSERT_EQ(client.Connect("127.0.0.1", server.port, false), 0);
      ASSERT_TRUE(!tls || client.STARTTLS("", false, true, one.GetSSLContext()) == 0);
      YBuffer nothing;
      ASSERT_EQ(client.Receive(nothing, 1, false), 0);
    }
    for (SecureSocket& client : clients) EXPECT_TRUE(client.Send(YString("x")));
    for (SecureSocket& client : clients) EXPECT_EQ(receive_exactly(client, 1), "x");
    one.Close();
    EXPECT_EQ(server.finish(), kOneAfterAnother + kAtOnce);
  }
  EXPECT_THAT(log.numbers(), testing::IsEmpty());
}

TEST_F(Listen, HostilePeersHoldUpNobodyButThemselves) {
  const Script rubbish[] = {Script().stay_silent(),
                            Script().send("\x16\x03\x01\x02").stay_silent(),
                            Script().send("GET / HTTP/1.0\r\n\r\n").read_to_end(),
                            Script().close(),
                            Script().reset(),
                            Script().start_tls(TlsContext::client()).reset()};
  const TlsContext verifying = TlsContext::client(certificates().ca_file());
  EchoServer server(true);
  std::vector<std::unique_ptr<ScriptedClient>> peers;
  for (int i = 0; i < 20; ++i) {
    for (const Script& script : rubbish) peers.push_back(std::make_unique<ScriptedClient>(server.port, script));
    ScriptedClient(server.port, Script().start_tls(verifying).send("good").read_until("good")).finish();
  }
  for (const auto& peer : peers) static_cast<void>(peer->take_failures());
  EXPECT_EQ(server.finish(), 20 * 7);
  EXPECT_THAT(log.numbers(), testing::Each(message::kReceiveTextFailed));
  EXPECT_THAT(log.last(message::kReceiveTextFailed).extra, testing::HasSubstr("http request"));
}

PemPair locked_pair() { return certificates().make("locked", {.key_password = "geheim"}); }

TEST_F(Listen, TlsCanBeginLater) {
  const std::string file = certificates().good().both, ca = certificates().ca_file();
  const std::string locked = locked_pair().certificate, key = locked_pair().key;
  for (const Mode mode : kBothModes) {
    const Guest guest(mode, Script().start_tls(TlsContext::client(ca)).send("ping").read_until("pong").expect_end());
    EXPECT_TRUE(is_blocking(mode) ? guest.socket->STARTTLS(file, "", "", "")
                                  : guest.socket->STARTTLS(locked, key, "geheim", ""));
    EXPECT_EQ(receive_exactly(*guest.socket, 4), "ping");
    EXPECT_TRUE(guest.socket->Send(YString("pong")));
    guest.socket->Close();
  }
  EXPECT_THAT(log.numbers(), testing::IsEmpty());
  for (const bool shown : {true, false}) {  // where a certificate is asked for
    const PemPair own = shown ? certificates().client() : PemPair();
    const TlsContext context = TlsContext::client({}, TlsVersion::tls12, own);  // the refusal falls into the handshake
    Guest guest(Mode::polling, Script().start_tls(context));
    EXPECT_EQ(guest.socket->STARTTLS(file, "", "", ca), shown);
    guest.socket->Close();
    EXPECT_EQ(guest.client->take_failures().empty(), shown);
  }
}

TEST_F(Listen, AHandshakeIsFinishedOnDemandOrTheConnectionFallsBackToPlain) {
  for (const Mode mode : kBothModes) {
    log.clear();
    const Guest good(mode, Script().start_tls(TlsContext::client()).read_to_end(), true);
    EXPECT_TRUE(good.socket->doSSLHandShake());
    EXPECT_TRUE(good.socket->GetPartnerInfo(true).Exist(partner::kProtocol));
    EXPECT_THAT(log.numbers(), testing::IsEmpty());

    Signal failed;
    const Guest rude(mode, Script().send("GET / HTTP/1.0\r\n").wait_for(failed).send("plain").read_until("text"), true);
    const int descriptor = rude.socket->GetScoketDescriptor();
    EXPECT_FALSE(rude.socket->doSSLHandShake());
    EXPECT_THAT(log.numbers(), testing::ElementsAre(message::kHandshakeStepFailed));
    EXPECT_EQ(rude.socket->GetScoketDescriptor(), descriptor);
    failed.set();
    std::string all;
    while (!all.ends_with("plain")) all += receive_piece(*rude.socket);
    EXPECT_TRUE(rude.socket->Send(YString("text")));
    rude.socket->Close();
  }
}

TEST_F(Listen, AServerContextNeedsAMatchingCertificateAndKey) {
  const std::string certificate = locked_pair().certificate, key = locked_pair().key;
  SecureSocket socket;
  EXPECT_FALSE(socket.InitSSLSeverContext(certificate, key, "falsch", "", false));
  EXPECT_FALSE(socket.InitSSLSeverContext(certificate, certificates().self_signed().key.string(), "", "", false));
  EXPECT_FALSE(socket.InitSSLSeverContext("/no/such/file", "", "", "", false));
  EXPECT_EQ(log.numbers(), std::vector<int>(3, message::kTlsContextFailed));
  EXPECT_EQ(socket.GetSSLContext(), nullptr) << "a failed set-up leaves nothing half-made";
  EXPECT_FALSE(socket.PrepareForAccepting(0, true, "")) << "not in clear instead";
  EXPECT_TRUE(socket.InitSSLSeverContext(certificate, key, "geheim", "", false) &&
              socket.PrepareForAccepting(0, true, ""));
}

}  // namespace
}  // namespace yinet::test
