#include "support/child_process.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <sstream>
#include <system_error>

#include "support/requirements.h"

namespace yinet::test {
namespace fs = std::filesystem;

fs::path servers_folder() { return YINET_TEST_SERVERS; }

std::optional<fs::path> find_program(std::string_view name) {
  const char* path = std::getenv("PATH");
  std::istringstream folders(YINET_TEST_SERVERS "/usr/sbin:" YINET_TEST_SERVERS "/usr/bin:" +
                             std::string(path != nullptr ? path : "/usr/bin:/bin") +
                             ":/usr/local/sbin:/usr/sbin:/sbin");
  for (std::string folder; std::getline(folders, folder, ':');) {
    const fs::path candidate = fs::path(folder) / name;  // `name` alone when it is a whole path
    std::error_code ignored;
    if (fs::is_regular_file(candidate, ignored) && ::access(candidate.c_str(), X_OK) == 0) return candidate;
  }
  return std::nullopt;
}

ChildProcess::ChildProcess(const Words& command, const Environment& environment, std::string_view input) {
  const auto program = find_program(command.at(0));
  if (!program) throw std::runtime_error("no such program: " + command[0]);
  // env and setpriv put themselves in the program's place; the kernel forgets the bond only when a program gains rights.
  Words words = {"env", "--default-signal=PIPE"};
  for (const auto& [name, value] : environment) words.push_back(name + "=" + value);
  words.insert(words.end(), {"setpriv", "--pdeathsig", "TERM", "--", program->string()});
  words.insert(words.end(), command.begin() + 1, command.end());
  std::vector<char*> argv;
  for (std::string& word : words) argv.push_back(word.data());
  argv.push_back(nullptr);
  posix_spawn_file_actions_t files;
  posix_spawn_file_actions_init(&files);
  posix_spawn_file_actions_addopen(&files, 0, folder_.write("in", input).c_str(), O_RDONLY, 0);
  posix_spawn_file_actions_addopen(&files, 1, folder_.write("out", "").c_str(), O_WRONLY | O_APPEND, 0);
  posix_spawn_file_actions_addopen(&files, 2, folder_.write("err", "").c_str(), O_WRONLY | O_APPEND, 0);
  posix_spawn_file_actions_addclosefrom_np(&files, 3);
  posix_spawnattr_t attributes;
  posix_spawnattr_init(&attributes);
  posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSID);
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

CommandResult run_command(const Words& command, const Environment& environment, std::string_view input) {
  ChildProcess child(command, environment, input);
  const std::optional<int> code = child.wait();
  return {code ? *code : child.stop(), child.output(), child.errors()};
}

std::string missing_program(std::string_view name) {
  return find_program(name) ? "" : "the program " + std::string(name) + " is not installed";
}

std::string missing_root() { return ::geteuid() == 0 ? "" : "only root can start this server with logins of its own"; }

std::string missing_network_namespaces() {
  static const CommandResult probe = run_command(in_network_namespace({"true"}));
  return probe.exit_code == 0 ? "" : "this machine lets no user make a network namespace: " + probe.errors;
}

std::string missing_ipv6() {
  try {
    bound_socket("::1");
    return {};
  } catch (const std::system_error&) {
    return "the loopback has no IPv6 address";
  }
}

Words in_network_namespace(Words command, const std::string& resolver) {
  constexpr const char* kScript =  // ordinary users lack the folder of ip
      "PATH=$PATH:/usr/sbin:/sbin; ip link set lo up && { [ -z \"$0\" ] || mount --bind \"$0\" /etc/resolv.conf; } && "
      "exec \"$@\"";
  // Root needs no user namespace, which some machines and every changed root directory refuse.
  command.insert(command.begin(), {"unshare", ::geteuid() == 0 ? "-mn" : "-rmn", "sh", "-c", kScript, resolver});
  return command;
}

}  // namespace yinet::test
