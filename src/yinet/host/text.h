#pragma once

// Pure text routines over bytes, shared by every floor of the house. Text is Windows-1252; letter case is that of
// ASCII and of the Windows-1252 letters, by a fixed table, never by the C locale. Nothing here keeps a view it was
// given. All functions are safe to call from several threads.

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "yinet/host/export.h"

namespace yinet {

// Lower-case form of every Windows-1252 byte.
YINET_API extern const std::array<unsigned char, 256> kLowerCase;

inline char lower_case(char c) { return static_cast<char>(kLowerCase[static_cast<unsigned char>(c)]); }

YINET_API bool equal_ignoring_case(std::string_view a, std::string_view b);
YINET_API int compare_ignoring_case(std::string_view a, std::string_view b);  // <0, 0, >0
YINET_API bool starts_with_ignoring_case(std::string_view text, std::string_view start);
YINET_API bool ends_with_ignoring_case(std::string_view text, std::string_view end);
// Position of `what` at or after `from`, npos when there is none. Linear in text size for needles of ordinary length.
YINET_API std::size_t find_ignoring_case(std::string_view text, std::string_view what, std::size_t from = 0);
YINET_API std::string to_lower(std::string_view text);
YINET_API std::string to_upper(std::string_view text);

// Space, tab, CR and LF.
constexpr bool is_blank(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }
constexpr bool is_digit(char c) { return c >= '0' && c <= '9'; }
// A letter or digit of Windows-1252.
YINET_API bool is_alphanumeric(char c);
// Value of a hexadecimal digit, -1 for any other character.
constexpr int hex_value(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

YINET_API std::string_view trimmed(std::string_view text);  // blanks removed at both ends
YINET_API std::string_view trimmed_front(std::string_view text);
YINET_API std::string_view trimmed_back(std::string_view text);

// Every occurrence of `from` replaced in one pass; replacements are not searched again. An empty `from` changes nothing.
YINET_API std::string replaced(std::string_view text, std::string_view from, std::string_view to);

// n delimiter characters give n+1 items; the empty text has none. Every character of `delimiters` delimits.
YINET_API std::vector<std::string_view> split(std::string_view text, std::string_view delimiters);
YINET_API std::string joined(const std::vector<std::string>& items, std::string_view separator);

// Optional sign and digits at the start, where a blank is no digit; 0 without digits; saturates at the type's ends.
YINET_API std::int32_t leading_int32(std::string_view text);
YINET_API std::int64_t leading_int64(std::string_view text);

// One pass over the template: "$1$" to "$9$" and the zero-padded form "$2:04$" are replaced by the values as given; a
// placeholder inside an inserted value stays, a placeholder without a value becomes empty, any other "$" stays.
YINET_API std::string format_placeholders(std::string_view text, const std::string_view* values, std::size_t count);
template <typename... Values>
std::string formatted(std::string_view text, const Values&... values) {
  const std::array<std::string_view, sizeof...(Values)> views{std::string_view(values)...};
  return format_placeholders(text, views.data(), views.size());
}

// "%41" becomes "A"; an escape without two hexadecimal digits stays as it is. "+" is a character like any other.
YINET_API std::string percent_decoded(std::string_view text);

// Text from outside, made fit for one line of a log or a terminal: control characters (0-31, 127, and the C1 range that
// Windows-1252 leaves unassigned) become "\r", "\n", "\t" or "\xHH".
YINET_API std::string printable(std::string_view text);

// CR, LF or NUL: what must never enter a command line or a header line.
YINET_API bool breaks_protocol_line(std::string_view text);

}  // namespace yinet
