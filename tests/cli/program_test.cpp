// The program without a network: help, tables, wrong calls, options that hold for every command.

#include <gmock/gmock.h>

#include "cli/program.h"
#include "support/temp_dir.h"

namespace yinet::test {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::Not;

TEST(Program, HasHelpWithExamples) {
  const CommandResult result = run_program({});
  EXPECT_EQ(result.exit_code, 0);
  EXPECT_THAT(result.output, AllOf(HasSubstr("Examples:"), HasSubstr("yinet call HTTP_GET")));
  for (const char* command : {"call", "dns", "ftp", "functions", "mail", "messages", "settings"}) {
    EXPECT_THAT(result.output, HasSubstr(std::string("  ") + command + " "));
    EXPECT_THAT(run_program({command, "--help"}).output, HasSubstr(std::string("  yinet ") + command)) << command;
  }
  EXPECT_THAT(run_program({"--version"}).output, MatchesRegex("yinet [0-9]+\\.[0-9]+\\.[0-9]+\n"));
  EXPECT_THAT(run_program({"functions"}).output, HasSubstr("\n  SECURESOCKETGLOBALSSLINIT "));
  EXPECT_THAT(run_program({"functions", "http_post"}).output,
              AllOf(HasSubstr("text or buffer"), HasSubstr("_RETV (bool)"), HasSubstr("  yinet call HTTP_POST pUrl=")));
  EXPECT_THAT(run_program({"messages", "21502", "--language", "de"}).output, HasSubstr("DNS-Anfrage"));
}

TEST(Program, WrongCallsEndWithTwoAndSayWhatWouldBeRight) {
  const struct {
    std::vector<std::string> arguments;
    std::string said;
  } kCases[] = {
      {{"functons"}, "there is no command \"functons\"; did you mean functions?"},
      {{"call"}, "FUNCTION is required; \"yinet call --help\""},
      {{"call", "HTTP_GTE"}, "did you mean HTTP_GET?"},
      {{"call", "HTTP_GET", "pUlr=x"}, "did you mean pUrl?"},
      {{"call", "HTTP_GET", "pUrl"}, "write KEY=TEXT, KEY:=JSON or KEY=@FILE"},
      {{"call", "HTTP_GET", "pUrl:=\"x"}, "at byte"},
      {{"call", "HTTP_GET", "pUrl=@/nowhere/file"}, "/nowhere/file cannot be read: No such file"},
      {{"call", "HTTP_GET", "--json", "-"}, "--json standard input: "},  // standard input is empty
      {{"functions", "MIME"}, "no script function is named \"MIME\""},
      {{"messages", "1"}, "there is no message 1"},
      {{"--set", "DNS=1", "settings"}, "write SECTION/KEY=VALUE"},
      {{"--set", "DNS/Zeitlimit=soon", "settings"}, "the value must be a number"},
      {{"--set", "TLS/NamenPruefen=maybe", "settings"}, "the value must be 0 or 1"},
      {{"--settings", "/nowhere/file", "settings"}, "/nowhere/file: "},
      {{"--language", "fr", "settings"}, "fr"},
  };
  for (const auto& wrong : kCases) {
    const CommandResult result = run_program(wrong.arguments);
    EXPECT_EQ(result.exit_code, 2) << wrong.said;
    EXPECT_THAT(result.errors, HasSubstr(wrong.said));
    EXPECT_EQ(result.output, "") << wrong.said;
  }
}

TEST(Program, SettingsComeFromFileEnvironmentAndOptions) {
  const TempDir folder;
  const std::string file = folder.write("my.ini", "[DNS]\nVersuche = 7\nZeitlimit = 70\n").string();
  const CommandResult result =
      run_command({.argv = program_call({"--settings", file, "settings", "--set", "dns/zeitlimit=9"}),
                   .environment = {{"YINET_DNS_SERVER", "192.0.2.1"}, {"YINET_INTERNET_PROXYPASSWORT", "geheim"}}});
  EXPECT_EQ(result.exit_code, 0);
  EXPECT_EQ(result.errors, "");
  EXPECT_THAT(result.output, AllOf(HasSubstr("DNS/Versuche = 7\n"), HasSubstr("DNS/Zeitlimit = 9\n"),
                                   HasSubstr("DNS/Server = 192.0.2.1\n"), HasSubstr("ProxyPasswort = ***\n")));
}

TEST(Program, TellsWhatIsWrongBesideTheResult) {
  const CommandResult remark = run_program({"--set", "DNS/Serwer=x", "dns", "a", "localhost"});
  EXPECT_EQ(remark.output, "127.0.0.1\n");
  EXPECT_THAT(remark.errors, AllOf(HasSubstr("DNS/Serwer"), HasSubstr("DNS/Server")));
  const CommandResult lost = run_command({"sh", "-c", std::string(YINET_PROGRAM) + " functions > /dev/full"});
  EXPECT_EQ(lost.exit_code, 1);
  EXPECT_THAT(lost.errors, HasSubstr("No space left on device"));
  const CommandResult json = run_program({"--log", "json", "--set", "DNS/Server=nobody knows", "dns", "a", "x.test"});
  EXPECT_EQ(json.exit_code, 1);
  EXPECT_THAT(json.errors, AllOf(testing::StartsWith("{"), HasSubstr("21500"), Not(HasSubstr("yinet:"))));
}

}  // namespace
}  // namespace yinet::test
