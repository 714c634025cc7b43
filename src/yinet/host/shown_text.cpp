#include "yinet/host/shown_text.h"

#include <algorithm>

#include "yinet/host/codepage.h"
#include "yinet/host/text.h"

namespace yinet {
namespace {

constexpr std::string_view kReplacement = "\xEF\xBF\xBD";  // U+FFFD
constexpr std::size_t kLongestSequence = 4;

// The character at the start of the text; a byte that begins none counts as one.
std::string_view first_character(std::string_view text) {
  for (std::size_t length = 1; length <= std::min(kLongestSequence, text.size()); ++length)
    if (is_valid_utf8(text.substr(0, length))) return text.substr(0, length);
  return text.substr(0, 1);
}

// The controls that turn the reading direction (U+061C, U+200E, U+200F, U+202A to U+202E, U+2066 to U+2069), and the
// separators of lines and paragraphs between them.
bool is_direction_control(std::string_view character) {
  const auto within = [&](std::string_view first, std::string_view last) {
    return character.size() == first.size() && first <= character && character <= last;
  };
  return character == "\xD8\x9C" || within("\xE2\x80\x8E", "\xE2\x80\x8F") || within("\xE2\x80\xA8", "\xE2\x80\xAE") ||
         within("\xE2\x81\xA6", "\xE2\x81\xA9");
}

// A C1 control is two bytes, of which the second is the code point.
bool is_c1_control(std::string_view character) {
  return character.size() == 2 && character[0] == '\xC2' && static_cast<unsigned char>(character[1]) < 0xA0;
}

std::string escaped(std::string_view character) {
  static constexpr char kHex[] = "0123456789abcdef";
  unsigned code_point = static_cast<unsigned char>(character[0]) & (character.size() == 2 ? 0x1F : 0x0F);
  for (const char c : character.substr(1)) code_point = code_point << 6 | (static_cast<unsigned char>(c) & 0x3F);
  std::string text = code_point < 0x100 ? "\\x" : "\\u";
  for (int shift = code_point < 0x100 ? 4 : 12; shift >= 0; shift -= 4) text += kHex[code_point >> shift & 15];
  return text;
}

bool is_plain(char c) { return c >= ' ' && c < '\x7F'; }

template <typename Replacement>
std::string with_unsafe_replaced(std::string_view utf8, Replacement replacement) {
  std::string result;
  result.reserve(utf8.size());
  while (!utf8.empty()) {
    const auto plain = static_cast<std::size_t>(std::ranges::find_if_not(utf8, is_plain) - utf8.begin());
    result += utf8.substr(0, plain);
    utf8.remove_prefix(plain);
    if (utf8.empty()) break;
    const std::string_view character = first_character(utf8);
    utf8.remove_prefix(character.size());
    const bool unsafe = character.size() == 1 || is_c1_control(character) || is_direction_control(character);
    if (unsafe) result += replacement(character);
    else result += character;
  }
  return result;
}

}  // namespace

std::string shown_utf8(std::string_view utf8) {
  return with_unsafe_replaced(utf8, [](std::string_view character) {
    if (character.size() > 1) return escaped(character);
    return is_valid_utf8(character) ? printable(character) : std::string(kReplacement);
  });
}

std::string safe_file_name(std::string_view utf8) {
  const std::size_t dots = std::min(utf8.find_first_not_of('.'), utf8.size());
  return std::string(dots, '_') + with_unsafe_replaced(utf8.substr(dots), [](std::string_view) { return "_"; });
}

std::string with_shown_substitutes(std::string_view utf8) { return replaced(utf8, "\x1A", kReplacement); }

}  // namespace yinet
