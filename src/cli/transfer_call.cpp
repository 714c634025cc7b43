#include <CLI/CLI.hpp>

#include "transfer_call.h"

#include <charconv>
#include <cstdint>
#include <cstdlib>
#include <filesystem>

#include "password_prompt.h"
#include "terminal.h"

namespace yinet::cli {

std::string upload_target(const std::string& path, const std::string& file) {
  const bool names_folder = path.empty() || path.ends_with('/');
  return names_folder ? path + std::filesystem::path(file).filename().string() : path;
}

std::string reason_against_upload(const std::string& path, const std::string& file) {
  return file == "-" && upload_target(path, file) != path ? "the URL names no file, and standard input has no name"
                                                          : "";
}

std::optional<std::string> download_target(const std::string& file, const std::string& remote) {
  std::string target = file.empty() ? "./" : file;
  std::error_code ignored;
  if (!target.ends_with('/') && std::filesystem::is_directory(target, ignored)) target += '/';
  if (!target.ends_with('/')) return target;
  const std::string name = remote.substr(remote.rfind('/') + 1);
  constexpr std::string_view kUnsafe("\\\0", 2);  // the one is a slash to the library, the other ends a name
  if (name.empty() || name == "." || name == ".." || name.find_first_of(kUnsafe) != std::string::npos)
    return std::nullopt;
  return target + name;
}

void add_file_option(CLI::App& app, std::string& file, bool needed) {
  const char* const meaning =
      needed ? "The local file, \"-\" for standard input"
             : "The local file or folder, \"-\" for standard output; the working folder when absent";
  app.add_option("FILE", file, meaning)->required(needed)->type_name("");
}

std::optional<YString> password_of(const TransferUrl& url, const char* variable, const std::string& account) {
  if (url.has_password || url.user.empty()) return to_ansi(url.password);
  if (const char* value = std::getenv(variable)) return to_ansi(value);
  std::string problem;
  if (const auto typed = ask_for_password("Password for " + account + ": ", problem)) return to_ansi(*typed);
  remark("no password for " + account + ": " + variable + " is not set, and " + problem);
  return std::nullopt;
}

std::string account_of(const TransferUrl& url) { return url.user + "@" + url.host; }

std::string address_problem(const TransferUrl& url) {
  const std::size_t colon = url.host.rfind(':');
  const std::size_t bracket = url.host.rfind(']');
  if (colon == std::string::npos || (bracket != std::string::npos && colon < bracket)) return {};
  const std::string_view port = std::string_view(url.host).substr(colon + 1);
  std::uint16_t number = 0;
  const auto [end, error] = std::from_chars(port.data(), port.data() + port.size(), number);
  if (port.empty() || (error == std::errc() && end == port.data() + port.size() && number > 0)) return {};
  return "\"" + std::string(port) + "\" in " + url.scheme + "://" + url.host + " is no port: a number from 1 to 65535";
}

std::optional<int> type_of(std::span<const SchemeType> rows, std::string_view scheme) {
  for (const SchemeType& row : rows)
    if (row.scheme == scheme) return row.type;
  return std::nullopt;
}

std::optional<ProxyChoice> choose_proxy(const std::string& url, std::span<const SchemeType> rows) {
  if (url.empty()) return ProxyChoice{};
  const auto parsed = parse_transfer_url(url);
  const auto type = parsed ? type_of(rows, parsed->scheme) : std::nullopt;
  return type ? std::optional(ProxyChoice{*type, *parsed}) : std::nullopt;
}

std::optional<YString> proxy_password_of(const TransferUrl& proxy) {
  return password_of(proxy, "YINET_PROXY_PASSWORD", "the proxy " + account_of(proxy));
}

int fail(int code, const std::string& what) {
  remark(what);
  return code;
}

}  // namespace yinet::cli
