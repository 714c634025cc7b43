#include "transfer_call.h"

#include <cstdlib>

#include "terminal.h"
#include "transfer_progress.h"

namespace yinet::cli {

YString inside(const std::string& text) { return YString(text_from_argument(text).text); }

std::optional<YString> password_of(const TransferUrl& url, const char* variable, const std::string& question) {
  if (url.has_password || url.user.empty()) return inside(url.password);
  if (const char* value = std::getenv(variable)) return inside(value);
  if (const auto typed = ask_for_password(question)) return inside(*typed);
  remark("no password for " + url.user + ": " + variable + " is not set, and there is no terminal to ask on");
  return std::nullopt;
}

int fail(int code, const std::string& what) {
  remark(what);
  return code;
}

}  // namespace yinet::cli
