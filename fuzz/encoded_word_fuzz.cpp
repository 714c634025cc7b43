// Encoded words: decoding hardly makes a value longer, a text without marks stays as it is, and what was encoded comes
// back.

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "yinet/mime/header_decoding.h"
#include "yinet/mime/header_encoding.h"

namespace {

void require(bool condition) {
  if (!condition) std::abort();
}

// Holds nothing that decoding takes for more than text.
bool is_plain(const std::string& value) {
  return value.find_first_of(std::string_view("?'\t\r\n\0", 6)) == std::string::npos && value.find("-8") == std::string::npos &&
         !value.ends_with(' ');
}

void check(const std::string& value) {
  const std::string decoded = yinet::decode_header_value(value);
  require(decoded.size() <= value.size() + 1);  // a blank at the end counts twice
  const yinet::EncodedWord kind = yinet::encoded_word_kind(value);
  require(kind == yinet::EncodedWord::none || (value.starts_with("=?") && value.ends_with("?=")));
  if (is_plain(value)) require(decoded == value);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string input(reinterpret_cast<const char*>(data), size);
  check(input);
  static constexpr std::string_view kLikely[] = {"=?", "?=", "?B?",  "?q?", "utf-8",  "iso-8859-1", "=", "?",
                                                 " ",  "_",  "QUJD", "%",   "=C3=A4", "utf-8''",    "a", "%C3%A4"};
  std::string mapped;
  for (const char c : input) mapped += kLikely[static_cast<unsigned char>(c) % std::size(kLikely)];
  check(mapped);

  if (!is_plain(input)) return 0;
  std::string folded = "Subject: " + yinet::encoded_header_line(input, 76) + "\r\n";
  yinet::unfold_header(folded, [&](std::string_view line, bool) {
    line.remove_prefix(std::min<std::size_t>(line.size(), 9));
    require(yinet::decode_header_value(line) == yinet::one_header_line(input));
  });
  return 0;
}
