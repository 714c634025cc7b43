// get, put, mkdir, rmdir, rm and exists: single files and folders on servers of any of the five protocols.

#include <CLI/CLI.hpp>

#include <algorithm>
#include <array>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "command.h"
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
is its default, and explicit TLS on any other port, such as ftps://HOST:21/. Paths begin in the login's folder. Passwords
come from the URL, from YINET_PASSWORD and YINET_PROXY_PASSWORD, or are asked for. Certificates are verified with
"--set TLS/ZertifikateImmerPruefen=1".

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

int failure(YInetFileTransfer& transfer) {
  const TransferCause& cause = transfer.last_cause();
  const std::string why = cause.text.IsEmpty() ? "" : " (" + std::string(cause.text) + ")";
  return fail(code_for(cause.failure), shown(std::string(transfer.GetLastErrorMsg()) + why));
}

// --- The commands -----------------------------------------------------------------------------------------------------------

bool is_http(const TransferUrl& url) { return url.scheme.starts_with("http"); }

// Where names are parts of URLs, "%" would begin an escape, which the path has no more.
YString path_for_transfer(const TransferUrl& url, const std::string& path) {
  return to_ansi(is_http(url) ? url.raw_path : replaced(path, "%", "%25"));
}

template <typename Work>
int with_progress(YInetFileTransfer& transfer, bool quiet, Work work) {
  return TransferProgress(quiet).follow(transfer, work) ? kSucceeded : failure(transfer);
}

// Of the file that the URL names; empty when it is none, or none that can safely be a local name.
std::string local_name_for(const TransferUrl& url) {
  const std::string path =
      is_http(url) ? percent_decoded(url.raw_path.substr(0, url.raw_path.find_first_of("?#"))) : url.path;
  const std::string name = path.substr(path.rfind('/') + 1);
  return name == "." || name == ".." || name.find('\\') != std::string::npos ? std::string() : name;
}

int get(YInetFileTransfer& transfer, const TransferUrl& url, const Arguments& arguments) {
  std::string target = arguments.file.empty() ? "." : arguments.file;
  std::error_code ignored;
  if (target.ends_with('/') || std::filesystem::is_directory(target, ignored)) {
    const std::string name = local_name_for(url);
    if (name.empty()) return wrong_call("the URL names no file; name the local one");
    target += "/" + name;
  }
  return with_progress(transfer, arguments.quiet,
                       [&] { return transfer.DownloadToFile(path_for_transfer(url, url.path), to_ansi(target)); });
}

int put(YInetFileTransfer& transfer, const TransferUrl& url, const Arguments& arguments) {
  const std::string target = upload_target(url.path, arguments.file);
  return with_progress(transfer, arguments.quiet,
                       [&] { return transfer.UploadFile(to_ansi(arguments.file), path_for_transfer(url, target)); });
}

using PathOperation = bool (YInetFileTransfer::*)(const YString&);
template <PathOperation operation>
int run_on_path(YInetFileTransfer& transfer, const TransferUrl& url, const Arguments&) {
  return (transfer.*operation)(to_ansi(url.path)) ? kSucceeded : failure(transfer);
}

int exists(YInetFileTransfer& transfer, const TransferUrl& url, const Arguments& arguments) {
  if (transfer.ExistsDirectory(path_for_transfer(url, url.path))) return kSucceeded;
  if (transfer.GetLastErrorNumber() != 0) return failure(transfer);
  if (!arguments.quiet) remark("there is no folder " + url.path);
  return kRefusedByServer;
}

using Action = int (*)(YInetFileTransfer& transfer, const TransferUrl& url, const Arguments& arguments);

int run(Action action, const Arguments& arguments) {
  const auto url = parse_transfer_url(arguments.url);
  if (!url || std::ranges::find(kProtocols, url->scheme) == std::end(kProtocols))
    return wrong_call("write the URL as http://, https://, ftp://, ftps:// or sftp://HOST/PATH");
  const auto proxy = arguments.proxy.empty() ? TransferUrl{} : parse_transfer_url(arguments.proxy);
  if (!proxy) return wrong_call("write the proxy as PROTOCOL://HOST:PORT, such as socks5h://127.0.0.1:1080");
  YInetFileTransfer transfer;
  transfer.SetErrorReporting(false);  // the remark at the end says the same
  if (!transfer.SetProtocol(to_ansi(url->scheme)) || !transfer.SetServer(to_ansi(url->host)) ||
      (!proxy->host.empty() &&
       (!transfer.SetProxyProtocol(to_ansi(proxy->scheme)) || !transfer.SetProxyServer(to_ansi(proxy->host)))))
    return wrong_call(shown(transfer.GetLastErrorMsg()));
  const auto password = password_of(*url, "YINET_PASSWORD", "Password for " + url->user + ": ");
  if (!password) return kWrongCall;
  const auto proxy_password = proxy_password_of(*proxy);
  if (!proxy_password) return kWrongCall;
  transfer.SetUsername(to_ansi(url->user));
  transfer.SetPassword(*password);
  transfer.SetProxyUsername(to_ansi(proxy->user));
  transfer.SetProxyPassword(*proxy_password);
  return action(transfer, *url, arguments);
}

enum class File { none, after_url, before_url };
struct Row {
  const char* name;
  const char* help;
  Action action;
  File file = File::none;
};

Command add_command(CLI::App& program, const Row& row) {
  const auto arguments = std::make_shared<Arguments>();
  CLI::App* command = program.add_subcommand(row.name, row.help);
  command->footer(kExamples);
  if (row.file == File::before_url) add_file_option(*command, arguments->file, true);
  command->add_option("URL", arguments->url, "PROTOCOL://USER@HOST:PORT/PATH")->required()->type_name("");
  if (row.file == File::after_url) add_file_option(*command, arguments->file, false);
  command->add_option("--proxy", arguments->proxy, "http, https, socks4, socks4a, socks5 or socks5h, with user, host and port")
      ->type_name("URL");
  command->add_flag("--quiet", arguments->quiet, "No progress and no throughput");
  return {command, [arguments, action = row.action] { return run(action, *arguments); }};
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
