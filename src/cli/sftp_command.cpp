#include <CLI/CLI.hpp>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "command.h"
#include "late_remark.h"
#include "local_file.h"
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

Paths begin in the login's folder; "/%2F" begins an absolute one. What is fetched takes its place when it is complete; until
then an older file stays. "mkdir" succeeds for a folder that exists; "yinet mkdir" does not. Passwords come from the URL,
from YINET_SFTP_PASSWORD, YINET_SFTP_KEY_PASSWORD and YINET_PROXY_PASSWORD, or are asked for; with --key none is needed for
the server. The server's host key is shown by --trace, and checked only where --known-hosts or the setting
SSH/BekannteHosts names a file.

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

// `remote` is what the operation was about, a server or a path there.
int outcome(const sshClient& client, bool succeeded, const std::string& remote) {
  if (succeeded) return kSucceeded;
  const int code = code_for(client.last_failure());
  const std::string text = shown(client.last_failure_text());
  const bool of_path = code == kRefusedByServer || code == kBrokenOff;
  const bool says_what =
      code == kLocalFile || text.find(remote) != std::string::npos;  // the server, where one was looked for
  return fail(code, of_path || !says_what ? remote + ": " + text : text);
}

// One command on a connection that is logged in; gives the exit code.
using Action = int (*)(sshClient& client, const std::string& path, const Arguments& arguments);

int get(sshClient& client, const std::string& path, const Arguments& arguments) {
  return fetch_file(arguments.file, path, [&](const YString& local) {
    const auto work = [&] { return client.downloadWholeFile(to_ansi(path), local, nullptr); };
    const bool done = TransferProgress(arguments.quiet).follow(client, work);
    return client.last_failure() == SshFailure::local_file ? kLocalFile : outcome(client, done, path);
  });
}

int put(sshClient& client, const std::string& path, const Arguments& arguments) {
  const std::string target = upload_target(path, arguments.file);
  return send_file(arguments.file, [&](const std::string& local) {
    const auto work = [&] { return client.uploadFile(to_ansi(local), to_ansi(target), nullptr); };
    return outcome(client, TransferProgress(arguments.quiet).follow(client, work), target);
  });
}

int list(sshClient& client, const std::string& path, const Arguments&) {
  const YString listing = client.getDirectory(to_ansi(path.empty() ? "." : path), nullptr);
  std::vector<std::string_view> names = listing.Items();
  std::ranges::sort(names);
  for (const std::string_view name : names)
    if (name != "." && name != "..") print(shown(name) + "\n");
  if (const int code = outcome(client, client.last_failure() == SshFailure::none, path.empty() ? "." : path))
    return code;
  if (static_cast<std::int64_t>(names.size()) < setting_number(settings::kSshListingEntries)) return kSucceeded;
  return fail(kFailed, "the listing is cut at " + std::to_string(names.size()) +
                           " names, \".\" and \"..\" included; the setting SSH/ListenEintraege allows more");
}

using PathOperation = bool (sshClient::*)(const YString&, sftp_session_struct*);
template <PathOperation operation>
int run_on_path(sshClient& client, const std::string& path, const Arguments&) {
  return outcome(client, (client.*operation)(to_ansi(path), nullptr), path);
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

// Why a file cannot be a private key, in any of the forms that begin with a line which says so; empty when it can, and for
// no file.
std::string reason_against_key(const std::string& file) {
  if (file.empty()) return {};
  YFile key(to_ansi(file));
  std::string content;
  if (!key.Open(kOpenExisting, kAccessRead) || !key.ReadAll(content))
    return file + " cannot be read: " + std::strerror(key.LastError());
  return content.find("PRIVATE KEY-----") == std::string::npos ? file + " holds no private key" : std::string();
}

// False, with a remark, when the key needs a password that is not to be had.
bool use_key(sshClient& client, const std::string& file) {
  const YString name = to_ansi(file);
  std::optional<YString> password = YString();
  if (sshClient::key_needs_password(name)) {
    password = password_of({.user = file}, "YINET_SFTP_KEY_PASSWORD", "the key " + file);
  }
  if (password) client.set_private_key(name, *password);
  return password.has_value();
}

// With a key nobody is asked for the password of the account, which may well have none.
std::optional<YString> account_password(const TransferUrl& url, bool with_key) {
  constexpr const char* kVariable = "YINET_SFTP_PASSWORD";
  if (with_key && !url.has_password && std::getenv(kVariable) == nullptr) return YString();
  return password_of(url, kVariable, account_of(url));
}

int run(const Row& row, const Arguments& arguments) {
  const auto url = parse_transfer_url(arguments.url);
  if (!url || !type_of(kServerSchemes, url->scheme) || url->user.empty())
    return wrong_call("write the URL as sftp://USER@HOST/PATH");
  const auto proxy = choose_proxy(arguments.proxy, kProxySchemes);
  if (!proxy) return wrong_call("write the proxy as socks5://HOST:PORT or socks4://HOST:PORT");
  for (const TransferUrl& address : {*url, proxy->url})
    if (const std::string problem = address_problem(address); !problem.empty()) return wrong_call(problem);
  if (row.needs_file) {
    if (const std::string reason = reason_against_upload(url->path, arguments.file); !reason.empty())
      return wrong_call(reason);
    // The upload would empty the remote file before it looks at the local one.
    YFile source(to_ansi(arguments.file));
    if (arguments.file != "-" && !source.Open(kOpenExisting, kAccessRead))
      return fail(kLocalFile, arguments.file + " cannot be read: " + std::strerror(source.LastError()));
  }
  if (const std::string reason = reason_against_key(arguments.key); !reason.empty()) return fail(kLocalFile, reason);
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
  const auto connect = [&] {
    const LateRemark hint("still waiting for " + url->host + "; \"yinet ftp\" is for FTP servers");
    return client.connect(server.host, server.port, to_ansi(url->user), *password, proxy_address.host,
                          proxy_address.port, proxy->type, to_ansi(proxy->url.user), *proxy_password);
  };
  if (!connect()) return outcome(client, false, url->host);
  return row.action(client, url->path, arguments);
}

}  // namespace

Command add_sftp_command(CLI::App& program) {
  const auto arguments = std::make_shared<Arguments>();
  const auto add_options = [&](CLI::App& app, const Row& row) {
    app.add_option("URL", arguments->url, "sftp:// with user, server and path")->required()->type_name("");
    if (row.takes_file) add_file_option(app, arguments->file, row.needs_file);
    app.add_option("--key", arguments->key, "Private key to log in with")->type_name("FILE");
    app.add_option("--known-hosts", arguments->known_hosts, "Accept only servers whose keys are in this file")
        ->type_name("FILE");
    app.add_option("--proxy", arguments->proxy, "socks5:// or socks4:// with user, host and port")->type_name("URL");
    app.add_flag("--quiet", arguments->quiet, "No progress and no throughput");
  };
  return add_row_commands(program, "sftp", "Move files to and from SSH servers", kExamples, kRows, add_options,
                          [arguments](const Row& row) { return run(row, *arguments); });
}

}  // namespace yinet::cli
