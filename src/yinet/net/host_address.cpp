#include "yinet/net/host_address.h"

#include <arpa/inet.h>

#include "yinet/dns/dns_names.h"

namespace yinet {
namespace {

std::string_view without_brackets(std::string_view host) {
  if (host.size() >= 2 && host.front() == '[' && host.back() == ']') return host.substr(1, host.size() - 2);
  return host;
}

}  // namespace

bool is_ipv4_address(std::string_view host) { return parse_dotted_address(host).has_value(); }

bool is_ipv6_address(std::string_view host) {
  const std::string_view bare = without_brackets(host);
  const std::string text(bare.substr(0, bare.find('%')));
  in6_addr address{};
  return text.find('\0') == std::string::npos && inet_pton(AF_INET6, text.c_str(), &address) == 1;
}

std::string host_in_target(std::string_view host) {
  if (host.empty() || host.front() == '[' || !is_ipv6_address(host)) return std::string(host);
  return "[" + std::string(host) + "]";
}

std::string host_in_certificate(std::string_view host) {
  if (is_ipv6_address(host)) {
    const std::string_view address = without_brackets(host);
    return std::string(address.substr(0, address.find('%')));
  }
  if (host.size() > 1 && host.back() == '.') host.remove_suffix(1);
  return std::string(host);
}

std::string_view reason_to_refuse(std::string_view host, unsigned int port) {
  if (host.empty()) return "no host given";
  if (host == "*" || host == "[]" || host == "[*]") return "no host, but a placeholder for any address";
  if (host.find('\0') != std::string_view::npos) return "NUL in the host";
  if (port == 0 || port > kHighestPort) return "the port is not in 1 to 65535";
  return {};
}

}  // namespace yinet
