#include <CLI/CLI.hpp>

#include <array>
#include <memory>
#include <string>

#include "command.h"
#include "ftp_failure.h"
#include "late_remark.h"
#include "local_file.h"
#include "row_commands.h"
#include "terminal.h"
#include "transfer_call.h"
#include "transfer_progress.h"
#include "yinet/filetransfer/transfer_url.h"
#include "yinet/ftp/ftp_codes.h"
#include "yinet/ftp/ftps.h"
#include "yinet/host/setting_table.h"
#include "yinet/host/text.h"
#include "yinet/host/ylog.h"

namespace yinet::cli {
namespace {

constexpr const char* kExamples = R"(Examples:
  yinet ftp get ftps://me@ftp.example.com/reports/today.txt
  yinet ftp put ftps://me@ftp.example.com/reports/ today.txt
  yinet ftp ls ftp://ftp.example.com/pub/
  yinet ftp size ftps://me@ftp.example.com/big.iso --proxy socks5://127.0.0.1:1080

ftps:// is FTP with explicit TLS (FTP type 4), ftp:// is plain FTP. Paths begin in the login's folder; "/%2F" begins an
absolute one. What is fetched takes its place when it is complete; until then an older file stays. Passwords come from the
URL, from YINET_FTP_PASSWORD and YINET_PROXY_PASSWORD, or are asked for.

Exit status: )" YINET_TRANSFER_EXIT_CODES;

constexpr const char* kNoListing = "-1";  // of ftps, for no data connection

constexpr int kPlainType = 1;

struct Arguments {
  std::string url, file, type, proxy, certificate;
  bool quiet = false;
};

constexpr SchemeType kServerSchemes[] = {{"ftp", kPlainType}, {"ftps", ftp::kTlsType}, {"ftpes", ftp::kTlsType}};
constexpr SchemeType kProxySchemes[] = {
    {"ftp", ftp::kFtpProxy}, {"socks4", ftp::kSocks4Proxy}, {"socks5", ftp::kSocks5Proxy}};

// People get what scripts don't: exact replies, downloads that are checked, and limits that count silence only.
void use_careful_settings() {
  for (const Setting* setting :
       {&settings::kFtpExactReplies, &settings::kFtpExactDownloads, &settings::kFtpDownloadIdle})
    set_setting_default(setting->section, setting->name, "1");
}

// One command on a connection that is logged in; gives the exit code.
using Action = int (*)(ftps& ftp, const TransferUrl& url, const Arguments& arguments);

template <typename Work>
int transfer(ftps& ftp, bool quiet, const std::string& remote, Work work) {
  TransferProgress progress(quiet);
  int result = 0;
  const bool succeeded = progress.follow(ftp, [&] { return (result = work()) == 0 && went_well(ftp); });
  return succeeded ? kSucceeded : transfer_failure(ftp, result, remote, progress.done(), progress.total());
}

int get(ftps& ftp, const TransferUrl& url, const Arguments& arguments) {
  return fetch_file(arguments.file, url.path, [&](const YString& local) {
    return transfer(ftp, arguments.quiet, url.path,
                    [&] { return ftp.download_file(to_ansi(url.path), local, ftps::kByteType); });
  });
}

int put(ftps& ftp, const TransferUrl& url, const Arguments& arguments) {
  const std::string target = upload_target(url.path, arguments.file);
  return send_file(arguments.file, [&](const std::string& local) {
    const std::string reason = reason_not_to_send(local, file_title(arguments.file));
    if (!reason.empty()) return fail(kLocalFile, reason);
    const int code = transfer(ftp, arguments.quiet, target,
                              [&] { return ftp.upload_file(to_ansi(local), to_ansi(target), ftps::kByteType); });
    return code == kLocalFile ? fail(code, file_title(arguments.file) + " cannot be read") : code;
  });
}

int remove(ftps& ftp, const TransferUrl& url, const Arguments&) {
  const int result = ftp.del_file(to_ansi(url.path));
  return result == 0 && went_well(ftp) ? kSucceeded : command_failure(ftp, url.path);
}

int size(ftps& ftp, const TransferUrl& url, const Arguments&) {
  const long bytes = ftp.get_filesize(to_ansi(url.path));
  if (bytes < 0) return command_failure(ftp, url.path);
  print(std::to_string(bytes) + "\n");
  return kSucceeded;
}

int list(ftps& ftp, const TransferUrl& url, const Arguments&) {
  std::string folder = url.path;
  while (folder.size() > 1 && folder.ends_with('/')) folder.pop_back();
  const auto failed = [&] { return command_failure(ftp, folder.empty() ? "." : folder); };
  if (!folder.empty()) {
    ftp.send_command(to_ansi("CWD " + folder), ftps::kReadReply);
    if (!went_well(ftp)) return failed();
  }
  const YString listing = ftp.get_dir_content();
  if (!went_well(ftp) || listing == kNoListing) return failed();
  for (const std::string_view line : split(listing, "\n"))
    if (!trimmed(line).empty()) print(shown(trimmed_back(line)) + "\n");
  ftp.get_ftpserver_mes();  // the listing's own reply
  return went_well(ftp) ? kSucceeded : failed();
}

struct Row {
  const char* name;
  const char* help;
  Action action;
  bool needs_path;  // in the URL
  bool takes_file, needs_file;
};
constexpr std::array kRows = {Row{"get", "Fetch a file", &get, true, true, false},
                              Row{"put", "Bring a file to the server", &put, false, true, true},
                              Row{"rm", "Delete a file", &remove, true, false, false},
                              Row{"size", "Print the size of a file", &size, true, false, false},
                              Row{"ls", "List a folder", &list, false, false, false}};

std::optional<int> ftp_type(const Arguments& arguments, const TransferUrl& url) {
  if (arguments.type.empty()) return type_of(kServerSchemes, url.scheme);
  if (arguments.type == "plain") return kPlainType;
  if (arguments.type == "tls") return ftp::kTlsType;
  const int number = leading_int32(arguments.type);
  return number > 0 ? std::optional<int>(number) : std::nullopt;
}

// A server of another protocol may say nothing, or nothing that is a reply, until the limit for replies is over.
bool connect(ftps& ftp, const std::string& server) {
  const LateRemark hint("still waiting for " + server +
                        "; \"yinet sftp\" is for SSH servers, and \"yinet get ftps://HOST:990/...\" " +
                        "for those that speak TLS from the first byte");
  return ftp.connect() == 0 && !no_reply(ftp);
}

int run(const Row& row, const Arguments& arguments) {
  auto url = parse_transfer_url(arguments.url);
  if (!url || !type_of(kServerSchemes, url->scheme))
    return wrong_call("write the URL as ftp://HOST/PATH or ftps://HOST/PATH");
  if (row.needs_path && (url->path.empty() || url->path.ends_with('/'))) return wrong_call("the URL names no file");
  const auto type = ftp_type(arguments, *url);
  if (!type) return wrong_call("--type is \"tls\", \"plain\" or a number above 0");
  const auto proxy = choose_proxy(arguments.proxy, kProxySchemes);
  if (!proxy) return wrong_call("write the proxy as socks5://HOST:PORT, socks4://HOST:PORT or ftp://HOST:PORT");
  for (const TransferUrl& address : {*url, proxy->url})
    if (const std::string problem = address_problem(address); !problem.empty()) return wrong_call(problem);
  if (breaks_protocol_line(url->user) || breaks_protocol_line(url->path))
    return wrong_call("a name cannot hold a line break");
  if (row.needs_file) {
    if (const std::string reason = reason_against_upload(url->path, arguments.file); !reason.empty())
      return wrong_call(reason);
    const std::string reason = arguments.file == "-" ? "" : reason_not_to_send(arguments.file, arguments.file);
    if (!reason.empty()) return fail(kLocalFile, reason);
  }
  if (url->user.empty()) {
    url->user = "anonymous";
    url->password = "anonymous@";
    url->has_password = true;
  }
  const auto password = password_of(*url, "YINET_FTP_PASSWORD", account_of(*url));
  if (!password) return kWrongCall;
  const auto proxy_password = proxy_password_of(proxy->url);
  if (!proxy_password) return kWrongCall;
  const SecretScope no_password(*password);
  const SecretScope no_proxy_password(*proxy_password);
  use_careful_settings();
  ftps ftp(to_ansi(url->host), to_ansi(url->user), *password, to_ansi(proxy->url.host), *type, proxy->type,
           to_ansi(arguments.certificate), to_ansi(proxy->url.user), *proxy_password);
  if (!connect(ftp, url->host)) return connection_failure(ftp, url->host, url->user);
  const int code = row.action(ftp, *url, arguments);
  ftp.closeconnection();
  return code;
}

}  // namespace

Command add_ftp_command(CLI::App& program) {
  const auto arguments = std::make_shared<Arguments>();
  const auto add_options = [&](CLI::App& app, const Row& row) {
    app.add_option("URL", arguments->url, "ftp:// or ftps:// with server and path")->required()->type_name("");
    if (row.takes_file) add_file_option(app, arguments->file, row.needs_file);
    app.add_option("--type", arguments->type, "tls, plain or an FTP type; by the URL's scheme when absent");
    app.add_option("--proxy", arguments->proxy, "socks5://, socks4:// or ftp:// with user, host and port")
        ->type_name("URL");
    app.add_option("--certificate", arguments->certificate, "Folder of trusted certificates, or the client's PEM file");
    app.add_flag("--quiet", arguments->quiet, "No progress and no throughput");
  };
  return add_row_commands(program, "ftp", "Move files to and from FTP servers, with or without TLS", kExamples, kRows,
                          add_options, [arguments](const Row& row) { return run(row, *arguments); });
}

}  // namespace yinet::cli
