// The program without servers: help, tables, wrong calls, options for every command, mails, addresses, character sets.

#include <gmock/gmock.h>
#include <pty.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>

#include "cli/program.h"
#include "support/temp_dir.h"

namespace yinet::test {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

TEST(Program, TellsConvertsAndSaysCauseAndCure) {
  const struct {
    std::vector<std::string> arguments;
    std::string said;
    int exit_code = 2;
    std::string input = {};
  } kCalls[] = {
      {{}, "Examples:\n  yinet call HTTP_GET", 0},
      {{"--version"}, "yinet 0.", 0},
      {{"functions"}, "\n  SECURESOCKETGLOBALSSLINIT ", 0},
      {{"functions", "http_post"}, "text or buffer", 0},
      {{"messages", "21502", "--language", "de"}, "DNS-Anfrage", 0},
      {{"address", "name", "\"J\xC3\xB6rg\" <j@example.org>"}, "J\xC3\xB6rg\n", 0},
      {{"address", "list", "-"}, "max@example.org\njo@example.org\n", 0, "Max <max@example.org>,\n\t jo@example.org\n"},
      {{"charset", "convert", "--from", "850", "--to", "windows-1252", "-"}, "\xE4\r\n", 0, "\x84\r\n"},
      {{"charset", "convert", "--from", "UTF-16LE", "--to", "utf-8"}, "ab", 0, std::string("a\0b\0", 4)},
      {{"mail", "parts", "-"},
       "rfc822  31 bytes\n    text/html",
       0,
       "Content-Type: multipart/mixed; boundary=b\r\n\r\n--b\r\nContent-Type: message/rfc822; "
       "boundary=z\r\n\r\n--z\r\n\r\neins"
       "\r\n--b\r\nContent-Type: message/rfc822\r\n\r\nContent-Type: text/html\r\n\r\nzwei\r\n--b--"},
      {{"charset", "list"}, "ibm-5348_P100-1997\n", 0},
      {{"address", "list", "-"}, "a@b.c\nd@e.f\n", 0, "a@b.c\nd@e.f\r\n"},
      {{"mail", "compose", "-"}, "the mail has no recipients", 0, R"({"ABSENDER": "a@b"})"},
      {{"mail", "compose", "-"}, "no \"ABSENDER\"", 1, "{}"},
      {{"mail", "parts", YINET_EXAMPLES "/angebot.eml"}, "\n    text/html  utf-8  quoted-printable  143 bytes\n", 0},
      {{"--set", "DNS/Serwer=x", "dns", "a", "localhost"}, "DNS/Server", 0},
      {{"functons"}, "there is no command \"functons\"; did you mean functions?"},
      {{"call"}, "FUNCTION is required; \"yinet call --help\""},
      {{"help"}, "\"yinet --help\""},
      {{"ftp", "get"}, "\"yinet ftp get --help\""},
      {{"sftp://me:geheim@h/x"}, "sftp://me:***@h/x"},
      {{"call", "SECURESOCKETGLOBALSSLINIT", "x=1"}, "it takes none; \"yinet functions"},
      {{"call", "HTTP_GTE"}, "did you mean HTTP_GET?"},
      {{"call", "HTTP_GET", "pUlr=x"}, "did you mean pUrl?"},
      {{"call", "HTTP_GET", "pUrl"}, "write KEY=TEXT, KEY:=JSON or KEY=@FILE"},
      {{"call", "HTTP_GET", "pUrl:=\"x"}, "at byte"},
      {{"call", "HTTP_GET", "pUrl=@/nowhere/file"}, "/nowhere/file cannot be read: No such file"},
      {{"call", "HTTP_GET", "--json", "-"}, "--json standard input: "},  // standard input is empty
      {{"functions", "MIME"}, "no script function is named \"MIME\""},
      {{"--set", "DNS=1", "settings"}, "write SECTION/KEY=VALUE"},
      {{"--set", "DNS/Zeitlimit=soon", "settings"}, "the value must be a number"},
      {{"--settings", "/nowhere/file", "settings"}, "/nowhere/file: "},
      {{"ftp", "size", "http://x/y"}, "ftps://HOST/PATH"},
      {{"ftp", "size", "ftp://x/"}, "names no file"},
      {{"ftp", "size", "ftp://x/a%0Ab"}, "line break"},
      {{"sftp", "ls", "sftp://x/y"}, "sftp://USER@HOST"},
      {{"ftp", "ls", "ftp://127.0.0.1:2l021/"}, "\"2l021\" in ftp://127.0.0.1:2l021 is no port"},
      {{"sftp", "ls", "sftp://u@h/", "--proxy", "socks5://h:70000"}, "is no port"},
      {{"sftp", "ls", "sftp://u:p@h/", "--key", "/dev/null"}, "/dev/null holds no private key", 6},
      {{"put", "x", "http://me@h/x"}, "serves \"get\" only"},
      {{"put", "-", "sftp://me@h/"}, "standard input has no name"},
      {{"get", "http://127.0.0.1/x", "x", "--proxy", "socks6://127.0.0.1"}, ""},
      {{"charset", "convert", "--from", "utf-9", "--to", "utf-8"}, "did you mean UTF-"},
      {{"charset", "convert", "--from", "utf-8", "--to", "utf-16"}, "take UTF-8", 2, "a"},
      {{"charset", "convert", "--from", "latin1", "--to", "utf-8"}, "zero byte", 1, std::string("a\0b", 3)},
      {{"charset", "convert", "--from", "utf-16le", "--to", "utf-8"}, "zero bytes", 1, std::string("a\0\0\0", 4)},
      {{"address", "name", "max@example.org"}, "no display name", 1},
      {{"mail", "decode", "-"}, "standard input is empty", 1},
      {{"mail", "compose", "-"},
       "The attachment /nowhere/a.pdf cannot be sent",
       1,
       R"({"ABSENDER": "a@b", "ANLAGEN": "/nowhere/a.pdf"})"},
      {{"mail", "compose", "-", "-o", "/nowhere/out"}, "/nowhere/out could not", 1, R"({"ABSENDER": "a@b"})"},
      {{"--set", "System/Sprache=DE", "dns", "a", "a b"}, "Die DNS-Anfrage", 1},
      {{"dns", "a", "a b"}, "123: not a valid name", 1},
      {{"--log", "json", "--set", "DNS/Server=nobody knows", "dns", "a", "x.test"}, "\"number\":21500", 1}};
  for (const auto& [arguments, said, exit_code, input] : kCalls) {
    const CommandResult result = run_program(arguments, input);
    EXPECT_EQ(result.exit_code, exit_code) << result.errors;
    EXPECT_THAT(result.output + result.errors, AllOf(HasSubstr(said), Not(HasSubstr("geheim"))));
    EXPECT_EQ(result.output.empty(), exit_code != 0) << said;
  }
  const CommandResult lost = run_command({"sh", "-c", std::string(YINET_PROGRAM) + " functions > /dev/full"});
  EXPECT_EQ(lost.exit_code, 1);
  EXPECT_THAT(lost.errors, HasSubstr("No space left on device"));
}

TEST(Program, KeysOfTheTerminalEndThePromptForAPassword) {
  for (const auto& [key, status] : {std::pair('\x03', SIGINT), std::pair('\x04', 2 << 8)}) {  // as wait() tells it
    int terminal = -1, ended = -1;
    const pid_t program = forkpty(&terminal, nullptr, nullptr, nullptr);
    if (program == 0) _exit(execl(YINET_PROGRAM, "yinet", "sftp", "ls", "sftp://me@h/", nullptr));
    std::string shown;
    for (char c = 0; !shown.ends_with("me@h: ") && read(terminal, &c, 1) == 1;) shown += c;
    EXPECT_EQ(write(terminal, &key, 1), 1);
    EXPECT_TRUE(eventually([&] { return waitpid(program, &ended, WNOHANG) == program; }))
        << shown << kill(program, SIGKILL);
    EXPECT_EQ(ended, status) << shown;
    close(terminal);
  }
}

TEST(Program, SettingsComeFromFileEnvironmentAndOptions) {
  const TempDir folder;
  const std::string file = folder.write("my.ini", "[DNS]\nVersuche = 7\nZeitlimit = 70\nServer = x\n").string();
  const CommandResult result = run_program({"settings", "--set", "dns/zeitlimit=9"}, "",
                                           {{"YINET_SETTINGS", file},
                                            {"YINET_DNS_SERVER", "192.0.2.1"},
                                            {"YINET_SYSTEM_NAME", "B\xC3\xA4r"},
                                            {"YINET_TLS_NAMENPRUEFEN", "jawohl"},
                                            {"YINET_TLS_NAMEPRUEFEN", "1"},
                                            {"YINET_FTP_PASSWORD", "1"},
                                            {"YINET_INTERNET_PROXYPASSWORT", "geheim"}});
  EXPECT_EQ(result.exit_code, 0) << result.errors;
  for (const char* line : {"DNS/Versuche = 7\n", "DNS/Zeitlimit = 9\n", "DNS/Server = 192.0.2.1\n",
                           "SYSTEM/NAME = B\xC3\xA4r\n", "ProxyPasswort = ***\n", "TLS/NamenPruefen = 1\n"})
    EXPECT_THAT(result.output, HasSubstr(line));
  for (const char* told : {"\"jawohl\" does not fit", "YINET_TLS_NAMEPRUEFEN; is YINET_TLS_NAMENPRUEFEN meant?"})
    EXPECT_THAT(result.errors, HasSubstr(told));
  EXPECT_EQ(std::ranges::count(result.errors, '\n'), 2) << result.errors;
}

// What a mail holds reaches neither the terminal nor the disk as anything but text.
TEST(Program, SavedMailFilesAreWhatTheyLookLike) {
  const TempDir folder;
  const std::string out = (folder / "out").string(), utf8 = "; charset=utf-8\r\n\r\n";
  std::string mail =
      "Subject: ..x\r\nContent-Type: multipart/mixed; boundary=b\r\n\r\n--b\r\nContent-Type: text/plain" + utf8 +
      "\xD0\x96\xC3\xA4\r\n--b\r\nContent-Type: text/html" + utf8 + "<p>\xD0\x96\xC3\xA4";
  for (const char* name : {"mail.eml", ".bashrc.x", "a\xE2\x80\xAEgpj.\xC2\x9D", "\x9D.Nachricht.htm"})
    mail += std::string("\r\n--b\r\nContent-Type: a/b; name=\"") + name + "\"\r\n\r\n\xE4";
  const CommandResult result = run_program({"mail", "decode", "-", "--out", out}, mail);
  EXPECT_EQ(result.output,
            "Subject: ..x\n\n\xEF\xBF\xBD\xC3\xA4\n\nAttachments:\n  Nachricht.htm  5 bytes\n  mail.eml  1 bytes\n"
            "  .bashrc.x  1 bytes\n  a\\u202egpj.\\x9d  1 bytes\n  \\x9d.Nachricht.htm  1 bytes\n");
  const std::pair<const char*, const char*> kFiles[] = {{"__x.mail.txt", "\xEF\xBF\xBD\xC3\xA4"},
                                                        {"Nachricht.htm", "\xEF\xBB\xBF<p>\xEF\xBF\xBD\xC3\xA4"},
                                                        {"mail.eml", "\xE4"},
                                                        {"_bashrc.x", "\xE4"},
                                                        {"a_gpj._", "\xE4"},
                                                        {"_.Nachricht.htm", "\xE4"}};
  for (const auto& [name, bytes] : kFiles) EXPECT_EQ(read_file(std::filesystem::path(out) / name), bytes) << name;
  EXPECT_EQ(result.errors.find("\xE2\x80\xAE"), std::string::npos) << result.errors;
}

}  // namespace
}  // namespace yinet::test
