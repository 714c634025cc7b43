#include "support/bytes.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <cstring>

namespace yinet::test {

std::string printable(std::string_view bytes, std::size_t limit) {
  std::string text;
  for (const char byte : bytes.substr(0, limit)) {
    std::array<char, 8> escape{};
    const bool plain = byte >= 0x20 && byte <= 0x7E && byte != '\\';
    std::snprintf(escape.data(), escape.size(), plain ? "%c" : "\\x%02x", static_cast<unsigned char>(byte));
    text += byte == '\r' ? "\\r" : byte == '\n' ? "\\n" : escape.data();
  }
  if (bytes.size() > limit) text += "... (" + std::to_string(bytes.size()) + " bytes)";
  return text;
}

std::string from_hex(std::string_view digits) {
  std::string all(digits), bytes;
  std::erase(all, ' ');
  for (std::size_t at = 0; at < all.size(); at += 2)
    bytes += static_cast<char>(std::stoi(all.substr(at, 2), nullptr, 16));
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

}  // namespace yinet::test
