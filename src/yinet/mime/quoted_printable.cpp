#include "yinet/mime/quoted_printable.h"

#include <cstdint>
#include <cstring>

#include "yinet/host/text.h"

namespace yinet {

namespace {

constexpr char kHexDigits[] = "0123456789abcdef";

constexpr bool is_encoded(char c) { return c == '=' || static_cast<unsigned char>(c) > 127; }

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
  out.reserve(out.size() + text.size());
  while (!text.empty()) {
    const std::size_t equals = text.find('=');
    out.append(text.substr(0, equals));
    if (equals == std::string_view::npos) return;
    text.remove_prefix(equals + 1);
    if (text.size() >= 2) {
      if (text[0] == '\r' && text[1] == '\n') {
        text.remove_prefix(2);
        continue;
      }
      const int high = hex_value(text[0]);
      const int low = hex_value(text[1]);
      if (high >= 0 && low >= 0) {
        out.push_back(static_cast<char>(high * 16 + low));
        text.remove_prefix(2);
        continue;
      }
    }
    out.push_back('=');
  }
}

std::string quoted_printable_decoded(std::string_view text) {
  std::string out;
  decode_quoted_printable(text, out);
  return out;
}

}  // namespace yinet
