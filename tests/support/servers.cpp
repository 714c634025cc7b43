#include "support/servers.h"

#include <grp.h>
#include <pwd.h>
#include <unistd.h>

#include <algorithm>
#include <sstream>
#include <stdexcept>
#include <system_error>

#include "support/requirements.h"

namespace yinet::test {
namespace fs = std::filesystem;

namespace {

using Values = std::map<std::string, std::string>;

std::string filled(std::string text, const Values& values) {
  for (const auto& [name, value] : values)
    for (std::size_t at = 0; (at = text.find(name, at)) != std::string::npos; at += value.size())
      text.replace(at, name.size(), value);
  return text;
}

}  // namespace

void ServerProcess::start(const Daemon& daemon) {
  host_ = daemon.host;
  for (std::size_t i = 0; i < daemon.ports; ++i) ports_.push_back(bound_socket(host_, daemon.port));
  const PemPair pair = Certificates::shared().good();
  const std::string folder = folder_.path().string();
  Values values = {{"{DIR}", folder},
                   {"{CONFIG}", folder + "/config"},
                   {"{HOST}", host_},
                   {"{PORT}", std::to_string(port())},
                   {"{PORT2}", std::to_string(port(daemon.ports - 1))},
                   {"{CERT}", pair.certificate.string()},
                   {"{KEY}", pair.key.string()},
                   {"{PEM}", pair.both.string()}};
  values.insert(daemon.values.begin(), daemon.values.end());
  folder_.write("config", filled(daemon.configuration, values));
  Words command;
  std::istringstream words(daemon.command);
  for (std::string word; words >> word;) command.push_back(filled(word, values));
  child_.emplace(command);
  const auto is_open = [&](const FileDescriptor& port) {
    return connected_socket(local_port(port.get()), host_).valid();
  };
  const auto said = [&] { return child_->output() + child_->errors(); };
  const auto serves = [&] {
    return std::ranges::all_of(ports_, is_open) && said().find(daemon.says) != std::string::npos;
  };
  if (eventually([&] { return !child_->running() || serves(); }) && child_->running()) return;
  const std::string log = fs::exists(folder_ / "log") ? read_file(folder_ / "log") : "";
  throw std::runtime_error("does not serve: " + daemon.command + "\n" + said() + log);
}

std::string ServerProcess::address(std::size_t index) const {
  return (host_.find(':') == std::string::npos ? host_ : "[" + host_ + "]") + ":" + std::to_string(port(index));
}

namespace {

constexpr const char* kUser = "tester";
constexpr const char* kPassword = "geheim 1";
constexpr const char* kPasswordHash =
    "$6$yinet$te7hFPVMc4XrCYQwsXdS.v6B3SkOK2IOqC5o3Q5GGnFZIGjVzSChe1kdRQwjCt1UDnMTFcqtirmGVSYnCYb0A0";
constexpr unsigned kNobody = 65534;

bool is_root() { return ::geteuid() == 0; }

unsigned session_user() { return is_root() ? kNobody : ::geteuid(); }
unsigned session_group() { return is_root() ? kNobody : ::getegid(); }
std::string session_ids() { return std::to_string(session_user()) + ":" + std::to_string(session_group()) + "::"; }

void give_to_session(const fs::path& path) {
  if (is_root() && ::chown(path.c_str(), kNobody, kNobody) != 0)
    throw std::system_error(errno, std::generic_category(), path.string());
}

}  // namespace

ServedFolder::ServedFolder(std::string_view name) : ServerProcess(name) {
  folder_.open_to_everybody();
  files_ = folder_.make_folder("files");
  give_to_session(files_);
}

std::string ServedFolder::password() { return kPassword; }

void ServedFolder::add(std::string_view name, std::string_view content) const {
  write_file(files_ / name, content);
  give_to_session(files_ / name);
}

void ServedFolder::make_folder(std::string_view name) const {
  fs::create_directories(files_ / name);
  give_to_session(files_ / name);
}

namespace {

// A static file refuses POST with 405, and what an error page names is fetched by GET.
constexpr const char* kNginx = R"(load_module /usr/lib/nginx/modules/ngx_http_echo_module.so;
daemon off; worker_processes 1; pid {DIR}/pid; error_log {DIR}/log;
events { worker_connections 1024; }
http {
client_body_temp_path {DIR}/body; proxy_temp_path {DIR}/proxy; fastcgi_temp_path {DIR}/fastcgi;
uwsgi_temp_path {DIR}/uwsgi; scgi_temp_path {DIR}/scgi;
types { text/html html; text/plain txt; text/xml xml; } default_type application/octet-stream;
gzip off; sendfile on; client_max_body_size 0; keepalive_requests 1000000; access_log off;
root {FILES}; ssl_certificate {CERT}; ssl_certificate_key {KEY};
server {
listen 127.0.0.1:{PORT}; listen 127.0.0.1:{PORT2} ssl;
location = /status/401 { return 401 "status 401"; }
location = /redirect/301 { return 301 $scheme://$http_host/hello.txt; }
location = /redirect/302 { return 302 $scheme://$http_host/hello.txt; }
location ~ ^/post(/.*)$ { error_page 405 =200 $1; return 405; }
location ~ ^/fault(/.*)$ { error_page 405 =500 $1; return 405; }
location = /empty { return 200 ""; }
location = /cookies { add_header Set-Cookie "session=abc123; Path=/; HttpOnly";
add_header Set-Cookie "lang=de; Max-Age=3600"; add_header Set-Cookie "empty="; return 200 "cookies"; }
location = /echo { echo_read_request_body; echo_request_body; }
location = /request { echo -n $echo_client_request_headers; }
location ~ ^/chunked(/.*)$ { echo_location $1; } } }
)";

constexpr const char* kDante = R"(logoutput: {DIR}/log
internal: 127.0.0.1 port = {PORT}
external: lo
clientmethod: none
socksmethod: none
{RIGHTS}client pass { from: 0.0.0.0/0 to: 0.0.0.0/0 }
socks pass { from: 0.0.0.0/0 to: 0.0.0.0/0 }
)";

}  // namespace

NginxServer::NginxServer() : ServedFolder("nginx") {
  add("index.html", "<html><body>It serves.</body></html>\n");
  add("hello.txt", kHello);
  start({.command = "nginx -e {DIR}/log -p {DIR} -c {CONFIG}",
         .configuration = kNginx,
         .values = {{"{FILES}", files_.string()}},
         .ports = 2});
}

HttpProxy::HttpProxy(const std::string& user, const std::string& password) : ServerProcess("proxy") {
  start({.command = "tinyproxy -d -c {CONFIG}",
         .configuration =
             "Port {PORT}\nListen 127.0.0.1\nAllow 127.0.0.0/8\nPidFile \"{DIR}/pid\"\nLogFile \"{DIR}/log\"\n" +
             (user.empty() ? "" : "BasicAuth " + user + " " + password + "\n")});
}

std::string SocksServer::missing(Brand brand) {
  return missing_program(brand == Brand::dante ? "danted" : "microsocks");
}

SocksServer::SocksServer(Brand brand, const std::string& user, const std::string& password) : ServerProcess("socks") {
  const std::string rights = is_root() ? "user.privileged: root\nuser.unprivileged: nobody\n" : "";
  std::string command =
      brand == Brand::dante ? "danted -f {CONFIG} -p {DIR}/pid -N 1" : "microsocks -i 127.0.0.1 -p {PORT}";
  if (!user.empty()) command += " -u {USER} -P {PASSWORD}";
  start({.command = command,
         .configuration = kDante,
         .values = {{"{RIGHTS}", rights}, {"{USER}", user}, {"{PASSWORD}", password}}});
}

namespace {

struct FtpKind {
  const char *name, *program, *arguments, *tls_arguments, *configuration, *tls_configuration;
};
constexpr FtpKind kFtpKinds[] = {
    {"vsftpd", "vsftpd", " {CONFIG}", "",
     "listen=YES\nlisten_ipv6=NO\nbackground=NO\nlisten_address={HOST}\nlisten_port={PORT}\n"
     "pasv_address=127.0.0.1\nwrite_enable=YES\nseccomp_sandbox=NO\nxferlog_enable=NO\n"
     "secure_chroot_dir={DIR}/empty\nrun_as_launching_user=YES\nanonymous_enable=YES\nftp_username={LAUNCHER}\n"
     "anon_root={FILES}\nanon_upload_enable=YES\nanon_mkdir_write_enable=YES\nanon_other_write_enable=YES\n"
     "anon_world_readable_only=NO\nallow_writeable_chroot=YES\nanon_umask=022\n",
     "ssl_enable=YES\nallow_anon_ssl=YES\nforce_anon_data_ssl=YES\nforce_anon_logins_ssl=YES\nssl_ciphers=HIGH\n"
     "rsa_cert_file={CERT}\nrsa_private_key_file={KEY}\n"},
    {"proftpd", "proftpd", " -n -c {CONFIG}", "",
     "{MODULES}ServerType standalone\nDefaultAddress {HOST}\nPort {PORT}\nUseIPv6 on\nUser {USER}\n"
     "Group {GROUP}\nPidFile {DIR}/pid\nScoreboardFile {DIR}/scoreboard\nSystemLog "
     "{DIR}/log\n"
     "AuthUserFile {DIR}/accounts\nAuthOrder mod_auth_file.c\nRequireValidShell off\nDelayEngine off\nWtmpLog off\n"
     "TransferLog none\nAllowOverwrite on\nUseReverseDNS off\nDefaultRoot ~\n",
     "LoadModule mod_tls.c\nTLSEngine on\nTLSRequired on\nTLSLog {DIR}/tls.log\nTLSECCertificateFile {CERT}\n"
     "TLSECCertificateKeyFile {KEY}\n"},
    {"pure_ftpd", "pure-ftpd",
     " -4 -S 127.0.0.1,{PORT} -l puredb:{DIR}/accounts.pdb -P 127.0.0.1 -H -g {DIR}/pid -u 1 -A -E", " -Y 3 -2 {PEM}",
     "", ""}};
const FtpKind& kind_of(FtpBrand brand) { return kFtpKinds[static_cast<int>(brand)]; }

}  // namespace

std::string name_of(FtpBrand brand) { return kind_of(brand).name; }

std::string FtpServer::missing(FtpBrand brand) {
  const std::string reason = missing_program(kind_of(brand).program);
  return reason.empty() && brand == FtpBrand::pure_ftpd ? missing_root() : reason;
}

FtpServer::FtpServer(const Options& options)
    : ServedFolder("ftp"), user_(options.brand == FtpBrand::vsftpd ? "anonymous" : kUser) {
  const FtpKind& kind = kind_of(options.brand);
  const std::string rest = options.brand == FtpBrand::pure_ftpd ? "/./::::::::::::\n" : ":/bin/sh\n";
  const fs::path accounts =
      folder_.write("accounts", user_ + ":" + kPasswordHash + ":" + session_ids() + files_.string() + rest);
  fs::permissions(accounts, fs::perms::owner_read | fs::perms::owner_write);
  if (options.brand == FtpBrand::pure_ftpd) run_command({"pure-pw", "mkdb", folder_ / "accounts.pdb", "-f", accounts});
  folder_.make_folder("empty");
  const fs::path modules = servers_folder() / "usr/lib/proftpd";
  start({.command = std::string(kind.program) + kind.arguments + (options.tls ? kind.tls_arguments : ""),
         .configuration = kind.configuration + std::string(options.tls ? kind.tls_configuration : "") + options.lines,
         .values = {{"{FILES}", files_.string()},
                    {"{LAUNCHER}", ::getpwuid(::geteuid())->pw_name},
                    {"{USER}", ::getpwuid(session_user())->pw_name},
                    {"{GROUP}", ::getgrgid(session_group())->gr_name},
                    {"{MODULES}", fs::exists(modules) ? "ModulePath " + modules.string() + "\n" : ""}},
         .host = options.host,
         .port = options.port});
}

namespace {

// What of the machine the server sees otherwise. $0 lies in its private folder.
constexpr const char* kSshNamespace =
    "cd \"${0%/*}\" && mount --bind passwd /etc/passwd && mount --bind shadow /etc/shadow && "
    "mount -t tmpfs none /run && mkdir -p -m 755 /run/sshd && mount -t tmpfs -o size=1m,mode=777 none files/full && "
    "exec \"$@\"";

constexpr const char* kSshd =
    "Port {PORT}\nListenAddress 127.0.0.1\nHostKey {DIR}/host_key\nPidFile none\nUsePAM no\nUseDNS no\n"
    "PasswordAuthentication yes\nKbdInteractiveAuthentication no\nStrictModes no\nMaxStartups 200\n"
    "AuthorizedKeysFile {DIR}/user_key.pub\nSubsystem sftp internal-sftp\n";

}  // namespace

std::string SshServer::user() { return kUser; }

std::string SshServer::missing() {
  for (const std::string& reason : {missing_program("sshd"), missing_program("ssh-keygen"), missing_root()})
    if (!reason.empty()) return reason;
  return missing_network_namespaces();
}

SshServer::SshServer(const std::string& lines) : ServedFolder("ssh") {
  make_folder("full");
  for (const char* name : {"host_key", "user_key"})
    run_command({"ssh-keygen", "-q", "-t", "ed25519", "-N", "", "-C", "", "-f", folder_ / name});
  folder_.write("passwd", "root:x:0:0::/root:/bin/sh\nsshd:x:65533:65534::/run/sshd:/usr/sbin/nologin\n" + user() +
                              ":x:" + session_ids() + files_.string() + ":/bin/sh\n");
  folder_.write("shadow", user() + ":" + kPasswordHash + ":19000:0:99999:7:::\n");
  folder_.write("start", kSshNamespace);
  // A process namespace as well: sshd's sessions leave its process group, and are to end with it.
  start({.command = "unshare -m -p --fork --kill-child sh {DIR}/start {SSHD} -D -e -f {CONFIG}",
         .configuration = lines + "\n" + kSshd,
         .values = {{"{SSHD}", find_program("sshd")->string()}}});
}

std::string SshServer::host_key() const {
  const std::string line = read_file(folder_ / "host_key.pub");
  return line.substr(0, line.find_last_not_of(" \n") + 1);
}

}  // namespace yinet::test
