#include <CLI/CLI.hpp>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "command.h"
#include "row_commands.h"
#include "terminal.h"
#include "transfer_call.h"
#include "transfer_progress.h"
#include "yinet/filetransfer/transfer_url.h"
#include "yinet/host/setting_table.h"
#include "yinet/host/yfile.h"
#include "yinet/host/ylog.h"
#include "yinet/ssh/ssh_address.h"
#include "yinet/ssh/ssh_client.h"

namespace yinet::cli {
namespace {

constexpr const char* kExamples = R"(Examples:
  yinet sftp get sftp://me@sftp.example.com/reports/today.txt
  yinet sftp put sftp://me@sftp.example.com/reports/ today.txt
  yinet sftp ls sftp://me@sftp.example.com/ --key ~/.ssh/id_ed25519 --known-hosts ~/.ssh/known_hosts
  yinet sftp mkdir sftp://me@sftp.example.com:2222/new --proxy socks5://127.0.0.1:1080

Paths begin in the login's folder; "/%2F" begins an absolute one. Passwords come from the URL, from YINET_SFTP_PASSWORD,
YINET_SFTP_KEY_PASSWORD and YINET_PROXY_PASSWORD, or are asked for; with --key none is needed for the server. The server's
host key is shown by --trace, and checked only where --known-hosts or the setting SSH/BekannteHosts names a file.

Exit status: )" YINET_TRANSFER_EXIT_CODES;

constexpr SchemeType kServerSchemes[] = {{"sftp", 0}};
constexpr SchemeType kProxySchemes[] = {{"socks4", 4}, {"socks5", 5}};

struct Arguments {
  std::string url, file, proxy, key, known_hosts;
  bool quiet = false;
};

int code_for(SshFailure failure) {
  switch (failure) {
    case SshFailure::not_connected:
    case SshFailure::host_key: return kNoConnection;
    case SshFailure::login: return kLoginRefused;
    case SshFailure::refused: return kRefusedByServer;
    case SshFailure::local_file: return kLocalFile;
    case SshFailure::broken: return kBrokenOff;
    case SshFailure::none: break;
  }
  return kFailed;
}

int outcome(const sshClient& client, bool succeeded) {
  if (succeeded) return kSucceeded;
  return fail(code_for(client.last_failure()), shown(client.last_failure_text()));
}

template <typename Work>
int transfer(sshClient& client, bool quiet, Work work) {
  return outcome(client, TransferProgress(quiet).follow(client, work));
}

// One command on a connection that is logged in; gives the exit code.
using Action = int (*)(sshClient& client, const std::string& path, const Arguments& arguments);

int get(sshClient& client, const std::string& path, const Arguments& arguments) {
  std::string target = arguments.file.empty() ? "." : arguments.file;
  std::error_code ignored;
  YString local = to_ansi(target);
  if (target.ends_with('/') || std::filesystem::is_directory(target, ignored)) {
    const YString name = YFile::ExtractNameAndExtension(to_ansi(path));
    if (name.IsEmpty() || name == "." || name == "..") return wrong_call("the URL names no file; name the local one");
    local = local + "/" + name;
  }
  return transfer(client, arguments.quiet, [&] { return client.downloadWholeFile(to_ansi(path), local, nullptr); });
}

int put(sshClient& client, const std::string& path, const Arguments& arguments) {
  const std::string target = upload_target(path, arguments.file);
  return transfer(client, arguments.quiet,
                  [&] { return client.uploadFile(to_ansi(arguments.file), to_ansi(target), nullptr); });
}

int list(sshClient& client, const std::string& path, const Arguments&) {
  const YString listing = client.getDirectory(to_ansi(path.empty() ? "." : path), nullptr);
  std::vector<std::string_view> names = listing.Items();
  std::ranges::sort(names);
  for (const std::string_view name : names)
    if (name != "." && name != "..") print(shown(name) + "\n");
  return outcome(client, client.last_failure() == SshFailure::none);
}

using PathOperation = bool (sshClient::*)(const YString&, sftp_session_struct*);
template <PathOperation operation>
int run_on_path(sshClient& client, const std::string& path, const Arguments&) {
  return outcome(client, (client.*operation)(to_ansi(path), nullptr));
}

struct Row {
  const char* name;
  const char* help;
  Action action;
  bool takes_file = false, needs_file = false;
};
constexpr std::array kRows = {Row{"get", "Fetch a file", &get, true, false},
                              Row{"put", "Bring a file to the server", &put, true, true},
                              Row{"rm", "Delete a file", &run_on_path<&sshClient::deleteFile>},
                              Row{"mkdir", "Make a folder", &run_on_path<&sshClient::createDirectory>},
                              Row{"rmdir", "Remove an empty folder", &run_on_path<&sshClient::removeDirectory>},
                              Row{"ls", "List a folder", &list}};

// False, with a remark, when the key needs a password that is not to be had.
bool use_key(sshClient& client, const std::string& file) {
  const YString name = to_ansi(file);
  std::optional<YString> password = YString();
  if (sshClient::key_needs_password(name)) {
    password = password_of({.user = file}, "YINET_SFTP_KEY_PASSWORD", "Password of the key " + file + ": ");
  }
  if (password) client.set_private_key(name, *password);
  return password.has_value();
}

// With a key nobody is asked for the password of the account, which may well have none.
std::optional<YString> account_password(const TransferUrl& url, bool with_key) {
  constexpr const char* kVariable = "YINET_SFTP_PASSWORD";
  if (with_key && !url.has_password && std::getenv(kVariable) == nullptr) return YString();
  return password_of(url, kVariable, "Password for " + url.user + ": ");
}

int run(const Row& row, const Arguments& arguments) {
  const auto url = parse_transfer_url(arguments.url);
  if (!url || !type_of(kServerSchemes, url->scheme) || url->user.empty())
    return wrong_call("write the URL as sftp://USER@HOST/PATH");
  const auto proxy = choose_proxy(arguments.proxy, kProxySchemes);
  if (!proxy) return wrong_call("write the proxy as socks5://HOST:PORT or socks4://HOST:PORT");
  // The upload would empty the remote file before it looks at the local one.
  if (YFile source(to_ansi(arguments.file)); row.needs_file && !source.Open(kOpenExisting, kAccessRead))
    return fail(kLocalFile, arguments.file + " cannot be read: " + std::strerror(source.LastError()));
  sshClient client;
  if (!arguments.key.empty() && !use_key(client, arguments.key)) return kWrongCall;
  if (!arguments.known_hosts.empty())
    set_setting(settings::kSshKnownHosts.section, settings::kSshKnownHosts.name, to_ansi(arguments.known_hosts).str());
  const bool with_key = !arguments.key.empty() || !setting_text(settings::kSshKeyFile).empty();
  const auto password = account_password(*url, with_key);
  if (!password) return kWrongCall;
  const auto proxy_password = proxy_password_of(proxy->url);
  if (!proxy_password) return kWrongCall;
  const SecretScope no_password(*password);
  const SecretScope no_proxy_password(*proxy_password);
  const SshAddress server = split_ssh_address(to_ansi(url->host), kSshPort);
  const SshAddress proxy_address = split_ssh_address(to_ansi(proxy->url.host), kSocksPort);
  if (!client.connect(server.host, server.port, to_ansi(url->user), *password, proxy_address.host, proxy_address.port,
                      proxy->type, to_ansi(proxy->url.user), *proxy_password)) {
    return outcome(client, false);
  }
  return row.action(client, url->path, arguments);
}

}  // namespace

Command add_sftp_command(CLI::App& program) {
  const auto arguments = std::make_shared<Arguments>();
  const auto add_options = [&](CLI::App& app, const Row& row) {
    app.add_option("URL", arguments->url, "sftp:// with user, server and path")->required()->type_name("");
    if (row.takes_file) add_file_option(app, arguments->file, row.needs_file);
    app.add_option("--key", arguments->key, "Private key to log in with")->type_name("FILE");
    app.add_option("--known-hosts", arguments->known_hosts, "Accept only servers whose keys are in this file")->type_name("FILE");
    app.add_option("--proxy", arguments->proxy, "socks5:// or socks4:// with user, host and port")->type_name("URL");
    app.add_flag("--quiet", arguments->quiet, "No progress and no throughput");
  };
  return add_row_commands(program, "sftp", "Move files to and from SSH servers", kExamples, kRows, add_options,
                          [arguments](const Row& row) { return run(row, *arguments); });
}

}  // namespace yinet::cli
