#pragma once

// Internal: rows of parameters as families write them into the function table.

#include <string_view>

#include "yinet/host/yobject.h"
#include "yinet/script/function_table.h"

namespace yinet {

constexpr ScriptParameter in_text(std::string_view key, std::string_view meaning) {
  return {.key = key, .type = kTypeString, .direction = Direction::in, .default_value = "", .meaning = meaning};
}
constexpr ScriptParameter in_password(std::string_view key, std::string_view meaning) {
  ScriptParameter row = in_text(key, meaning);
  row.secret = true;
  return row;
}
constexpr ScriptParameter in_number(std::string_view key, std::string_view default_value, std::string_view meaning) {
  return {.key = key, .type = kTypeInteger, .direction = Direction::in, .default_value = default_value, .meaning = meaning};
}
constexpr ScriptParameter out_text(std::string_view key, std::string_view meaning) {
  return {.key = key, .type = kTypeString, .direction = Direction::out, .default_value = "", .meaning = meaning};
}

}  // namespace yinet
