#include "yinet/host/text.h"

#include <algorithm>
#include <cstring>
#include <limits>

namespace yinet {
namespace {

constexpr bool is_latin_capital(unsigned byte) { return byte >= 0xC0 && byte <= 0xDE && byte != 0xD7; }

constexpr std::array<unsigned char, 256> make_lower_case() {
  std::array<unsigned char, 256> table{};
  for (unsigned byte = 0; byte < 256; ++byte) {
    unsigned lower = byte;
    if ((byte >= 'A' && byte <= 'Z') || is_latin_capital(byte)) lower = byte + 0x20;
    table[byte] = static_cast<unsigned char>(lower);
  }
  table[0x8A] = 0x9A;  // S with caron
  table[0x8C] = 0x9C;  // OE
  table[0x8E] = 0x9E;  // Z with caron
  table[0x9F] = 0xFF;  // Y with diaeresis
  return table;
}

constexpr std::array<unsigned char, 256> make_upper_case() {
  std::array<unsigned char, 256> table{};
  const auto lower = make_lower_case();
  for (unsigned byte = 0; byte < 256; ++byte) table[byte] = static_cast<unsigned char>(byte);
  for (unsigned byte = 0; byte < 256; ++byte) {
    if (lower[byte] != byte) table[lower[byte]] = static_cast<unsigned char>(byte);
  }
  return table;
}

constexpr auto kUpperCase = make_upper_case();

template <typename Number>
Number leading_number(std::string_view text) {
  bool negative = false;
  if (!text.empty() && (text.front() == '+' || text.front() == '-')) {
    negative = text.front() == '-';
    text.remove_prefix(1);
  }
  // Counts downwards: the negative range is the larger one.
  constexpr Number kLowest = std::numeric_limits<Number>::min();
  Number value = 0;
  for (const char c : text) {
    if (!is_digit(c)) break;
    const Number digit = static_cast<Number>(c - '0');
    if (value < (kLowest + digit) / 10) {
      value = kLowest;
      break;
    }
    value = static_cast<Number>(value * 10 - digit);
  }
  if (negative) return value;
  return value == kLowest ? std::numeric_limits<Number>::max() : static_cast<Number>(-value);
}

}  // namespace

constinit const std::array<unsigned char, 256> kLowerCase = make_lower_case();

bool equal_ignoring_case(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (std::size_t i = 0; i < a.size(); ++i) {
    if (lower_case(a[i]) != lower_case(b[i])) return false;
  }
  return true;
}

int compare_ignoring_case(std::string_view a, std::string_view b) {
  const std::size_t common = std::min(a.size(), b.size());
  for (std::size_t i = 0; i < common; ++i) {
    const int difference = static_cast<unsigned char>(lower_case(a[i])) - static_cast<unsigned char>(lower_case(b[i]));
    if (difference != 0) return difference;
  }
  if (a.size() == b.size()) return 0;
  return a.size() < b.size() ? -1 : 1;
}

bool starts_with_ignoring_case(std::string_view text, std::string_view start) {
  return text.size() >= start.size() && equal_ignoring_case(text.substr(0, start.size()), start);
}

bool ends_with_ignoring_case(std::string_view text, std::string_view end) {
  return text.size() >= end.size() && equal_ignoring_case(text.substr(text.size() - end.size()), end);
}

std::size_t find_ignoring_case(std::string_view text, std::string_view what, std::size_t from) {
  if (from > text.size() || text.size() - from < what.size()) return std::string_view::npos;
  if (what.empty()) return from;
  const char lower = lower_case(what.front());
  const char upper = static_cast<char>(kUpperCase[static_cast<unsigned char>(lower)]);
  const std::size_t last = text.size() - what.size();
  // memchr for both forms of the first letter; each hit is remembered until the walk has passed it.
  const auto next_of = [&](char c, std::size_t at) {
    const std::size_t hit = text.find(c, at);
    return hit == std::string_view::npos ? text.size() : hit;
  };
  std::size_t next_lower = next_of(lower, from);
  std::size_t next_upper = lower == upper ? text.size() : next_of(upper, from);
  for (;;) {
    const std::size_t at = std::min(next_lower, next_upper);
    if (at > last) return std::string_view::npos;
    if (equal_ignoring_case(text.substr(at, what.size()), what)) return at;
    if (at == next_lower) next_lower = next_of(lower, at + 1);
    else next_upper = next_of(upper, at + 1);
  }
}

std::string to_lower(std::string_view text) {
  std::string result(text);
  for (char& c : result) c = lower_case(c);
  return result;
}

std::string to_upper(std::string_view text) {
  std::string result(text);
  for (char& c : result) c = static_cast<char>(kUpperCase[static_cast<unsigned char>(c)]);
  return result;
}

bool is_alphanumeric(char c) {
  const auto byte = static_cast<unsigned char>(c);
  if (is_digit(c)) return true;
  if (kLowerCase[byte] != byte || kUpperCase[byte] != byte) return true;                // has two forms
  return byte == 0xDF || byte == 0x83 || byte == 0xAA || byte == 0xB5 || byte == 0xBA;  // letters with one form
}

std::string_view trimmed_front(std::string_view text) {
  std::size_t first = 0;
  while (first < text.size() && is_blank(text[first])) ++first;
  return text.substr(first);
}

std::string_view trimmed_back(std::string_view text) {
  std::size_t size = text.size();
  while (size > 0 && is_blank(text[size - 1])) --size;
  return text.substr(0, size);
}

std::string_view trimmed(std::string_view text) { return trimmed_front(trimmed_back(text)); }

std::string replaced(std::string_view text, std::string_view from, std::string_view to) {
  std::string result;
  if (from.empty()) return std::string(text);
  std::size_t done = 0;
  for (std::size_t hit = text.find(from); hit != std::string_view::npos; hit = text.find(from, done)) {
    result.append(text, done, hit - done).append(to);
    done = hit + from.size();
  }
  return result.append(text, done);
}

std::vector<std::string_view> split(std::string_view text, std::string_view delimiters) {
  std::vector<std::string_view> items;
  if (text.empty()) return items;
  std::array<bool, 256> delimits{};
  for (const char c : delimiters) delimits[static_cast<unsigned char>(c)] = true;
  std::size_t start = 0;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (!delimits[static_cast<unsigned char>(text[i])]) continue;
    items.push_back(text.substr(start, i - start));
    start = i + 1;
  }
  items.push_back(text.substr(start));
  return items;
}

std::string joined(const std::vector<std::string>& items, std::string_view separator) {
  std::string result;
  for (std::size_t i = 0; i < items.size(); ++i) {
    if (i > 0) result += separator;
    result += items[i];
  }
  return result;
}

std::int32_t leading_int32(std::string_view text) { return leading_number<std::int32_t>(text); }
std::int64_t leading_int64(std::string_view text) { return leading_number<std::int64_t>(text); }

namespace {

// "$1$" or "$1:04$" at the start of a text.
struct Placeholder {
  std::size_t index = 0;   // from 0
  std::size_t width = 0;   // 0: as the value is
  std::size_t length = 0;  // characters of the placeholder; 0: there is none
};

Placeholder placeholder_at(std::string_view text) {
  if (text.size() < 3 || text[0] != '$' || text[1] < '1' || text[1] > '9') return {};
  const auto index = static_cast<std::size_t>(text[1] - '1');
  if (text[2] == '$') return {index, 0, 3};
  // ":0" and one or two digits of width
  if (text.size() < 6 || text[2] != ':' || text[3] != '0' || !is_digit(text[4])) return {};
  auto width = static_cast<std::size_t>(text[4] - '0');
  if (text[5] == '$') return {index, width, 6};
  if (text.size() < 7 || !is_digit(text[5]) || text[6] != '$') return {};
  return {index, width * 10 + static_cast<std::size_t>(text[5] - '0'), 7};
}

void append_padded(std::string& out, std::string_view value, std::size_t width) {
  const bool negative = !value.empty() && value.front() == '-';
  if (negative) {
    out += '-';
    value.remove_prefix(1);
    if (width > 0) --width;
  }
  if (value.size() < width) out.append(width - value.size(), '0');
  out += value;
}

}  // namespace

std::string format_placeholders(std::string_view text, const std::string_view* values, std::size_t count) {
  std::string result;
  std::size_t done = 0;
  for (std::size_t at = text.find('$'); at != std::string_view::npos; at = text.find('$', at)) {
    const Placeholder found = placeholder_at(text.substr(at));
    if (found.length == 0) {
      ++at;
      continue;
    }
    result.append(text, done, at - done);
    if (found.index < count) append_padded(result, values[found.index], found.width);
    done = at += found.length;
  }
  return result.append(text, done);
}

std::string percent_decoded(std::string_view text) {
  std::string plain;
  plain.reserve(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    const bool escape =
        text[i] == '%' && text.size() - i > 2 && hex_value(text[i + 1]) >= 0 && hex_value(text[i + 2]) >= 0;
    plain += escape ? static_cast<char>(hex_value(text[i + 1]) * 16 + hex_value(text[i + 2])) : text[i];
    if (escape) i += 2;
  }
  return plain;
}

std::string printable(std::string_view text) {
  static constexpr char kHex[] = "0123456789abcdef";
  std::string result;
  result.reserve(text.size());
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    const bool unassigned = byte == 0x81 || byte == 0x8D || byte == 0x8F || byte == 0x90 || byte == 0x9D;
    if (c == '\r') result += "\\r";
    else if (c == '\n') result += "\\n";
    else if (c == '\t') result += "\\t";
    else if (byte < 32 || byte == 127 || unassigned) result.append({'\\', 'x', kHex[byte >> 4], kHex[byte & 15]});
    else result += c;
  }
  return result;
}

bool breaks_protocol_line(std::string_view text) {
  return text.find_first_of(std::string_view("\r\n\0", 3)) != std::string_view::npos;
}

}  // namespace yinet
