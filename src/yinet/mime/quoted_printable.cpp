#include "yinet/mime/quoted_printable.h"

#include <bit>
#include <cstdint>
#include <cstring>

#include "yinet/host/text.h"

namespace yinet {

namespace {

constexpr char kHexDigits[] = "0123456789abcdef";

constexpr bool is_encoded(char c) { return c == '=' || static_cast<unsigned char>(c) > 127; }

static_assert(std::endian::native == std::endian::little);  // the lowest byte of a word is the first of the text

constexpr std::uint64_t repeated(unsigned char byte) { return 0x0101010101010101U * byte; }

// Characters at the start of `text` that stay as they are. Looks at eight at a time: text is mostly plain.
std::size_t plain_prefix(std::string_view text) {
  std::size_t at = 0;
  for (; text.size() - at >= sizeof(std::uint64_t); at += sizeof(std::uint64_t)) {
    std::uint64_t word = 0;
    std::memcpy(&word, text.data() + at, sizeof word);
    const std::uint64_t equals = word ^ repeated('=');  // a zero byte where a "=" stands
    if (((word | ((equals - repeated(0x01)) & ~equals)) & repeated(0x80)) != 0) break;
  }
  while (at < text.size() && !is_encoded(text[at])) ++at;
  return at;
}

// Copies the characters before the first "=" and gives their number; up to seven more bytes of `to`, which has room for the
// whole text, are overwritten. Runs are short where there are umlauts: takes eight at a time, without a call.
std::size_t copy_plain_run(std::string_view text, char* to) {
  std::size_t at = 0;
  for (; text.size() - at >= sizeof(std::uint64_t); at += sizeof(std::uint64_t)) {
    std::uint64_t word = 0;
    std::memcpy(&word, text.data() + at, sizeof word);
    std::memcpy(to + at, &word, sizeof word);
    const std::uint64_t equals = word ^ repeated('=');
    if (const std::uint64_t zeros = (equals - repeated(0x01)) & ~equals & repeated(0x80); zeros != 0)
      return at + static_cast<std::size_t>(std::countr_zero(zeros)) / 8;  // the lowest mark is exact
  }
  for (; at < text.size() && text[at] != '='; ++at) to[at] = text[at];
  return at;
}

}  // namespace

std::string quoted_printable_encoded(std::string_view text) {
  std::string out;
  out.reserve(text.size() + text.size() / 8);
  while (!text.empty()) {
    const std::size_t plain = plain_prefix(text);
    out.append(text.substr(0, plain));
    text.remove_prefix(plain);
    if (text.empty()) break;
    const auto byte = static_cast<unsigned char>(text.front());
    if (byte == '=') {
      out.append("=3D");
    } else {
      const char encoded[] = {'=', kHexDigits[byte >> 4], kHexDigits[byte & 15]};
      out.append(encoded, sizeof encoded);
    }
    text.remove_prefix(1);
  }
  return out;
}

void decode_quoted_printable(std::string_view text, std::string& out) {
  const std::size_t start = out.size();
  out.resize(start + text.size());
  char* to = out.data() + start;
  while (!text.empty()) {
    const std::size_t plain = copy_plain_run(text, to);
    to += plain;
    text.remove_prefix(plain);
    // What is encoded mostly comes in twos: the letters of UTF-8.
    while (text.size() >= 3 && text.front() == '=') {
      const int high = hex_value(text[1]);
      const int low = hex_value(text[2]);
      if (high >= 0 && low >= 0) *to++ = static_cast<char>(high * 16 + low);
      else if (text[1] != '\r' || text[2] != '\n') break;
      text.remove_prefix(3);
    }
    if (text.empty() || text.front() != '=') continue;
    *to++ = '=';  // stands for itself
    text.remove_prefix(1);
  }
  out.resize(static_cast<std::size_t>(to - out.data()));
}

std::string quoted_printable_decoded(std::string_view text) {
  std::string out;
  decode_quoted_printable(text, out);
  return out;
}

}  // namespace yinet
