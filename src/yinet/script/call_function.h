#pragma once

// Script functions by name: what a script engine does, for callers without one. Parameters are checked and converted by
// the function table before the call, so that a typing error is told instead of being read as an absent parameter. Safe
// from several threads, each with its own record. Texts for people are English, UTF-8.

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "yinet/host/export.h"
#include "yinet/host/yobject.h"
#include "yinet/script/function_table.h"

namespace yinet {

enum class CallStatus {
  succeeded,   // "_RETV" says so or is absent
  failed,      // "_RETV" is false, 0, negative or the empty text
  wrong_call,  // nothing was called: an unknown name, or a value that cannot be what the parameter needs
};

struct CallOutcome {
  CallStatus status = CallStatus::wrong_call;
  std::string problem;  // why the call was wrong, with what was probably meant; empty otherwise
};

// Calls the function on the record, which holds the results afterwards. After a wrong call some of its values may have
// been converted. A "_RETV" that is there before the call is removed.
YINET_API CallOutcome call_function(std::string_view name, YObject& parameters);

struct JsonCallOutcome {
  CallStatus status = CallStatus::wrong_call;
  std::string problem;
  std::string json;                // the record after the call; empty after a wrong call
  std::vector<std::string> notes;  // what the way in changed: texts that went in as their UTF-8 bytes
};

// The same with a record as JSON (see YJSON), both ways. Empty input stands for an empty record.
YINET_API JsonCallOutcome call_function_json(std::string_view name, std::string_view json, int indent = 0);

// Why a record cannot be the parameters of the function, if so; otherwise its values have the types of the table.
YINET_API std::optional<std::string> fit_parameters(const ScriptFunction& function, YObject& parameters);

// "no script function is named X; did you mean Y?"
YINET_API std::string unknown_function_text(std::string_view name);

// "pStr: a text that Windows-1252 cannot hold went in as its UTF-8 bytes"
YINET_API std::string kept_as_utf8_text(std::string_view key);

}  // namespace yinet
