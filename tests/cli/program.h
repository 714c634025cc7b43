// Runs the program that was built, as a user would.
#pragma once

#include "support/child_process.h"

namespace yinet::test {

// YINET_PROGRAM is the path of the program, given by the build.
inline CommandResult run_program(Words arguments, std::string_view input = {}, const Environment& environment = {}) {
  arguments.insert(arguments.begin(), YINET_PROGRAM);
  return run_command(arguments, environment, input);
}

}  // namespace yinet::test
