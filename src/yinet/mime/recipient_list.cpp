#include "yinet/mime/recipient_list.h"

#include <algorithm>

#include "yinet/host/text.h"
#include "yinet/mime/header_decoding.h"

namespace yinet {

namespace {

bool is_single_encoded_word(std::string_view list) {
  return list.starts_with("=?") && list.ends_with("?=") && list.find("=?", 1) == std::string_view::npos;
}

Recipient recipient_of(std::string item) {
  const std::size_t bracket = item.find('<');
  if (bracket == std::string::npos || bracket == 0) return {std::move(item), {}};
  return {item.substr(bracket), std::string(trimmed(std::string_view(item).substr(0, bracket)))};
}

}  // namespace

std::vector<Recipient> parse_recipients(std::string_view list, std::size_t limit) {
  std::string decoded;
  if (is_single_encoded_word(list)) {
    decoded = decode_header_value(list);
    list = decoded;
  }
  std::vector<Recipient> recipients;
  for (std::size_t start = 0; start < list.size();) {
    const bool fits = recipients.size() + 1 < limit;
    const std::size_t end = fits ? std::min(list.find_first_of(";,", start), list.size()) : list.size();
    const std::string_view text = trimmed(list.substr(start, end - start));
    start = end + 1;
    if (text.empty()) continue;
    std::string value = decode_header_value(text);
    if (!value.empty()) recipients.push_back(recipient_of(std::move(value)));
  }
  return recipients;
}

}  // namespace yinet
