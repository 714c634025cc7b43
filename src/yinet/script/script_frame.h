#pragma once

// The frame around every script function. It takes the record of parameters out of the argument block, runs the
// function's body on it and lets nothing be thrown into the host. A body reads its inputs by value with GetString,
// GetInteger and GetBool (absent: empty, 0, false), writes outputs through live values, builds its worker on its own
// stack and stores the worker's result under "_RETV".
//
//   YINET_SCRIPT_FUNCTION(HTTP_GET, yinet::http_get)

#include <cstdint>
#include <string_view>

#include "yinet/host/yobject.h"

namespace yinet {

// Runs `body` on the parameters. Without a record as first entry there is nowhere to write: nothing happens. When the body
// throws, message 21001 names the function and the cause, and "_RETV" becomes the failure value of the type that the
// function table gives for `name` (false, 0 or the empty text).
void run_script_function(std::string_view name, YObject* arguments, void (*body)(YObject& parameters)) noexcept;

// The outer half of that frame, for a function that needs no parameters: message 21001 when `body` throws.
void run_guarded(std::string_view name, void (*body)()) noexcept;

// The live value of an output parameter: the text the script supplied, or a new empty one when the entry is absent or has
// another type. Valid until the entry is deleted or stored with another type.
YString& live_text(YObject& parameters, std::string_view key);

// Stores the result under "_RETV".
void store_result(YObject& parameters, bool result);
void store_result(YObject& parameters, std::int32_t result);
void store_result(YObject& parameters, std::string_view result);
void store_result(YObject& parameters, const char* result) = delete;  // would pick bool

}  // namespace yinet

// Defines a function of functions.h: `body` in its frame.
#define YINET_SCRIPT_FUNCTION(name, body) \
  void name(YObject* arguments) { yinet::run_script_function(#name, arguments, body); }
