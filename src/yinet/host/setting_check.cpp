#include "yinet/host/setting_check.h"

#include <algorithm>
#include <vector>

#include "yinet/host/flag_word.h"
#include "yinet/host/setting_table.h"
#include "yinet/host/settings.h"
#include "yinet/host/suggestions.h"
#include "yinet/host/text.h"

namespace yinet {
namespace {

constexpr std::string_view kProgramsOwn = "_PASSWORD";

std::string path_of(std::string_view section, std::string_view name) {
  return std::string(section) + "/" + std::string(name);
}

std::string nearest(std::string_view name, const std::vector<std::string>& names) {
  const std::vector<std::string_view> known(names.begin(), names.end());
  return std::string(nearest_names(name, known, 1).front());
}

// One row stands for all drives: "LaufwerkA" to "LaufwerkZ".
bool is_drive(std::string_view name, std::string_view row) {
  return name.size() == row.size() &&
         equal_ignoring_case(name.substr(0, name.size() - 1), row.substr(0, row.size() - 1));
}

}  // namespace

const Setting* find_setting_row(std::string_view section, std::string_view name) {
  const auto rows = all_settings();
  const auto found = std::ranges::find_if(rows, [&](const Setting& row) {
    return equal_ignoring_case(row.section, section) && equal_ignoring_case(row.name, name);
  });
  return found == rows.end() ? nullptr : &*found;
}

std::string_view setting_misfit(const Setting& setting, std::string_view value) {
  if (setting.unit == SettingUnit::text || setting.unit == SettingUnit::secret) return "";
  if (setting.unit == SettingUnit::boolean) return flag_word(value) ? "" : "the value must be 0 or 1";
  const std::string_view digits = trimmed(value);
  const bool number = !digits.empty() && std::ranges::all_of(digits, is_digit);
  return number ? "" : "the value must be a number of 0 or more";
}

std::string setting_meant_by(std::string_view section, std::string_view name) {
  std::vector<std::string> names;
  for (const Setting& row : all_settings())
    if (equal_ignoring_case(row.section, section)) names.push_back(path_of(row.section, row.name));
  const Setting& drive = settings::kDriveFolder;
  if (names.empty() || (equal_ignoring_case(section, drive.section) && is_drive(name, drive.name))) return {};
  return nearest(path_of(section, name), names);
}

std::string variable_meant_by(std::string_view variable) {
  std::vector<std::string> names;
  for (const Setting& row : all_settings())
    if (variable.starts_with(environment_name(row.section, "")))
      names.push_back(environment_name(row.section, row.name));
  const Setting& drive = settings::kDriveFolder;
  if (names.empty() || variable.ends_with(kProgramsOwn) ||
      is_drive(variable, environment_name(drive.section, drive.name)))
    return {};
  return nearest(variable, names);
}

}  // namespace yinet
