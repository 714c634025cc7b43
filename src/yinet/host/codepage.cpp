#include "yinet/host/codepage.h"

#include <array>
#include <bit>
#include <cstdint>
#include <cstring>

namespace yinet {
namespace {

// The bytes 80 to 9F; all others stand for the code point of their own number.
constexpr std::array<std::uint16_t, 32> kUpperControlRange = {
    0x20AC, 0x0081, 0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021, 0x02C6, 0x2030, 0x0160,
    0x2039, 0x0152, 0x008D, 0x017D, 0x008F, 0x0090, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022,
    0x2013, 0x2014, 0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x009D, 0x017E, 0x0178};

struct Decoded {
  char32_t code_point = 0;
  std::size_t length = 0;  // 0: malformed
};

// One sequence of RFC 3629 at the start of a non-empty text.
Decoded decode_utf8(std::string_view text) {
  const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
  const unsigned char lead = byte(0);
  if (lead < 0x80) return {lead, 1};
  const std::size_t length = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : 2;
  if (lead < 0xC2 || lead > 0xF4 || text.size() < length) return {};
  char32_t code_point = lead & (0xFFU >> (length + 1));
  for (std::size_t i = 1; i < length; ++i) {
    if ((byte(i) & 0xC0) != 0x80) return {};
    code_point = (code_point << 6) | (byte(i) & 0x3FU);
  }
  const bool overlong = (length == 3 && code_point < 0x800) || (length == 4 && code_point < 0x10000);
  const bool surrogate = code_point >= 0xD800 && code_point <= 0xDFFF;
  if (overlong || surrogate || code_point > 0x10FFFF) return {};
  return {code_point, length};
}

static_assert(std::endian::native == std::endian::little);  // the lowest byte of a block is the first of the text

// Length of the run of ASCII at the start, eight bytes at a time.
std::size_t ascii_prefix(std::string_view text) {
  std::size_t i = 0;
  for (; i + 8 <= text.size(); i += 8) {
    std::uint64_t block;
    std::memcpy(&block, text.data() + i, 8);
    if (const std::uint64_t high = block & 0x8080808080808080U; high != 0)
      return i + static_cast<std::size_t>(std::countr_zero(high)) / 8;
  }
  while (i < text.size() && static_cast<unsigned char>(text[i]) < 0x80) ++i;
  return i;
}

// Copies that run too; up to seven more bytes of `to`, which has room for the whole text, are overwritten.
std::size_t copy_ascii_prefix(std::string_view text, char* to) {
  std::size_t i = 0;
  for (; i + 8 <= text.size(); i += 8) {
    std::uint64_t block;
    std::memcpy(&block, text.data() + i, 8);
    std::memcpy(to + i, &block, 8);
    if (const std::uint64_t high = block & 0x8080808080808080U; high != 0)
      return i + static_cast<std::size_t>(std::countr_zero(high)) / 8;
  }
  for (; i < text.size() && static_cast<unsigned char>(text[i]) < 0x80; ++i) to[i] = text[i];
  return i;
}

}  // namespace

char32_t code_point_from_ansi(unsigned char byte) {
  return byte >= 0x80 && byte < 0xA0 ? kUpperControlRange[byte - 0x80U] : byte;
}

int ansi_from_code_point(char32_t code_point) {
  if (code_point < 0x80 || (code_point >= 0xA0 && code_point <= 0xFF)) return static_cast<int>(code_point);
  for (std::size_t i = 0; i < kUpperControlRange.size(); ++i) {
    if (kUpperControlRange[i] == code_point) return static_cast<int>(0x80 + i);
  }
  return -1;
}

void append_utf8(std::string& out, char32_t code_point) {
  const auto tail = [&](int shift) { return static_cast<char>(0x80 | ((code_point >> shift) & 0x3F)); };
  if (code_point < 0x80) out += static_cast<char>(code_point);
  else if (code_point < 0x800) out.append({static_cast<char>(0xC0 | (code_point >> 6)), tail(0)});
  else if (code_point < 0x10000) out.append({static_cast<char>(0xE0 | (code_point >> 12)), tail(6), tail(0)});
  else out.append({static_cast<char>(0xF0 | (code_point >> 18)), tail(12), tail(6), tail(0)});
}

std::string utf8_from_ansi(std::string_view text) {
  std::string result;
  result.reserve(text.size() + text.size() / 8);
  while (!text.empty()) {
    const std::size_t plain = ascii_prefix(text);
    result.append(text, 0, plain);
    text.remove_prefix(plain);
    for (; !text.empty() && static_cast<unsigned char>(text.front()) >= 0x80; text.remove_prefix(1)) {
      append_utf8(result, code_point_from_ansi(static_cast<unsigned char>(text.front())));
    }
  }
  return result;
}

namespace {

// Converts as far as `on_lacking` allows: it gives the target for each character that Windows-1252 lacks and each
// malformed byte, or a negative number to stop.
template <typename OnLacking>
bool convert_from_utf8(std::string_view text, std::string& out, OnLacking on_lacking) {
  out.resize(text.size());  // every character takes a byte of the text at least
  char* to = out.data();
  while (!text.empty()) {
    const std::size_t plain = copy_ascii_prefix(text, to);
    to += plain;
    text.remove_prefix(plain);
    while (!text.empty() && static_cast<unsigned char>(text.front()) >= 0x80) {
      const Decoded decoded = decode_utf8(text);
      int byte = decoded.length == 0 ? -1 : ansi_from_code_point(decoded.code_point);
      if (byte < 0) byte = on_lacking();
      if (byte < 0) return false;
      *to++ = static_cast<char>(byte);
      text.remove_prefix(decoded.length == 0 ? 1 : decoded.length);
    }
  }
  out.resize(static_cast<std::size_t>(to - out.data()));
  return true;
}

}  // namespace

std::optional<std::string> ansi_from_utf8(std::string_view text) {
  std::string result;
  if (!convert_from_utf8(text, result, [] { return -1; })) return std::nullopt;
  return result;
}

std::string ansi_from_utf8_lossy(std::string_view text) {
  std::string result;
  convert_from_utf8(text, result, [] { return '?'; });
  return result;
}

bool is_valid_utf8(std::string_view text) {
  for (;;) {
    text.remove_prefix(ascii_prefix(text));
    if (text.empty()) return true;
    const Decoded decoded = decode_utf8(text);
    if (decoded.length == 0) return false;
    text.remove_prefix(decoded.length);
  }
}

std::string name_to_utf8(std::string_view name) {
  if (ascii_prefix(name) == name.size() || is_valid_utf8(name)) return std::string(name);
  return utf8_from_ansi(name);
}

std::string name_from_utf8(std::string_view name) {
  auto converted = ansi_from_utf8(name);
  // A name whose Windows-1252 form would be taken for UTF-8 on the way back ("\xC3\xA4" for A-tilde and currency sign)
  // stays as its bytes, so that it finds its file again.
  if (!converted || name_to_utf8(*converted) != name) return std::string(name);
  return *std::move(converted);
}

}  // namespace yinet
