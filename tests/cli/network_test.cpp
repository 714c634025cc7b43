// "yinet call" and "yinet dns" from end to end: a real server on the one side, the program's output on the other.

#include <gmock/gmock.h>
#include <unistd.h>

#include <nlohmann/json.hpp>

#include "cli/program.h"
#include "support/bytes.h"
#include "support/requirements.h"
#include "support/scripted_peer.h"
#include "support/servers.h"

namespace yinet::test {
namespace {

using nlohmann::json;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

TEST(CallCommand, FetchesADocumentPlainAndOverTls) {
  YINET_REQUIRE_PROGRAM("nginx");
  const NginxServer nginx;
  const TempDir folder;
  const std::string document = pattern_bytes(300001);
  nginx.add_document("document.bin", document);
  const std::string setting = "--set=Dateien/TempVerzeichnis=" + folder.path().string();
  for (const std::string& url : {nginx.url("/document.bin"), nginx.tls_url("/document.bin")}) {
    const CommandResult result = run_program({"call", "HTTP_GET", "pUrl=" + url, setting});
    ASSERT_EQ(result.exit_code, 0) << result.errors;
    const json record = json::parse(result.output);
    EXPECT_TRUE(record["_RETV"] == true && record["pStatus"] == "200 OK");
    const std::string file = record["pResponseFile"].get<std::string>().substr(5);  // behind "TEMP:"
    EXPECT_TRUE(read_file(folder / ("yinet-" + std::to_string(geteuid())) / file) == document);
    EXPECT_THAT(result.errors,
                AllOf(HasSubstr("pResponseFile is the file " + folder.path().string()), Not(HasSubstr("21922"))));
  }
  const CommandResult missing = run_program({"call", "HTTP_GET", "--trace", "pUrl=" + nginx.url("/missing")});
  EXPECT_TRUE(missing.exit_code == 1 && json::parse(missing.output)["_RETV"] == false);
  EXPECT_THAT(missing.errors, AllOf(HasSubstr("21922"), HasSubstr("HTTP_GET failed: 404 Not Found")));
}

TEST(CallCommand, ParametersReachTheWireAsTheirBytes) {
  const TempDir folder;
  const std::string bytes("\x00\xFF\r\n@", 5), file = folder.write("content", bytes).string();
  const struct {
    std::vector<std::string> parameters;
    std::string sent, standard_input = {}, said = {};
  } kCases[] = {{{"pContent=gr\xC3\xBC\xC3\x9F \xE2\x82\xAC"}, "gr\xFC\xDF \x80"},
                {{"pContent=\xE4\xB8\xAD"}, "\xE4\xB8\xAD", "", "pContent: a text that Windows-1252 cannot hold"},
                {{"pContent=@" + file}, bytes},
                {{"pContent=@-"}, bytes, bytes},
                {{"pContent=@@home"}, "@home"},
                {{"pContent:=\"a\\u00fc\""}, "a\xFC"},
                {{"pContent:={\"$base64\": \"AP8=\"}"}, std::string("\x00\xFF", 2)},
                {{"--json", "-", "pContent=later wins"}, "later wins", R"({"pContent": "x"})"}};
  for (const auto& [parameters, sent, standard_input, said] : kCases) {
    ScriptedPeer peer(
        Script().read_until("\r\n\r\n").skip(sent.size()).send("HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n"));
    std::vector<std::string> arguments = {"call", "HTTP_POST", "pUrl=" + peer.url()};
    arguments.insert(arguments.end(), parameters.begin(), parameters.end());
    const CommandResult result = run_program(arguments, standard_input);
    EXPECT_EQ(result.exit_code, 0) << result.errors;
    peer.finish();
    EXPECT_THAT(peer.received(), testing::EndsWith("\r\n\r\n" + sent));
    EXPECT_THAT(result.errors, HasSubstr(said));
  }
}

TEST(CallCommand, SoapAnswersOfARealServer) {
  YINET_REQUIRE_PROGRAM("nginx");
  const NginxServer nginx;
  nginx.add_document("answer.xml",
                     "<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?><S:Envelope xmlns:S=\"urn:s\"><S:Body>"
                     "<Item unit=\"Gr\xF6\xDF\">24</Item></S:Body></S:Envelope>");
  json soap = json::parse(read_file(YINET_EXAMPLES "/soap-call.json"));
  soap["pParam"]["ENDPOINT"] = nginx.tls_url("/post/answer.xml");
  const CommandResult result = run_program({"call", "SOAP_EXECUTEFUNCTION", "--trace", "--json", "-"}, soap.dump());
  ASSERT_EQ(result.exit_code, 0) << result.errors;
  EXPECT_THAT(result.errors, AllOf(HasSubstr("21966"), HasSubstr("<nskv:Item>St\xC3\xBChle</nskv:Item>")));
  EXPECT_EQ(json::parse(result.output)["pErg"]["S:Envelope"]["S:Body"]["Item@unit"], "Gr\xC3\xB6\xC3\x9F");
}

TEST(CallCommand, PasswordsAreNotPrinted) {
  const CommandResult result =
      run_program({"call", "FTPS_LOESCHE", "pHOST=127.0.0.1:" + std::to_string(refused_port()), "pUser=me",
                   "PPASSWD=geheim1", "pProxyPassword=geheim2", "pDateiname=ftp://u:geheim3@h/x"});
  EXPECT_EQ(result.exit_code, 1);
  EXPECT_THAT(result.output, AllOf(HasSubstr(R"("PPASSWD": "***")"), HasSubstr(R"("pUser": "me")"),
                                   HasSubstr(R"("ftp://u:***@h/x")")));
  EXPECT_THAT(result.output + result.errors, Not(HasSubstr("geheim")));
}

// A name server on port 53 with a resolver configuration and a hosts file around it.
TEST(DnsCommand, UsesSearchListAndHostsFileOfTheSystem) {
  YINET_REQUIRE_PROGRAM("knotd");
  YINET_REQUIRE_NETWORK_NAMESPACES();
  const TempDir folder;
  const std::string path = folder.path().string();
  folder.write("first.test.zone", "@ SOA ns m 1 1 1 1 1\n@ NS ns\nonly A 192.0.2.1\n@ MX 20 slow\n@ MX 10 fast\n");
  folder.write("second.test.zone", "@ SOA ns m 1 1 1 1 1\n@ NS ns\nhost A 192.0.2.2\nonly A 192.0.2.3\n");
  folder.write("knot.conf", "server:\n  listen: 127.0.0.1@53\n  rundir: " + path + "\ndatabase:\n  storage: " + path +
                                "\ntemplate:\n  - id: default\n    storage: " + path +
                                "\n    file: \"%s.zone\"\n    zonefile-sync: -1\n    journal-content: none\n"
                                "zone:\n  - domain: first.test\n  - domain: second.test\n");
  folder.write("resolv.conf", "search first.test second.test\nnameserver 127.0.0.1\n");
  folder.write("hosts", "::1 listed\n192.0.2.50 Listed alias.of.listed\n192.0.2.51 listed\n");
  // Zones are loaded one by one, some of them after the server says that it has started.
  const std::string script =
      "cd " + path +
      "; mount --bind hosts /etc/hosts || exit 3; : >log; knotd -c knot.conf >log 2>&1 & server=$!; "
      "for i in $(seq 200); do [ $(grep -c 'loaded, serial' log) -ge 2 ] && break; sleep 0.02; done; "
      "for query in 'mx first.test' 'a host' 'a only' 'a LISTED' 'a alias.of.listed.' 'a host.'; do " YINET_PROGRAM
      " dns $query; code=$?; done; kill $server; wait; exit $code";
  const CommandResult result = run_command(in_network_namespace({"sh", "-c", script}, folder / "resolv.conf"));
  EXPECT_EQ(result.output, "10 fast.first.test\n20 slow.first.test\n192.0.2.2\n192.0.2.1\n192.0.2.50\n192.0.2.50\n");
  EXPECT_TRUE(result.exit_code == 1 && result.errors.find("9005") != std::string::npos)
      << "it knows nothing of the root";
}

}  // namespace
}  // namespace yinet::test
