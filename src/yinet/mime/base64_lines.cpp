#include "yinet/mime/base64_lines.h"

#include <algorithm>

#include "yinet/host/ybase64.h"

namespace yinet {

namespace {

// Whole lines are encoded in one go, small enough to stay in the processor's cache until they are cut into lines.
constexpr std::size_t kBlockBytes = 512 * kBase64LineBytes;
constexpr std::size_t kLineCharacters = kBase64LineBytes / 3 * 4;
static_assert(kBase64LineBytes % 3 == 0);  // so no line but the last needs padding

}  // namespace

void append_base64_lines(std::string_view bytes, std::string& out) {
  out.reserve(out.size() + static_cast<std::size_t>(base64_lines_size(static_cast<std::int64_t>(bytes.size()))));
  while (!bytes.empty()) {
    const std::string encoded = base64_encoded(bytes.substr(0, kBlockBytes));
    for (std::string_view rest = encoded; !rest.empty(); rest.remove_prefix(std::min(kLineCharacters, rest.size())))
      out.append(rest.substr(0, kLineCharacters)).append("\r\n", 2);
    bytes.remove_prefix(std::min(kBlockBytes, bytes.size()));
  }
}

}  // namespace yinet
