// "yinet mail", "yinet address" and "yinet charset", as people call them.

#include <gmock/gmock.h>

#include <nlohmann/json.hpp>

#include "cli/program.h"
#include "support/temp_dir.h"

namespace yinet::test {
namespace {

using testing::AllOf;
using testing::HasSubstr;

TEST(MailCommand, AComposedRecordComesBackWhenItIsDecoded) {
  const TempDir folder;
  const std::string on_disk = folder.write("disk.bin", std::string("\x00\xFF.\r\n", 5)).string();
  const nlohmann::json record = {{"ABSENDER", "eva@example.org"},
                                 {"EMPF\xC3\x84NGER", {"max@example.org", "lager@example.org"}},
                                 {"BETREFF", "M\xC3\xA4rz"},
                                 {"NACHRICHT", "Gr\xC3\xBC\xC3\x9F" "e\n.\n..punkt\rEnde"},
                                 {"ANLAGEN", {"liste.csv", on_disk}},
                                 {"liste.csv", {{"$base64", "QSwNCg=="}}}};
  const std::string mail = (folder / "out.eml").string();
  const CommandResult composed = run_program({"mail", "compose", "-", "-o", mail}, record.dump());
  ASSERT_EQ(composed.exit_code, 0) << composed.errors;
  const std::string bytes = read_file(mail);
  EXPECT_EQ(run_program({"mail", "compose", "-"}, record.dump()).output.size(), bytes.size());

  const nlohmann::json decoded = nlohmann::json::parse(run_program({"mail", "decode", "-", "--json"}, bytes).output);
  EXPECT_EQ(decoded["EMPF\xC3\x84NGER"], "max@example.org\x01lager@example.org");
  EXPECT_EQ(decoded["BETREFF"], "M\xC3\xA4rz");
  EXPECT_EQ(decoded["NACHRICHT"], "Gr\xC3\xBC\xC3\x9F" "e\r\n.\r\n..punkt\r\nEnde");
  EXPECT_EQ(decoded["ANLAGEN"], "liste.csv\x01" "disk.bin");
  EXPECT_EQ(decoded["liste.csv"]["$base64"], "QSwNCg==");
  EXPECT_EQ(decoded["disk.bin"]["$base64"], "AP8uDQo=");
  EXPECT_EQ(run_program({"mail", "parts", "-"}, bytes).output,
            "multipart/mixed\n  text/plain  iso-8859-1  8Bit  23 bytes\n"
            "  application/octet-stream  liste.csv  base64  4 bytes\n"
            "  application/octet-stream  disk.bin  base64  5 bytes\n");
}

TEST(MailCommand, SaysCauseAndCure) {
  const struct {
    std::vector<std::string> arguments;
    std::string input;
    int exit_code;
    std::string said;
  } kCases[] = {
      {{"mail", "compose", "/nowhere/x.json"}, "", 1, "/nowhere/x.json cannot be read: No such file"},
      {{"mail", "compose", "-"}, "{\"BETREFF\": }", 1, "standard input: "},
      {{"mail", "compose", "-"}, R"({"ANLAGEN": "/nowhere/a.pdf"})", 1, "The attachment /nowhere/a.pdf cannot be sent"},
      {{"mail", "compose", "-", "-o", "/nowhere/out"}, R"({"ABSENDER": "a@b"})", 1, "/nowhere/out could not be written"},
      {{"mail", "compose", "-"}, "{}", 0, "the mail has no recipients"},
      {{"mail", "decode", "-"}, "", 1, "standard input is empty"},
      {{"mail", "decode", "x", "--options", "16"}, "", 2, "--options"},
      {{"mail", "decode", "x", "--options", "1", "--out", "y"}, "", 2, "--out"},
      {{"address", "name", "max@example.org"}, "", 1, "no display name"},
      {{"address", "list", " , "}, "", 1, "the list is empty"},
      {{"charset", "convert", "--from", "utf-9", "--to", "utf-8"}, "", 2, "did you mean UTF-"},
      {{"charset", "convert", "--from", "12345", "--to", "utf-8"}, "", 2, "21080"},
      {{"charset", "convert", "--from", "utf-8", "--to", "utf-16"}, "a", 2, "take UTF-8"},
      {{"charset", "convert", "--from", "latin1", "--to", "utf-8"}, std::string("a\0b", 3), 1, "zero byte"},
      {{"charset", "convert", "--from", "latin1", "--to", "utf-7"}, "\xE4", 1, "four bytes"},
  };
  for (const auto& wanted : kCases) {
    const CommandResult result = run_program(wanted.arguments, wanted.input);
    EXPECT_EQ(result.exit_code, wanted.exit_code) << result.errors;
    EXPECT_THAT(result.errors, HasSubstr(wanted.said));
    EXPECT_EQ(result.output.empty(), wanted.exit_code != 0);
  }
}

TEST(MailCommand, ConvertsAndTakesApart) {
  const struct {
    std::vector<std::string> arguments;
    std::string input;
    std::string output;
  } kCases[] = {
      {{"address", "name", "\"J\xC3\xB6rg\" <j@example.org>"}, "", "J\xC3\xB6rg\n"},
      {{"address", "list", "-"}, "Max <max@example.org>,\n\t lager@example.org\n", "max@example.org\nlager@example.org\n"},
      {{"charset", "convert", "--from", "iso-8859-15", "--to", "utf-8"}, "\xA4", "\xE2\x82\xAC"},
      {{"charset", "convert", "--from", "850", "--to", "windows-1252", "-"}, "\x84\r\n", "\xE4\r\n"},
      {{"charset", "convert", "--from", "UTF-16LE", "--to", "utf-8"}, std::string("a\0b\0", 4), "ab"},
  };
  for (const auto& wanted : kCases) {
    const CommandResult result = run_program(wanted.arguments, wanted.input);
    EXPECT_EQ(result.exit_code, 0) << result.errors;
    EXPECT_EQ(result.output, wanted.output);
  }
  EXPECT_THAT(run_program({"charset", "list"}).output, AllOf(HasSubstr("UTF-8\n"), HasSubstr("ibm-5348_P100-1997\n")));
}

TEST(MailCommand, OptionOneSaysWhereTheFilesAre) {
  const TempDir folder;
  const CommandResult result =
      run_program({"mail", "decode", "-", "--options", "1", "--set", "Dateien/TempVerzeichnis=" + folder.path().string()},
                  "Subject: x\nContent-Type: application/pdf; name=a.pdf\n\nabc\n");
  EXPECT_EQ(result.exit_code, 0) << result.errors;
  EXPECT_THAT(result.errors, AllOf(HasSubstr(folder.path().string()), HasSubstr("~EML")));
}

}  // namespace
}  // namespace yinet::test
