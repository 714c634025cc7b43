#include "yinet/host/settings.h"

#include <gmock/gmock.h>
#include <sys/wait.h>

#include <cstdlib>
#include <fstream>
#include <set>
#include <stdexcept>

#include "yinet/host/setting_table.h"
#include "yinet/host/text.h"
#include "yinet/host/yenviron.h"

namespace yinet {
namespace {

using testing::HasSubstr;

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
    const char* form = setting.unit == SettingUnit::text ? ".*" : setting.unit == SettingUnit::boolean ? "[01]" : "[0-9]+";
    EXPECT_THAT(std::string(setting.default_value), testing::MatchesRegex(form)) << name;
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
  // A file that cannot be used changes nothing.
  EXPECT_THAT(load_settings_file("/does/not/exist").value_or(""), HasSubstr("No such file"));
  EXPECT_NE(load_settings_file(testing::TempDir()), std::nullopt);
  EXPECT_THAT(load_settings_file("/dev/zero").value_or(""), HasSubstr("larger"));
  EXPECT_THAT(load_settings_file(file_with("[HTTP]\nAbfragen=6\nx\n")).value_or(""), HasSubstr("line 3"));
  EXPECT_EQ(setting_number(settings::kHttpIdlePolls), 5);
  EXPECT_EQ(load_settings_file("/dev/null"), std::nullopt);
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
  } kCases[] = {{"0", 0, false, false}, {"1", 1, true, true},      {" 12 ", 12, true, false},  {"-5", 0, true, false},
                {"", 50, true, false},  {"5 ms", 50, true, false}, {"Nein", 50, false, false}, {"oN", 50, true, true},
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
  EXPECT_EQ(environment_name("\xD6 \xDF.9", "\xC4z-\xFC"), "YINET_OE_SS_9_AEZ_UE");
}

TEST_F(SettingsTest, FileFormat) {
  const auto parsed = parse_settings(
      "\xEF\xBB\xBF# comment\r\n  [ Gr\xC3\xB6\xC3\x9F" "e ]  \r\n\r\n Na me =  a = b ; no comment \r\n; comment\n"
      "Leer=\n[Andere]\nName=\xE6\x97\xA5");
  std::string all;
  for (const auto& entry : parsed.entries) all += entry.section + "|" + entry.name + "|" + entry.value + "\n";
  EXPECT_EQ(all, "Gr\xF6\xDF" "e|Na me|a = b ; no comment\nGr\xF6\xDF" "e|Leer|\nAndere|Name|\xE6\x97\xA5\n");
  const std::pair<std::string, const char*> kBroken[] = {
      {"b=1\n", "line 1: a setting before"},       {"\n[A\nb=1\n", "line 2: \"]\""},
      {"[ ]\n", "line 1: a section without"},      {"[A]\n = 5\n", "line 2: a setting without"},
      {"[A]\nb=\xFC\n", "line 2: not valid UTF-8"}, {std::string("[A]\r\n\r\nb=\0\r\n", 12), "line 3: a NUL"}};
  for (const auto& [text, error] : kBroken) EXPECT_THAT(parse_settings(text).error, testing::StartsWith(error)) << text;
}

// The environment is read by the first look-up of a process, so this runs in a process of its own.
TEST_F(SettingsTest, TheEnvironmentIsAboveTheFileAndReadOnce) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const std::string path = file_with("[HTTP]\nAbfragen=5\nCookieLimit=6\n");
  EXPECT_EXIT(
      {
        setenv("YINET_SETTINGS", path.c_str(), 1);
        setenv("YINET_HTTP_ABFRAGEN", "9", 1);
        setenv("YINET_FREI_ERFUNDEN", "B\xC3\xA4r", 1);
        bool fine = setting_number(settings::kHttpIdlePolls) == 9 && setting_number(settings::kHttpCookieLimit) == 6;
        fine = fine && find_setting("Frei", "Erfunden") == "B\xE4r";
        setenv("YINET_HTTP_ABFRAGEN", "10", 1);
        std::_Exit(fine && setting_number(settings::kHttpIdlePolls) == 9 ? 0 : 1);
      },
      testing::ExitedWithCode(0), "");
}

}  // namespace
}  // namespace yinet
