// "yinet call" from end to end: nginx on the one side, JSON on the other.

#include <gmock/gmock.h>
#include <unistd.h>

#include <nlohmann/json.hpp>

#include "cli/program.h"
#include "support/bytes.h"
#include "support/nginx_server.h"
#include "support/ports.h"
#include "support/requirements.h"
#include "support/scripted_peer.h"
#include "support/temp_dir.h"

namespace yinet::test {
namespace {

using testing::AllOf;
using testing::HasSubstr;

class CallCommand : public testing::Test {
 protected:
  CommandResult call(std::vector<std::string> arguments, const std::string& standard_input = {}) {
    const std::string setting = "Dateien/TempVerzeichnis=" + folder_.path().string();
    arguments.insert(arguments.begin(), {"call", "--set", setting});
    return run_program(std::move(arguments), standard_input);
  }
  static nlohmann::json record_of(const CommandResult& result) { return nlohmann::json::parse(result.output); }
  // Content of a file with a logical name.
  [[nodiscard]] std::string content_of(const std::string& name) const {
    EXPECT_TRUE(name.starts_with("TEMP:")) << name;
    return read_file(folder_ / ("yinet-" + std::to_string(geteuid())) / name.substr(5));
  }

  TempDir folder_;
};

TEST_F(CallCommand, FetchesADocumentPlainAndOverTls) {
  YINET_REQUIRE_PROGRAM("nginx");
  const NginxServer nginx;
  const std::string document = pattern_bytes(300001);
  nginx.add_document("document.bin", document);
  for (const std::string& url : {nginx.url("/document.bin"), nginx.tls_url("/document.bin")}) {
    const CommandResult result = call({"HTTP_GET", "pUrl=" + url});
    ASSERT_EQ(result.exit_code, 0) << result.errors;
    const nlohmann::json record = record_of(result);
    EXPECT_EQ(record["_RETV"], true);
    EXPECT_EQ(record["pStatus"], "200 OK");
    EXPECT_TRUE(content_of(record["pResponseFile"]) == document);
    EXPECT_THAT(result.errors, AllOf(HasSubstr("pResponseFile is the file " + folder_.path().string()),
                                     testing::Not(HasSubstr("21922"))));
  }
  const CommandResult missing = call({"HTTP_GET", "--trace", "pUrl=" + nginx.url("/missing")});
  EXPECT_EQ(missing.exit_code, 1);
  EXPECT_EQ(record_of(missing)["_RETV"], false);
  EXPECT_THAT(missing.errors, AllOf(HasSubstr("21922"), HasSubstr("HTTP_GET failed: 404 Not Found")));
}

TEST_F(CallCommand, ParametersReachTheWireAsTheirBytes) {
  const std::string file = folder_.write("content", std::string("\x00\xFF\r\n@", 5)).string();
  const struct {
    std::vector<std::string> parameters;
    std::string standard_input, sent, said;
  } kCases[] = {
      {{"pContent=gr\xC3\xBC\xC3\x9F \xE2\x82\xAC"}, "", "gr\xFC\xDF \x80", ""},
      {{"pContent=\xE4\xB8\xAD"}, "", "\xE4\xB8\xAD", "pContent: a text that Windows-1252 cannot hold"},
      {{"pContent=@" + file}, "", std::string("\x00\xFF\r\n@", 5), ""},
      {{"pContent=@-"}, "from standard input", "from standard input", ""},
      {{"pContent=@@home"}, "", "@home", ""},
      {{"pContent:=\"a\\u00fc\""}, "", "a\xFC", ""},
      {{"pContent:={\"$base64\": \"AP8=\"}"}, "", std::string("\x00\xFF", 2), ""},
      {{"--json", "-", "pContent=later wins"}, R"({"pContent": "x"})", "later wins", ""},
  };
  for (const auto& wanted : kCases) {
    ScriptedPeer peer(
        Script().read_until("\r\n\r\n").skip(wanted.sent.size()).send("HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n"));
    std::vector<std::string> arguments = {"HTTP_POST", "pUrl=" + peer.url()};
    arguments.insert(arguments.end(), wanted.parameters.begin(), wanted.parameters.end());
    const CommandResult result = call(arguments, wanted.standard_input);
    EXPECT_EQ(result.exit_code, 0) << result.errors;
    peer.finish();
    const std::string received = peer.received();
    EXPECT_TRUE(received.ends_with("\r\n\r\n" + wanted.sent)) << received;
    EXPECT_THAT(result.errors, HasSubstr(wanted.said));
  }
}

TEST_F(CallCommand, SoapAnswersAndFaultsOfARealServer) {
  YINET_REQUIRE_PROGRAM("nginx");
  const NginxServer nginx;
  nginx.add_document("answer.xml",
                     "<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?><S:Envelope xmlns:S=\"urn:s\"><S:Body><Count>"
                     "<Item unit=\"St\xFC" "ck\">24</Item></Count></S:Body></S:Envelope>");
  nginx.add_document("fault.xml", "<Fault><faultcode>Client</faultcode></Fault>");
  nlohmann::json call_record = nlohmann::json::parse(read_file(YINET_EXAMPLES "/soap-call.json"));
  const auto called = [&](const std::string& url) {
    call_record["pParam"]["ENDPOINT"] = url;
    return call({"SOAP_EXECUTEFUNCTION", "--trace", "--json", "-"}, call_record.dump());
  };
  const CommandResult answer = called(nginx.tls_url("/post/answer.xml"));
  EXPECT_EQ(answer.exit_code, 0) << answer.errors;
  EXPECT_THAT(answer.errors, AllOf(HasSubstr("21966"), HasSubstr("<nskv:Item>St\xC3\xBChle</nskv:Item>")));
  EXPECT_EQ(record_of(answer)["pErg"]["S:Envelope"]["S:Body"]["Count"]["Item@unit"], "St\xC3\xBC" "ck");
  const CommandResult fault = called(nginx.url("/fault/fault.xml"));
  EXPECT_EQ(fault.exit_code, 1);
  EXPECT_EQ(record_of(fault)["pErg"]["Fault"]["faultcode"], "Client");
}

TEST_F(CallCommand, PasswordsAreNotPrinted) {
  const CommandResult result = call({"FTPS_LOESCHE", "pHOST=127.0.0.1:" + std::to_string(refused_port()), "pUser=me",
                                     "PPASSWD=geheim1", "pProxyPassword=geheim2", "pDateiname=ftp://u:geheim3@h/x"});
  EXPECT_EQ(result.exit_code, 1);
  EXPECT_EQ(record_of(result)["PPASSWD"], "***");
  EXPECT_EQ(record_of(result)["pUser"], "me");
  EXPECT_EQ(record_of(result)["pDateiname"], "ftp://u:***@h/x");
  EXPECT_THAT(result.output + result.errors, testing::Not(HasSubstr("geheim")));
}

}  // namespace
}  // namespace yinet::test
