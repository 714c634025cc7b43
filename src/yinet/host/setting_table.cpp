#include "yinet/host/setting_table.h"

#include <array>

namespace yinet {

namespace {

enum RowIndex : std::size_t {
#define YINET_SETTING(constant, section, name, default_value, unit, meaning) row_##constant,
#include "yinet/host/setting_rows.inc"
};

constexpr auto kRows = std::to_array<Setting>({
#define YINET_SETTING(constant, section, name, default_value, unit, meaning) \
  {section, name, default_value, SettingUnit::unit, meaning},
#include "yinet/host/setting_rows.inc"
});

}  // namespace

namespace settings {

// NOLINTBEGIN(bugprone-macro-parentheses): defines a name
#define YINET_SETTING(constant, section, name, default_value, unit, meaning) \
  constinit const Setting& constant = kRows[row_##constant];
#include "yinet/host/setting_rows.inc"
// NOLINTEND(bugprone-macro-parentheses)

}  // namespace settings

std::span<const Setting> all_settings() { return kRows; }

}  // namespace yinet
