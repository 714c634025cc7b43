#pragma once

// Every script function for any language that can load a shared library: parameters and results travel as JSON (UTF-8)
// in the form of YJSON. Plain C. Both functions may be called from any thread; nothing is thrown.

#include "yinet/host/export.h"

#ifdef __cplusplus
extern "C" {
#endif

enum {
  YINET_SUCCEEDED = 0,  // "_RETV" says so or is absent
  YINET_FAILED = 1,     // "_RETV" is false, 0, negative or the empty text, or memory ran out
  YINET_WRONG_CALL = 2  // nothing was called: an unknown function or parameter, a value of the wrong type, broken JSON
};

// Calls `function` with the members of the JSON object `json_in` as parameters; null or empty text is no parameters.
// Unless `json_out` is null, it receives the record after the call, of a wrong call {"error": "what is wrong"}, in one
// line; null when memory ran out. The text belongs to the caller, who gives it to yinet_free. The record is passed on
// as it is: passwords that went in are in it.
YINET_API int yinet_call(const char* function, const char* json_in, char** json_out);

// Frees a text from yinet_call. Null is allowed.
YINET_API void yinet_free(char* text);

#ifdef __cplusplus
}
#endif
