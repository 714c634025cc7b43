// Programs that tests start, with their output.
#pragma once

#include <sys/types.h>

#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "support/deadline.h"
#include "support/file_descriptor.h"
#include "support/temp_dir.h"

namespace yinet::test {

struct ChildOptions {
  std::vector<std::string> argv;                   // argv[0] is looked for along $PATH and the folders for daemons
  std::map<std::string, std::string> environment;  // on top of the test's own
  std::optional<std::string> standard_input;       // absent: /dev/null
};

// A running program in a session and process group of its own, so that stop() reaches the processes
// it forks as well; whatever it leaves behind there is killed when it ends. Standard output and error go to two files
// of a private folder.
//
// The destructor stops it. Should the test process die before, the kernel sends the program SIGTERM;
// that bond is to the thread that made this object, so make it in one that lives as long as the child.
// The child inherits no descriptors but 0 to 2, starts with no signal blocked and SIGPIPE at its default.
// Not thread-safe.
class ChildProcess {
 public:
  explicit ChildProcess(const ChildOptions& options);  // throws std::runtime_error when the program is missing
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;
  ~ChildProcess() { stop(); }

  [[nodiscard]] bool running();

  // Exit code, or 128 + signal number; empty while it is still running.
  [[nodiscard]] std::optional<int> wait(milliseconds patience = kPatience);

  // SIGTERM to the whole group, SIGKILL to what is left after a while. Returns the exit code as wait() does.
  int stop();

  [[nodiscard]] std::string output() const { return read_file(folder_ / "out"); }  // so far
  [[nodiscard]] std::string errors() const { return read_file(folder_ / "err"); }
  [[nodiscard]] const std::string& command_line() const { return command_line_; }

 private:
  TempDir folder_{"child"};
  std::string command_line_;
  pid_t pid_ = -1;
  std::optional<int> exit_code_;
};

struct CommandResult {
  int exit_code = -1;  // 128 + signal number for a killed program
  std::string output;
  std::string errors;
};

// Runs a program to its end; one that takes longer than kPatience is ended.
CommandResult run_command(const ChildOptions& options);
CommandResult run_command(std::vector<std::string> argv, std::string standard_input = {});

// Where a program is: a path with "/" as it is, a name along $PATH, then in the folders for daemons,
// which the path of an ordinary user lacks. Empty when it isn't there.
std::optional<std::filesystem::path> find_program(std::string_view name);

}  // namespace yinet::test
