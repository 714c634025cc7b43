// Runs the program that was built, as a user would.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "support/child_process.h"

namespace yinet::test {

// YINET_PROGRAM is the path of the program, given by the build.
inline std::vector<std::string> program_call(std::vector<std::string> arguments) {
  arguments.insert(arguments.begin(), YINET_PROGRAM);
  return arguments;
}

inline CommandResult run_program(std::vector<std::string> arguments, std::string standard_input = {}) {
  return run_command(program_call(std::move(arguments)), std::move(standard_input));
}

}  // namespace yinet::test
