// TLS of either side: certificates, handshakes that fail or never end, the change to TLS on a standing connection.

#include <openssl/bio.h>
#include <openssl/ssl.h>
#include <openssl/x509_vfy.h>
#include <sys/socket.h>

#include <array>
#include <cstdlib>

#include "net/socket_test_kit.h"
#include "support/bytes.h"
#include "support/certificates.h"
#include "support/requirements.h"
#include "support/socket_address.h"
#include "support/tls_server.h"

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

TEST_F(Tls, TheCertificateIsJudgedAfterTheHandshakeAndTheConnectionStays) {
  struct Case {
    const char* what;
    PemPair certificate;
    const char* host;
    int code;
  };
  const Certificates& all = certificates();
  const Case cases[] = {{"good", all.good(), "localhost", 0},
                        {"good address", all.good(), "127.0.0.1", 0},
                        {"self-signed", all.self_signed(), "localhost", X509_V_ERR_DEPTH_ZERO_SELF_SIGNED_CERT},
                        {"wrong name", all.wrong_name(), "localhost", X509_V_ERR_HOSTNAME_MISMATCH},
                        {"wrong address", all.wrong_name(), "127.0.0.1", X509_V_ERR_IP_ADDRESS_MISMATCH},
                        {"expired", all.expired(), "localhost", X509_V_ERR_CERT_HAS_EXPIRED},
                        {"not yet valid", all.not_yet_valid(), "localhost", X509_V_ERR_CERT_NOT_YET_VALID}};
  for (const Case& one : cases) {
    for (const TlsVersion version : {TlsVersion::tls12, TlsVersion::tls13}) {
      for (const bool later : {false, true}) {
        const Mode mode = version == TlsVersion::tls12 ? Mode::blocking : Mode::polling;
        SCOPED_TRACE(std::string(one.what) + ", " + name_of(mode) + (later ? ", STARTTLS" : ", Connect"));
        log.clear();
        ScriptedPeer peer(tls_peer(one.certificate, version).expect("hello").send("world").read_to_end());
        SecureSocket socket;
        if (!later) {
          ASSERT_TRUE(socket.InitSSLClientContext(ca_folder(), false, false));
        }
        int result = connect_to(socket, peer, mode, one.host);
        if (later) result = socket.STARTTLS(ca_folder(), true, false, nullptr);
        EXPECT_EQ(result, one.code == 0 ? 0 : -2);
        EXPECT_EQ(SSL_CTX_get_verify_mode(socket.GetSSLContext()), SSL_VERIFY_PEER);
        EXPECT_TRUE(socket.Send(YString("hello")));
        EXPECT_EQ(receive_exactly(socket, 5), "world");
        const int number = later ? message::kStartTlsCertificateRejected : message::kCertificateRejected;
        EXPECT_EQ(log.numbers(), one.code == 0 ? std::vector<int>() : std::vector<int>{number});
        if (one.code == 0) continue;
        const LogRecord entry = log.last(number);
        EXPECT_EQ(entry.level, later ? 2 : 6);
        EXPECT_THAT(entry.text, testing::AllOf(testing::HasSubstr(std::string(one.host) + ":"),
                                               testing::HasSubstr(std::to_string(one.code))));
        EXPECT_THAT(entry.extra, testing::HasSubstr("subject: "));
      }
    }
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
    SecureSocket at_once, later;
    ASSERT_TRUE(at_once.InitSSLClientContext(ca_folder(), false, one.ignore));
    EXPECT_EQ(connect_to(at_once, peer, Mode::polling, "localhost"), one.result);
    ASSERT_EQ(connect_to(later, peer, Mode::polling, "localhost"), 0);
    EXPECT_EQ(later.STARTTLS(ca_folder(), false, one.ignore, nullptr), one.result);
  }
}

TEST_F(Tls, AuthoritiesComeFromTheSystemFromFilesAndFromFolders) {
  const std::string ca = certificates().ca_file().string();
  const std::string folder = certificates().ca_folder().string();
  auto peer = ScriptedPeer::for_every_connection(tls_peer(certificates().good()).read_to_end());
  SecureSocket none;
  EXPECT_FALSE(none.AddTrustStoreFile(ca) || none.AddTrustStoreDirectory(folder)) << "without a context";
  for (const bool as_file : {true, false}) {
    SecureSocket socket;
    ASSERT_TRUE(socket.InitSSLClientContext("", false, false));
    EXPECT_FALSE(socket.AddTrustStoreFile(ca + ".missing") || socket.AddTrustStoreDirectory(folder + ".missing"));
    EXPECT_EQ(connect_to(socket, peer), -2);
    EXPECT_TRUE(as_file ? socket.AddTrustStoreFile(ca) : socket.AddTrustStoreDirectory(folder));
    EXPECT_EQ(connect_to(socket, peer), 0);
  }
  ::setenv("SSL_CERT_FILE", ca.c_str(), 1);
  SecureSocket socket;
  ASSERT_TRUE(socket.InitSSLClientContext("", false, false));
  ::unsetenv("SSL_CERT_FILE");
  EXPECT_EQ(connect_to(socket, peer), 0);
}

TEST_F(Tls, TheCertificateListLoadsUpToTheFirstItemThatFails) {
  for (const bool flag : {true, false}) {
    log.clear();
    SecureSocket socket;
    EXPECT_FALSE(socket.InitSSLClientContext(ca_folder() + "\x01", flag, false));
    const int number = flag ? message::kCertificateListItemFailed : message::kCertificateFolderFailed;
    EXPECT_THAT(log.numbers(), testing::ElementsAre(number));
    EXPECT_THAT(log.last(number).extra, testing::HasSubstr("invalid directory"));
    EXPECT_NE(socket.GetSSLContext(), nullptr);
    EXPECT_TRUE(socket.InitSSLClientContext(YString("/no/such/folder\x01") + ca_folder(), flag, false))
        << "only an empty item fails";
  }
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

TEST_F(Tls, TheFinalHostIsNamedToTheServerUnlessItIsAnAddress) {
  auto peer = ScriptedPeer::for_every_connection(tls_peer(certificates().good()).read_to_end());
  for (const char* host : {"localhost", "127.0.0.1"}) {
    SecureSocket socket;
    ASSERT_TRUE(socket.InitSSLClientContext("", false, true));
    EXPECT_EQ(connect_to(socket, peer, Mode::polling, host), 0);
  }
  SecureSocket behind_proxy;
  ASSERT_EQ(behind_proxy.Connect("localhost", 990, "127.0.0.1", peer.port(), false, "", ""), 0);
  EXPECT_EQ(behind_proxy.STARTTLS(ca_folder(), true, false, nullptr), 0);
  behind_proxy.Close();
  peer.finish();
  EXPECT_EQ(peer.tls(0).server_name, "localhost");
  EXPECT_EQ(peer.tls(1).server_name, "");
  EXPECT_EQ(peer.tls(2).server_name, "localhost");
}

TEST_F(Tls, AHandshakeThatNeverEndsIsBoundedByItsAttempts) {
  const SettingChange attempts(settings::kTlsAttempts, "10");
  const std::string endless = std::string("\x16\x03\x03\x3f\x00", 5) + std::string(100000, 'x');
  const Script silences[] = {Script().stay_silent(),
                             Script().send(endless.substr(0, 200)).stay_silent(),
                             Script().send_slowly(endless)};
  for (const Script& silence : silences) {
    for (const bool ignore : {true, false}) {
      log.clear();
      ScriptedPeer peer(silence);
      OpenSocket socket;
      ASSERT_TRUE(socket.InitSSLClientContext("", false, ignore));
      const auto time = time_of([&] { EXPECT_EQ(connect_to(socket, peer), ignore ? 0 : -1); });
      EXPECT_GE(time, milliseconds(100));
      EXPECT_LT(time, milliseconds(5000));
      EXPECT_TRUE(socket.tlsActive) << "without an error it counts as done, except for verification";
      EXPECT_EQ(log.numbers(), ignore ? std::vector<int>() : std::vector<int>{message::kConnectTlsFailed});
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
    OpenSocket at_once, later;
    ASSERT_TRUE(at_once.InitSSLClientContext("", false, true));
    EXPECT_EQ(connect_to(at_once, peer, mode), -1);
    EXPECT_FALSE(at_once.tlsActive);
    ASSERT_EQ(connect_to(later, peer, mode), 0);
    EXPECT_EQ(later.STARTTLS("", true, true, nullptr), -1);
    EXPECT_THAT(log.numbers(), testing::ElementsAre(message::kTlsConnectFailed, message::kConnectTlsFailed,
                                                    message::kTlsConnectFailed, message::kStartTlsFailed));
    EXPECT_THAT(log.last(message::kTlsConnectFailed).extra, testing::HasSubstr("wrong version number"));
  }
}

TEST_F(Tls, VersionsFollowTheSystemsPolicyUnlessTheHostSaysOtherwise) {
  struct Case {
    TlsVersion server;
    const char* minimum;
    const char* ciphers;
    int result;
  };
  constexpr int kNoContext = -9;  // a policy that is not understood is not ignored
  const Case cases[] = {{TlsVersion::tls11, "", "", -1},
                        {TlsVersion::tls11, "1.0", "DEFAULT@SECLEVEL=0", 0},
                        {TlsVersion::tls12, "", "", 0},
                        {TlsVersion::tls12, "1.3", "", -1},
                        {TlsVersion::tls12, "", "ECDHE-RSA-AES128-GCM-SHA256", -1},  // the server's key is no RSA key
                        {TlsVersion::any, "2", "", kNoContext},
                        {TlsVersion::any, "", "nonsense", kNoContext}};
  for (const Case& one : cases) {
    SCOPED_TRACE(std::string(one.minimum) + " " + one.ciphers);
    const SettingChange minimum(settings::kTlsMinimumVersion, one.minimum);
    const SettingChange ciphers(settings::kTlsCipherList, one.ciphers);
    SecureSocket socket;
    if (one.result == kNoContext) {
      EXPECT_FALSE(socket.InitSSLClientContext("", false, true));
      EXPECT_THAT(log.last(message::kTlsContextFailed).extra, testing::HasSubstr("error:"));
      continue;
    }
    ASSERT_TRUE(socket.InitSSLClientContext("", false, true));
    TlsServerOptions options;
    options.version = one.server;
    ScriptedPeer peer([&](Connection& c) {
      if (c.try_tls(TlsContext::server(certificates().good(), options))) c.read_to_end();
    });
    EXPECT_EQ(connect_to(socket, peer), one.result);
    socket.Close();
  }
}

// --- STARTTLS -----------------------------------------------------------------------------------------------------------

TEST_F(Tls, StartTlsChangesAStandingConnectionAndForgetsWhatCameInClear) {
  SSL_CTX* const context = SSL_CTX_new(TLS_client_method());
  for (SSL_CTX* const given : {static_cast<SSL_CTX*>(nullptr), context}) {
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
      EXPECT_EQ(socket.STARTTLS("", true, true, given), -1) << "without a connection";
      ASSERT_EQ(connect_to(socket, peer, mode), 0);
      socket.read_ahead(true);
      EXPECT_EQ(receive_exactly(socket, 11), "220 hello\r\n");
      EXPECT_TRUE(socket.Send(YString("AUTH TLS\r\n")));
      EXPECT_EQ(receive_exactly(socket, 8), "234 go\r\n");
      EXPECT_EQ(socket.STARTTLS("", true, true, given), 0);
      EXPECT_EQ(socket.GetSSLContext() == nullptr, given != nullptr);
      EXPECT_TRUE(socket.Send(YString("USER x\r\n")));
      EXPECT_EQ(receive_exactly(socket, 10), "331 more\r\n");
    }
  }
  SSL_CTX_free(context);
  EXPECT_THAT(log.numbers(), testing::IsEmpty());
}

// --- The server's side --------------------------------------------------------------------------------------------------

// A scripted client and the socket that has accepted it.
class Accepted {
 public:
  Accepted(Mode mode, const ConnectionScript& script)
      : listener_(listen_on("127.0.0.1", 0)), client(SocketAddress::local_of(listener_.get()).port(), script) {
    const int descriptor = ::accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC);
    if (!is_blocking(mode)) BIO_socket_nbio(descriptor, 1);
    plain = BIO_new_socket(descriptor, BIO_CLOSE);
  }

 private:
  FileDescriptor listener_;

 public:
  ScriptedClient client;
  BIO* plain = nullptr;  // for the socket under test
};

PemPair locked_pair() {
  CertificateWish wish;
  wish.key_password = "geheim";
  return certificates().make("locked", wish);
}

TEST_F(Tls, TheServerSideOfStartTlsWorks) {
  TlsClientOptions verifying;
  verifying.ca_file = certificates().ca_file();
  const Script talk = Script().start_tls(TlsContext::client(verifying)).send("ping").read_until("pong").expect_end();
  for (const Mode mode : kBothModes) {
    const Accepted accepted(mode, talk);
    OpenSocket socket(accepted.plain, is_blocking(mode));
    EXPECT_TRUE(mode == Mode::blocking
                    ? socket.STARTTLS(certificates().good().both.string(), "", "", "")
                    : socket.STARTTLS(locked_pair().certificate.string(), locked_pair().key.string(), "geheim", ""));
    EXPECT_EQ(receive_exactly(socket, 4), "ping");
    EXPECT_TRUE(socket.Send(YString("pong")));
    socket.Close();
  }
  EXPECT_THAT(log.numbers(), testing::IsEmpty());
}

TEST_F(Tls, AServerContextNeedsAMatchingCertificateAndKey) {
  const std::string certificate = locked_pair().certificate, key = locked_pair().key;
  SecureSocket socket;
  EXPECT_TRUE(socket.InitSSLSeverContext(certificate, key, "geheim", "", false));
  EXPECT_THAT(log.numbers(), testing::IsEmpty());
  EXPECT_FALSE(socket.InitSSLSeverContext(certificate, key, "falsch", "", false));
  EXPECT_FALSE(socket.InitSSLSeverContext(certificate, certificates().self_signed().key.string(), "", "", false));
  EXPECT_FALSE(socket.InitSSLSeverContext("/no/such/file", "", "", "", false));
  EXPECT_EQ(log.numbers(), std::vector<int>(3, message::kTlsContextFailed));
  EXPECT_EQ(socket.GetSSLContext(), nullptr) << "a failed set-up leaves nothing half-made";
}

TEST_F(Tls, ClientsWithoutACertificateAreRefusedWhereOneIsAskedFor) {
  for (const bool has_one : {true, false}) {
    TlsClientOptions options;
    options.version = TlsVersion::tls12;  // the refusal falls into the handshake
    if (has_one) options.certificate = certificates().client();
    const Accepted accepted(Mode::polling,
                            [&](Connection& c) { EXPECT_EQ(c.try_tls(TlsContext::client(options)), has_one); });
    OpenSocket socket(accepted.plain, false);
    EXPECT_EQ(socket.STARTTLS(certificates().good().both.string(), "", "", certificates().ca_file().string()), has_one);
  }
}

TEST_F(Tls, AFailedHandshakeOfAnAcceptedConnectionFallsBackToPlain) {
  for (const Mode mode : kBothModes) {
    SCOPED_TRACE(name_of(mode));
    log.clear();
    Signal failed;
    const Accepted accepted(mode,
                            Script().send("GET / HTTP/1.0\r\n").wait_for(failed).send("plain").read_until("text"));
    SecureSocket context;
    ASSERT_TRUE(context.InitSSLSeverContext(certificates().good().both.string(), "", "", "", false));
    SSL* const session = SSL_new(context.GetSSLContext());
    SSL_set_bio(session, accepted.plain, accepted.plain);
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
  using namespace std::string_view_literals;
  OpenSocket socket;
  socket.keyText = "geheim";
  const struct {
    int size, result;
    std::string_view buffer;
  } kCases[] = {{7, 6, "geheim\0-"sv}, {6, 6, "geheim--"sv}, {5, 0, "--------"sv}};
  for (const auto& one : kCases) {
    std::array<char, 8> buffer;
    buffer.fill('-');
    EXPECT_EQ(OpenSocket::password_cb(buffer.data(), one.size, 0, &socket), one.result);
    EXPECT_EQ(std::string_view(buffer.data(), buffer.size()), one.buffer);
  }
  EXPECT_THAT(log.numbers(), testing::ElementsAre(message::kPasswordBufferTooSmall));
}

// --- A real server ------------------------------------------------------------------------------------------------------

TEST_F(Tls, ARealServerGetsAWholeUpload) {
  YINET_REQUIRE_PROGRAM("openssl");
  std::string content;
  for (int line = 0; line < 300000; ++line) content += "line " + std::to_string(line) + "\n";
  for (const char* version : {"-tls1_2", "-tls1_3"}) {
    TlsServer server({version});
    SecureSocket socket;
    ASSERT_TRUE(socket.InitSSLClientContext(ca_folder(), false, false));
    ASSERT_EQ(socket.Connect("localhost", server.port(), false), 0);
    EXPECT_TRUE(socket.Send(YString(content)));
    socket.Close();
    EXPECT_TRUE(server.wait_for_received("line 299999\n"));
    EXPECT_THAT(server.received(), testing::HasSubstr(content));
  }
}

}  // namespace
}  // namespace yinet::test
