#include "yinet/dns/dns_names.h"

#include <arpa/inet.h>

#include <algorithm>

#include "yinet/host/text.h"

namespace yinet {
namespace {

constexpr std::size_t kMaxNameLength = 253;  // RFC 1035, 2.3.4: 255 on the wire, with the first length and the root
constexpr std::size_t kMaxLabelLength = 63;

bool may_stand_in_label(char c) {
  const auto byte = static_cast<unsigned char>(c);
  return byte > ' ' && byte != 0x7F && c != ':' && c != '\\';
}

bool is_label(std::string_view label) {
  return !label.empty() && label.size() <= kMaxLabelLength && std::ranges::all_of(label, may_stand_in_label);
}

std::string_view without_last_dot(std::string_view name) {
  if (name.ends_with('.')) name.remove_suffix(1);
  return name;
}

}  // namespace

std::optional<std::uint32_t> parse_dotted_address(std::string_view text) {
  if (text.size() >= INET_ADDRSTRLEN || text.find('\0') != std::string_view::npos) return std::nullopt;
  in_addr address{};
  if (inet_pton(AF_INET, std::string(text).c_str(), &address) != 1) return std::nullopt;
  return address.s_addr;
}

bool is_askable_name(std::string_view name) {
  name = without_last_dot(name);
  return !name.empty() && name.size() <= kMaxNameLength && std::ranges::all_of(split(name, "."), is_label);
}

std::vector<std::string> names_to_ask(std::string_view name, std::span<const std::string> search_list, int ndots) {
  const bool complete = name.ends_with('.') || std::ranges::count(name, '.') >= ndots;
  std::vector<std::string> names;
  if (!complete) {
    for (const std::string& domain : search_list) {
      std::string full = std::string(name) + "." + domain;
      if (is_askable_name(full)) names.push_back(std::move(full));
    }
  }
  names.emplace_back(name);
  return names;
}

}  // namespace yinet
