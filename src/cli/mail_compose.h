#pragma once

#include <string>

namespace yinet::cli {

struct ComposeArguments {
  std::string record;  // JSON file, "-" for standard input
  std::string out;     // file for the mail; standard output when empty or "-"
};

// "yinet mail compose": gives the exit code. A mail that lacks an attachment is not written.
int compose_mail(const ComposeArguments& arguments);

}  // namespace yinet::cli
