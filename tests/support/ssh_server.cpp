#include "support/ssh_server.h"

#include <sstream>
#include <stdexcept>

#include "support/requirements.h"

namespace yinet::test {
namespace {

// The files and folders of the machine that the server sees otherwise; $0 is its private folder.
constexpr const char* kInNamespace =
    "mount --bind \"$0/passwd\" /etc/passwd && mount --bind \"$0/shadow\" /etc/shadow && mount -t tmpfs none /run && "
    "mkdir -p -m 755 /run/sshd && mount -t tmpfs -o size=1m,mode=777 none \"$0/files/full\" && exec \"$@\"";

void make_key(const std::filesystem::path& file) {
  const CommandResult made = run_command({"ssh-keygen", "-q", "-t", "ed25519", "-N", "", "-C", "", "-f", file.string()});
  if (made.exit_code != 0) throw std::runtime_error("ssh-keygen: " + made.output + made.errors);
}

}  // namespace

std::string SshServer::missing() {
  for (const char* program : {"sshd", "ssh-keygen", "openssl"})
    if (!find_program(program)) return missing_program(program);
  const std::string reason = missing_root();
  return reason.empty() ? missing_network_namespaces() : reason;
}

SshServer::SshServer(const std::string& lines) : ServedFolder("ssh") {
  make_folder("full");
  make_key(folder_ / "host_key");
  make_key(user_key());
  const std::string ids = std::to_string(session_user()) + ":" + std::to_string(session_group());
  folder_.write("passwd", "root:x:0:0::/root:/bin/sh\nsshd:x:65533:65534::/run/sshd:/usr/sbin/nologin\n" + user() + ":x:" +
                              ids + "::" + folder().string() + ":/bin/sh\n");
  folder_.write("shadow", user() + ":" + password_hash(password()) + ":19000:0:99999:7:::\n");
  ServerSetup setup;
  setup.name = "sshd";
  setup.prepare = [this, &lines](const ReservedPorts& ports) { return prepare(ports[0], lines); };
  server_.emplace(std::move(setup));
}

std::string SshServer::host_key() const {
  const std::string line = read_file(folder_ / "host_key.pub");
  return line.substr(0, line.find_last_not_of(" \n") + 1);
}

ChildOptions SshServer::prepare(std::uint16_t port, const std::string& lines) const {
  std::ostringstream text;
  text << lines << "\nPort " << port << "\nListenAddress 127.0.0.1\nHostKey " << (folder_ / "host_key").string()
       << "\nPidFile none\nUsePAM no\nPasswordAuthentication yes\nKbdInteractiveAuthentication no\nStrictModes no\n"
       << "AuthorizedKeysFile " << user_key().string() << ".pub\nSubsystem sftp internal-sftp\nUseDNS no\nMaxStartups 200\n";
  ChildOptions child;
  // A process namespace as well: sshd's sessions leave its process group, and are to end with it.
  child.argv = {"unshare", "-m", "-p", "--fork", "--kill-child", "sh", "-c", kInNamespace, folder_.path().string(),
                find_program("sshd")->string(), "-D", "-e", "-f", folder_.write("sshd_config", text.str()).string()};
  return child;
}

}  // namespace yinet::test
