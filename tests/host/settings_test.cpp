#include "yinet/host/settings.h"

#include <gmock/gmock.h>
#include <sys/wait.h>

#include <cstdlib>
#include <fstream>
#include <set>
#include <stdexcept>

#include "support/log_capture.h"
#include "yinet/host/message_numbers.h"
#include "yinet/host/setting_table.h"
#include "yinet/host/text.h"
#include "yinet/host/yenviron.h"

namespace yinet {
namespace {

using testing::HasSubstr;
using testing::StartsWith;

class SettingsTest : public testing::Test {
 protected:
  void TearDown() override {
    set_settings_source(nullptr);
    for (const auto& setting : all_settings()) set_setting(setting.section, setting.name, std::nullopt);
    load_settings_file("/dev/null");
  }

  static std::string file_with(std::string_view text) {
    std::string path = testing::TempDir() + "settings_" +
                       testing::UnitTest::GetInstance()->current_test_info()->name() + std::to_string(getpid());
    std::ofstream(path, std::ios::binary) << text;
    return path;
  }
};

TEST_F(SettingsTest, EveryRowIsUniqueHasAMeaningAndAFittingDefault) {
  std::set<std::string> names;
  for (const auto& setting : all_settings()) {
    const std::string name = std::string(setting.section) + "/" + std::string(setting.name);
    EXPECT_TRUE(names.insert(to_lower(name)).second) << name << " stands twice";
    EXPECT_THAT(std::string(setting.meaning), testing::EndsWith(".")) << name;
    if (setting.unit == SettingUnit::text) continue;
    EXPECT_FALSE(setting.default_value.empty()) << name;
    EXPECT_EQ(setting.default_value.find_first_not_of("0123456789"), std::string_view::npos) << name;
    if (setting.unit == SettingUnit::boolean) {
      EXPECT_THAT(setting.default_value, testing::AnyOf("0", "1")) << name;
    }
  }
}

TEST_F(SettingsTest, OverridesComeBeforeASourceAndThatTakesThePlaceOfTheFile) {
  ASSERT_EQ(load_settings_file(file_with("[http]\nABFRAGEN=5\n[DNS]\nVersuche=6\n")), std::nullopt);
  EXPECT_EQ(setting_number(settings::kHttpIdlePolls), 5);
  set_settings_source([](std::string_view section, std::string_view name) -> std::optional<std::string> {
    if (section == "HTTP" && name == "Abfragen") return "9";
    return std::nullopt;
  });
  EXPECT_EQ(setting_number(settings::kHttpIdlePolls), 9);
  EXPECT_EQ(setting_number(settings::kDnsTries), 2) << "the file must not count beside a source";
  set_setting("HTTP", "Abfragen", "11");
  EXPECT_EQ(setting_number(settings::kHttpIdlePolls), 11);
  set_setting("http", "abfragen", std::nullopt);
  set_settings_source(nullptr);
  EXPECT_EQ(setting_number(settings::kHttpIdlePolls), 5);
  ASSERT_EQ(load_settings_file("/dev/null"), std::nullopt);
  EXPECT_EQ(setting_number(settings::kHttpIdlePolls), 100);
}

TEST_F(SettingsTest, ASourceMayThrowAndMayLookUpSettingsItself) {
  set_settings_source([](std::string_view, std::string_view name) -> std::optional<std::string> {
    if (name == "Versuche") throw std::runtime_error("no");
    if (name == "Abfragen") {
      set_setting("HTTP", "CookieLimit", "4");
      return std::to_string(setting_number(settings::kHttpCookieLimit));
    }
    return std::nullopt;
  });
  EXPECT_EQ(setting_number(settings::kDnsTries), 2);
  EXPECT_EQ(setting_number(settings::kHttpIdlePolls), 4);
}

TEST_F(SettingsTest, NumbersAndFlagsAreReadForgivingly) {
  const struct {
    const char* text;
    std::int64_t number;  // of a setting whose default is 50
    bool flag_default_on, flag_default_off;
  } kCases[] = {{"0", 0, false, false},   {"1", 1, true, true},     {" 12 ", 12, true, false}, {"-5", 0, true, false},
                {"", 50, true, false},    {"5 ms", 50, true, false}, {"0x10", 50, true, false}, {"JA", 50, true, true},
                {"Nein", 50, false, false}, {"oN", 50, true, true},  {"ture", 50, true, false},
                {"9223372036854775808", INT64_MAX, true, false}};
  for (const auto& c : kCases) {
    set_setting("Kommunikation", "PauseNachVerbindung", c.text);
    set_setting("TLS", "NamenPruefen", c.text);
    set_setting("TLS", "ZertifikateImmerPruefen", c.text);
    EXPECT_EQ(setting_number(settings::kConnectPause), c.number) << c.text;
    EXPECT_EQ(setting_flag(settings::kTlsCheckName), c.flag_default_on) << c.text;
    EXPECT_EQ(setting_flag(settings::kTlsVerifyAlways), c.flag_default_off) << c.text;
  }
  EXPECT_EQ(setting_int(settings::kConnectPause), INT32_MAX);
}

TEST_F(SettingsTest, NamesOutsideTheTableAreFoundToo) {
  EXPECT_EQ(find_setting("Eigenes", "Wert"), std::nullopt);
  ASSERT_EQ(load_settings_file(file_with("[Eigenes]\nWert = gut\n")), std::nullopt);
  EXPECT_EQ(YEnviron.Get("EIGENES", "wert"), "gut");
  EXPECT_EQ(YEnviron.Get("System", "Name"), "YInet");
  const Setting row{"Eigenes", "Wert", "7", SettingUnit::count, ""};
  EXPECT_EQ(setting_number(row), 7);
}

TEST_F(SettingsTest, FileFormat) {
  const auto parsed = parse_settings(
      "\xEF\xBB\xBF# comment\r\n  [ Gr\xC3\xB6\xC3\x9F" "e ]  \r\n\r\n Na me =  a = b ; no comment \r\n; comment\n"
      "Leer=\n[Andere]\nName=\xE6\x97\xA5");
  ASSERT_EQ(parsed.error, "");
  std::string all;
  for (const auto& entry : parsed.entries) all += entry.section + "|" + entry.name + "|" + entry.value + "\n";
  EXPECT_EQ(all, "Gr\xF6\xDF" "e|Na me|a = b ; no comment\nGr\xF6\xDF" "e|Leer|\nAndere|Name|\xE6\x97\xA5\n");
}

TEST_F(SettingsTest, BrokenFilesAreRefusedWithTheLine) {
  const std::pair<std::string, const char*> kCases[] = {
      {"[A]\nb=1\nc\n", "line 3: neither"}, {"b=1\n", "line 1: a setting before"}, {"\n[A\nb=1\n", "line 2: \"]\""},
      {"[ ]\n", "line 1: a section without"}, {"[A]\n = 5\n", "line 2: a setting without"}, {"[", "line 1: \"]\""},
      {"[A]\nb=\xFC\n", "line 2: not valid UTF-8"}, {std::string("[A]\r\n\r\nb=\0\r\n", 12), "line 3: a NUL"}};
  for (const auto& [text, error] : kCases) EXPECT_THAT(parse_settings(text).error, StartsWith(error)) << text;
}

TEST_F(SettingsTest, AFileThatCannotBeUsedChangesNothing) {
  ASSERT_EQ(load_settings_file(file_with("[HTTP]\nAbfragen=5\n")), std::nullopt);
  EXPECT_THAT(load_settings_file("/does/not/exist").value_or(""), HasSubstr("No such file"));
  EXPECT_NE(load_settings_file(testing::TempDir()), std::nullopt);
  EXPECT_THAT(load_settings_file("/dev/zero").value_or(""), HasSubstr("larger"));
  EXPECT_THAT(load_settings_file(file_with("[HTTP]\nAbfragen=6\nx\n")).value_or(""), HasSubstr("line 3"));
  EXPECT_EQ(setting_number(settings::kHttpIdlePolls), 5);
}

TEST_F(SettingsTest, EnvironmentNames) {
  EXPECT_EQ(environment_name("SYSTEM", "Name"), "YINET_SYSTEM_NAME");
  EXPECT_EQ(environment_name("\xD6 \xDF.9", "\xC4z-\xFC"), "YINET_OE_SS_9_AEZ_UE");
}

// The environment is read by the first look-up of a process, so each of these runs in a process of its own.
class SettingsEnvironmentDeathTest : public SettingsTest {
 protected:
  void SetUp() override { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
};

int check(bool fine) { return fine ? 0 : 1; }

TEST_F(SettingsEnvironmentDeathTest, TheEnvironmentIsAboveTheFileAndReadOnce) {
  const std::string path = file_with("[HTTP]\nAbfragen=5\nCookieLimit=6\n");
  EXPECT_EXIT(
      {
        setenv("YINET_SETTINGS", path.c_str(), 1);
        setenv("YINET_HTTP_ABFRAGEN", "9", 1);
        setenv("YINET_SYSTEM_NAME", "B\xC3\xA4r", 1);
        setenv("YINET_FREI_ERFUNDEN", "ja", 1);
        bool fine = setting_number(settings::kHttpIdlePolls) == 9 && setting_number(settings::kHttpCookieLimit) == 6;
        fine = fine && setting_text(settings::kSystemName) == "B\xE4r" && find_setting("Frei", "Erfunden") == "ja";
        setenv("YINET_HTTP_ABFRAGEN", "10", 1);
        load_settings_file("/dev/null");
        fine =
            fine && setting_number(settings::kHttpIdlePolls) == 9 && setting_number(settings::kHttpCookieLimit) == 300;
        std::_Exit(check(fine));
      },
      testing::ExitedWithCode(0), "");
}

TEST_F(SettingsEnvironmentDeathTest, ABrokenFileOfTheEnvironmentIsReportedOnce) {
  const std::string path = file_with("[HTTP]\nAbfragen\n");
  EXPECT_EXIT(
      {
        setenv("YINET_SETTINGS", path.c_str(), 1);
        const LogCapture log;
        bool fine = setting_number(settings::kHttpIdlePolls) == 100 && setting_number(settings::kHttpIdlePolls) == 100;
        fine = fine && log.numbers() == std::vector<int>{message::kSettingsFileFailed};
        fine = fine && log.last(message::kSettingsFileFailed).text.find("line 2: ") != std::string::npos;
        std::_Exit(check(fine));
      },
      testing::ExitedWithCode(0), "");
}

}  // namespace
}  // namespace yinet
