// Base64 texts, beside a decoder that looks at one character at a time.

#include <cstdint>
#include <cstdlib>
#include <optional>
#include <string>
#include <string_view>

#include "yinet/host/ybase64.h"

namespace {

void require(bool condition) {
  if (!condition) std::abort();
}

std::optional<std::string> plainly_decoded(std::string_view text) {
  constexpr std::string_view kAlphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string bytes;
  unsigned bits = 0;
  int characters = 0;  // of the group begun
  int padding = 0;
  for (const char c : text) {
    if (c == ' ' || c == '\t' || c == '\r' || c == '\n') continue;
    if (c == '=') {
      ++padding;
      continue;
    }
    const std::size_t value = kAlphabet.find(c);
    if (value == std::string_view::npos || padding > 0) return std::nullopt;
    bits = bits << 6 | static_cast<unsigned>(value);
    if (++characters == 4) {
      for (const int shift : {16, 8, 0}) bytes += static_cast<char>(bits >> shift);
      bits = 0;
      characters = 0;
    }
  }
  if (characters == 1 || (characters == 0 ? padding > 0 : characters + padding > 4)) return std::nullopt;
  if (characters >= 2) bytes += static_cast<char>(bits >> (characters == 2 ? 4 : 10));
  if (characters == 3) bytes += static_cast<char>(bits >> 2);
  return bytes;
}

void compare(std::string_view text) {
  std::string decoded;
  const bool valid = yinet::base64_decode(text, decoded);
  const std::optional<std::string> expected = plainly_decoded(text);
  require(valid == expected.has_value() && decoded == expected.value_or(""));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view input(reinterpret_cast<const char*>(data), size);
  compare(input);

  std::string mapped(input);  // random bytes hardly ever make a group
  constexpr std::string_view kLikely = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/\r\n =*";
  for (char& c : mapped) c = kLikely[static_cast<unsigned char>(c) % kLikely.size()];
  compare(mapped);

  const std::string encoded = yinet::base64_encoded(input);
  std::string decoded;
  require(yinet::base64_decode(encoded, decoded) && decoded == input);
  return 0;
}
