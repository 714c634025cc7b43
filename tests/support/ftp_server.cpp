#include "support/ftp_server.h"

#include <grp.h>
#include <pwd.h>
#include <unistd.h>

#include <sstream>
#include <stdexcept>

#include "support/requirements.h"

namespace yinet::test {
namespace fs = std::filesystem;

namespace {

constexpr const char* kUser = "tester";
constexpr const char* kPassword = "geheim 1";
constexpr std::size_t kPassivePorts = 24;
constexpr std::uint16_t kImplicitTlsPort = 990;

// Where scripts/unpack_servers.sh has put them; an installed one serves as well.
fs::path unpacked_folder() { return YINET_TEST_SERVERS; }

std::string program_of(FtpBrand brand) {
  const std::string name = brand == FtpBrand::pure_ftpd ? "pure-ftpd" : name_of(brand);
  const fs::path unpacked = unpacked_folder() / "usr/sbin" / name;
  return fs::exists(unpacked) ? unpacked.string() : name;
}

std::string name_of_user() { return ::getpwuid(ServedFolder::session_user())->pw_name; }

PemPair certificate() { return Certificates::shared().make("ftp-server", {.rsa = true}); }

std::string account_line(const std::string& home_and_rest) {
  return std::string(kUser) + ":" + password_hash(kPassword) + ":" + std::to_string(ServedFolder::session_user()) + ":" +
         std::to_string(ServedFolder::session_group()) + "::" + home_and_rest + "\n";
}

}  // namespace

std::string name_of(FtpBrand brand) {
  switch (brand) {
    case FtpBrand::vsftpd: return "vsftpd";
    case FtpBrand::proftpd: return "proftpd";
    case FtpBrand::pure_ftpd: return "pure_ftpd";
  }
  return {};
}

std::string FtpServer::missing(FtpBrand brand) {
  std::string reason = missing_program(program_of(brand));
  if (reason.empty()) reason = missing_program("openssl");
  if (reason.empty() && brand == FtpBrand::pure_ftpd) reason = missing_root();
  return reason;
}

FtpServer::FtpServer(const Options& options) : ServedFolder("ftp"), options_(options) {
  ServerSetup setup;
  setup.name = name_of(options.brand);
  setup.ports = 1 + kPassivePorts;
  setup.listening = 1;
  setup.log = folder_ / "log";
  setup.prepare = [this](const ReservedPorts& ports) { return prepare(ports); };
  if (options.ipv6) setup.ready = [](ChildProcess&, const ReservedPorts& ports) { return port_is_open(ports[0], "::1"); };
  if (options.implicit_tls) setup.ready = [](ChildProcess&, const ReservedPorts&) { return port_is_open(kImplicitTlsPort); };
  server_.emplace(std::move(setup));
}

std::string FtpServer::address() const {
  if (options_.implicit_tls) return "127.0.0.1";
  return (options_.ipv6 ? "[::1]:" : "127.0.0.1:") + std::to_string(port());
}

std::string FtpServer::user() const { return options_.brand == FtpBrand::vsftpd ? "anonymous" : kUser; }
std::string FtpServer::password() const { return options_.brand == FtpBrand::vsftpd ? "me@example.com" : kPassword; }

fs::path FtpServer::config_file(std::string_view text) const { return folder_.write("server.conf", text); }

ChildOptions FtpServer::prepare(const ReservedPorts& ports) const {
  switch (options_.brand) {
    case FtpBrand::vsftpd: return prepare_vsftpd(ports);
    case FtpBrand::proftpd: return prepare_proftpd(ports);
    case FtpBrand::pure_ftpd: return prepare_pure_ftpd(ports);
  }
  return {};
}

ChildOptions FtpServer::prepare_vsftpd(const ReservedPorts& ports) const {
  std::ostringstream text;
  text << "listen=YES\nlisten_ipv6=NO\nbackground=NO\nlisten_address=127.0.0.1\nlisten_port=" << ports[0]
       << "\npasv_min_port=" << ports[1] << "\npasv_max_port=" << ports.last() << "\npasv_address=127.0.0.1\n"
       << "write_enable=YES\nseccomp_sandbox=NO\nxferlog_enable=NO\nsecure_chroot_dir="
       << folder_.make_folder("empty").string() << "\nrun_as_launching_user=YES\nanonymous_enable=YES\nftp_username="
       << ::getpwuid(::geteuid())->pw_name << "\nanon_root=" << folder().string()
       << "\nanon_upload_enable=YES\nanon_mkdir_write_enable=YES\nanon_other_write_enable=YES\n"
       << "anon_world_readable_only=NO\nallow_writeable_chroot=YES\nanon_umask=022\n";
  if (options_.tls) {
    const PemPair pair = certificate();
    text << "ssl_enable=YES\nallow_anon_ssl=YES\nforce_anon_data_ssl=YES\nforce_anon_logins_ssl=YES\nssl_ciphers=HIGH\n"
         << "rsa_cert_file=" << pair.certificate.string() << "\nrsa_private_key_file=" << pair.key.string() << "\n";
  }
  if (options_.implicit_tls) text << "implicit_ssl=YES\nlisten_port=" << kImplicitTlsPort << "\n";
  text << options_.lines;
  ChildOptions child;
  child.argv = {program_of(FtpBrand::vsftpd), config_file(text.str()).string()};
  return child;
}

ChildOptions FtpServer::prepare_proftpd(const ReservedPorts& ports) const {
  const fs::path accounts = folder_.write("accounts", account_line(folder().string() + ":/bin/sh"));
  fs::permissions(accounts, fs::perms::owner_read | fs::perms::owner_write);
  const fs::path modules = unpacked_folder() / "usr/lib/proftpd";
  std::ostringstream text;
  if (fs::exists(modules)) text << "ModulePath " << modules.string() << "\n";
  if (options_.tls) text << "LoadModule mod_tls.c\n";
  text << "ServerType standalone\nDefaultAddress " << (options_.ipv6 ? "::1" : "127.0.0.1") << "\nPort " << ports[0]
       << "\nUseIPv6 " << (options_.ipv6 ? "on" : "off") << "\nPassivePorts " << ports[1] << " " << ports.last()
       << "\nUser " << name_of_user() << "\nGroup " << ::getgrgid(session_group())->gr_name << "\nPidFile " << (folder_ / "pid").string()
       << "\nScoreboardFile " << (folder_ / "scoreboard").string() << "\nSystemLog " << (folder_ / "log").string()
       << "\nAuthUserFile " << accounts.string() << "\nAuthOrder mod_auth_file.c\nRequireValidShell off\n"
       << "DelayEngine off\nWtmpLog off\nTransferLog none\nAllowOverwrite on\nUseReverseDNS off\nDefaultRoot ~\n";
  if (options_.tls) {
    const PemPair pair = certificate();
    text << "TLSEngine on\nTLSRequired on\nTLSLog " << (folder_ / "tls.log").string() << "\nTLSRSACertificateFile "
         << pair.certificate.string() << "\nTLSRSACertificateKeyFile " << pair.key.string() << "\n";
  }
  text << options_.lines;
  ChildOptions child;
  child.argv = {program_of(FtpBrand::proftpd), "-n", "-c", config_file(text.str()).string()};
  return child;
}

ChildOptions FtpServer::prepare_pure_ftpd(const ReservedPorts& ports) const {
  const fs::path accounts = folder_.write("accounts", account_line(folder().string() + "/./::::::::::::"));
  const fs::path database = folder_ / "accounts.pdb";
  const fs::path tool = unpacked_folder() / "usr/bin/pure-pw";
  const CommandResult made = run_command({fs::exists(tool) ? tool.string() : "pure-pw", "mkdb", database.string(), "-f",
                                          accounts.string()});
  if (made.exit_code != 0) throw std::runtime_error("pure-pw: " + made.output + made.errors);
  ChildOptions child;
  child.argv = {program_of(FtpBrand::pure_ftpd), "-4", "-S", "127.0.0.1," + std::to_string(ports[0]),
                "-l", "puredb:" + database.string(), "-p", std::to_string(ports[1]) + ":" + std::to_string(ports.last()),
                "-P", "127.0.0.1", "-H", "-g", (folder_ / "pid").string(), "-u", "1", "-A", "-E"};
  if (options_.tls) {
    child.argv.insert(child.argv.end(), {"-Y", "3", "-2", certificate().both.string()});
  }
  return child;
}

}  // namespace yinet::test
