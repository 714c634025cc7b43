#include "yinet/net/tls_errors.h"

#include <openssl/err.h>

#include <array>
#include <system_error>

namespace yinet {

std::string take_tls_error() {
  const char* data = nullptr;
  int flags = 0;
  const unsigned long code = ERR_get_error_all(nullptr, nullptr, nullptr, &data, &flags);
  if (code == 0) return {};
  std::array<char, 256> entry{};  // OpenSSL's own limit for one entry
  ERR_error_string_n(code, entry.data(), entry.size());
  std::string text = entry.data();
  // "system lib" says nothing: what the system said, of an unknown host for example, is in the data.
  const bool explained = data != nullptr && (flags & ERR_TXT_STRING) != 0;
  if (ERR_GET_REASON(code) == ERR_R_SYS_LIB && explained) text += std::string(": ") + data;
  ERR_clear_error();
  return text;
}

std::string take_error_text(int system_error) {
  std::string text = take_tls_error();
  if (text.empty() && system_error != 0) text = std::generic_category().message(system_error);
  return text;
}

}  // namespace yinet
