#include "support/requirements.h"

#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

#include <system_error>

#include "support/child_process.h"
#include "support/socket_address.h"

namespace yinet::test {

std::string missing_program(std::string_view name) {
  if (find_program(name)) return {};
  return "the program " + std::string(name) + " is not installed";
}

std::string missing_root() {
  return ::geteuid() == 0 ? std::string() : "only root can start this server with logins of its own";
}

std::string missing_network_namespaces() {
  static const std::string reason = []() -> std::string {
    for (const char* program : {"unshare", "ip", "mount"})
      if (!find_program(program)) return missing_program(program);
    const CommandResult probe = run_command(in_network_namespace({"true"}));
    if (probe.exit_code == 0) return {};
    return "this machine lets no user make a network namespace: " + probe.errors;
  }();
  return reason;
}

std::string missing_ipv6() {
  try {
    listen_on("::1", 0);
    return {};
  } catch (const std::system_error&) {
    return "the loopback has no IPv6 address";
  }
}

std::vector<std::string> in_network_namespace(const std::vector<std::string>& argv,
                                              const std::filesystem::path& resolver) {
  std::string script = "PATH=$PATH:/usr/sbin:/sbin; ip link set lo up && ";  // ordinary users lack the folder of ip
  if (!resolver.empty()) script += "mount --bind \"$0\" /etc/resolv.conf && ";
  // Root needs no user namespace, which some machines and every changed root directory refuse.
  const char* namespaces = ::geteuid() == 0 ? "-mn" : "-rmn";
  std::vector<std::string> command{"unshare", namespaces, "sh", "-c", script + "exec \"$@\"", resolver.string()};
  command.insert(command.end(), argv.begin(), argv.end());
  return command;
}

void enter_mount_namespace() {
  if (::unshare(CLONE_NEWNS) != 0 || ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0)
    throw std::system_error(errno, std::generic_category(), "own mount namespace");
}

void enter_network_namespace() {
  if (::unshare(CLONE_NEWNET) != 0 || run_command({"ip", "link", "set", "lo", "up"}).exit_code != 0)
    throw std::system_error(errno, std::generic_category(), "own network namespace");
}

}  // namespace yinet::test
