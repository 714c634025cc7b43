#include "yinet/mime/base64_lines.h"

#include <algorithm>
#include <cstring>

#include "yinet/host/ybase64.h"

namespace yinet {

namespace {

constexpr std::string_view kLineEnd = "\r\n";
constexpr std::size_t kLineCharacters = kBase64LineBytes / 3 * 4;
static_assert(kBase64LineBytes % 3 == 0);  // so no line but the last needs padding

// That many lines are encoded in one go: the block stays in the processor's cache until it is cut into lines.
constexpr std::size_t kBlockLines = 512;

}  // namespace

void append_base64_lines(std::string_view bytes, std::string& out) {
  out.reserve(out.size() + static_cast<std::size_t>(base64_lines_size(static_cast<std::int64_t>(bytes.size()))));
  std::string lines(kBlockLines * (kLineCharacters + kLineEnd.size()), '\0');
  while (!bytes.empty()) {
    const std::string encoded = base64_encoded(bytes.substr(0, kBlockLines * kBase64LineBytes));
    bytes.remove_prefix(std::min(kBlockLines * kBase64LineBytes, bytes.size()));
    char* to = lines.data();
    const auto put = [&to](std::string_view text) {
      std::memcpy(to, text.data(), text.size());
      to += text.size();
    };
    std::string_view rest = encoded;
    for (; rest.size() >= kLineCharacters; rest.remove_prefix(kLineCharacters)) {
      put({rest.data(), kLineCharacters});
      put(kLineEnd);
    }
    if (!rest.empty()) {
      put(rest);
      put(kLineEnd);
    }
    out.append(lines.data(), to);
  }
}

}  // namespace yinet
