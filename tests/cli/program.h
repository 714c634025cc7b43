// Runs the program that was built, as a user would.
#pragma once

#include <map>
#include <string>
#include <utility>
#include <vector>

#include "support/child_process.h"

namespace yinet::test {

// YINET_PROGRAM is the path of the program, given by the build.
inline CommandResult run_program(std::vector<std::string> arguments, std::string standard_input = {},
                                 std::map<std::string, std::string> environment = {}) {
  arguments.insert(arguments.begin(), YINET_PROGRAM);
  return run_command(arguments, environment, standard_input);
}

}  // namespace yinet::test
