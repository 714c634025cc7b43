#include "support/bytes.h"

#include <cstdint>
#include <cstring>
#include <stdexcept>

namespace yinet::test {
namespace {

int hex_value(char digit) {
  if (digit >= '0' && digit <= '9') return digit - '0';
  if (digit >= 'a' && digit <= 'f') return digit - 'a' + 10;
  if (digit >= 'A' && digit <= 'F') return digit - 'A' + 10;
  return -1;
}

void append_escaped(std::string& text, unsigned char byte) {
  constexpr std::string_view kDigits = "0123456789abcdef";
  switch (byte) {
    case '\r': text += "\\r"; return;
    case '\n': text += "\\n"; return;
    case '\t': text += "\\t"; return;
    case '\\': text += "\\\\"; return;
    default: break;
  }
  if (byte >= 0x20 && byte <= 0x7E) {
    text += static_cast<char>(byte);
  } else {
    text += "\\x";
    text += kDigits[byte >> 4];
    text += kDigits[byte & 15];
  }
}

}  // namespace

std::string printable(std::string_view bytes, std::size_t limit) {
  std::string text;
  for (const char byte : bytes.substr(0, limit)) append_escaped(text, static_cast<unsigned char>(byte));
  if (bytes.size() > limit) text += "... (" + std::to_string(bytes.size()) + " bytes)";
  return text;
}

std::string from_hex(std::string_view digits) {
  std::string bytes;
  int high = -1;
  for (const char digit : digits) {
    if (digit == ' ') continue;
    const int value = hex_value(digit);
    if (value < 0) throw std::invalid_argument("not a hexadecimal digit: " + std::string(1, digit));
    if (high < 0) {
      high = value;
    } else {
      bytes += static_cast<char>(high * 16 + value);
      high = -1;
    }
  }
  if (high >= 0) throw std::invalid_argument("half a byte at the end of the hexadecimal digits");
  return bytes;
}

std::string pattern_bytes(std::size_t count, unsigned seed) {
  // xorshift64: the standard engines would cost seconds for the gigabyte bodies in debug builds.
  std::uint64_t state = 0x9E3779B97F4A7C15ULL ^ (static_cast<std::uint64_t>(seed) << 32 | seed);
  std::string bytes(count, '\0');
  for (std::size_t at = 0; at < count; at += sizeof(state)) {
    state ^= state << 13;
    state ^= state >> 7;
    state ^= state << 17;
    const std::size_t left = count - at;
    std::memcpy(bytes.data() + at, &state, left < sizeof(state) ? left : sizeof(state));
  }
  return bytes;
}

}  // namespace yinet::test
