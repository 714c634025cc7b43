#include "yinet/host/ybase64.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <optional>
#include <utility>

#include "yinet/host/base64_blocks.h"
#include "yinet/host/text.h"

namespace {

constexpr std::string_view kAlphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr std::size_t kGroupBytes = 3;  // bytes of one group, and the characters they become
constexpr std::size_t kGroupCharacters = 4;

constexpr std::size_t kPieceCharacters = 64 * 1024;
static_assert(kPieceCharacters % kGroupCharacters == 0);

// The groups below are assembled in a register and stored as a whole.
static_assert(std::endian::native == std::endian::little);

// Encoding looks up two characters for every 12 bits.
constexpr auto kPairs = [] {
  std::array<std::array<char, 2>, 4096> pairs{};
  for (std::size_t bits = 0; bits < pairs.size(); ++bits) pairs[bits] = {kAlphabet[bits >> 6], kAlphabet[bits & 63]};
  return pairs;
}();

// Decoding looks up each of a group's four characters in the table of its place and joins the results by "or". A value
// holds the character's six bits where they lie in the three bytes of the group, first byte lowest; characters outside
// the alphabet set a bit above them.
constexpr std::uint32_t kNoCharacter = 0x8000'0000U;
constexpr auto kPlaces = [] {
  std::array<std::array<std::uint32_t, 256>, kGroupCharacters> places{};
  for (std::size_t place = 0; place < places.size(); ++place) {
    places[place].fill(kNoCharacter);
    for (std::uint32_t value = 0; value < kAlphabet.size(); ++value) {
      const std::uint32_t bits = value << (18 - 6 * place);  // first byte highest
      places[place][static_cast<unsigned char>(kAlphabet[value])] =
          (bits >> 16) | (bits & 0xFF00U) | ((bits & 0xFFU) << 16);
    }
  }
  return places;
}();

std::uint32_t group_value(const unsigned char* characters) {
  return kPlaces[0][characters[0]] | kPlaces[1][characters[1]] | kPlaces[2][characters[2]] | kPlaces[3][characters[3]];
}

constexpr std::size_t encoded_size(std::size_t bytes) {
  return (bytes + kGroupBytes - 1) / kGroupBytes * kGroupCharacters;
}

// The two characters of the lowest 12 bits.
void put_pair(char* out, std::uint64_t bits) { std::memcpy(out, kPairs[bits & 0xFFF].data(), 2); }

// Writes encoded_size(bytes.size()) characters.
void encode(std::string_view bytes, char* out) {
  const char* in = bytes.data();
  std::size_t left = bytes.size();
  while (left >= 8) {  // 6 bytes are used, 8 are loaded
    std::uint64_t bits = 0;
    std::memcpy(&bits, in, sizeof bits);
    bits = __builtin_bswap64(bits);
    put_pair(out, bits >> 52);
    put_pair(out + 2, bits >> 40);
    put_pair(out + 4, bits >> 28);
    put_pair(out + 6, bits >> 16);
    out += 8;
    in += 6;
    left -= 6;
  }
  while (left > 0) {
    const std::size_t count = left < kGroupBytes ? left : kGroupBytes;
    std::uint32_t bits = 0;
    for (std::size_t i = 0; i < kGroupBytes; ++i)
      bits = bits << 8 | (i < count ? static_cast<unsigned char>(in[i]) : 0);
    put_pair(out, bits >> 12);
    put_pair(out + 2, bits);
    for (std::size_t i = count + 1; i < kGroupCharacters; ++i) out[i] = '=';
    out += kGroupCharacters;
    in += count;
    left -= count;
  }
}

// A target of this many bytes takes everything that a text of this size can hold: a group is stored as four bytes, of
// which the next group overwrites the last.
constexpr std::size_t decoding_room(std::size_t characters) { return characters / kGroupCharacters * kGroupBytes + 8; }

bool is_blank(unsigned char character) { return yinet::is_blank(static_cast<char>(character)); }

// True when only blanks follow the padding, and no more padding than a last group of this many characters can have.
bool ends_after(std::size_t group_characters, const unsigned char* in, const unsigned char* end) {
  if (group_characters == 1) return false;
  std::size_t padding = 0;
  for (; in < end; ++in) {
    if (is_blank(*in)) continue;
    if (*in != '=') return false;
    ++padding;
  }
  return padding == 0 || (group_characters != 0 && group_characters + padding <= kGroupCharacters);
}

struct Decoded {
  std::size_t bytes = 0;   // written
  bool may_go_on = false;  // the text ended behind a whole group, without padding
};

// Writes to `target`, which has decoding_room(text.size()). Nothing when the text is no base64.
std::optional<Decoded> decode(std::string_view text, unsigned char* target) {
  const auto* in = reinterpret_cast<const unsigned char*>(text.data());
  const auto* const end = in + text.size();
  unsigned char* out = target;
  const auto store = [&out](std::uint32_t group) {
    std::memcpy(out, &group, sizeof group);
    out += kGroupBytes;
  };
  for (;;) {
    yinet::decode_base64_blocks(in, end, out);
    while (end - in >= 8) {
      const std::uint32_t first = group_value(in);
      const std::uint32_t second = group_value(in + kGroupCharacters);
      if (((first | second) & kNoCharacter) != 0) break;
      store(first);
      store(second);
      in += 8;
    }
    if (end - in >= 4) {  // what a line of 76 characters leaves
      const std::uint32_t last = group_value(in);
      if ((last & kNoCharacter) == 0) {
        store(last);
        in += kGroupCharacters;
      }
    }
    if (in < end && is_blank(*in)) {  // lines of mails hold whole groups: the blanks stand between two of them
      while (in < end && is_blank(*in)) ++in;
      continue;
    }
    // Near a line end or the end of the text: one group, character by character.
    std::array<unsigned char, kGroupCharacters> group{'A', 'A', 'A', 'A'};
    std::size_t count = 0;
    for (; in < end && count < group.size(); ++in) {
      if (kPlaces[0][*in] != kNoCharacter) {
        group[count++] = *in;
      } else if (!is_blank(*in)) {
        break;
      }
    }
    const std::uint32_t value = group_value(group.data());
    if (count < group.size()) {
      if (!ends_after(count, in, end)) return std::nullopt;
      const std::size_t bytes = count > 0 ? count - 1 : 0;
      std::memcpy(out, &value, bytes);
      return Decoded{static_cast<std::size_t>(out - target) + bytes, count == 0 && in == end};
    }
    store(value);
  }
}

}  // namespace

YString YBase64::Encode(const YString& text) { return YString(yinet::base64_encoded(text)); }

YString YBase64::Encode(const void* bytes, long count) {
  if (bytes == nullptr || count <= 0) return {};
  return YString(yinet::base64_encoded({static_cast<const char*>(bytes), static_cast<std::size_t>(count)}));
}

bool YBase64::Decode(const YString& text, YString& out) {
  std::string decoded;  // text and out may be one object
  const bool valid = yinet::base64_decode(text, decoded);
  out.str() = std::move(decoded);
  return valid;
}

bool YBase64::Decode(const YString& text, YBuffer& out) {
  const std::string_view characters = text;
  out.SetSize(static_cast<long>(decoding_room(characters.size())), false);
  const std::optional<Decoded> decoded = decode(characters, out.Ptr());
  out.SetSize(decoded ? static_cast<long>(decoded->bytes) : 0);
  return decoded.has_value();
}

namespace yinet {

std::string base64_encoded(std::string_view bytes) {
  std::string encoded(encoded_size(bytes.size()), '\0');
  encode(bytes, encoded.data());
  return encoded;
}

bool base64_decode(std::string_view text, std::string& out) {
  const std::size_t start = out.size();
  out.resize(start + decoding_room(text.size()));
  const std::optional<Decoded> decoded = decode(text, reinterpret_cast<unsigned char*>(out.data()) + start);
  out.resize(start + (decoded ? decoded->bytes : 0));
  return decoded.has_value();
}

// In pieces that stay in the processor's cache: the memory of `out` is touched only once.
bool base64_decode(std::string_view text, YBuffer& out) {
  const long start = out.Size();
  const auto room =
      std::make_unique_for_overwrite<unsigned char[]>(decoding_room(std::min(text.size(), kPieceCharacters)));
  out.Reserve(start + static_cast<long>(decoding_room(text.size())));
  while (text.size() > kPieceCharacters) {
    const std::size_t line_end = text.rfind('\n', kPieceCharacters - 1);  // lines of mails hold whole groups
    const std::size_t piece = line_end == std::string_view::npos ? kPieceCharacters : line_end + 1;
    const std::optional<Decoded> decoded = decode(text.substr(0, piece), room.get());
    if (!decoded || !decoded->may_go_on) break;
    out.Add(room.get(), static_cast<long>(decoded->bytes));
    text.remove_prefix(piece);
  }
  if (text.size() <= kPieceCharacters) {
    if (const std::optional<Decoded> decoded = decode(text, room.get())) {
      out.Add(room.get(), static_cast<long>(decoded->bytes));
      return true;
    }
  } else if (std::string rest; base64_decode(text, rest)) {  // groups that lines cut in two
    out.Add(rest);
    return true;
  }
  out.SetSize(start);
  return false;
}

}  // namespace yinet
