#pragma once

// Host settings: one table of all settings of the library, the source they come from, and typed readers.
//
// A value is looked up in this order: overrides made in this process (set_setting), the plugged source if there is one,
// otherwise the environment (as it was at the first look-up) and then the settings file; at last the default of the
// table. Look-ups are safe from several threads and cheap enough for one per operation (not per byte).

#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "yinet/host/export.h"

namespace yinet {

enum class SettingUnit {
  text,
  boolean,
  milliseconds,
  seconds,
  bytes,
  count,
  secret
};  // secret: text that is shown nowhere

// One row of the table. Section and name are German, Windows-1252, and compared without regard to case.
struct Setting {
  std::string_view section;
  std::string_view name;
  std::string_view default_value;  // as text: decimal, "0"/"1" for booleans
  SettingUnit unit;
  std::string_view meaning;  // one English sentence for docs and help
};

YINET_API std::span<const Setting> all_settings();

// Readers for rows of the table (constants in setting_table.h). Text that is no number counts as the default; numbers
// below 0 count as 0, numbers beyond 64 bits as the largest.
YINET_API std::string setting_text(const Setting& setting);
YINET_API std::int64_t setting_number(const Setting& setting);
YINET_API int setting_int(const Setting& setting);  // the number, at most the largest int: what poll() takes
// "1", "true", "ja", "yes", "on" and "0", "false", "nein", "no", "off", without regard to case; any other text counts as
// the default, so that a typing error does not switch a check off.
YINET_API bool setting_flag(const Setting& setting);

// --- For what people wrote: settings files, the environment and overrides are looked at with these, and what does not fit is
// --- logged once (21008, 21009)
// The row of that name; null when the table has none.
YINET_API const Setting* find_setting_row(std::string_view section, std::string_view name);
// What the row asks of its values where `value` lacks it ("the value must be 0 or 1"); empty when it fits.
YINET_API std::string_view setting_misfit(const Setting& setting, std::string_view value);

// The plain look-up behind YEnviron: sections and names outside the table are looked up in the sources too. Empty when
// nobody has a value and the table has no row.
YINET_API std::optional<std::string> find_setting(std::string_view section, std::string_view name);

// Override for this process; nullopt takes it back.
YINET_API void set_setting(std::string_view section, std::string_view name, std::optional<std::string> value);

// Takes the place of the table's default in this process: for programs whose users want another one. Anything that sets
// the value goes before it.
YINET_API void set_setting_default(std::string_view section, std::string_view name, std::string value);

// Replaces environment and file; null restores them. The source is called from any thread, at every look-up; what it
// throws counts as no value.
using SettingsSource = std::function<std::optional<std::string>(std::string_view section, std::string_view name)>;
YINET_API void set_settings_source(SettingsSource source);

// Reads an INI-like UTF-8 file ("[Section]", "Name = value", lines that begin with "#" or ";" are comments, the later of
// two equal names holds) and uses it instead of the one named by the environment variable YINET_SETTINGS (no file by
// default). `path` is a path of the system. On failure nothing changes and the text says why ("line 3: ...").
YINET_API std::optional<std::string> load_settings_file(std::string_view path);

// What load_settings_file reads, apart from the file: the pairs in order, or the reason why not.
struct SettingsText {
  struct Entry {
    std::string section, name, value;
  };
  std::vector<Entry> entries;
  std::string error;  // empty when the text is well-formed
};
YINET_API SettingsText parse_settings(std::string_view text);

// Name of the environment variable for a setting: "YINET_" + section + "_" + name in upper case, umlauts as AE, OE, UE,
// SS, any other character outside A-Z and 0-9 as "_".
YINET_API std::string environment_name(std::string_view section, std::string_view name);

}  // namespace yinet
