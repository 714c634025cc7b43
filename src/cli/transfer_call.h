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
#define YINET_TRANSFER_EXIT_CODES                                                                                   \
  "0 success, 2 wrong call, 3 no connection, 4 login refused, 5 refused by the server (no such file, say),\n"       \
  "6 local file, 7 the transfer broke off, 1 any other failure."

// Where a local file goes: a path that is empty or ends with a slash is a folder, in which it keeps its name.
std::string upload_target(const std::string& path, const std::string& file);
// The option FILE: what is sent or, when not `needed`, where to what is fetched goes.
void add_file_option(CLI::App& app, std::string& file, bool needed);

// From the URL, else from this environment variable, else asked for on the terminal. Nothing is asked without a user. Empty,
// with a remark, when there is none to be had.
std::optional<YString> password_of(const TransferUrl& url, const char* variable, const std::string& question);

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
