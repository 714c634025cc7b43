// Programs that tests start, with their output.
#pragma once

#include <sys/types.h>

#include <map>
#include <optional>

#include "support/ports.h"
#include "support/temp_dir.h"

namespace yinet::test {

using Words = std::vector<std::string>;                  // of a command; find_program() looks for the first one
using Environment = std::map<std::string, std::string>;  // on top of the test's own

// A running program in a session and process group of its own, so that stop() reaches what it forks as well; whatever it
// leaves behind there is killed when it ends. It inherits descriptors 0 to 2 only, and SIGPIPE at its default. The
// destructor stops it. Should the test process die before, the kernel sends it SIGTERM; that bond is to the thread that made
// this object, so make it in one that lives as long. A failed start throws std::runtime_error. Not thread-safe.
class ChildProcess {
 public:
  explicit ChildProcess(const Words& command, const Environment& environment = {}, std::string_view input = {});
  ~ChildProcess() { stop(); }

  [[nodiscard]] bool running();
  // Exit code, or 128 + signal number; empty while it is still running.
  [[nodiscard]] std::optional<int> wait(milliseconds patience = kPatience);
  int stop();  // SIGTERM, and SIGKILL after a while, to the whole group; returns the exit code as wait() does

  [[nodiscard]] std::string output() const { return read_file(folder_ / "out"); }  // so far
  [[nodiscard]] std::string errors() const { return read_file(folder_ / "err"); }

 private:
  TempDir folder_{"child"};
  pid_t pid_ = -1;
  std::optional<int> exit_code_;
};

struct CommandResult {
  int exit_code = -1;
  std::string output, errors;
};
// Runs a program to its end; one that takes longer than kPatience is ended.
CommandResult run_command(const Words& command, const Environment& environment = {}, std::string_view input = {});

// A path with "/" as it is; a name in the folder of unpacked servers, along $PATH, then in the folders for daemons, which
// the path of an ordinary user lacks. Empty when it isn't there.
std::optional<std::filesystem::path> find_program(std::string_view name);
std::filesystem::path servers_folder();  // where scripts/unpack_servers.sh has put some

}  // namespace yinet::test
