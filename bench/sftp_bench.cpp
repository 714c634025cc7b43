// Files over SFTP, this library beside OpenSSH's sftp and a plain libssh loop (synchronous calls, 121072 bytes each, on a
// connection that libssh makes), against sshd on loopback. Files lie in memory (TMPDIR, otherwise /dev/shm). Login included.
//
//   sftp_bench [large file MiB] [small files] [runs] [only]        default: 1024 1000 5, all comparisons
//
// `only` chooses comparisons by a part of their name, "upload" for example.

#include <fcntl.h>
#include <libssh/libssh.h>
#include <libssh/sftp.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "side_by_side.h"
#include "support/servers.h"
#include "support/temp_dir.h"
#include "yinet/host/setting_table.h"
#include "yinet/host/ylog.h"
#include "yinet/ssh/ssh_client.h"

namespace {

using namespace yinet::bench;
namespace fs = std::filesystem;
using yinet::test::SshServer;

constexpr std::size_t kSmallSize = 10'000;
constexpr std::size_t kPiece = 121072;

bool shell(const std::string& command) { return std::system(command.c_str()) == 0; }

// One transfer: these files of the local folder there, or these of the server's folder here.
struct Job {
  const SshServer* server;
  fs::path local;
  bool upload;
  std::vector<std::string> names;

  [[nodiscard]] std::string target(const std::string& name) const { return (local / ("back_" + name)).string(); }
};

// --- This library -----------------------------------------------------------------------------------------------------------

Work yinet_work(const Job& job) {
  return [job](Stopwatch& watch) {
    yinet::set_setting(yinet::settings::kConnectPause.section, yinet::settings::kConnectPause.name, "0");
    watch.restart();
    sshClient client;
    if (!client.connect("127.0.0.1", job.server->port(), YString(SshServer::user()), YString(SshServer::password()), "",
                        0, 0, "", ""))
      return false;
    sftp_session_struct* const session = client.initFileTransferSession();
    for (const std::string& name : job.names) {
      const bool done = job.upload ? client.uploadFile(YString((job.local / name).string()), YString(name), session)
                                   : client.downloadWholeFile(YString(name), YString(job.target(name)), session);
      if (!done) return false;
    }
    return true;
  };
}

// --- libssh -----------------------------------------------------------------------------------------------------------------

bool plain_transfer(sftp_session sftp, const Job& job, const std::string& name) {
  const std::string local = job.upload ? (job.local / name).string() : job.target(name);
  const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(local.c_str(), job.upload ? "rb" : "wb"),
                                                             &std::fclose);
  const sftp_file remote = sftp_open(sftp, name.c_str(), job.upload ? O_WRONLY | O_CREAT | O_TRUNC : O_RDONLY, 0644);
  if (!file || remote == nullptr) return false;
  std::vector<char> piece(kPiece);
  bool good = true;
  while (good) {
    if (job.upload) {
      const std::size_t count = std::fread(piece.data(), 1, piece.size(), file.get());
      if (count == 0) break;
      good = sftp_write(remote, piece.data(), count) == static_cast<ssize_t>(count);
    } else {
      const ssize_t count = sftp_read(remote, piece.data(), piece.size());
      if (count == 0) break;
      good = count > 0 && std::fwrite(piece.data(), 1, static_cast<std::size_t>(count), file.get()) ==
                              static_cast<std::size_t>(count);
    }
  }
  return sftp_close(remote) == SSH_OK && good;
}

Work libssh_work(const Job& job) {
  return [job](Stopwatch& watch) {
    watch.restart();
    const ssh_session session = ssh_new();
    const unsigned int port = job.server->port();
    const int on = 1;
    ssh_options_set(session, SSH_OPTIONS_HOST, "127.0.0.1");
    ssh_options_set(session, SSH_OPTIONS_PORT, &port);
    ssh_options_set(session, SSH_OPTIONS_USER, SshServer::user().c_str());
    ssh_options_set(session, SSH_OPTIONS_NODELAY, &on);
    if (ssh_connect(session) != SSH_OK ||
        ssh_userauth_password(session, nullptr, SshServer::password().c_str()) != SSH_AUTH_SUCCESS)
      return false;
    const sftp_session sftp = sftp_new(session);
    bool good = sftp != nullptr && sftp_init(sftp) == SSH_OK;
    for (const std::string& name : job.names) good = good && plain_transfer(sftp, job, name);
    sftp_free(sftp);
    ssh_disconnect(session);
    ssh_free(session);
    return good;
  };
}

// --- OpenSSH ----------------------------------------------------------------------------------------------------------------

Work openssh_work(const Job& job) {
  return [job](Stopwatch& watch) {
    std::string commands;
    for (const std::string& name : job.names) {
      commands += job.upload ? "put \"" + (job.local / name).string() + "\" \"" + name + "\"\n"
                             : "get \"" + name + "\" \"" + job.target(name) + "\"\n";
    }
    const std::string batch = (job.local / "batch").string();
    yinet::test::write_file(batch, commands);
    watch.restart();
    return shell("sftp -q -F none -o StrictHostKeyChecking=no -o UserKnownHostsFile=/dev/null -i " +
                 job.server->user_key().string() + " -P " + std::to_string(job.server->port()) + " -b " + batch + " " +
                 SshServer::user() + "@127.0.0.1 > /dev/null 2>&1");
  };
}

// A contender counts only when the files are the same afterwards.
void prove(const Job& job, const Contender& contender) {
  Stopwatch ignored;
  bool same = contender.work(ignored);
  for (const std::string& name : job.names) {
    const std::string here = job.upload ? (job.local / name).string() : job.target(name);
    same = same && shell("cmp -s " + here + " " + (job.server->folder() / name).string());
    fs::remove(job.upload ? job.server->folder() / name : fs::path(here));
  }
  if (!same) give_up(contender.name + " brought other bytes");
}

void make_file(const fs::path& path, std::size_t size) {
  if (!shell("head -c " + std::to_string(size) + " /dev/urandom > " + path.string())) give_up(path.string());
}

void run(const std::string& what, const Job& job, int runs, const std::string& only) {
  if (what.find(only) == std::string::npos) return;
  const fs::path from = job.upload ? job.local : job.server->folder();
  const std::size_t size = job.names.size() == 1 ? fs::file_size(job.local / job.names.front()) : kSmallSize;
  for (const std::string& name : job.names)
    if (!job.upload) make_file(from / name, size);
  const std::vector<Contender> contenders = {
      {"yinet", yinet_work(job)}, {"OpenSSH sftp", openssh_work(job)}, {"libssh loop", libssh_work(job)}};
  for (const Contender& contender : contenders) prove(job, contender);
  compare(what, contenders, runs);
}

long argument(int argc, char** argv, int index, long usual) { return argc > index ? std::atol(argv[index]) : usual; }

}  // namespace

int main(int argc, char** argv) {
  setenv("TMPDIR", "/dev/shm", 0);
  const auto large = static_cast<std::size_t>(argument(argc, argv, 1, 1024)) << 20;
  const long count = argument(argc, argv, 2, 1000);
  const auto runs = static_cast<int>(argument(argc, argv, 3, 5));
  const std::string only = argc > 4 ? argv[4] : "";
  if (const std::string reason = SshServer::missing(); !reason.empty()) give_up(reason);
  yinet::set_log_sink([](const yinet::LogRecord&) {});

  const SshServer server;
  const yinet::test::TempDir local("sftp_bench");
  make_file(local / "large", large);
  std::vector<std::string> small;
  for (long i = 0; i < count; ++i) {
    small.push_back("small" + std::to_string(i));
    make_file(local / small.back(), kSmallSize);
  }
  print_machine(std::string("libssh ") + ssh_version(0));
  print_table_head("libssh loop");
  for (const bool upload : {true, false}) {
    const std::string way = upload ? "upload" : "download";
    run(way + ", large", {&server, local.path(), upload, {"large"}}, runs, only);
    run(way + ", small", {&server, local.path(), upload, small}, runs, only);
  }
}
