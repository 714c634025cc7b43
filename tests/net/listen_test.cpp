// Listening and the server's side of TLS: what a listener binds, what it accepts, and that neither many peers nor hostile
// ones lose a connection or hold up the others.

#include <fcntl.h>
#include <poll.h>
#include <sys/resource.h>

#include <array>
#include <filesystem>
#include <fstream>
#include <memory>
#include <thread>

#include "net/socket_test_kit.h"
#include "support/certificates.h"
#include "support/child_process.h"
#include "support/ports.h"
#include "support/requirements.h"
#include "support/resource_check.h"
#include "support/socket_address.h"
#include "support/tls_server.h"
#include "yinet/net/partner_info.h"

namespace yinet::test {
namespace {

using Accepted = std::unique_ptr<SecureSocket>;

const Certificates& certificates() { return Certificates::shared(); }

bool set_up_server(SecureSocket& socket) {
  return socket.InitSSLSeverContext(certificates().good().both.string(), "", "", "", false);
}

std::uint16_t port_of(SecureSocket& socket) { return SocketAddress::local_of(socket.GetScoketDescriptor()).port(); }

Accepted accept_one(SecureSocket& listener, Mode mode) {
  if (is_blocking(mode)) return Accepted(listener.Accept());
  SecureSocket* connection = nullptr;
  EXPECT_TRUE(listener.wait_for_input(static_cast<int>(kPatience.count())));
  EXPECT_TRUE(listener.Accept(&connection));
  return Accepted(connection);
}

TlsContext verifying_client() {
  TlsClientOptions options;
  options.ca_file = certificates().ca_file();
  return TlsContext::client(options);
}

// A listener, with or without TLS, and one scripted client that it has accepted.
struct Guest {
  Guest(Mode mode, const ConnectionScript& script, bool tls = false) {
    EXPECT_TRUE(!tls || set_up_server(listener));
    EXPECT_TRUE(listener.PrepareForAccepting(0, is_blocking(mode), ""));
    SecureSocket* nobody = &listener;
    EXPECT_TRUE(is_blocking(mode) || (listener.Accept(&nobody) && nobody == nullptr));
    client.emplace(port_of(listener), script);
    socket = accept_one(listener, mode);
  }
  SecureSocket listener;
  std::optional<ScriptedClient> client;
  Accepted socket;
};

class Listen : public SocketTest {};

// --- Accepting ----------------------------------------------------------------------------------------------------------

TEST_F(Listen, AcceptedConnectionsTalkAndKnowTheirPeer) {
  for (const Mode mode : kBothModes) {
    for (const bool tls : {false, true}) {
      SCOPED_TRACE(name_of(mode) + (tls ? ", TLS" : ", plain"));
      Script talk;
      if (tls) talk.start_tls(verifying_client());
      Guest guest(mode, talk.send("ping").read_until("pong").expect_end(), tls);
      SecureSocket* const accepted = guest.socket.get();
      ASSERT_NE(accepted, nullptr);
      const int descriptor = accepted->GetScoketDescriptor();
      EXPECT_EQ(fcntl(descriptor, F_GETFL) & O_NONBLOCK, is_blocking(mode) ? 0 : O_NONBLOCK);
      EXPECT_NE(fcntl(descriptor, F_GETFD) & fcntl(guest.listener.GetScoketDescriptor(), F_GETFD) & FD_CLOEXEC, 0);
      const YObject before = accepted->GetPartnerInfo(true);
      EXPECT_EQ(before.GetString(partner::kAddress), "127.0.0.1");
      EXPECT_EQ(receive_exactly(*accepted, 4), "ping");
      EXPECT_FALSE(accepted->GetPartnerInfo(false).Exist(partner::kProtocol)) << "what was known before";
      const YObject now = accepted->GetPartnerInfo(true);
      EXPECT_EQ(now.GetString(partner::kProtocol), tls ? "TLSv1.3" : "");
      EXPECT_THAT(now.GetString(partner::kCipher).str(), testing::StartsWith(tls ? "TLS_" : ""));
      EXPECT_TRUE(accepted->Send(YString("pong")));
      guest.socket.reset();
    }
  }
  EXPECT_THAT(log.numbers(), testing::IsEmpty());
}

TEST_F(Listen, ARealClientTalksTlsToIt) {
  YINET_REQUIRE_PROGRAM("openssl");
  SecureSocket listener;
  ASSERT_TRUE(set_up_server(listener));
  ASSERT_TRUE(listener.PrepareForAccepting(0, true, ""));
  for (const char* const version : {"-tls1_2", "-tls1_3"}) {
    ChildProcess client(
        {.argv = {"openssl", "s_client", "-quiet", version, "-verify_return_error", "-CAfile",
                  certificates().ca_file().string(), "-connect", "127.0.0.1:" + std::to_string(port_of(listener))},
         .environment = {},
         .standard_input = "hello\n"});
    Accepted accepted = accept_one(listener, Mode::blocking);
    ASSERT_NE(accepted, nullptr);
    EXPECT_EQ(receive_exactly(*accepted, 6), "hello\n");
    EXPECT_TRUE(accepted->Send(YString("world\n")));
    accepted.reset();
    EXPECT_EQ(client.wait(), 0) << client.errors();
    EXPECT_EQ(client.output(), "world\n");
  }
}

TEST_F(Listen, WrongUseIsRefused) {
  SecureSocket unprepared;
  SecureSocket* connection = nullptr;
  EXPECT_EQ(unprepared.Accept(), nullptr);
  EXPECT_FALSE(unprepared.Accept(&connection));
  SecureSocket polling;
  ASSERT_TRUE(polling.PrepareForAccepting(0, false, ""));
  EXPECT_EQ(polling.Accept(), nullptr);
  SecureSocket client;
  ASSERT_EQ(client.Connect("127.0.0.1", port_of(polling), false), 0);
  connection = &client;
  EXPECT_FALSE(client.Accept(&connection)) << "a connection must not hand itself out";
  EXPECT_EQ(connection, nullptr);
  polling.Close();
  EXPECT_FALSE(polling.Accept(&connection));
  EXPECT_THAT(log.numbers(), testing::ElementsAre(message::kAcceptBlockingNotListening,
                                                  message::kAcceptNeedsNonBlocking, message::kAcceptNeedsBlocking,
                                                  message::kAcceptNotListening, message::kAcceptNotListening));
  EXPECT_EQ(log.last(message::kAcceptBlockingNotListening).level, 2);
  EXPECT_EQ(log.last(message::kAcceptNeedsBlocking).level, 8);
}

#ifndef __SANITIZE_ADDRESS__  // its companion for undefined behaviour needs descriptors of its own
TEST_F(Listen, WithoutDescriptorsAcceptFailsOnceAndLaterGoesOn) {
  rlimit before{};
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
  for (const Mode mode : kBothModes) {
    log.clear();
    SecureSocket listener;
    ASSERT_TRUE(listener.PrepareForAccepting(0, is_blocking(mode), ""));
    const ScriptedClient client(port_of(listener), Script().read_to_end());
    ASSERT_TRUE(listener.wait_for_input(static_cast<int>(kPatience.count())));
    const rlimit none{.rlim_cur = 3, .rlim_max = before.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
    SecureSocket* connection = nullptr;
    const bool failed = is_blocking(mode) ? listener.Accept() == nullptr : !listener.Accept(&connection);
    setrlimit(RLIMIT_NOFILE, &before);
    EXPECT_TRUE(failed);
    const int number = is_blocking(mode) ? message::kAcceptBlockingFailed : message::kAcceptFailed;
    EXPECT_THAT(log.numbers(), testing::ElementsAre(number));
    EXPECT_THAT(log.last(number).extra, testing::HasSubstr("Too many open files"));
    EXPECT_NE(accept_one(listener, mode), nullptr);
  }
}
#endif

// --- Binding ------------------------------------------------------------------------------------------------------------

TEST_F(Listen, AFailedBindNamesThePortTheServiceAndWhoHoldsThePort) {
  YINET_REQUIRE_PROGRAM("openssl");
  SecureSocket own;
  ASSERT_TRUE(own.PrepareForAccepting(0, true, ""));
  const TlsServer other({});
  const unsigned own_port = port_of(own);
  const std::string self = std::filesystem::read_symlink("/proc/self/exe");
  const std::string program = std::filesystem::canonical(*find_program("openssl"));
  const struct {
    unsigned port;
    const char *address, *description;
    std::string holder, cause;
  } kCases[] = {{other.port(), "", "Mail gate", program, "Address already in use"},
                {own_port, "127.0.0.1", "", self, "Address already in use"},
                {refused_port(), "192.0.2.77", "Mail gate", "", "Cannot assign requested address"},
                {65536U + own_port, "", "Mail gate", "", "not in 0 to 65535"}};
  for (const auto& one : kCases) {
    SCOPED_TRACE(one.cause);
    const SettingChange address(settings::kDefaultAddress, one.address);
    log.clear();
    OpenSocket socket;
    EXPECT_FALSE(socket.PrepareForAccepting(one.port, false, one.description));
    EXPECT_EQ(socket.bio, nullptr);
    ASSERT_THAT(log.numbers(), testing::ElementsAre(message::kListenFailed));
    const LogRecord entry = log.last(message::kListenFailed);
    EXPECT_EQ(entry.level, 6);
    const std::string number = std::to_string(one.port);
    const std::string name = *one.description == '\0' ? "A service" : one.description;
    EXPECT_EQ(entry.text, name + " cannot accept connections on port " + number + "." +
                              (one.holder.empty() ? "" : " The port is held by \"" + one.holder + "\"."));
    EXPECT_THAT(entry.extra, testing::AllOf(testing::StartsWith("nPort: " + number + "\r\nprocessFile: " + one.holder +
                                                                "\r\nError: "),
                                            testing::HasSubstr(one.cause)));
  }
  SecureSocket client;
  ASSERT_EQ(client.Connect("127.0.0.1", own_port, false), 0);
  EXPECT_EQ(SecureSocket::GetProcessByPort(port_of(client)), self.c_str()) << "held by a connection";
}

TEST_F(Listen, AnAddressThatIsNoneFailsBeforeBinding) {
  const SettingChange address(settings::kDefaultAddress, "a:b");
  SecureSocket plain, tls;
  ASSERT_TRUE(set_up_server(tls));
  EXPECT_FALSE(plain.PrepareForAccepting(0, true, "") || tls.PrepareForAccepting(0, true, ""));
  EXPECT_THAT(log.numbers(), testing::ElementsAre(message::kListenAddressFailed, message::kListenTlsAddressFailed));
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
    SCOPED_TRACE(std::string(one.address) + " " + one.both);
    const SettingChange address(settings::kDefaultAddress, one.address);
    const SettingChange both(settings::kListenBothFamilies, one.both);
    SecureSocket listener;
    ASSERT_TRUE(listener.PrepareForAccepting(0, true, ""));
    const char* const addresses[] = {"127.0.0.1", "127.0.0.2", "::1"};
    for (std::size_t i = 0; i < 3; ++i) {
      EXPECT_EQ(port_is_open(port_of(listener), addresses[i]), one.open[i]) << addresses[i];
      if (!one.open[i]) continue;
      const YObject peer = accept_one(listener, Mode::blocking)->GetPartnerInfo(false);
      EXPECT_EQ(peer.GetString(partner::kAddress), i == 2 ? "::1" : "127.0.0.1") << "and not ::ffff:127.0.0.1";
    }
  }
}

TEST_F(Listen, ARestartGetsThePortAtOnce) {
  SecureSocket listener, client, again;
  ASSERT_TRUE(listener.PrepareForAccepting(0, true, ""));
  const unsigned port = port_of(listener);
  ASSERT_EQ(client.Connect("127.0.0.1", port, true), 0);
  Accepted accepted = accept_one(listener, Mode::blocking);
  EXPECT_EQ(accepted->GetPartnerInfo(true).GetInteger(partner::kPort), port_of(client));
  accepted.reset();  // ends first, so that the connection's remains are on this side
  EXPECT_EQ(receive_all(client), "");
  client.Close();
  EXPECT_FALSE(again.PrepareForAccepting(port, true, ""));
  listener.Close();
  EXPECT_TRUE(again.PrepareForAccepting(port, true, ""));
  EXPECT_TRUE(again.PrepareForAccepting(port, true, "")) << "a listener may begin anew";
}

// --- Many peers, and hostile ones -----------------------------------------------------------------------------------------

// Gives everybody back what he sends, all in one thread, which never waits for one of them.
class EchoServer {
 public:
  explicit EchoServer(bool tls) {
    EXPECT_TRUE(!tls || set_up_server(listener_));
    EXPECT_TRUE(listener_.PrepareForAccepting(0, false, "echo"));
    port_ = port_of(listener_);
    thread_ = std::thread([this] { run(); });
  }
  EchoServer(const EchoServer&) = delete;
  EchoServer& operator=(const EchoServer&) = delete;
  ~EchoServer() { finish(); }

  [[nodiscard]] std::uint16_t port() const { return port_; }
  int finish() {  // gives the number of all connections
    stop_.set();
    if (thread_.joinable()) thread_.join();
    return accepted_;
  }

 private:
  void run() {
    while (!stop_.is_set()) {
      std::vector<pollfd> waits = {{stop_.descriptor(), POLLIN, 0}, {listener_.GetScoketDescriptor(), POLLIN, 0}};
      for (const Accepted& each : connections_) waits.push_back({each->GetScoketDescriptor(), POLLIN, 0});
      ::poll(waits.data(), waits.size(), -1);
      for (std::size_t i = connections_.size(); i-- > 0;) {
        if (waits[i + 2].revents == 0 || serve(*connections_[i])) continue;
        connections_.erase(connections_.begin() + static_cast<std::ptrdiff_t>(i));
      }
      take_in();
    }
    take_in();  // who came last
  }
  void take_in() {
    SecureSocket* connection = nullptr;
    for (; listener_.Accept(&connection) && connection != nullptr; ++accepted_) connections_.emplace_back(connection);
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
  std::uint16_t port_ = 0;
  std::thread thread_;
};

#ifdef NDEBUG
constexpr bool kOptimised = true;
#else
constexpr bool kOptimised = false;  // and perhaps with sanitizers, whose memory says nothing
#endif
constexpr int kOneAfterAnother = kOptimised ? 10000 : 1000;
constexpr int kAtOnce = 500;

long resident_pages() {
  long all = 0, resident = 0;
  std::ifstream("/proc/self/statm") >> all >> resident;
  return resident;
}

TEST_F(Listen, ThousandsOfConnectionsLoseAndLeakNothing) {
  for (const bool tls : {false, true}) {
    const ResourceCheck check;
    EchoServer server(tls);
    SecureSocket client;
    ASSERT_TRUE(!tls || client.InitSSLClientContext(certificates().ca_folder().string(), false, false));
    long pages = 0;
    for (int i = 0; i < kOneAfterAnother; ++i) {
      ASSERT_EQ(client.Connect("127.0.0.1", server.port(), false), 0) << i;
      ASSERT_TRUE(client.Send(YString("x"))) << i;
      ASSERT_EQ(receive_exactly(client, 1), "x") << i;
      if (i == kOneAfterAnother / 2) pages = resident_pages();
    }
    client.Close();
    EXPECT_EQ(server.finish(), kOneAfterAnother);
    if (kOptimised) {
      EXPECT_LT(resident_pages(), pages + 512);
    }
  }
  EXPECT_THAT(log.numbers(), testing::IsEmpty());
}

TEST_F(Listen, HundredsOfConnectionsAtOnceAreAllServed) {
  rlimit files{};
  getrlimit(RLIMIT_NOFILE, &files);
  files.rlim_cur = std::min<rlim_t>(files.rlim_max, 3 * kAtOnce);
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &files), 0);
  for (const bool tls : {false, true}) {
    const ResourceCheck check;
    EchoServer server(tls);
    SecureSocket context;
    ASSERT_TRUE(context.InitSSLClientContext("", false, true));
    std::array<SecureSocket, kAtOnce> clients;
    for (SecureSocket& client : clients) {
      client.SetDataChannel(true);  // the handshakes of all begin before one of them goes on
      ASSERT_EQ(client.Connect("127.0.0.1", server.port(), false), 0);
      ASSERT_TRUE(!tls || client.STARTTLS("", false, true, context.GetSSLContext()) == 0);
      YBuffer nothing;
      ASSERT_EQ(client.Receive(nothing, 1, false), 0);
    }
    for (SecureSocket& client : clients) EXPECT_TRUE(client.Send(YString("x")));
    for (SecureSocket& client : clients) EXPECT_EQ(receive_exactly(client, 1), "x");
    EXPECT_EQ(server.finish(), kAtOnce);
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
  const ResourceCheck check;
  EchoServer server(true);
  std::vector<std::unique_ptr<ScriptedClient>> peers;
  for (int i = 0; i < 20; ++i) {
    for (const Script& script : rubbish) peers.push_back(std::make_unique<ScriptedClient>(server.port(), script));
    ScriptedClient good(server.port(), Script().start_tls(verifying_client()).send("good").read_until("good"));
    good.finish();
  }
  for (const auto& peer : peers) static_cast<void>(peer->take_failures());
  EXPECT_EQ(server.finish(), 20 * 7);
  EXPECT_THAT(log.numbers(), testing::Each(message::kReceiveTextFailed));
  EXPECT_THAT(log.last(message::kReceiveTextFailed).extra, testing::HasSubstr("http request"));
}

// --- TLS on what was accepted ---------------------------------------------------------------------------------------------

PemPair locked_pair() {
  CertificateWish wish;
  wish.key_password = "geheim";
  return certificates().make("locked", wish);
}

TEST_F(Listen, TlsCanBeginLater) {
  const std::string file = certificates().good().both, ca = certificates().ca_file();
  const PemPair locked = locked_pair();
  for (const Mode mode : kBothModes) {
    const Guest guest(mode, Script().start_tls(verifying_client()).send("ping").read_until("pong").expect_end());
    EXPECT_TRUE(is_blocking(mode)
                    ? guest.socket->STARTTLS(file, "", "", "")
                    : guest.socket->STARTTLS(locked.certificate.string(), locked.key.string(), "geheim", ""));
    EXPECT_EQ(receive_exactly(*guest.socket, 4), "ping");
    EXPECT_TRUE(guest.socket->Send(YString("pong")));
    guest.socket->Close();
  }
  EXPECT_THAT(log.numbers(), testing::IsEmpty());
  for (const bool has_certificate : {true, false}) {  // where one is asked for
    TlsClientOptions options;
    options.version = TlsVersion::tls12;  // the refusal falls into the handshake
    if (has_certificate) options.certificate = certificates().client();
    const Guest guest(Mode::polling,
                      [&](Connection& c) { EXPECT_EQ(c.try_tls(TlsContext::client(options)), has_certificate); });
    EXPECT_EQ(guest.socket->STARTTLS(file, "", "", ca), has_certificate);
  }
}

TEST_F(Listen, AHandshakeIsFinishedOnDemandOrTheConnectionFallsBackToPlain) {
  for (const Mode mode : kBothModes) {
    SCOPED_TRACE(name_of(mode));
    log.clear();
    const Guest good(mode, Script().start_tls(verifying_client()).read_to_end(), true);
    EXPECT_TRUE(good.socket->doSSLHandShake());
    EXPECT_TRUE(good.socket->GetPartnerInfo(true).Exist(partner::kProtocol));
    EXPECT_THAT(log.numbers(), testing::IsEmpty());

    Signal failed;
    const Guest rude(mode, Script().send("GET / HTTP/1.0\r\n").wait_for(failed).send("plain").read_until("text"), true);
    const int descriptor = rude.socket->GetScoketDescriptor();
    EXPECT_FALSE(rude.socket->doSSLHandShake());
    EXPECT_THAT(log.numbers(), testing::ElementsAre(message::kHandshakeStepFailed));
    EXPECT_THAT(log.last(message::kHandshakeStepFailed).extra, testing::HasSubstr("http request"));
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
}

}  // namespace
}  // namespace yinet::test
