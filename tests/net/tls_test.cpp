// TLS as a client: certificates, handshakes that fail or never end, the change to TLS on a standing connection.

#include <openssl/ssl.h>
#include <openssl/x509_vfy.h>

#include <array>
#include <cstdlib>

#include "net/socket_test_kit.h"
#include "support/certificates.h"

namespace yinet::test {
namespace {

class Tls : public SocketTest {};

const Certificates& certificates() { return Certificates::shared(); }
YString ca_folder() { return certificates().ca_folder().string(); }

Script tls_peer(const PemPair& certificate, TlsVersion version = TlsVersion::any) {
  return Script().start_tls(TlsContext::server(certificate, {.version = version}));
}

// --- Certificates -------------------------------------------------------------------------------------------------------

TEST_F(Tls, TheCertificateIsJudgedAfterTheHandshakeAndTheConnectionStays) {
  const Certificates& all = certificates();
  const struct {
    const char* what;
    PemPair certificate;
    const char* host;
    int code;
    bool ignore = false;
    const char *always = "0", *names = "1";
  } kCases[] = {{"good", all.good(), "localhost", 0},
                {"good address", all.good(), "127.0.0.1", 0},
                {"self-signed", all.self_signed(), "localhost", X509_V_ERR_DEPTH_ZERO_SELF_SIGNED_CERT},
                {"wrong name", all.wrong_name(), "localhost", X509_V_ERR_HOSTNAME_MISMATCH},
                {"wrong address", all.wrong_name(), "127.0.0.1", X509_V_ERR_IP_ADDRESS_MISMATCH},
                {"expired", all.expired(), "localhost", X509_V_ERR_CERT_HAS_EXPIRED},
                {"not yet valid", all.not_yet_valid(), "localhost", X509_V_ERR_CERT_NOT_YET_VALID},
                {"hostile", all.hostile_subject(), "localhost", X509_V_ERR_DEPTH_ZERO_SELF_SIGNED_CERT},
                {"ignored", all.self_signed(), "localhost", 0, true},
                {"always", all.self_signed(), "localhost", X509_V_ERR_DEPTH_ZERO_SELF_SIGNED_CERT, true, "1"},
                {"any name", all.wrong_name(), "localhost", 0, false, "0", "0"},
                {"any name, but", all.expired(), "localhost", X509_V_ERR_CERT_HAS_EXPIRED, false, "0", "0"}};
  for (const auto& one : kCases) {
    const SettingChange always(settings::kTlsVerifyAlways, one.always);
    const SettingChange names(settings::kTlsCheckName, one.names);
    for (const TlsVersion version : {TlsVersion::tls12, TlsVersion::tls13}) {
      for (const bool later : {false, true}) {
        const Mode mode = version == TlsVersion::tls12 ? Mode::blocking : Mode::polling;
        SCOPED_TRACE(std::string(one.what) + ", " + name_of(mode) + (later ? ", STARTTLS" : ", Connect"));
        log.clear();
        ScriptedPeer peer(tls_peer(one.certificate, version).expect("hello").send("world").read_to_end());
        SecureSocket socket;
        ASSERT_TRUE(later || socket.InitSSLClientContext(ca_folder(), false, one.ignore));
        int result = connect_to(socket, peer, mode, one.host);
        if (later) result = socket.STARTTLS(ca_folder(), true, one.ignore, nullptr);
        EXPECT_EQ(result, one.code == 0 ? 0 : -2);
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
        for (const char c : entry.extra) EXPECT_TRUE(static_cast<unsigned char>(c) >= 32 && c != 127) << +c;
      }
    }
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

// --- Handshakes ---------------------------------------------------------------------------------------------------------

TEST_F(Tls, TheFinalHostIsNamedToTheServerUnlessItIsAnAddress) {
  auto peer = ScriptedPeer::for_every_connection(tls_peer(certificates().good()).read_to_end());
  SecureSocket direct, behind_proxy;
  ASSERT_TRUE(direct.InitSSLClientContext("", false, true));
  EXPECT_EQ(connect_to(direct, peer), 0);
  ASSERT_EQ(behind_proxy.Connect("localhost", 990, "127.0.0.1", peer.port(), false, "", ""), 0);
  EXPECT_EQ(behind_proxy.STARTTLS(ca_folder(), true, false, nullptr), 0);
  // The server may finish its handshake after the client.
  EXPECT_TRUE(eventually([&] { return peer.tls(1).server_name == "localhost"; }, milliseconds(5000)));
  EXPECT_EQ(peer.tls(0).server_name, "");
}

TEST_F(Tls, AHandshakeThatNeverEndsIsBoundedByItsAttempts) {
  const SettingChange attempts(settings::kTlsAttempts, "10");
  const std::string endless = std::string("\x16\x03\x03\x3f\x00", 5) + std::string(100000, 'x');
  const Script silences[] = {Script().stay_silent(), Script().send(endless.substr(0, 200)).stay_silent(),
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
  constexpr int kNoContext = -9;  // a policy that is not understood is not ignored
  const struct {
    TlsVersion server;
    const char *minimum, *ciphers;
    int result;
  } kCases[] = {{TlsVersion::tls11, "", "", -1},
                {TlsVersion::tls11, "1.0", "DEFAULT@SECLEVEL=0", 0},
                {TlsVersion::tls12, "1.3", "", -1},
                {TlsVersion::tls12, "", "ECDHE-RSA-AES128-GCM-SHA256", -1},  // the server's key is no RSA key
                {TlsVersion::any, "2", "", kNoContext},
                {TlsVersion::any, "", "nonsense", kNoContext}};
  for (const auto& one : kCases) {
    SCOPED_TRACE(std::string(one.minimum) + " " + one.ciphers);
    const SettingChange minimum(settings::kTlsMinimumVersion, one.minimum);
    const SettingChange ciphers(settings::kTlsCipherList, one.ciphers);
    auto peer = ScriptedPeer::for_every_connection([&](Connection& c) {
      if (c.try_tls(TlsContext::server(certificates().good(), {.version = one.server}))) c.read_to_end();
    });
    SecureSocket socket;
    const bool ready = socket.InitSSLClientContext("", false, true);
    EXPECT_EQ(ready ? connect_to(socket, peer) : kNoContext, one.result);
    EXPECT_EQ(log.last(message::kTlsContextFailed).extra.empty(), one.result != kNoContext);
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

TEST_F(Tls, TheKeysPasswordIsHandedOverWhereItFits) {
  OpenSocket socket;
  socket.keyText = "geheim";
  for (const auto& [size, expected] : {std::pair(7, std::string("geheim\0-", 8)), {6, "geheim--"}, {5, "--------"}}) {
    std::string buffer(8, '-');
    EXPECT_EQ(OpenSocket::password_cb(buffer.data(), size, 0, &socket), size == 5 ? 0 : 6);
    EXPECT_EQ(buffer, expected);
  }
  EXPECT_THAT(log.numbers(), testing::ElementsAre(message::kPasswordBufferTooSmall));
}

}  // namespace
}  // namespace yinet::test
