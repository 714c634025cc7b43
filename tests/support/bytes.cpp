#include "support/bytes.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <stdexcept>

namespace yinet::test {

std::string printable(std::string_view bytes, std::size_t limit) {
  std::string text;
  for (const char byte : bytes.substr(0, limit)) {
    switch (byte) {
      case '\r': text += "\\r"; break;
      case '\n': text += "\\n"; break;
      case '\t': text += "\\t"; break;
      case '\\': text += "\\\\"; break;
      default:
        std::array<char, 8> escape{};
        const bool plain = byte >= 0x20 && byte <= 0x7E;
        std::snprintf(escape.data(), escape.size(), plain ? "%c" : "\\x%02x", static_cast<unsigned char>(byte));
        text += escape.data();
    }
  }
  if (bytes.size() > limit) text += "... (" + std::to_string(bytes.size()) + " bytes)";
  return text;
}

std::string from_hex(std::string_view digits) {
  std::string bytes;
  std::string pair;
  for (const char digit : digits) {
    if (digit == ' ') continue;
    pair += digit;
    if (pair.size() < 2) continue;
    std::size_t read = 0;
    bytes += static_cast<char>(std::stoi(pair, &read, 16));
    if (read != 2) throw std::invalid_argument("not hexadecimal: " + pair);
    pair.clear();
  }
  if (!pair.empty()) throw std::invalid_argument("half a byte at the end of the hexadecimal digits");
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
    std::memcpy(bytes.data() + at, &state, std::min(count - at, sizeof(state)));
  }
  return bytes;
}

std::string times(int count, std::string_view piece) {
  std::string text;
  for (int i = 0; i < count; ++i) text += piece;
  return text;
}

}  // namespace yinet::test
