#include <gmock/gmock.h>

#include <set>
#include <stdexcept>

#include "support/temp_dir.h"
#include "yinet/yinet.h"

namespace yinet {
namespace {

using testing::HasSubstr;

TEST(Settings, EveryRowIsUniqueAndHasAFittingDefault) {
  std::set<std::string> names;
  for (const auto& setting : all_settings()) {
    const std::string name = std::string(setting.section) + "/" + std::string(setting.name);
    EXPECT_TRUE(names.insert(to_lower(name)).second) << name << " stands twice";
    const std::string value(setting.default_value);
    const bool is_text = setting.unit == SettingUnit::text || setting.unit == SettingUnit::secret;
    EXPECT_TRUE(is_text || std::to_string(leading_int64(value)) == value) << name;
  }
}

TEST(Settings, OverridesComeBeforeASourceAndThatTakesThePlaceOfTheFile) {
  const test::TempDir folder;
  const auto loaded = [&](std::string_view text) { return load_settings_file(folder.write("my.ini", text).string()); };
  const auto polls = [] { return setting_number(settings::kHttpIdlePolls); };
  ASSERT_EQ(loaded("[http]\nABFRAGEN=5\n[DNS]\nVersuche=6\n[Eigenes]\nWert = gut\n"), std::nullopt);
  EXPECT_EQ(polls(), 5);
  EXPECT_EQ(YEnviron.Get("EIGENES", "wert"), "gut") << "beside the table, too";
  set_settings_source([](std::string_view, std::string_view name) -> std::optional<std::string> {
    if (name == "Frist") throw std::runtime_error("no");
    if (name != "Abfragen") return std::nullopt;
    set_setting("HTTP", "CookieLimit", "4");
    return std::to_string(setting_number(settings::kHttpCookieLimit));  // may look up settings itself
  });
  EXPECT_EQ(polls(), 4);
  EXPECT_EQ(setting_number(settings::kDnsTries), 2) << "the file must not count beside a source";
  EXPECT_EQ(find_setting("Eigenes", "Frist"), std::nullopt);
  set_setting("HTTP", "Abfragen", "11");
  EXPECT_EQ(polls(), 11);
  set_setting("http", "abfragen", std::nullopt);
  set_settings_source(nullptr);
  // A file that cannot be used changes nothing.
  EXPECT_THAT(load_settings_file("/dev/zero").value_or(""), HasSubstr("larger"));
  EXPECT_THAT(loaded("[HTTP]\nAbfragen=6\nx\n").value_or(""), HasSubstr("line 3"));
  EXPECT_EQ(polls(), 5);
}

TEST(Settings, NumbersAndFlagsAreReadForgivingly) {
  // The text, as a number whose default is 50, as flags whose defaults are on and off.
  const std::tuple<const char*, std::int64_t, bool, bool> kCases[] = {
      {"0", 0, false, false},    {"1", 1, true, true},
      {" 12 ", 12, true, false}, {"-5", 0, true, false},
      {"5 ms", 50, true, false}, {"Nein", 50, false, false},
      {"oN", 50, true, true},    {"9223372036854775808", INT64_MAX, true, false}};
  for (const auto& [text, number, flag_default_on, flag_default_off] : kCases) {
    set_setting("Kommunikation", "PauseNachVerbindung", text);
    for (const char* flag : {"NamenPruefen", "ZertifikateImmerPruefen"}) set_setting("TLS", flag, text);
    EXPECT_EQ(setting_number(settings::kConnectPause), number) << text;
    EXPECT_EQ(setting_flag(settings::kTlsCheckName), flag_default_on) << text;
    EXPECT_EQ(setting_flag(settings::kTlsVerifyAlways), flag_default_off) << text;
  }
  EXPECT_EQ(setting_int(settings::kConnectPause), INT32_MAX);
}

TEST(Settings, FileFormat) {
  const auto parsed = parse_settings(
      "\xEF\xBB\xBF# comment\r\n  [ Gr\xC3\xB6\xC3\x9F ]  \r\n\r\n Na me =  a = b ; no comment \r\n; comment\n"
      "Leer=\n[Andere]\nName=\xE6\x97\xA5");
  std::string all;
  for (const auto& entry : parsed.entries) all += entry.section + "|" + entry.name + "|" + entry.value + "\n";
  EXPECT_EQ(all, "Gr\xF6\xDF|Na me|a = b ; no comment\nGr\xF6\xDF|Leer|\nAndere|Name|\xE6\x97\xA5\n");
  EXPECT_THAT(parse_settings(std::string_view("[A]\r\n\r\nb=\0\r\n", 12)).error, HasSubstr("line 3: a NUL"));
  EXPECT_EQ(environment_name("\xD6 \xDF.9", "\xC4z-\xFC"), "YINET_OE_SS_9_AEZ_UE");
}

}  // namespace
}  // namespace yinet
