#include <CLI/CLI.hpp>

#include "transfer_call.h"

#include <cstdlib>
#include <filesystem>

#include "terminal.h"
#include "transfer_progress.h"

namespace yinet::cli {

std::string upload_target(const std::string& path, const std::string& file) {
  const bool names_folder = path.empty() || path.ends_with('/');
  return names_folder ? path + std::filesystem::path(file).filename().string() : path;
}

void add_file_option(CLI::App& app, std::string& file, bool needed) {
  const char* const meaning = needed ? "The local file" : "The local file or folder; the working folder when absent";
  app.add_option("FILE", file, meaning)->required(needed)->type_name("");
}

std::optional<YString> password_of(const TransferUrl& url, const char* variable, const std::string& question) {
  if (url.has_password || url.user.empty()) return to_ansi(url.password);
  if (const char* value = std::getenv(variable)) return to_ansi(value);
  if (const auto typed = ask_for_password(question)) return to_ansi(*typed);
  remark("no password for " + url.user + ": " + variable + " is not set, and there is no terminal to ask on");
  return std::nullopt;
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
  return password_of(proxy, "YINET_PROXY_PASSWORD", "Password of the proxy for " + proxy.user + ": ");
}

int fail(int code, const std::string& what) {
  remark(what);
  return code;
}

}  // namespace yinet::cli
