// TLS of either side: certificates, handshakes that fail or never end, the change to TLS on a standing connection.

#include <openssl/bio.h>
#include <openssl/crypto.h>
#include <openssl/err.h>
#include <openssl/ssl.h>
#include <openssl/x509.h>
#include <sys/socket.h>

#include <array>
#include <cstdlib>
#include <thread>

#include "net/socket_test_kit.h"
#include "support/bytes.h"
#include "support/certificates.h"
#include "support/child_process.h"
#include "support/ports.h"
#include "support/requirements.h"
#include "support/socket_address.h"

namespace yinet::test {
namespace {

class Tls : public SocketTest {};

const Certificates& certificates() { return Certificates::shared(); }
YString ca_folder() { return certificates().ca_folder().string(); }

Script tls_peer(const PemPair& certificate, TlsVersion version = TlsVersion::any) {
  TlsServerOptions options;
  options.version = version;
  return Script().start_tls(TlsContext::server(certificate, options));
}

// --- Certificates -------------------------------------------------------------------------------------------------------

struct CertificateCase {
  const char* what;
  PemPair certificate;
  const char* host;
  int code;  // 0: accepted
};

std::vector<CertificateCase> certificate_cases() {
  const Certificates& all = certificates();
  return {{"good", all.good(), "localhost", 0},
          {"good address", all.good(), "127.0.0.1", 0},
          {"self-signed", all.self_signed(), "localhost", X509_V_ERR_DEPTH_ZERO_SELF_SIGNED_CERT},
          {"wrong name", all.wrong_name(), "localhost", X509_V_ERR_HOSTNAME_MISMATCH},
          {"wrong address", all.wrong_name(), "127.0.0.1", X509_V_ERR_IP_ADDRESS_MISMATCH},
          {"expired", all.expired(), "localhost", X509_V_ERR_CERT_HAS_EXPIRED},
          {"not yet valid", all.not_yet_valid(), "localhost", X509_V_ERR_CERT_NOT_YET_VALID}};
}

TEST_F(Tls, ConnectGivesTheVerdictOnTheCertificateAndStaysOpen) {
  for (const CertificateCase& one : certificate_cases()) {
    for (const Mode mode : kBothModes) {
      for (const TlsVersion version : {TlsVersion::tls12, TlsVersion::tls13}) {
        SCOPED_TRACE(std::string(one.what) + ", " + name_of(mode));
        log.clear();
        ScriptedPeer peer(tls_peer(one.certificate, version).expect("hello").send("world").read_to_end());
        SecureSocket socket;
        ASSERT_TRUE(socket.InitSSLClientContext(ca_folder(), false, false));
        EXPECT_EQ(SSL_CTX_get_verify_mode(socket.GetSSLContext()), SSL_VERIFY_PEER);
        EXPECT_EQ(connect_to(socket, peer, mode, one.host), one.code == 0 ? 0 : -2);
        EXPECT_TRUE(socket.Send(YString("hello")));
        EXPECT_EQ(receive_exactly(socket, 5), "world");
        socket.Close();
        if (one.code == 0) {
          EXPECT_THAT(log.numbers(), testing::IsEmpty());
          continue;
        }
        EXPECT_THAT(log.numbers(), testing::ElementsAre(message::kCertificateRejected));
        const LogRecord entry = log.last(message::kCertificateRejected);
        EXPECT_EQ(entry.level, 6);
        EXPECT_THAT(entry.text, testing::AllOf(testing::HasSubstr(peer.target().substr(peer.target().find(':'))),
                                               testing::HasSubstr(std::to_string(one.code))));
        EXPECT_THAT(entry.extra, testing::HasSubstr("subject: "));
      }
    }
  }
}

TEST_F(Tls, StartTlsGivesTheSameVerdict) {
  for (const CertificateCase& one : certificate_cases()) {
    SCOPED_TRACE(one.what);
    log.clear();
    ScriptedPeer peer(Script().then(tls_peer(one.certificate)).expect("hello").send("world").read_to_end());
    SecureSocket socket;
    ASSERT_EQ(connect_to(socket, peer, Mode::polling, one.host), 0);
    EXPECT_EQ(socket.STARTTLS(ca_folder(), true, false, nullptr), one.code == 0 ? 0 : -2);
    EXPECT_TRUE(socket.Send(YString("hello")));
    EXPECT_EQ(receive_exactly(socket, 5), "world");
    if (one.code == 0)
      EXPECT_THAT(log.numbers(), testing::IsEmpty());
    else
      EXPECT_THAT(log.numbers(), testing::ElementsAre(message::kStartTlsCertificateRejected));
  }
}

TEST_F(Tls, TheHostDecidesWhatIsVerified) {
  struct Case {
    const char* what;
    PemPair certificate;
    bool ignore;
    const char* always;
    const char* names;
    int result;
  };
  const Certificates& all = certificates();
  const Case cases[] = {{"ignored", all.self_signed(), true, "0", "1", 0},
                        {"verified always", all.self_signed(), true, "1", "1", -2},
                        {"verified always and good", all.good(), true, "1", "1", 0},
                        {"any name", all.wrong_name(), false, "0", "0", 0},
                        {"any name, but expired", all.expired(), false, "0", "0", -2}};
  for (const Case& one : cases) {
    SCOPED_TRACE(one.what);
    const SettingChange always(settings::kTlsVerifyAlways, one.always);
    const SettingChange names(settings::kTlsCheckName, one.names);
    auto peer = ScriptedPeer::for_every_connection(tls_peer(one.certificate).read_to_end());
    SecureSocket socket;
    ASSERT_TRUE(socket.InitSSLClientContext(ca_folder(), false, one.ignore));
    EXPECT_EQ(connect_to(socket, peer, Mode::polling, "localhost"), one.result);
    auto plain = ScriptedPeer::for_every_connection(tls_peer(one.certificate).read_to_end());
    SecureSocket later;
    ASSERT_EQ(connect_to(later, plain, Mode::polling, "localhost"), 0);
    EXPECT_EQ(later.STARTTLS(ca_folder(), false, one.ignore, nullptr), one.result);
  }
}

TEST_F(Tls, WithoutFoldersTheSystemsTrustStoreServes) {
  auto peer = ScriptedPeer::for_every_connection(tls_peer(certificates().good()).read_to_end());
  SecureSocket stranger;
  ASSERT_TRUE(stranger.InitSSLClientContext("", false, false));
  EXPECT_EQ(connect_to(stranger, peer), -2);
  ::setenv("SSL_CERT_FILE", certificates().ca_file().c_str(), 1);
  SecureSocket acquainted;
  ASSERT_TRUE(acquainted.InitSSLClientContext("", false, false));
  ::unsetenv("SSL_CERT_FILE");
  EXPECT_EQ(connect_to(acquainted, peer), 0);
}

TEST_F(Tls, FurtherAuthoritiesCanBeAdded) {
  const std::string ca = certificates().ca_file().string();
  const std::string folder = certificates().ca_folder().string();
  SecureSocket none;
  EXPECT_FALSE(none.AddTrustStoreFile(ca)) << "without a context";
  EXPECT_FALSE(none.AddTrustStoreDirectory(folder));
  for (const bool as_file : {true, false}) {
    auto peer = ScriptedPeer::for_every_connection(tls_peer(certificates().good()).read_to_end());
    SecureSocket socket;
    ASSERT_TRUE(socket.InitSSLClientContext("", false, false));
    EXPECT_FALSE(socket.AddTrustStoreFile(ca + ".missing"));
    EXPECT_FALSE(socket.AddTrustStoreDirectory(folder + ".missing"));
    EXPECT_EQ(connect_to(socket, peer), -2);
    EXPECT_TRUE(as_file ? socket.AddTrustStoreFile(ca) : socket.AddTrustStoreDirectory(folder));
    EXPECT_EQ(connect_to(socket, peer), 0);
  }
}

TEST_F(Tls, TheCertificateListLoadsUpToTheFirstItemThatFails) {
  const YString list = ca_folder() + YString("\x01");
  for (const bool flag : {true, false}) {
    log.clear();
    SecureSocket socket;
    EXPECT_FALSE(socket.InitSSLClientContext(list, flag, false));
    const int number = flag ? message::kCertificateListItemFailed : message::kCertificateFolderFailed;
    EXPECT_THAT(log.numbers(), testing::ElementsAre(number));
    EXPECT_THAT(log.last(number).extra, testing::HasSubstr("invalid directory"));
    EXPECT_NE(socket.GetSSLContext(), nullptr);
  }
  SecureSocket socket;
  EXPECT_TRUE(socket.InitSSLClientContext(YString("/no/such/folder\x01") + ca_folder(), true, false))
      << "only an empty item fails";
}

TEST_F(Tls, AHostileSubjectIsDescribedOnOneLine) {
  ScriptedPeer peer(tls_peer(certificates().hostile_subject()).read_to_end());
  SecureSocket socket;
  ASSERT_TRUE(socket.InitSSLClientContext(ca_folder(), false, false));
  EXPECT_EQ(connect_to(socket, peer), -2);
  const std::string extra = log.last(message::kCertificateRejected).extra;
  EXPECT_THAT(extra, testing::HasSubstr("\\r\\n"));
  for (const char c : extra) EXPECT_TRUE(static_cast<unsigned char>(c) >= 32 && c != 127) << static_cast<int>(c);
}

// --- Handshakes ---------------------------------------------------------------------------------------------------------

TEST_F(Tls, NamesAreSentToTheServerAndAddressesAreNot) {
  auto peer = ScriptedPeer::for_every_connection(tls_peer(certificates().good()).read_to_end());
  for (const char* host : {"localhost", "127.0.0.1"}) {
    SecureSocket socket;
    ASSERT_TRUE(socket.InitSSLClientContext("", false, true));
    EXPECT_EQ(connect_to(socket, peer, Mode::polling, host), 0);
    socket.Close();
  }
  peer.finish();
  EXPECT_EQ(peer.tls(0).server_name, "localhost");
  EXPECT_EQ(peer.tls(1).server_name, "");
}

TEST_F(Tls, BehindAProxyTheNameIsTheFinalHosts) {
  ScriptedPeer peer(tls_peer(certificates().good()).read_to_end());
  SecureSocket socket;
  ASSERT_EQ(socket.Connect("localhost", 990, "127.0.0.1", peer.port(), false, "", ""), 0);
  EXPECT_EQ(socket.STARTTLS(ca_folder(), true, false, nullptr), 0);
  socket.Close();
  peer.finish();
  EXPECT_EQ(peer.tls().server_name, "localhost");
}

TEST_F(Tls, AHandshakeThatNeverEndsIsBoundedByItsAttempts) {
  const SettingChange attempts(settings::kTlsAttempts, "10");
  const SettingChange pause(settings::kTlsAttemptPause, "10");
  const std::string endless = std::string("\x16\x03\x03\x3f\x00", 5) + std::string(10000, 'x');
  struct Case {
    const char* what;
    Script script;
  };
  const Case cases[] = {{"silent", Script().stay_silent()},
                        {"stops in the middle", Script().cut_tls_handshake(TlsContext::server(), 200).stay_silent()},
                        {"trickles", Script().send_slowly(endless)}};
  for (const Case& one : cases) {
    for (const bool ignore : {true, false}) {
      SCOPED_TRACE(one.what);
      log.clear();
      ScriptedPeer peer(one.script);
      OpenSocket socket;
      ASSERT_TRUE(socket.InitSSLClientContext("", false, ignore));
      const auto time = time_of([&] { EXPECT_EQ(connect_to(socket, peer), ignore ? 0 : -1); });
      EXPECT_GE(time, milliseconds(100));
      EXPECT_LT(time, milliseconds(2000));
      EXPECT_TRUE(socket.tlsActive);
      if (ignore)
        EXPECT_THAT(log.numbers(), testing::IsEmpty());
      else
        EXPECT_THAT(log.numbers(), testing::ElementsAre(message::kConnectTlsFailed));
      socket.Close();
      static_cast<void>(peer.take_failures());
    }
  }
}

TEST_F(Tls, APeerWithoutTlsFailsTheHandshake) {
  for (const Mode mode : kBothModes) {
    SCOPED_TRACE(name_of(mode));
    log.clear();
    auto peer = ScriptedPeer::for_every_connection(Script().send("220 no TLS here\r\n").read_to_end());
    OpenSocket socket;
    ASSERT_TRUE(socket.InitSSLClientContext("", false, true));
    EXPECT_EQ(connect_to(socket, peer, mode), -1);
    EXPECT_FALSE(socket.tlsActive);
    EXPECT_THAT(log.numbers(), testing::ElementsAre(message::kTlsConnectFailed, message::kConnectTlsFailed));
    EXPECT_EQ(log.last(message::kTlsConnectFailed).level, 2);
    EXPECT_THAT(log.last(message::kTlsConnectFailed).extra, testing::HasSubstr("wrong version number"));
    OpenSocket later;
    ASSERT_EQ(connect_to(later, peer, mode), 0);
    EXPECT_EQ(later.STARTTLS("", true, true, nullptr), -1);
    EXPECT_EQ(log.numbers().back(), message::kStartTlsFailed);
  }
}

TEST_F(Tls, VersionsFollowTheSystemsPolicyUnlessTheHostSaysOtherwise) {
  struct Case {
    const char* what;
    TlsVersion server;
    const char* minimum;
    const char* ciphers;
    int result;
  };
  const Case cases[] = {{"1.1 is too old", TlsVersion::tls11, "", "", -1},
                        {"1.1 when allowed", TlsVersion::tls11, "1.0", "DEFAULT@SECLEVEL=0", 0},
                        {"1.2", TlsVersion::tls12, "", "", 0},
                        {"1.2 when forbidden", TlsVersion::tls12, "1.3", "", -1},
                        {"no common cipher", TlsVersion::tls12, "", "ECDHE-RSA-AES128-GCM-SHA256", -1}};
  for (const Case& one : cases) {
    SCOPED_TRACE(one.what);
    const SettingChange minimum(settings::kTlsMinimumVersion, one.minimum);
    const SettingChange ciphers(settings::kTlsCipherList, one.ciphers);
    ScriptedPeer peer(Script().then([&](Connection& c) {
      TlsServerOptions options;
      options.version = one.server;
      if (c.try_tls(TlsContext::server(certificates().good(), options))) c.read_to_end();
    }));
    SecureSocket socket;
    ASSERT_TRUE(socket.InitSSLClientContext("", false, true));
    EXPECT_EQ(connect_to(socket, peer), one.result);
  }
}

TEST_F(Tls, APolicyThatIsNotUnderstoodIsNotIgnored) {
  for (const Setting* setting : {&settings::kTlsMinimumVersion, &settings::kTlsCipherList}) {
    const SettingChange nonsense(*setting, "nonsense");
    log.clear();
    SecureSocket socket;
    EXPECT_FALSE(socket.InitSSLClientContext("", false, true));
    EXPECT_THAT(log.numbers(), testing::ElementsAre(message::kTlsContextFailed));
    EXPECT_THAT(log.last(message::kTlsContextFailed).extra, testing::HasSubstr("error:"));
  }
}

// --- STARTTLS -----------------------------------------------------------------------------------------------------------

TEST_F(Tls, StartTlsWithoutAConnectionFailsSilently) {
  SecureSocket socket;
  EXPECT_EQ(socket.STARTTLS("", false, true, nullptr), -1);
  EXPECT_FALSE(socket.STARTTLS("c", "k", "", ""));
  EXPECT_FALSE(socket.doSSLHandShake());
  EXPECT_THAT(log.numbers(), testing::IsEmpty());
}

TEST_F(Tls, StartTlsChangesAStandingConnectionAndForgetsWhatCameInClear) {
  for (const Mode mode : kBothModes) {
    ScriptedPeer peer(Script()
                          .send("220 hello\r\n")
                          .expect("AUTH TLS\r\n")
                          .send("234 go\r\n250 injected\r\n")
                          .start_tls()
                          .expect("USER x\r\n")
                          .send("331 more\r\n")
                          .read_to_end());
    SecureSocket socket;
    ASSERT_EQ(connect_to(socket, peer, mode), 0);
    socket.read_ahead(true);
    EXPECT_EQ(receive_exactly(socket, 11), "220 hello\r\n");
    EXPECT_TRUE(socket.Send(YString("AUTH TLS\r\n")));
    EXPECT_EQ(receive_exactly(socket, 8), "234 go\r\n");
    EXPECT_EQ(socket.STARTTLS("", true, true, nullptr), 0);
    EXPECT_TRUE(socket.Send(YString("USER x\r\n")));
    EXPECT_EQ(receive_exactly(socket, 10), "331 more\r\n");
  }
}

TEST_F(Tls, StartTlsUsesAContextOfTheCallers) {
  ScriptedPeer peer(tls_peer(certificates().good(), TlsVersion::tls13).read_to_end());
  SSL_CTX* const context = SSL_CTX_new(TLS_client_method());
  SSL_CTX_load_verify_locations(context, certificates().ca_file().c_str(), nullptr);
  SecureSocket socket;
  ASSERT_EQ(connect_to(socket, peer), 0);
  EXPECT_EQ(socket.STARTTLS("", true, false, context), 0);
  EXPECT_EQ(socket.GetSSLContext(), nullptr);
  SSL_CTX_free(context);
}

TEST_F(Tls, StartTlsSaysWhichContextFailed) {
  ScriptedPeer peer(Script().read_to_end());
  SecureSocket socket;
  ASSERT_EQ(connect_to(socket, peer), 0);
  EXPECT_EQ(socket.STARTTLS(YString("\x01"), true, true, nullptr), -1);
  EXPECT_THAT(log.numbers(),
              testing::ElementsAre(message::kCertificateListItemFailed, message::kStartTlsContextFailed));
}

// --- The server's side --------------------------------------------------------------------------------------------------

// A connection of a scripted client, accepted by hand.
class Accepted {
 public:
  explicit Accepted(const ConnectionScript& script)
      : listener_(listen_on("127.0.0.1", 0)), client(SocketAddress::local_of(listener_.get()).port(), script) {}

  BIO* take() const {  // a plain socket BIO that owns the connection
    return BIO_new_socket(::accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC), BIO_CLOSE);
  }

 private:
  FileDescriptor listener_;

 public:
  ScriptedClient client;
};

BIO* in_mode(BIO* plain, Mode mode) {
  int descriptor = -1;
  BIO_get_fd(plain, &descriptor);
  if (!is_blocking(mode)) BIO_socket_nbio(descriptor, 1);
  return plain;
}

Script verifying_client() {
  TlsClientOptions options;
  options.ca_file = certificates().ca_file();
  return Script().start_tls(TlsContext::client(options));
}

TEST_F(Tls, TheServerSideOfStartTlsWorks) {
  const PemPair plain_key = certificates().good();
  CertificateWish wish;
  wish.key_password = "geheim";
  const PemPair locked = certificates().make("locked", wish);
  for (const Mode mode : kBothModes) {
    for (const bool with_password : {false, true}) {
      const Accepted accepted(verifying_client().send("ping").read_until("pong").expect_end());
      OpenSocket socket(in_mode(accepted.take(), mode), is_blocking(mode));
      EXPECT_TRUE(with_password ? socket.STARTTLS(locked.certificate.string(), locked.key.string(), "geheim", "")
                                : socket.STARTTLS(plain_key.both.string(), "", "", ""));
      EXPECT_EQ(receive_exactly(socket, 4), "ping");
      EXPECT_TRUE(socket.Send(YString("pong")));
      socket.Close();
    }
  }
  EXPECT_THAT(log.numbers(), testing::IsEmpty());
}

TEST_F(Tls, AServerContextNeedsAMatchingCertificateAndKey) {
  CertificateWish wish;
  wish.key_password = "geheim";
  const PemPair locked = certificates().make("locked", wish);
  const PemPair other = certificates().self_signed();
  struct Case {
    const char* what;
    std::string certificate, key;
    const char* password;
    bool usable;
  };
  const Case cases[] = {{"right password", locked.certificate, locked.key, "geheim", true},
                        {"wrong password", locked.certificate, locked.key, "falsch", false},
                        {"other key", locked.certificate, other.key, "", false},
                        {"missing file", "/no/such/file", "", "", false}};
  for (const Case& one : cases) {
    SCOPED_TRACE(one.what);
    log.clear();
    SecureSocket socket;
    EXPECT_EQ(socket.InitSSLSeverContext(one.certificate, one.key, one.password, "", false), one.usable);
    EXPECT_EQ(socket.GetSSLContext() != nullptr, one.usable);
    EXPECT_EQ(log.numbers().empty(), one.usable);
  }
}

TEST_F(Tls, ClientsWithoutACertificateAreRefusedWhereOneIsAskedFor) {
  const PemPair good = certificates().good();
  for (const bool has_one : {true, false}) {
    TlsClientOptions options;
    options.version = TlsVersion::tls12;  // the refusal falls into the handshake
    if (has_one) options.certificate = certificates().client();
    const Accepted accepted([&](Connection& c) { EXPECT_EQ(c.try_tls(TlsContext::client(options)), has_one); });
    OpenSocket socket(in_mode(accepted.take(), Mode::polling), false);
    EXPECT_EQ(socket.STARTTLS(good.both.string(), "", "", certificates().ca_file().string()), has_one);
  }
}

TEST_F(Tls, AFailedHandshakeOfAnAcceptedConnectionFallsBackToPlain) {
  for (const Mode mode : kBothModes) {
    SCOPED_TRACE(name_of(mode));
    log.clear();
    Signal failed;
    const Accepted accepted(Script().send("GET / HTTP/1.0\r\n").wait_for(failed).send("plain").read_until("text"));
    SecureSocket context;
    ASSERT_TRUE(context.InitSSLSeverContext(certificates().good().both.string(), "", "", "", false));
    SSL* const session = SSL_new(context.GetSSLContext());
    BIO* const plain = in_mode(accepted.take(), mode);
    SSL_set_bio(session, plain, plain);
    SSL_set_accept_state(session);
    BIO* const chain = BIO_new(BIO_f_ssl());
    BIO_set_ssl(chain, session, BIO_CLOSE);
    OpenSocket socket(chain, is_blocking(mode));
    const int descriptor = socket.GetScoketDescriptor();
    EXPECT_FALSE(socket.doSSLHandShake());
    EXPECT_THAT(log.numbers(), testing::ElementsAre(message::kHandshakeStepFailed));
    EXPECT_THAT(log.last(message::kHandshakeStepFailed).extra, testing::HasSubstr("http request"));
    EXPECT_EQ(socket.GetScoketDescriptor(), descriptor);
    failed.set();
    std::string all;
    while (!all.ends_with("plain")) all += receive_piece(socket);
    EXPECT_TRUE(socket.Send(YString("text")));
    socket.Close();
  }
}

TEST_F(Tls, TheKeysPasswordIsHandedOverWhereItFits) {
  OpenSocket socket;
  socket.keyText = "geheim";
  struct Case {
    int size, result;
    std::string_view buffer;
  };
  using namespace std::string_view_literals;
  const Case cases[] = {{7, 6, "geheim\0-"sv}, {6, 6, "geheim--"sv}, {5, 0, "--------"sv}};
  for (const Case& one : cases) {
    log.clear();
    std::array<char, 8> buffer;
    buffer.fill('-');
    EXPECT_EQ(OpenSocket::password_cb(buffer.data(), one.size, 0, &socket), one.result);
    EXPECT_EQ(std::string_view(buffer.data(), buffer.size()), one.buffer);
    EXPECT_EQ(log.numbers().size(), one.result == 0 ? 1U : 0U);
  }
  EXPECT_EQ(log.numbers().back(), message::kPasswordBufferTooSmall);
}

// --- A real server ------------------------------------------------------------------------------------------------------

TEST_F(Tls, ARealServerGetsAWholeUpload) {
  YINET_REQUIRE_PROGRAM("openssl");
  const PemPair good = certificates().good();
  for (const char* version : {"-tls1_2", "-tls1_3"}) {
    const ReservedPorts port;
    ChildOptions options;
    options.argv = {"openssl",  "s_server", "-accept", "127.0.0.1:" + std::to_string(port.first()),
                    "-naccept", "1",        "-cert",   good.certificate,
                    "-key",     good.key,   "-quiet",  version};
    options.keep_input_open = true;  // it ends with its input
    ChildProcess server(options);
    SecureSocket socket;
    ASSERT_TRUE(socket.InitSSLClientContext(ca_folder(), false, false));
    ASSERT_TRUE(eventually([&] { return socket.Connect("localhost", port.first(), false) == 0; })) << server.errors();
    const std::string content = pattern_bytes(5 << 20);
    EXPECT_TRUE(socket.Send(YBuffer(content)));
    socket.Close();
    EXPECT_TRUE(server.wait().has_value());
    EXPECT_TRUE(server.output() == content) << server.output().size() << " bytes arrived; " << server.errors();
  }
}

}  // namespace
}  // namespace yinet::test
