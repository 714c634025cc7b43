#include "support/child_process.h"

#include <fcntl.h>
#include <linux/close_range.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <system_error>

extern char** environ;  // POSIX leaves its declaration to the program

namespace yinet::test {
namespace fs = std::filesystem;

namespace {

std::system_error system_error(const std::string& what) { return {errno, std::generic_category(), what}; }

std::string joined(const std::vector<std::string>& words) {
  std::string line;
  for (const std::string& word : words) line += (line.empty() ? "" : " ") + word;
  return line;
}

std::vector<std::string> child_environment(const ChildOptions& options) {
  std::vector<std::string> result;
  for (char** entry = environ; *entry != nullptr; ++entry) {
    const std::string_view text(*entry);
    const std::string name(text.substr(0, text.find('=')));
    if (!options.environment.contains(name)) result.emplace_back(text);
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
  if (!opened.valid()) throw system_error("cannot open " + file.string());
  return opened;
}

struct Pipe {
  FileDescriptor read_end;
  FileDescriptor write_end;
};

Pipe make_pipe() {
  std::array<int, 2> ends{};
  if (::pipe2(ends.data(), O_CLOEXEC) != 0) throw system_error("pipe2");
  return {FileDescriptor(ends[0]), FileDescriptor(ends[1])};
}

// All that the child needs between fork and exec, where memory must not be allocated.
struct Launch {
  const char* program;
  char* const* argv;
  char* const* environment;
  int input;
  int output;
  int errors;
  int report;  // takes the errno of the step that failed
  pid_t parent;
};

[[noreturn]] void report_and_exit(const Launch& launch) {
  const int error = errno;
  [[maybe_unused]] const ssize_t written = ::write(launch.report, &error, sizeof(error));
  ::_exit(127);
}

[[noreturn]] void run_child(const Launch& launch) {
  ::setsid();
  ::prctl(PR_SET_PDEATHSIG, SIGTERM);
  if (::getppid() != launch.parent) ::_exit(127);  // it died before the line above
  sigset_t none;
  sigemptyset(&none);
  ::sigprocmask(SIG_SETMASK, &none, nullptr);
  ::signal(SIGPIPE, SIG_DFL);
  if (::dup2(launch.input, 0) < 0 || ::dup2(launch.output, 1) < 0 || ::dup2(launch.errors, 2) < 0)
    report_and_exit(launch);
  if (::close_range(3, ~0U, CLOSE_RANGE_CLOEXEC) != 0) report_and_exit(launch);
  ::execve(launch.program, launch.argv, launch.environment);
  report_and_exit(launch);
}

int code_of(int status) { return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status); }

bool is_program(const fs::path& path) {
  std::error_code ignored;
  return fs::is_regular_file(path, ignored) && ::access(path.c_str(), X_OK) == 0;
}

}  // namespace

std::optional<fs::path> find_program(std::string_view name) {
  if (name.find('/') != std::string_view::npos) {
    if (is_program(name)) return fs::path(name);
    return std::nullopt;
  }
  const char* path = std::getenv("PATH");
  std::string folders = path != nullptr ? path : "/usr/bin:/bin";
  folders += ":/usr/local/sbin:/usr/sbin:/sbin";
  for (std::size_t at = 0; at <= folders.size();) {
    const std::size_t end = std::min(folders.find(':', at), folders.size());
    const fs::path candidate = fs::path(folders.substr(at, end - at)) / name;
    if (end > at && is_program(candidate)) return candidate;
    at = end + 1;
  }
  return std::nullopt;
}

ChildProcess::ChildProcess(ChildOptions options) : folder_("child"), command_line_(joined(options.argv)) {
  if (options.argv.empty()) throw std::runtime_error("no program given");
  launch(options);
}

ChildProcess::~ChildProcess() {
  try {
    stop();
  } catch (...) {  // nothing is left to do about it
  }
}

void ChildProcess::launch(const ChildOptions& options) {
  const auto program = find_program(options.argv.front());
  if (!program) throw std::runtime_error("no such program: " + options.argv.front());
  std::vector<std::string> argument_texts = options.argv;
  std::vector<std::string> environment_texts = child_environment(options);
  const std::vector<char*> argv = pointers(argument_texts);
  const std::vector<char*> environment = pointers(environment_texts);

  FileDescriptor input;
  if (options.keep_input_open) {
    Pipe pipe = make_pipe();
    input = std::move(pipe.read_end);
    input_ = std::move(pipe.write_end);
  } else if (options.standard_input) {
    input = open_file(folder_.write("in", *options.standard_input), O_RDONLY);
  } else {
    input = open_file("/dev/null", O_RDONLY);
  }
  const FileDescriptor output = open_file(folder_ / "out", O_WRONLY | O_CREAT | O_APPEND);
  const FileDescriptor errors = open_file(folder_ / "err", O_WRONLY | O_CREAT | O_APPEND);
  Pipe report = make_pipe();
  const Launch what{program->c_str(), argv.data(),  environment.data(),     input.get(),
                    output.get(),     errors.get(), report.write_end.get(), ::getpid()};

  pid_ = ::fork();
  if (pid_ < 0) throw system_error("fork");
  if (pid_ == 0) run_child(what);
  report.write_end.close();
  int error = 0;
  if (::read(report.read_end.get(), &error, sizeof(error)) != sizeof(error)) return;  // closed by the exec
  int status = 0;
  ::waitpid(pid_, &status, 0);
  exit_code_ = code_of(status);
  errno = error;
  throw system_error("cannot run " + command_line_);
}

bool ChildProcess::running() {
  if (exit_code_) return false;
  siginfo_t ended{};
  ::waitid(P_PID, static_cast<id_t>(pid_), &ended, WEXITED | WNOHANG | WNOWAIT);
  if (ended.si_pid == 0) return true;
  // Session processes may outlive their daemon. Only as long as it hasn't been waited for, its number
  // can't belong to somebody else's group.
  send_signal(SIGKILL);
  int status = 0;
  ::waitpid(pid_, &status, 0);
  exit_code_ = code_of(status);
  return false;
}

std::optional<int> ChildProcess::wait(milliseconds patience) {
  eventually([&] { return !running(); }, patience);
  return exit_code_;
}

bool ChildProcess::wait_for_output(std::string_view text, milliseconds patience) {
  const auto seen = [&] {
    return output().find(text) != std::string::npos || errors().find(text) != std::string::npos;
  };
  bool found = false;
  eventually([&] { return (found = seen()) || !running(); }, patience);
  return found || seen();  // the last words of a child that has just ended count
}

void ChildProcess::send_signal(int number) const {
  if (!exit_code_) ::kill(-pid_, number);
}

int ChildProcess::stop(milliseconds patience) {
  input_.close();
  if (running()) {
    send_signal(SIGTERM);
    if (!wait(patience)) {
      send_signal(SIGKILL);
      static_cast<void>(wait());
    }
  }
  return exit_code_.value_or(-1);
}

std::string ChildProcess::output() const { return read_file(folder_ / "out"); }
std::string ChildProcess::errors() const { return read_file(folder_ / "err"); }

CommandResult run_command(ChildOptions options) {
  ChildProcess child(std::move(options));
  CommandResult result;
  const std::optional<int> code = child.wait();
  result.exit_code = code ? *code : child.stop();
  result.output = child.output();
  result.errors = child.errors();
  return result;
}

CommandResult run_command(std::vector<std::string> argv, std::string standard_input) {
  ChildOptions options;
  options.argv = std::move(argv);
  options.standard_input = std::move(standard_input);
  return run_command(std::move(options));
}

}  // namespace yinet::test
