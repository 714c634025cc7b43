#pragma once

#include <functional>
#include <string_view>

#include "yinet/host/export.h"
#include "yinet/host/yobject.h"

namespace yinet {

// A function of a script class, written in C++: reads its parameters from the record and leaves its results in it.
using ScriptClassFunction = std::function<void(YObject& parameters)>;

// Registers or, with null, removes a function of a script class. A later registration replaces an earlier one. Names are
// compared without regard to case. Safe from several threads; a running function may be replaced.
YINET_API void register_script_function(std::string_view class_name, std::string_view function_name,
                                        ScriptClassFunction function);

}  // namespace yinet

// The host's script engine, as far as the library calls it.
class YINET_API YScriptClass {
 public:
  // Runs a function of a script class on a record of parameters. False, with a logged error, when class or function is
  // unknown, when it throws, or without parameters.
  bool ExecuteFunction(std::string_view class_name, std::string_view function_name, int reserved,
                       YObject* parameters) noexcept;
};
YINET_API extern YScriptClass YScript;
