#include "support/requirements.h"

#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

#include <system_error>

#include "support/child_process.h"
#include "support/ports.h"

namespace yinet::test {

std::string missing_program(std::string_view name) {
  if (find_program(name)) return {};
  return "the program " + std::string(name) + " is not installed";
}

std::string missing_root() { return ::geteuid() == 0 ? "" : "only root can start this server with logins of its own"; }

std::string missing_network_namespaces() {
  static const std::string reason = [] {
    for (const char* program : {"unshare", "ip", "mount"})
      if (!find_program(program)) return missing_program(program);
    const CommandResult probe = run_command(in_network_namespace({"true"}));
    return probe.exit_code == 0 ? "" : "this machine lets no user make a network namespace: " + probe.errors;
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

std::vector<std::string> in_network_namespace(std::vector<std::string> argv, const std::string& resolver) {
  constexpr const char* kScript =  // ordinary users lack the folder of ip
      "PATH=$PATH:/usr/sbin:/sbin; ip link set lo up && { [ -z \"$0\" ] || mount --bind \"$0\" /etc/resolv.conf; } && "
      "exec \"$@\"";
  // Root needs no user namespace, which some machines and every changed root directory refuse.
  const char* const namespaces = ::geteuid() == 0 ? "-mn" : "-rmn";
  argv.insert(argv.begin(), {"unshare", namespaces, "sh", "-c", kScript, resolver});
  return argv;
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
