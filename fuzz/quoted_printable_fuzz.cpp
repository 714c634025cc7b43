// Quoted-printable, there and back, and the decoder beside one that looks at one character at a time.

#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "yinet/host/text.h"
#include "yinet/mime/quoted_printable.h"

namespace {

void require(bool condition) {
  if (!condition) std::abort();
}

std::string plainly_decoded(std::string_view text) {
  std::string out;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const auto next = [&](std::size_t n) { return i + n < text.size() ? text[i + n] : '?'; };
    if (text[i] == '=' && next(1) == '\r' && next(2) == '\n') {
      i += 2;
    } else if (text[i] == '=' && yinet::hex_value(next(1)) >= 0 && yinet::hex_value(next(2)) >= 0) {
      out += static_cast<char>(yinet::hex_value(next(1)) * 16 + yinet::hex_value(next(2)));
      i += 2;
    } else {
      out += text[i];
    }
  }
  return out;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string input(reinterpret_cast<const char*>(data), size);
  require(yinet::quoted_printable_decoded(input) == plainly_decoded(input));

  std::string mapped = input;
  constexpr std::string_view kLikely = "=0aFg\r\n= ";
  for (char& c : mapped) c = kLikely[static_cast<unsigned char>(c) % kLikely.size()];
  require(yinet::quoted_printable_decoded(mapped) == plainly_decoded(mapped));

  const std::string encoded = yinet::quoted_printable_encoded(input);
  require(encoded.size() <= 3 * input.size());
  require(yinet::quoted_printable_decoded(encoded) == input);
  return 0;
}
