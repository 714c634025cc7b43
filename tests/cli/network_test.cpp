// The commands that use the network, from end to end: a real server on the one side, the program's output on the other.

#include <gmock/gmock.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <filesystem>
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
  nginx.add("document.bin", document);
  const std::string setting = "--set=Dateien/TempVerzeichnis=" + folder.path().string();
  const std::filesystem::path temporary = folder / ("yinet-" + std::to_string(geteuid()));
  for (const std::string& url : {nginx.url("/document.bin"), nginx.tls_url("/chunked/document.bin")}) {
    const CommandResult result = run_program({"call", "HTTP_GET", "pUrl=" + url, setting});
    ASSERT_EQ(result.exit_code, 0) << result.errors;
    const json record = json::parse(result.output);
    EXPECT_TRUE(record["_RETV"] == true && record["pStatus"] == "200 OK");
    const std::string file = record["pResponseFile"].get<std::string>().substr(5);  // behind "TEMP:"
    EXPECT_TRUE(read_file(temporary / file) == document);
    std::filesystem::remove(temporary / file);
    EXPECT_THAT(result.errors,
                AllOf(HasSubstr("pResponseFile is the file " + folder.path().string()), Not(HasSubstr("21922"))));
  }
  // The write fails in the middle, as on a full disk.
  const std::string limited = "trap '' XFSZ; ulimit -f 8; exec " YINET_PROGRAM " call HTTP_GET pResponseFile=before ";
  const CommandResult full = run_command({"sh", "-c", limited + setting + " pUrl=" + nginx.url("/document.bin")});
  EXPECT_THAT(full.output, AllOf(HasSubstr(R"("pStatus": "200 OK")"), HasSubstr(R"("pResponseFile": "before")")));
  EXPECT_THAT(full.errors, HasSubstr("21906"));
  EXPECT_TRUE(full.exit_code == 0 && std::filesystem::is_empty(temporary));
  const CommandResult missing =
      run_program({"call", "HTTP_GET", "--trace", "pResponseFile=before", "pUrl=" + nginx.url("/missing")});
  EXPECT_TRUE(missing.exit_code == 1 && json::parse(missing.output)["_RETV"] == false &&
              json::parse(missing.output)["pResponseFile"] == "before");
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
  nginx.add("answer.xml",
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
  folder.write("test.zone",
               "@ SOA ns m 1 1 1 1 1\n@ NS ns\nonly.first A 192.0.2.1\nfirst MX 20 slow.first\nfirst MX 10 fast.first\n"
               "host.second A 192.0.2.2\nonly.second A 192.0.2.3\n");
  folder.write("knot.conf", "server:\n  listen: 127.0.0.1@53\n  rundir: " + path + "\ndatabase:\n  storage: " + path +
                                "\nzone:\n  - domain: test\n    storage: " + path + "\n    journal-content: none\n");
  folder.write("resolv.conf", "search first.test second.test\nnameserver 127.0.0.1\n");
  folder.write("hosts", "::1 listed\n192.0.2.50 Listed alias.of.listed\n192.0.2.51 listed\n");
  const std::string script =
      "cd " + path +
      "; mount --bind hosts /etc/hosts || exit 3; : >log; knotd -c knot.conf >log 2>&1 & server=$!; "
      "for i in $(seq 200); do grep -q 'loaded, serial' log && break; sleep 0.02; done; "
      "for query in 'mx first.test' 'a host' 'a only' 'a LISTED' 'a alias.of.listed.' 'a host.'; do " YINET_PROGRAM
      " dns $query; code=$?; done; kill $server; wait; exit $code";
  const CommandResult result = run_command(in_network_namespace({"sh", "-c", script}, folder / "resolv.conf"));
  EXPECT_EQ(result.output, "10 fast.first.test\n20 slow.first.test\n192.0.2.2\n192.0.2.1\n192.0.2.50\n192.0.2.50\n");
  EXPECT_TRUE(result.exit_code == 1 && result.errors.find("9005") != std::string::npos)
      << "it knows nothing of the root";
}

std::size_t count_files(const TempDir& folder) {
  return static_cast<std::size_t>(std::distance(std::filesystem::directory_iterator(folder.path()), {}));
}

TEST(TransferCommands, MoveListAndDeleteFilesAndTellWhyNot) {
  YINET_SKIP_FOR(SshServer::missing());
  YINET_SKIP_FOR(FtpServer::missing(FtpBrand::proftpd));
  YINET_SKIP_FOR(SocksServer::missing(SocksServer::Brand::dante));
  for (const char* program : {"nginx", "tinyproxy"}) YINET_REQUIRE_PROGRAM(program);
  const FtpServer ftp_server({.brand = FtpBrand::proftpd, .tls = true});
  const SshServer ssh_server;
  const NginxServer web;
  const SocksServer socks(SocksServer::Brand::dante);
  const HttpProxy http_proxy;
  ScriptedPeer cut_data(Script().send("0123").close());
  const int port = cut_data.port();
  const std::string passive = "127,0,0,1," + std::to_string(port / 256) + "," + std::to_string(port % 256);
  Script cut;  // one reply ends later than the usual form would wait
  cut.send("220 hi\r\n").expect("USER u\r\n").send("331 a\r\n").expect("PASS p\r\n").send("230-b\r\n");
  cut.pause(milliseconds(700)).send("230 b\r\n").expect("TYPE I\r\n").send("200 c\r\n").expect("SIZE f\r\n");
  cut.send("213 10\r\n").expect("PASV\r\n").send("227 (" + passive + ")\r\n").expect("RETR f\r\n");
  cut.send("150 d\r\n226 e\r\n").expect("QUIT\r\n").send("221 f\r\n").read_to_end();
  ScriptedPeer cut_server(cut);
  const TempDir local;
  const std::string name = "50% M\xC3\xA4rz#1.txt", name_in_url = "50%25%20M%C3%A4rz%231.txt";
  const std::string source = local.write(name, "content").string(), none = (local / "none").string();
  const std::string back = (local / "back").string(), nowhere = (local / "none/x").string();
  const std::string by = "--proxy=socks5://" + socks.address(), by_http = "--proxy=http://" + http_proxy.address();
  const std::string ftp = "ftps://" + ftp_server.user() + "@" + ftp_server.address() + "/";
  const std::string sftp = "sftp://" + SshServer::user() + "@" + ssh_server.address() + "/";
  const std::string wrong_sftp = "sftp://" + SshServer::user() + ":falsch@" + ssh_server.address() + "/";
  const std::string folder = sftp + "B%C3%BC%20cher/", file = folder + name_in_url;
  const std::string absolute = sftp + "%2F" + ssh_server.folder().string().substr(1);
  const std::string refused = "127.0.0.1:" + std::to_string(refused_port()) + "/x";
  const std::map<std::string, std::string> environment = {{"YINET_FTP_PASSWORD", ftp_server.password()},
                                                          {"YINET_SFTP_PASSWORD", SshServer::password()},
                                                          {"YINET_PASSWORD", SshServer::password()},
                                                          {"YINET_KOMMUNIKATION_PAUSENACHVERBINDUNG", "0"},
                                                          {"YINET_DATEITRANSFER_VERBINDUNGSLIMIT", "120000"}};
  const struct {
    std::vector<std::string> arguments;
    int exit_code;
    std::string said = {};
  } steps[] = {{{"ftp", "put", ftp, source, by}, 0, "7 bytes in "},
               {{"ftp", "size", ftp + name_in_url, by}, 0, "7\n"},
               {{"ftp", "ls", ftp, by}, 0, name + "\n"},
               {{"ftp", "get", ftp + name_in_url, back, by}, 0},
               {{"ftp", "get", ftp + "none", back, by}, 5},
               {{"ftp", "rm", ftp + name_in_url, by}, 0},
               {{"ftp", "put", ftp + "typed", "-", by}, 0},
               {{"ftp", "get", ftp + "typed", "-", by}, 0, "content"},
               {{"ftp", "rm", ftp + name_in_url, by}, 5},
               {{"ftp", "put", ftp, none, by}, 6},
               {{"ftp", "get", "ftp://u:p@" + cut_server.target() + "/f", back}, 7, "4 of 10 bytes"},
               {{"ftp", "size", "ftp://" + refused}, 3},
               {{"ftp", "size", "ftps://u:falsch@" + ftp_server.address() + "/x"}, 4},
               {{"sftp", "ls", wrong_sftp}, 4},
               {{"sftp", "mkdir", folder, by}, 0},
               {{"sftp", "put", folder, source, by}, 0, "7 bytes in "},
               {{"sftp", "ls", folder, by}, 0, name + "\n"},
               {{"sftp", "get", file, back, by}, 0},
               {{"sftp", "ls", folder, by, "--trace"}, 0, "ssh-ed25519 SHA256:"},
               {{"sftp", "get", folder + "none", back, by}, 5, "none: no such file"},
               {{"sftp", "rm", file, by}, 0},
               {{"sftp", "put", file, none}, 6},
               {{"exists", file}, 5},  // nothing is emptied for a missing file
               {{"sftp", "rmdir", folder, by}, 0},
               {{"sftp", "ls", sftp, "--key", ssh_server.user_key().string()}, 0},
               {{"sftp", "ls", sftp, "--known-hosts", source}, 3},
               {{"mkdir", folder}, 0},
               {{"exists", folder}, 0},
               {{"put", source, folder, by_http}, 0},
               {{"get", file, back}, 0},
               {{"get", file, nowhere}, 6, nowhere + " cannot be written: No such file"},
               {{"get", file + "x", back}, 5},
               {{"exists", absolute}, 0},
               {{"get", web.url("/status/401"), back}, 4},
               {{"get", web.tls_url("/hello.txt?x=1"), local.path().string()}, 0},
               {{"get", "sftp://u:p@" + refused, back}, 3},
               {{"rm", file}, 0},
               {{"rmdir", folder}, 0}};
  for (const auto& [arguments, exit_code, said] : steps) {
    local.write("back", "older");
    const CommandResult result = run_program(arguments, "content", environment);
    EXPECT_EQ(result.exit_code, exit_code) << testing::PrintToString(arguments) << result.errors;
    EXPECT_THAT(result.output + result.errors, AllOf(HasSubstr(said), Not(HasSubstr("falsch"))));
    EXPECT_EQ(read_file(back), exit_code == 0 && std::ranges::count(arguments, back) ? "content" : "older");
  }
  EXPECT_EQ(read_file(local / "hello.txt"), NginxServer::kHello);
  EXPECT_EQ(run_program({"ftp", "put", ftp, source, "--quiet"}, "", environment).errors, "");
  EXPECT_EQ(ftp_server.content(name), "content");
  EXPECT_EQ(count_files(local), 3) << "no transfer leaves a part of a file";
}

TEST(TransferCommands, ASignalLeavesNoHalfFileAndKeepsTheOlderOne) {
  ScriptedPeer server(
      Script().read_until("\r\n\r\n").send("HTTP/1.1 200 OK\r\nContent-Length: 9\r\n\r\nhalf").read_to_end());
  const TempDir local;
  const std::string target = local.write("x", "older").string();
  ChildProcess program({YINET_PROGRAM, "get", server.url(), target});
  const auto half_is_there = [&] {
    std::error_code error;
    return std::ranges::any_of(std::filesystem::directory_iterator(local.path()),
                               [&](const auto& file) { return file.file_size(error) == 4; });
  };
  ASSERT_TRUE(eventually(half_is_there)) << program.errors();
  EXPECT_EQ(program.stop(), 128 + SIGTERM);
  EXPECT_EQ(count_files(local), 1);
  EXPECT_EQ(read_file(target), "older");
}

}  // namespace
}  // namespace yinet::test
