// TLS as a client: certificates, handshakes that fail or never end, data channels, and what all connections share.

#include <openssl/crypto.h>
#include <openssl/err.h>
#include <openssl/x509_vfy.h>
#include <pthread.h>

#include <cstdlib>

#include "net/socket_test_kit.h"

namespace yinet::test {
namespace {

class Tls : public NetTest {
 protected:
  const Certificates& certificates = Certificates::shared();
  const YString folder{certificates.ca_folder().string()};
};

TEST_F(Tls, TheFinalHostsCertificateIsJudgedAfterTheHandshakeAndTheConnectionStays) {
  using std::chrono::hours;
  const PemPair good = certificates.good(), self_signed = certificates.self_signed();
  const PemPair other =
      certificates.make("other", {.common_name = "a.example", .names = "DNS:a.example,IP:127.0.0.99"});
  const PemPair expired = certificates.make("expired", {.valid_from = hours(-24), .valid_until = hours(-1)});
  const PemPair future = certificates.make("future", {.valid_from = hours(24), .valid_until = hours(48)});
  const std::string evil("evil\r\nERROR forged line\n\x1B[31mred\0hidden\t\r\x07\x9B\xE4\xFF", 45);
  const PemPair hostile = certificates.make("hostile", {.common_name = evil, .self_signed = true});
  constexpr int kSelfSigned = X509_V_ERR_DEPTH_ZERO_SELF_SIGNED_CERT;
  const struct {
    PemPair certificate;
    const char* host;
    int code;
    bool ignore = false;
    const char *always = "0", *names = "1";
  } kCases[] = {{good, "localhost", 0},
                {good, "127.0.0.1", 0},
                {self_signed, "localhost", kSelfSigned},
                {other, "localhost", X509_V_ERR_HOSTNAME_MISMATCH},
                {other, "127.0.0.1", X509_V_ERR_IP_ADDRESS_MISMATCH},
                {expired, "localhost", X509_V_ERR_CERT_HAS_EXPIRED},
                {future, "localhost", X509_V_ERR_CERT_NOT_YET_VALID},
                {hostile, "localhost", kSelfSigned},
                {self_signed, "localhost", 0, true},
                {self_signed, "localhost", kSelfSigned, true, "1"},
                {other, "localhost", 0, false, "0", "0"},
                {expired, "localhost", X509_V_ERR_CERT_HAS_EXPIRED, false, "0", "0"}};
  for (const auto& one : kCases) {
    const SettingChange always(settings::kTlsVerifyAlways, one.always);
    const SettingChange names(settings::kTlsCheckName, one.names);
    for (const TlsVersion version : {TlsVersion::tls12, TlsVersion::tls13}) {
      for (const bool later : {false, true}) {
        SCOPED_TRACE(one.certificate.certificate.string() + (later ? ", STARTTLS" : ", Connect"));
        log.clear();
        ScriptedPeer peer(tls_peer(one.certificate, version).expect("hello").send("world").read_to_end());
        SecureSocket socket;
        ASSERT_TRUE(later || socket.InitSSLClientContext(folder, false, one.ignore));
        EXPECT_EQ(later ? socket.STARTTLS(folder, true, one.ignore, nullptr) : -1, -1) << "without a connection";
        const bool blocking = version == TlsVersion::tls12;
        int result = later ? socket.Connect(one.host, 990, "127.0.0.1", peer.port(), blocking, "", "")  // as by a proxy
                           : socket.Connect(one.host, peer.port(), blocking);
        if (later) result = socket.STARTTLS(folder, true, one.ignore, nullptr);
        EXPECT_EQ(result, one.code == 0 ? 0 : -2);
        EXPECT_TRUE(socket.Send(YString("hello")));
        EXPECT_EQ(receive_exactly(socket, 5), "world");
        EXPECT_EQ(peer.tls().server_name, one.host == std::string("localhost") ? one.host : "") << "no address";
        const int number = later ? message::kStartTlsCertificateRejected : message::kCertificateRejected;
        EXPECT_EQ(log.numbers(), one.code == 0 ? std::vector<int>() : std::vector<int>{number});
        if (one.code == 0) continue;
        const LogRecord entry = log.last(number);
        EXPECT_EQ(entry.level, later ? 2 : 6);
        EXPECT_THAT(entry.text, testing::AllOf(testing::HasSubstr(later ? "127.0.0.1:" : std::string(one.host) + ":"),
                                               testing::HasSubstr(std::to_string(one.code))));
        EXPECT_THAT(entry.extra, testing::HasSubstr("subject: "));
        for (const char c : entry.extra) EXPECT_TRUE(static_cast<unsigned char>(c) >= 32 && c != 127) << +c;
      }
    }
  }
}

TEST_F(Tls, AuthoritiesComeFromTheSystemFromFilesAndFromFolders) {
  const std::string ca = certificates.ca_file().string();
  auto peer = ScriptedPeer::for_every_connection(tls_peer(certificates.good()).read_to_end());
  SecureSocket none, system;
  EXPECT_FALSE(none.AddTrustStoreFile(ca) || none.AddTrustStoreDirectory(folder)) << "without a context";
  for (const bool as_file : {true, false}) {
    SecureSocket socket;
    EXPECT_TRUE(socket.InitSSLClientContext(YString("/no/such/folder\x01") + folder, as_file, false));
    log.clear();
    EXPECT_FALSE(socket.InitSSLClientContext(folder + "\x01", as_file, false)) << "only an empty item fails";
    EXPECT_THAT(log.numbers(), testing::ElementsAre(as_file ? message::kCertificateListItemFailed
                                                            : message::kCertificateFolderFailed));
    ASSERT_TRUE(socket.InitSSLClientContext("", false, false));
    EXPECT_FALSE(socket.AddTrustStoreFile(ca + ".missing") || socket.AddTrustStoreDirectory(folder + ".missing"));
    EXPECT_EQ(connect_to(socket, peer), -2);
    EXPECT_TRUE(as_file ? socket.AddTrustStoreFile(ca) : socket.AddTrustStoreDirectory(folder));
    EXPECT_EQ(connect_to(socket, peer), 0);
  }
  ::setenv("SSL_CERT_FILE", ca.c_str(), 1);
  ASSERT_TRUE(system.InitSSLClientContext("", false, false));
  ::unsetenv("SSL_CERT_FILE");
  EXPECT_EQ(connect_to(system, peer), 0);
}

TEST_F(Tls, AHandshakeThatNeverEndsIsBoundedByItsAttempts) {
  const SettingChange attempts(settings::kTlsAttempts, "10");
  const std::string endless = std::string("\x16\x03\x03\x3f\x00", 5) + std::string(100000, 'x');
  for (const Script& silence :
       {Script().stay_silent(), Script().send(endless.substr(0, 200)).stay_silent(), Script().send_slowly(endless)}) {
    for (const bool ignore : {true, false}) {
      log.clear();
      ScriptedPeer peer(silence);
      OpenSocket socket;
      ASSERT_TRUE(socket.InitSSLClientContext("", false, ignore));
      const auto time = time_of([&] { EXPECT_EQ(connect_to(socket, peer), ignore ? 0 : -1); });
      EXPECT_TRUE(time >= milliseconds(100) && time < milliseconds(5000));
      EXPECT_TRUE(socket.tlsActive) << "without an error it counts as done, except for verification";
      EXPECT_EQ(log.numbers(), ignore ? std::vector<int>() : std::vector<int>{message::kConnectTlsFailed});
      socket.Close();
      static_cast<void>(peer.take_failures());
    }
  }
}

TEST_F(Tls, AHandshakeFailsWithoutTlsOrAgainstThePolicyOfSystemAndHost) {
  constexpr int kNoContext = -9;  // a policy that is not understood is not ignored
  const auto tls = [&](TlsVersion version) { return tls_peer(certificates.good(), version).read_to_end(); };
  const struct {
    ConnectionScript server;
    const char *minimum, *ciphers;
    int result;
  } kCases[] = {{Script().send("220 no TLS here\r\n").read_to_end(), "", "", -1},
                {tls(TlsVersion::tls11), "", "", -1},
                {tls(TlsVersion::tls11), "1.0", "DEFAULT@SECLEVEL=0", 0},
                {tls(TlsVersion::tls12), "1.3", "", -1},
                {tls(TlsVersion::tls12), "", "ECDHE-RSA-AES128-GCM-SHA256", -1},  // the server's key is no RSA key
                {tls(TlsVersion::any), "2", "", kNoContext},
                {tls(TlsVersion::any), "", "nonsense", kNoContext}};
  for (const auto& one : kCases) {
    for (const Mode mode : kBothModes) {
      SCOPED_TRACE(std::string(one.minimum) + " " + one.ciphers);
      log.clear();
      const SettingChange minimum(settings::kTlsMinimumVersion, one.minimum);
      const SettingChange ciphers(settings::kTlsCipherList, one.ciphers);
      auto peer = ScriptedPeer::for_every_connection(one.server);
      OpenSocket at_once, later;
      const bool ready = at_once.InitSSLClientContext("", false, true);
      EXPECT_EQ(ready ? connect_to(at_once, peer, mode) : kNoContext, one.result);
      EXPECT_FALSE(at_once.tlsActive && one.result != 0);
      ASSERT_EQ(connect_to(later, peer, mode), 0);
      EXPECT_EQ(later.STARTTLS("", true, true, nullptr), std::max(one.result, -1));
      EXPECT_EQ(log.last(message::kTlsContextFailed).extra.empty(), one.result != kNoContext);
      for (const int number : {message::kTlsConnectFailed, message::kConnectTlsFailed, message::kStartTlsFailed})
        EXPECT_EQ(log.last(number).number == number, one.result == -1) << number;
      at_once.Close();
      later.Close();
      EXPECT_TRUE(peer.take_failures().empty() || one.result != 0);
    }
  }
}

TEST_F(Tls, OnADataChannelARejectedCertificateStopsTheFirstByte) {
  const SettingChange verify(settings::kTlsVerifyAlways, "1");
  for (const bool reads_first : {true, false}) {
    ScriptedPeer server(tls_peer(certificates.self_signed()).read_to_end());
    OpenSocket socket;
    socket.SetDataChannel(true);
    ASSERT_EQ(connect_to(socket, server), 0);
    ASSERT_EQ(socket.STARTTLS("", false, true, nullptr), 0);
    for (int i = 0; i < 2; ++i)
      EXPECT_TRUE(reads_first ? receive_piece(socket).empty() : !socket.Send(YBuffer("data")));
    EXPECT_NE(log.last(message::kStartTlsCertificateRejected).number, 0);
    socket.Close();
    server.finish();
    EXPECT_EQ(server.received(), "");
  }
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

TEST_F(Tls, LocksAreTraced) {
  SecureSocket::globalSSLInit();
  set_debug_traces(true);
  const int kRead = CRYPTO_LOCK | CRYPTO_READ, kWrite = CRYPTO_LOCK | CRYPTO_WRITE;
  for (const int mode : {kWrite, CRYPTO_UNLOCK, kRead, kRead, CRYPTO_UNLOCK, CRYPTO_UNLOCK})  // readers share
    OpenSocket::openSSL_Lock(mode, 0, "f", 1);
  for (const int nowhere : {-1, CRYPTO_num_locks()}) OpenSocket::openSSL_Lock(CRYPTO_LOCK, nowhere, "f", 1);
  set_debug_traces(false);
  std::string trace;
  for (const LogRecord& record : log.records()) trace += std::to_string(record.number % 100) + " ";
  EXPECT_EQ(trace, "32 69 33 70 32 69 32 69 33 70 33 70 ");
}

TEST_F(Tls, AnErrorQueueIsClearedForItsOwnThreadOnly) {
  ERR_raise(ERR_LIB_USER, ERR_R_INTERNAL_ERROR);
  std::thread([] { SecureSocket::freeSSlErrorStackForThread(static_cast<unsigned long>(pthread_self())); }).join();
  SecureSocket::freeSSlErrorStackForThread(12345678901UL);
  EXPECT_NE(ERR_peek_error(), 0UL);
  SecureSocket::freeSSlErrorStackForThread(static_cast<unsigned long>(pthread_self()));
  EXPECT_EQ(ERR_peek_error(), 0UL);
}

}  // namespace
}  // namespace yinet::test
