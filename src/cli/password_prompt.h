#pragma once

#include <optional>
#include <string>

namespace yinet::cli {

// A line typed on the terminal without echo; empty, with `problem`, when there is no terminal or the input was ended without
// one. Signals from the keyboard have their usual effect, with the echo back on.
std::optional<std::string> ask_for_password(const std::string& question, std::string& problem);

}  // namespace yinet::cli
