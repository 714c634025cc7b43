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

  const nlohmann::json decoded = nlohmann::json::parse(run_program({"mail", "decode", "-", "--json"}, bytes).output);
  EXPECT_EQ(decoded["EMPF\xC3\x84NGER"], "max@example.org\x01lager@example.org");
  EXPECT_EQ(decoded["NACHRICHT"], "Gr\xC3\xBC\xC3\x9F" "e\r\n.\r\n..punkt\r\nEnde");
  EXPECT_EQ(decoded["ANLAGEN"], "liste.csv\x01" "disk.bin");
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
      {{"mail", "compose", "-"}, R"({"ANLAGEN": "/nowhere/a.pdf"})", 1, "The attachment /nowhere/a.pdf cannot be sent"},
      {{"mail", "compose", "-", "-o", "/nowhere/out"}, R"({"ABSENDER": "a@b"})", 1, "/nowhere/out could not be written"},
      {{"mail", "compose", "-"}, "{}", 0, "the mail has no recipients"},
      {{"mail", "decode", "-"}, "", 1, "standard input is empty"},
      {{"mail", "decode", "x", "--options", "16"}, "", 2, "--options"},
      {{"address", "name", "max@example.org"}, "", 1, "no display name"},
      {{"charset", "convert", "--from", "utf-9", "--to", "utf-8"}, "", 2, "did you mean UTF-"},
      {{"charset", "convert", "--from", "utf-8", "--to", "utf-16"}, "a", 2, "take UTF-8"},
      {{"charset", "convert", "--from", "latin1", "--to", "utf-8"}, std::string("a\0b", 3), 1, "zero byte"},
  };
  for (const auto& wanted : kCases) {
    const CommandResult result = run_program(wanted.arguments, wanted.input);
    EXPECT_EQ(result.exit_code, wanted.exit_code) << result.errors;
    EXPECT_THAT(result.errors, HasSubstr(wanted.said));
    EXPECT_EQ(result.output.empty(), wanted.exit_code != 0);
  }
}

TEST(MailCommand, ConvertsAndTakesApart) {
  EXPECT_EQ(run_program({"address", "name", "\"J\xC3\xB6rg\" <j@example.org>"}).output, "J\xC3\xB6rg\n");
  EXPECT_EQ(run_program({"address", "list", "-"}, "Max <max@example.org>,\n\t lager@example.org\n").output,
            "max@example.org\nlager@example.org\n");
  EXPECT_EQ(run_program({"charset", "convert", "--from", "850", "--to", "windows-1252", "-"}, "\x84\r\n").output,
            "\xE4\r\n");
  const std::string wide("a\0b\0", 4);
  EXPECT_EQ(run_program({"charset", "convert", "--from", "UTF-16LE", "--to", "utf-8"}, wide).output, "ab");
  EXPECT_THAT(run_program({"charset", "list"}).output, AllOf(HasSubstr("UTF-8\n"), HasSubstr("ibm-5348_P100-1997\n")));
}

}  // namespace
}  // namespace yinet::test
