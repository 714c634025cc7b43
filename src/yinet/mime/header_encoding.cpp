#include "yinet/mime/header_encoding.h"

#include <algorithm>
#include <utility>

#include "yinet/host/text.h"
#include "yinet/host/ybase64.h"

namespace yinet {

namespace {

// Characters of a line that are not for the text: the frame of the encoded word, and what base64 adds.
constexpr int kLineOverhead = 40;
constexpr std::string_view kLineEnd = "\r\n";

constexpr bool breaks_line(char c) { return c == '\r' || c == '\n' || c == '\0'; }

}  // namespace

std::string encoded_header_line(std::string_view text, int line_length) {
  if (line_length <= 0) line_length = kUsualLineLength;
  const auto chunk = static_cast<std::size_t>(std::max(line_length - kLineOverhead, 1));
  std::string out;
  out.reserve(text.size() / chunk * (chunk / 3 * 4 + 24) + 80);
  for (std::string_view rest = text; !rest.empty(); rest.remove_prefix(std::min(chunk, rest.size()))) {
    if (!out.empty()) out.append(kLineEnd).append("\t");
    out.append("=?iso-8859-1?B?").append(base64_encoded(rest.substr(0, chunk))).append("?=");
  }
  return out;
}

std::string one_header_line(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    out.push_back(breaks_line(text[i]) ? ' ' : text[i]);
    if (text[i] == '\r' && i + 1 < text.size() && text[i + 1] == '\n') ++i;
  }
  return out;
}

std::string quotable_file_name(std::string_view name) {
  std::string out = one_header_line(name);
  std::ranges::replace(out, '"', '\'');
  return out;
}

std::string with_crlf_line_ends(std::string_view text) {
  std::string out;
  out.reserve(text.size() + text.size() / 16);
  while (!text.empty()) {
    std::size_t end = 0;
    while (end < text.size() && text[end] != '\r' && text[end] != '\n') ++end;
    out.append(text.substr(0, end));
    text.remove_prefix(end);
    if (text.empty()) break;
    out.append(kLineEnd);
    text.remove_prefix(text.starts_with(kLineEnd) ? 2 : 1);
  }
  return out;
}

void stuff_dots(std::string& text) {
  const std::string_view original = text;
  std::string stuffed;
  std::size_t copied = 0;
  // Looking for dots is quicker than looking for line ends: what is large in a mail, base64, has none.
  for (std::size_t dot = original.find('.'); dot != std::string_view::npos; dot = original.find('.', dot + 1)) {
    const bool begins_line = dot == 0 ? original.starts_with(".\r\n") : original.substr(0, dot).ends_with(kLineEnd);
    if (!begins_line) continue;
    stuffed.append(original.substr(copied, dot - copied)).append(".");
    copied = dot;
  }
  if (stuffed.empty()) return;
  stuffed.append(original.substr(copied));
  text = std::move(stuffed);
}

}  // namespace yinet
