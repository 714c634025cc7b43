#include "yinet/net/tls_errors.h"

#include <openssl/err.h>

#include <array>
#include <system_error>

namespace yinet {

std::string take_tls_error() {
  const unsigned long code = ERR_get_error();
  ERR_clear_error();
  if (code == 0) return {};
  std::array<char, 256> text{};  // OpenSSL's own limit for one entry
  ERR_error_string_n(code, text.data(), text.size());
  return text.data();
}

std::string take_error_text(int system_error) {
  std::string text = take_tls_error();
  if (text.empty() && system_error != 0) text = std::generic_category().message(system_error);
  return text;
}

}  // namespace yinet
