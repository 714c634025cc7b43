#include "support/child_process.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <sstream>
#include <stdexcept>

namespace yinet::test {
namespace fs = std::filesystem;

fs::path servers_folder() { return YINET_TEST_SERVERS; }

std::optional<fs::path> find_program(std::string_view name) {
  const char* path = std::getenv("PATH");
  const std::string unpacked = servers_folder().string();
  std::istringstream folders(unpacked + "/usr/sbin:" + unpacked + "/usr/bin:" +
                             (path != nullptr ? path : "/usr/bin:/bin") + ":/usr/local/sbin:/usr/sbin:/sbin");
  for (std::string folder; std::getline(folders, folder, ':');) {
    const fs::path candidate = fs::path(folder) / name;  // `name` alone when it is a whole path
    std::error_code ignored;
    if (fs::is_regular_file(candidate, ignored) && ::access(candidate.c_str(), X_OK) == 0) return candidate;
  }
  return std::nullopt;
}

ChildProcess::ChildProcess(const ChildOptions& options) {
  const auto program = find_program(options.argv.at(0));
  if (!program) throw std::runtime_error("no such program: " + options.argv[0]);
  // env and setpriv put themselves in the program's place; the kernel forgets the bond only when a program gains rights.
  std::vector<std::string> words = {"env"};
  for (const auto& [name, value] : options.environment) words.push_back(name + "=" + value);
  words.insert(words.end(), {"setpriv", "--pdeathsig", "TERM", "--", program->string()});
  words.insert(words.end(), options.argv.begin() + 1, options.argv.end());
  std::vector<char*> argv;
  for (std::string& word : words) argv.push_back(word.data());
  argv.push_back(nullptr);
  const fs::path input = options.standard_input ? folder_.write("in", *options.standard_input) : fs::path("/dev/null");

  posix_spawn_file_actions_t files;
  posix_spawn_file_actions_init(&files);
  posix_spawn_file_actions_addopen(&files, 0, input.c_str(), O_RDONLY, 0);
  posix_spawn_file_actions_addopen(&files, 1, folder_.write("out", "").c_str(), O_WRONLY | O_APPEND, 0);
  posix_spawn_file_actions_addopen(&files, 2, folder_.write("err", "").c_str(), O_WRONLY | O_APPEND, 0);
  posix_spawn_file_actions_addclosefrom_np(&files, 3);
  posix_spawnattr_t attributes;
  posix_spawnattr_init(&attributes);
  posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSID | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
  sigset_t none, pipe;
  sigemptyset(&none);
  sigemptyset(&pipe);
  sigaddset(&pipe, SIGPIPE);
  posix_spawnattr_setsigmask(&attributes, &none);
  posix_spawnattr_setsigdefault(&attributes, &pipe);
  const int error = posix_spawnp(&pid_, "env", &files, &attributes, argv.data(), environ);
  posix_spawnattr_destroy(&attributes);
  posix_spawn_file_actions_destroy(&files);
  if (error != 0) throw std::runtime_error("cannot start " + program->string());
}

bool ChildProcess::running() {
  if (exit_code_) return false;
  siginfo_t ended{};
  ::waitid(P_PID, static_cast<id_t>(pid_), &ended, WEXITED | WNOHANG | WNOWAIT);
  if (ended.si_pid == 0) return true;
  // Only as long as it hasn't been waited for, its number can't belong to somebody else's group.
  ::kill(-pid_, SIGKILL);
  int status = 0;
  ::waitpid(pid_, &status, 0);
  exit_code_ = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  return false;
}

std::optional<int> ChildProcess::wait(milliseconds patience) {
  eventually([&] { return !running(); }, patience);
  return exit_code_;
}

int ChildProcess::stop() {
  for (const int number : {SIGTERM, SIGKILL}) {
    if (!running()) break;
    ::kill(-pid_, number);
    static_cast<void>(wait(milliseconds(5000)));
  }
  return exit_code_.value_or(-1);
}

CommandResult run_command(const ChildOptions& options) {
  ChildProcess child(options);
  const std::optional<int> code = child.wait();
  return {code ? *code : child.stop(), child.output(), child.errors()};
}

CommandResult run_command(std::vector<std::string> argv, std::string standard_input) {
  return run_command({.argv = std::move(argv), .environment = {}, .standard_input = std::move(standard_input)});
}

}  // namespace yinet::test
