// Folding of lines, beside the rule done character by character.

#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "mime/literal_models.h"
#include "yinet/mime/fold_lines.h"

namespace {

void compare(const std::string& text) {
  if (yinet::fold_lines(text) != yinet::test::folded_by_the_rule(text)) std::abort();
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
