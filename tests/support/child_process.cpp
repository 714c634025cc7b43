#include "support/child_process.h"

#include <fcntl.h>
#include <linux/close_range.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <sstream>
#include <stdexcept>

extern char** environ;  // POSIX leaves its declaration to the program

namespace yinet::test {
namespace fs = std::filesystem;

namespace {

std::vector<std::string> child_environment(const ChildOptions& options) {
  std::vector<std::string> result;
  for (char** entry = environ; *entry != nullptr; ++entry) {
    const std::string text(*entry);
    if (!options.environment.contains(text.substr(0, text.find('=')))) result.push_back(text);
  }
  for (const auto& [name, value] : options.environment) result.push_back(name + "=" + value);
  return result;
}

std::vector<char*> pointers(std::vector<std::string>& texts) {
  std::vector<char*> result;
  for (std::string& text : texts) result.push_back(text.data());
  result.push_back(nullptr);
  return result;
}

FileDescriptor open_file(const fs::path& file, int flags) {
  FileDescriptor opened(::open(file.c_str(), flags | O_CLOEXEC, 0600));
  if (!opened.valid()) throw std::runtime_error("cannot open " + file.string());
  return opened;
}

// After the fork, where memory must not be allocated.
[[noreturn]] void run_child(const char* program, char* const* argv, char* const* environment, const int* standard,
                            pid_t parent) {
  ::setsid();
  ::prctl(PR_SET_PDEATHSIG, SIGTERM);
  sigset_t none;
  sigemptyset(&none);
  ::sigprocmask(SIG_SETMASK, &none, nullptr);
  ::signal(SIGPIPE, SIG_DFL);
  for (int i = 0; i < 3; ++i) ::dup2(standard[i], i);
  ::close_range(3, ~0U, CLOSE_RANGE_CLOEXEC);
  if (::getppid() == parent) ::execve(program, argv, environment);  // else it died before the bond was made
  ::_exit(127);
}

}  // namespace

std::optional<fs::path> find_program(std::string_view name) {
  const char* path = std::getenv("PATH");
  std::istringstream folders(std::string(path != nullptr ? path : "/usr/bin:/bin") + ":/usr/local/sbin:/usr/sbin:/sbin");
  for (std::string folder; std::getline(folders, folder, ':');) {
    const fs::path candidate = name.find('/') == std::string_view::npos ? fs::path(folder) / name : fs::path(name);
    std::error_code ignored;
    if (fs::is_regular_file(candidate, ignored) && ::access(candidate.c_str(), X_OK) == 0) return candidate;
  }
  return std::nullopt;
}

ChildProcess::ChildProcess(const ChildOptions& options) {
  for (const std::string& word : options.argv) command_line_ += (command_line_.empty() ? "" : " ") + word;
  const auto program = find_program(options.argv.at(0));
  if (!program) throw std::runtime_error("no such program: " + command_line_);
  std::vector<std::string> argument_texts = options.argv;
  std::vector<std::string> environment_texts = child_environment(options);
  const std::vector<char*> argv = pointers(argument_texts);
  const std::vector<char*> environment = pointers(environment_texts);
  const FileDescriptor input = open_file(
      options.standard_input ? folder_.write("in", *options.standard_input) : fs::path("/dev/null"), O_RDONLY);
  const FileDescriptor output = open_file(folder_ / "out", O_WRONLY | O_CREAT | O_APPEND);
  const FileDescriptor errors = open_file(folder_ / "err", O_WRONLY | O_CREAT | O_APPEND);
  const int standard[] = {input.get(), output.get(), errors.get()};
  int gate[2];
  if (::pipe2(gate, O_CLOEXEC) != 0) throw std::runtime_error("no pipe");
  const FileDescriptor started(gate[0]);
  FileDescriptor starting(gate[1]);
  const pid_t parent = ::getpid();
  pid_ = ::fork();
  if (pid_ < 0) throw std::runtime_error("cannot fork");
  if (pid_ == 0) run_child(program->c_str(), argv.data(), environment.data(), standard, parent);
  // Until the exec has closed its copy: before, there is no group of its own to send signals to.
  starting.close();
  char nothing = 0;
  static_cast<void>(!::read(started.get(), &nothing, 1));
}

bool ChildProcess::running() {
  if (exit_code_) return false;
  siginfo_t ended{};
  ::waitid(P_PID, static_cast<id_t>(pid_), &ended, WEXITED | WNOHANG | WNOWAIT);
  if (ended.si_pid == 0) return true;
  // Session processes may outlive their daemon. Only as long as it hasn't been waited for, its number
  // can't belong to somebody else's group.
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
  CommandResult result;
  result.exit_code = code ? *code : child.stop();
  result.output = child.output();
  result.errors = child.errors();
  return result;
}

CommandResult run_command(std::vector<std::string> argv, std::string standard_input) {
  return run_command({.argv = std::move(argv), .environment = {}, .standard_input = std::move(standard_input)});
}

}  // namespace yinet::test
