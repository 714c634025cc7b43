#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace yinet {

// Bytes of an attachment that make one line of base64.
inline constexpr std::size_t kBase64LineBytes = 54;

// Size of that many bytes as lines of base64 (72 characters and CRLF, the last line may be shorter).
constexpr std::int64_t base64_lines_size(std::int64_t bytes) {
  constexpr std::int64_t kLine = kBase64LineBytes;
  return (bytes + 2) / 3 * 4 + (bytes + kLine - 1) / kLine * 2;
}

// Appends the bytes as lines of base64. Pieces of one attachment may be given one after the other as long as all but the
// last are multiples of kBase64LineBytes.
void append_base64_lines(std::string_view bytes, std::string& out);

}  // namespace yinet
