#include "support/certificates.h"

#include <gtest/gtest.h>

#include "support/bytes.h"
#include "support/child_process.h"
#include "support/requirements.h"
#include "support/scripted_peer.h"
#include "support/tls_context.h"

namespace yinet::test {
namespace {

// Judged by another program, so that an error here can't hide itself.
std::string verdict(const PemPair& pair, const std::vector<std::string>& more = {}) {
  std::vector<std::string> command{"openssl", "verify"};
  command.insert(command.end(), more.begin(), more.end());
  command.push_back(pair.certificate.string());
  const CommandResult result = run_command(command);
  return result.output + result.errors;
}

TEST(Certificates, OpenSslJudgesThemAsTheirNamesSay) {
  YINET_REQUIRE_PROGRAM("openssl");
  const Certificates& all = Certificates::shared();
  const std::string ca_file = all.ca_file().string();
  const std::string ca_folder = all.ca_folder().string();
  struct Case {
    const char* what;
    PemPair pair;
    std::vector<std::string> arguments;
    const char* expected;
  };
  const std::vector<Case> cases = {
      {"good by file", all.good(), {"-CAfile", ca_file}, ": OK"},
      {"good by folder", all.good(), {"-no-CAfile", "-CApath", ca_folder}, ": OK"},
      {"good for a name", all.good(), {"-CAfile", ca_file, "-verify_hostname", "localhost"}, ": OK"},
      {"good for IPv4", all.good(), {"-CAfile", ca_file, "-verify_ip", "127.0.0.1"}, ": OK"},
      {"good for IPv6", all.good(), {"-CAfile", ca_file, "-verify_ip", "::1"}, ": OK"},
      {"good without the CA", all.good(), {}, "unable to get local issuer certificate"},
      {"self-signed", all.self_signed(), {"-CAfile", ca_file}, "self-signed certificate"},
      {"expired", all.expired(), {"-CAfile", ca_file}, "certificate has expired"},
      {"not yet valid", all.not_yet_valid(), {"-CAfile", ca_file}, "certificate is not yet valid"},
      {"wrong name", all.wrong_name(), {"-CAfile", ca_file, "-verify_hostname", "localhost"}, "hostname mismatch"},
      {"wrong name alone", all.wrong_name(), {"-CAfile", ca_file}, ": OK"},
      {"client", all.client(), {"-CAfile", ca_file, "-purpose", "sslclient"}, ": OK"},
      {"client as server",
       all.client(),
       {"-CAfile", ca_file, "-purpose", "sslserver"},
       "unsuitable certificate purpose"},
  };
  for (const Case& one : cases)
    EXPECT_NE(verdict(one.pair, one.arguments).find(one.expected), std::string::npos)
        << one.what << ": " << verdict(one.pair, one.arguments);
}

TEST(Certificates, TheHostileSubjectHoldsItsControlBytesUnescaped) {
  const std::string pem = read_file(Certificates::shared().hostile_subject().certificate);
  std::string der = run_command({"openssl", "x509", "-outform", "DER"}, pem).output;
  EXPECT_NE(der.find("evil\r\nERROR forged line\n"), std::string::npos) << printable(der);
  EXPECT_NE(der.find(std::string("red\0hidden", 10)), std::string::npos) << printable(der);
}

TEST(Certificates, AnEncryptedKeyOpensWithItsPasswordOnly) {
  CertificateWish wish;
  wish.key_password = "geheim";
  const PemPair pair = Certificates::shared().make("encrypted", wish);
  const auto open_with = [&](const std::string& password) {
    return run_command({"openssl", "pkey", "-noout", "-passin", "pass:" + password, "-in", pair.key.string()})
        .exit_code;
  };
  EXPECT_EQ(open_with("geheim"), 0);
  EXPECT_NE(open_with("falsch"), 0);
}

TEST(Certificates, EveryKindServesAHandshake) {
  CertificateWish rsa;
  rsa.rsa = true;
  const Certificates& all = Certificates::shared();
  for (const PemPair& pair : {all.good(), all.hostile_subject(), all.expired(), all.make("rsa", rsa)}) {
    ScriptedPeer server(Script().start_tls(TlsContext::server(pair)).send("ok").close());
    ScriptedClient client(server.port(), Script().start_tls(TlsContext::client()).expect("ok").expect_end());
    EXPECT_EQ(client.take_failures(), "") << pair.certificate;
  }
}

}  // namespace
}  // namespace yinet::test
