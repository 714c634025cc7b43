// get, put, mkdir, rmdir, rm and exists: single files and folders on servers of any of the five protocols.

#include <CLI/CLI.hpp>

#include <algorithm>
#include <array>
#include <memory>
#include <string>
#include <vector>

#include "command.h"
#include "local_file.h"
#include "terminal.h"
#include "transfer_call.h"
#include "transfer_progress.h"
#include "yinet/filetransfer/transfer_url.h"
#include "yinet/filetransfer/yinet_file_transfer.h"
#include "yinet/host/text.h"

namespace yinet::cli {
namespace {

constexpr const char* kExamples = R"(Examples:
  yinet get https://www.example.com/list.pdf
  yinet get sftp://me@files.example.com/reports/today.txt today.txt
  yinet put today.txt ftps://me@ftp.example.com/reports/ --proxy socks5h://127.0.0.1:1080
  yinet mkdir sftp://me@files.example.com/reports/2026
  yinet exists ftp://ftp.example.com/pub && echo there

Protocols are http, https, ftp, ftps and sftp; http and https serve "get" only. ftps:// is implicit TLS on port 990, which
is its default, and explicit TLS on any other port, such as ftps://HOST:21/. Paths begin in the login's folder; "/%2F"
begins an absolute one. What is fetched takes its place when it is complete; until then an older file stays. Passwords come
from the URL, from YINET_PASSWORD and YINET_PROXY_PASSWORD, or are asked for. Certificates are verified with
"--set TLS/ZertifikateImmerPruefen=1". "mkdir" fails for a folder that exists; "yinet sftp mkdir" does not.

Exit status: )" YINET_TRANSFER_EXIT_CODES;

constexpr std::string_view kProtocols[] = {"http", "https", "ftp", "ftps", "sftp"};

struct Arguments {
  std::string url, file, proxy;
  bool quiet = false;
};

// --- What went wrong --------------------------------------------------------------------------------------------------------

int code_for(TransferFailure failure) {
  switch (failure) {
    case TransferFailure::no_connection: return kNoConnection;
    case TransferFailure::login_refused: return kLoginRefused;
    case TransferFailure::refused: return kRefusedByServer;
    case TransferFailure::local_file: return kLocalFile;
    case TransferFailure::broken_off: return kBrokenOff;
    case TransferFailure::none:
    case TransferFailure::other: break;
  }
  return kFailed;
}

// With `local_known` somebody else tells what a local file lacks.
int failure(YInetFileTransfer& transfer, bool local_known = false) {
  const TransferCause& cause = transfer.last_cause();
  if (local_known && cause.failure == TransferFailure::local_file) return kLocalFile;
  const std::string why = cause.text.IsEmpty() ? "" : " (" + std::string(cause.text) + ")";
  return fail(code_for(cause.failure), shown(std::string(transfer.GetLastErrorMsg()) + why));
}

// --- The commands -----------------------------------------------------------------------------------------------------------

bool is_http(const TransferUrl& url) { return url.scheme.starts_with("http"); }

// To the library every path begins in the login's folder. One that begins at the root takes a second slash over FTP, and
// over SFTP more steps up than any folder is deep.
std::string from_login_folder(const TransferUrl& url, const std::string& path) {
  if (!path.starts_with('/') || is_http(url)) return path;
  if (url.scheme != "sftp") return path.starts_with("//") ? path : "/" + path;
  constexpr int kSteps = 64;
  std::string up = "..";
  for (int i = 1; i < kSteps; ++i) up += "/..";
  return up + path;
}

// Where names are parts of URLs, "%" would begin an escape, which the path has no more.
YString path_for_transfer(const TransferUrl& url, const std::string& path) {
  return to_ansi(is_http(url) ? url.raw_path : replaced(from_login_folder(url, path), "%", "%25"));
}

// Without the query of an HTTP URL.
std::string path_of_file(const TransferUrl& url) {
  return is_http(url) ? percent_decoded(url.raw_path.substr(0, url.raw_path.find_first_of("?#"))) : url.path;
}

int get(YInetFileTransfer& transfer, const TransferUrl& url, const Arguments& arguments) {
  return fetch_file(arguments.file, path_of_file(url), [&](const YString& local) {
    const auto work = [&] { return transfer.DownloadToFile(path_for_transfer(url, url.path), local); };
    return TransferProgress(arguments.quiet).follow(transfer, work) ? kSucceeded : failure(transfer, true);
  });
}

int put(YInetFileTransfer& transfer, const TransferUrl& url, const Arguments& arguments) {
  const std::string target = upload_target(url.path, arguments.file);
  return send_file(arguments.file, [&](const std::string& local) {
    const auto work = [&] { return transfer.UploadFile(to_ansi(local), path_for_transfer(url, target)); };
    return TransferProgress(arguments.quiet).follow(transfer, work) ? kSucceeded : failure(transfer);
  });
}

using PathOperation = bool (YInetFileTransfer::*)(const YString&);
template <PathOperation operation>
int run_on_path(YInetFileTransfer& transfer, const TransferUrl& url, const Arguments&) {
  return (transfer.*operation)(to_ansi(from_login_folder(url, url.path))) ? kSucceeded : failure(transfer);
}

int exists(YInetFileTransfer& transfer, const TransferUrl& url, const Arguments& arguments) {
  if (transfer.ExistsDirectory(path_for_transfer(url, url.path))) return kSucceeded;
  if (transfer.GetLastErrorNumber() != 0) return failure(transfer);
  if (!arguments.quiet) remark("there is no folder " + url.path);
  return kRefusedByServer;
}

using Action = int (*)(YInetFileTransfer& transfer, const TransferUrl& url, const Arguments& arguments);

enum class File { none, after_url, before_url };
struct Row {
  const char* name;
  const char* help;
  Action action;
  File file = File::none;
};

int run(const Row& row, const Arguments& arguments) {
  const auto url = parse_transfer_url(arguments.url);
  if (!url || std::ranges::find(kProtocols, url->scheme) == std::end(kProtocols))
    return wrong_call("write the URL as http://, https://, ftp://, ftps:// or sftp://HOST/PATH");
  const auto proxy = arguments.proxy.empty() ? TransferUrl{} : parse_transfer_url(arguments.proxy);
  if (!proxy) return wrong_call("write the proxy as PROTOCOL://HOST:PORT, such as socks5h://127.0.0.1:1080");
  for (const TransferUrl& address : {*url, *proxy})
    if (const std::string problem = address_problem(address); !problem.empty()) return wrong_call(problem);
  if (is_http(*url) && row.action != &get)
    return wrong_call(url->scheme + ":// serves \"get\" only; \"" + row.name + "\" takes ftp://, ftps:// and sftp://");
  if (row.file == File::before_url)
    if (const std::string reason = reason_against_upload(url->path, arguments.file); !reason.empty())
      return wrong_call(reason);
  YInetFileTransfer transfer;
  transfer.SetErrorReporting(false);  // the remark at the end says the same
  if (!transfer.SetProtocol(to_ansi(url->scheme)) || !transfer.SetServer(to_ansi(url->host)) ||
      (!proxy->host.empty() &&
       (!transfer.SetProxyProtocol(to_ansi(proxy->scheme)) || !transfer.SetProxyServer(to_ansi(proxy->host)))))
    return wrong_call(shown(transfer.GetLastErrorMsg()));
  const auto password = password_of(*url, "YINET_PASSWORD", account_of(*url));
  if (!password) return kWrongCall;
  const auto proxy_password = proxy_password_of(*proxy);
  if (!proxy_password) return kWrongCall;
  transfer.SetUsername(to_ansi(url->user));
  transfer.SetPassword(*password);
  transfer.SetProxyUsername(to_ansi(proxy->user));
  transfer.SetProxyPassword(*proxy_password);
  return row.action(transfer, *url, arguments);
}

Command add_command(CLI::App& program, const Row& row) {
  const auto arguments = std::make_shared<Arguments>();
  CLI::App* command = program.add_subcommand(row.name, row.help);
  command->footer(kExamples);
  if (row.file == File::before_url) add_file_option(*command, arguments->file, true);
  command->add_option("URL", arguments->url, "PROTOCOL://USER@HOST:PORT/PATH")->required()->type_name("");
  if (row.file == File::after_url) add_file_option(*command, arguments->file, false);
  command
      ->add_option("--proxy", arguments->proxy,
                   "http, https, socks4, socks4a, socks5 or socks5h, with user, host and port")
      ->type_name("URL");
  command->add_flag("--quiet", arguments->quiet, "No progress and no throughput");
  return {command, [arguments, row] { return run(row, *arguments); }};
}

}  // namespace

std::vector<Command> add_file_commands(CLI::App& program) {
  constexpr std::array kRows = {
      Row{"get", "Fetch a file from a server", &get, File::after_url},
      Row{"put", "Bring a file to a server", &put, File::before_url},
      Row{"mkdir", "Create a folder on a server", &run_on_path<&YInetFileTransfer::CreateDirectoryA>},
      Row{"rmdir", "Delete an empty folder on a server", &run_on_path<&YInetFileTransfer::DeleteDirectory>},
      Row{"rm", "Delete a file on a server", &run_on_path<&YInetFileTransfer::DeleteFileA>},
      Row{"exists", "Tell by the exit status whether a folder is on a server", &exists}};
  std::vector<Command> commands;
  for (const Row& row : kRows) commands.push_back(add_command(program, row));
  return commands;
}

}  // namespace yinet::cli
