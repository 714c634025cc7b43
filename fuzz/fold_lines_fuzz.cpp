// Folding of lines, beside the rule done character by character on a text that really changes meanwhile.

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "yinet/mime/fold_lines.h"

namespace {

std::string folded_by_the_rule(std::string text) {
  std::size_t column = 0, last_blank = 0;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == ' ') last_blank = i;
    if (text.compare(i, 2, "\r\n") == 0) {
      column = 0;
    } else if (column > 76 && last_blank > 0) {
      const std::size_t end = text.find_last_not_of(" \t", last_blank) + 1;
      const std::size_t next = std::min(text.find_first_not_of(" \t", last_blank), text.size());
      text.replace(end, next - end, "\r\n");
      column = last_blank = 0;
      continue;
    }
    if (column++ == 998) {
      text.insert(i, "\r\n");
      column = 0;
    }
  }
  return text;
}

void compare(const std::string& text) {
  if (yinet::fold_lines(text) != folded_by_the_rule(text)) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size > 8192) return 0;  // the model's cost is quadratic
  const std::string input(reinterpret_cast<const char*>(data), size);
  compare(input);

  // Words of a letter each, as long as the byte says, with what may stand between them.
  std::string mapped;
  constexpr std::string_view kBetween[] = {" ", "\t", "\r\n", "\r", " \t ", "\n", "  "};
  for (const char c : input) {
    const auto byte = static_cast<unsigned char>(c);
    mapped.append(byte % 90, 'x').append(kBetween[byte % std::size(kBetween)]);
    if (mapped.size() > 8192) break;
  }
  compare(mapped);
  return 0;
}
