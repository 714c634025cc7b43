#pragma once

// Every setting of the library as a constant, for the readers of settings.h. Each refers to a row of all_settings(),
// usable from the first moment on (no constructor runs). A new setting is a new row in setting_rows.inc.

#include "yinet/host/settings.h"

namespace yinet::settings {

// NOLINTNEXTLINE(bugprone-macro-parentheses): declares a name
#define YINET_SETTING(constant, section, name, default_value, unit, meaning) YINET_API extern const Setting& constant;
#include "yinet/host/setting_rows.inc"

}  // namespace yinet::settings
