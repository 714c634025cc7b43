#pragma once

// What the commands that move files have in common: exit codes by cause, local and remote names, passwords.

#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "yinet/filetransfer/transfer_url.h"
#include "yinet/host/ystring.h"

namespace CLI {
class App;
}

namespace yinet::cli {

inline constexpr int kNoConnection = 3;
inline constexpr int kLoginRefused = 4;
inline constexpr int kRefusedByServer = 5;
inline constexpr int kLocalFile = 6;
inline constexpr int kBrokenOff = 7;
// For the help of these commands.
#define YINET_TRANSFER_EXIT_CODES                                                                             \
  "0 success, 2 wrong call, 3 no connection, 4 login refused, 5 refused by the server (no such file, say),\n" \
  "6 local file, 7 the transfer broke off, 1 any other failure."

// Where a local file goes: a path that is empty or ends with a slash is a folder, in which it keeps its name.
std::string upload_target(const std::string& path, const std::string& file);
// Why it cannot go there; empty when it can.
std::string reason_against_upload(const std::string& path, const std::string& file);
// Where the file `remote` goes: FILE of the command line or, where that is a folder or empty, a file of the remote name in
// it. Empty when the remote path ends in no name, or in none that is safe on this side.
std::optional<std::string> download_target(const std::string& file, const std::string& remote);
// The option FILE: what is sent or, when not `needed`, where to what is fetched goes.
void add_file_option(CLI::App& app, std::string& file, bool needed);

// From the URL, else from this environment variable, else asked for on the terminal, as the password for `account`. Nothing
// is asked without a user. Empty, with a remark, when there is none to be had.
std::optional<YString> password_of(const TransferUrl& url, const char* variable, const std::string& account);
std::string account_of(const TransferUrl& url);  // "user@host:port"

// What is wrong with the server of a URL, its port for example; empty when it can be tried.
std::string address_problem(const TransferUrl& url);

// What a URL's scheme stands for; empty when it is in no row.
struct SchemeType {
  std::string_view scheme;
  int type;
};
std::optional<int> type_of(std::span<const SchemeType> rows, std::string_view scheme);

// A proxy between the program and the server; type 0 and no host without one.
struct ProxyChoice {
  int type = 0;
  TransferUrl url;
};
// Empty when the URL is no proxy of these rows. The empty text is no proxy.
std::optional<ProxyChoice> choose_proxy(const std::string& url, std::span<const SchemeType> rows);
// As password_of, with YINET_PROXY_PASSWORD.
std::optional<YString> proxy_password_of(const TransferUrl& proxy);

// A remark; gives `code`.
int fail(int code, const std::string& what);

}  // namespace yinet::cli
