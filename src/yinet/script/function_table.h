#pragma once

// The one table of all script functions: what calls, explains, documents or tests them reads it here. Each family fills
// its rows in its own source (<family>_functions.cpp); function_table.cpp puts them together. All texts are ASCII.

#include <cstdint>
#include <span>
#include <string_view>

#include "yinet/host/export.h"

class YObject;

namespace yinet {

enum class Direction { in, out, in_out };

struct ScriptParameter {
  std::string_view key;
  std::uint8_t type;  // code of the value (kTypeString ...)
  Direction direction;
  std::string_view default_value;  // what an absent input counts as, as text; empty for empty text and for outputs
  std::string_view meaning;        // one English sentence
  std::uint8_t other_type = 0;     // a second type that is taken as well, 0 for none
  bool secret = false;             // a password: who shows parameters writes "***" for it
};

struct ScriptFunction {
  std::string_view name;
  void (*entry)(YObject* arguments);
  std::string_view family;                      // heading for lists: "HTTP", "TLS", ...
  std::string_view summary;                     // one English sentence
  std::span<const ScriptParameter> parameters;  // without "_RETV"
  std::uint8_t result_type;                     // code of "_RETV", kTypeAny when the function stores none
  std::string_view result_meaning;
  std::span<const int> messages;              // numbers that a call may raise or log, ascending
  std::span<const std::string_view> example;  // arguments of an example call: "pUrl=https://www.example.com/"
};

// All functions, families in the order of the table.
YINET_API std::span<const ScriptFunction> all_script_functions();

// Null when there is none of that name. Letter case does not count.
YINET_API const ScriptFunction* find_script_function(std::string_view name);

// Null when the function has no such parameter. Letter case does not count, as in the record itself.
YINET_API const ScriptParameter* find_parameter(const ScriptFunction& function, std::string_view key);

// "text", "integer", "record" ...: the name of a type code for people.
YINET_API std::string_view type_name(std::uint8_t type);

}  // namespace yinet
