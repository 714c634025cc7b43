#include "yinet/ssh/ssh_address.h"

#include <charconv>

namespace yinet {
namespace {

int port_in(std::string_view text, int default_port) {
  if (text.empty()) return default_port;
  constexpr int kHighest = 65535;
  int port = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), port);
  const bool good = error == std::errc() && end == text.data() + text.size() && port >= 0 && port <= kHighest;
  return good ? port : -1;
}

}  // namespace

SshAddress split_ssh_address(std::string_view text, int default_port) {
  const std::size_t host_end = text.rfind(':');
  if (text.starts_with('[')) {
    if (const std::size_t close = text.find(']'); close != std::string_view::npos) {
      const std::string_view rest = text.substr(close + 1);
      const bool has_port = rest.starts_with(':');
      return {YString(text.substr(1, close - 1)),
              has_port || rest.empty() ? port_in(rest.substr(has_port), default_port) : -1};
    }
  }
  if (host_end == std::string_view::npos) return {YString(text), default_port};
  return {YString(text.substr(0, host_end)), port_in(text.substr(host_end + 1), default_port)};
}

}  // namespace yinet
