#include "yinet/mime/mail_text.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <utility>

#include "yinet/host/codepage.h"
#include "yinet/host/text.h"
#include "yinet/host/ybase64.h"
#include "yinet/mime/byte_search.h"
#include "yinet/mime/quoted_printable.h"

namespace yinet {
namespace {

constexpr std::string_view kLineEnd = "\r\n";
constexpr std::string_view kStuffedDot = "\r\n..";
constexpr std::size_t kPieceCharacters = 64 * 1024;  // of a large content, decoded at a time
constexpr std::string_view kNoticeStart = "Diese Mail (";
constexpr std::string_view kNoticeMiddle =
    ") ist gr\xF6\xDF"
    "er als die maximal erlaubte Mailgr\xF6\xDF"
    "e (";
constexpr std::string_view kBadEncodingNotice =
    "Folgender Inhalt wurde in einer ung\xFCltigen Kodierung \xFC"
    "bermittelt: \r\n\r\n";

std::string_view without_trailing_line_ends(std::string_view text) {
  while (text.ends_with(kLineEnd)) text.remove_suffix(2);
  return text;
}

// Line ends at the end, then the dot line that ends a mail fetched by POP3.
std::string_view without_terminator(std::string_view text) {
  text = without_trailing_line_ends(text);
  if (text.ends_with("\r\n.")) text.remove_suffix(3);
  return text;
}

bool is_lone_line_feed(std::string_view text, std::size_t at) { return at == 0 || text[at - 1] != '\r'; }

bool names_binary_encoding(std::string_view text) {
  static constexpr std::string_view kField = "\nContent-Transfer-Encoding:";
  for (std::size_t at = 0; (at = find_ignoring_case(text, kField, at)) != std::string_view::npos;) {
    at += kField.size();
    const std::size_t value = std::min(text.find_first_not_of(" \t", at), text.size());
    if (starts_with_ignoring_case(text.substr(value), "binary")) return true;
  }
  return false;
}

void make_lone_line_feeds_crlf(std::string& text, std::size_t from) {
  std::string converted;
  converted.reserve(text.size() + text.size() / 16);
  std::size_t done = 0;
  for (std::size_t at = text.find('\n', from); at != std::string::npos; at = text.find('\n', at + 1)) {
    if (!is_lone_line_feed(text, at)) continue;
    converted.append(text, done, at - done).append(kLineEnd);
    done = at + 1;
  }
  text = std::move(converted.append(text, done));
}

std::string decode_base64_text(std::string_view text) {
  std::string decoded;
  if (base64_decode(text, decoded)) return decoded;
  return utf8_from_ansi(kBadEncodingNotice).append(text);
}

}  // namespace

bool make_unix_lines_crlf(std::string& text) {
  const std::size_t first = text.find('\n');
  if (first == std::string::npos || !is_lone_line_feed(text, first)) return false;
  make_lone_line_feeds_crlf(text, first);
  return true;
}

bool make_body_lines_crlf(std::string& text, std::size_t start, std::string_view boundary) {
  if (boundary.empty()) return false;
  const std::string delimiter = "\n--" + std::string(boundary);
  const auto stands_alone = [&](std::size_t at) {
    const std::size_t end = text.find('\n', at + delimiter.size());
    return is_lone_line_feed(text, at) || (end != std::string::npos && is_lone_line_feed(text, end));
  };
  std::size_t at = find_bytes(text, delimiter, start - std::min<std::size_t>(start, 1));
  while (at != std::string::npos && !stands_alone(at)) at = find_bytes(text, delimiter, at + 1);
  if (at == std::string::npos || names_binary_encoding(text)) return false;
  make_lone_line_feeds_crlf(text, start);
  return true;
}

bool make_mac_lines_crlf(std::string& text) {
  if (text.find('\n') != std::string::npos || text.find('\r') == std::string::npos) return false;
  text = replaced(text, "\r", kLineEnd);
  return true;
}

std::size_t find_size_notice(std::string_view text) {
  const std::size_t start = find_bytes(text, kNoticeStart);
  if (start == std::string_view::npos || start == 0) return std::string_view::npos;
  return find_bytes(text, kNoticeMiddle, start) == std::string_view::npos ? std::string_view::npos : start;
}

TransferEncoding transfer_encoding_named(std::string_view name) {
  static constexpr std::pair<std::string_view, TransferEncoding> kNames[] = {
      {"binary", TransferEncoding::binary},  {"base64", TransferEncoding::base64},
      {"8bit", TransferEncoding::eight_bit}, {"quoted-printable", TransferEncoding::quoted_printable},
      {"7bit", TransferEncoding::seven_bit},
  };
  if (name.empty()) return TransferEncoding::none;
  for (const auto& [start, encoding] : kNames) {
    if (starts_with_ignoring_case(name, start)) return encoding;
  }
  return TransferEncoding::other;
}

std::string decode_inline_text(std::string_view content, TransferEncoding encoding) {
  const std::string_view text = without_terminator(content);
  if (encoding == TransferEncoding::binary) return std::string(text);
  if (encoding == TransferEncoding::base64) return decode_base64_text(text);
  const bool quoted = encoding == TransferEncoding::quoted_printable;
  if (find_bytes(text, kStuffedDot) == std::string_view::npos)  // as in most mails
    return quoted ? quoted_printable_decoded(text) : std::string(text);
  std::string unstuffed = replaced(text, kStuffedDot, "\r\n.");
  return quoted ? quoted_printable_decoded(unstuffed) : unstuffed;
}

std::string decode_untyped_text(std::string_view content) {
  if (content.ends_with(kLineEnd)) content.remove_suffix(2);
  return quoted_printable_decoded(content);
}

void decode_base64_leniently(std::string_view text, std::string& out) {
  static constexpr auto kValues = [] {
    std::array<std::int8_t, 256> values{};
    values.fill(-1);
    constexpr std::string_view kAlphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    for (std::size_t i = 0; i < kAlphabet.size(); ++i) {
      values[static_cast<unsigned char>(kAlphabet[i])] = static_cast<std::int8_t>(i);
    }
    return values;
  }();
  std::uint32_t bits = 0;
  int count = 0;  // characters of the group so far
  const auto flush = [&] {
    // Two characters carry one byte, three carry two; a single one carries nothing whole.
    for (int i = 1; i < count; ++i) out += static_cast<char>((bits >> (6 * count - 8 * i)) & 0xFF);
    count = 0;
    bits = 0;
  };
  for (const char c : text) {
    const int value = kValues[static_cast<unsigned char>(c)];
    if (value >= 0) {
      bits = (bits << 6) | static_cast<std::uint32_t>(value);
      if (++count == 4) flush();
    } else if (c == '=') {
      flush();
    }
  }
  flush();
}

YBuffer decode_file_content(std::string_view content, TransferEncoding encoding, bool keep_seven_bit) {
  YBuffer bytes;
  if (content.ends_with(kLineEnd)) content.remove_suffix(2);
  if (encoding == TransferEncoding::base64) {
    content = without_terminator(content);
    if (base64_decode(content, bytes)) return bytes;
    std::string decoded;
    decode_base64_leniently(content, decoded);
    bytes.Add(decoded);
    return bytes;
  }
  const bool quoted =
      encoding == TransferEncoding::quoted_printable || (encoding == TransferEncoding::seven_bit && !keep_seven_bit);
  bytes.Reserve(static_cast<long>(content.size()));
  std::string decoded;
  while (quoted && content.size() > kPieceCharacters) {  // nothing that is encoded reaches over a line feed
    const std::size_t line_feed = content.find('\n', kPieceCharacters);
    if (line_feed == std::string_view::npos) break;
    decoded.clear();
    decode_quoted_printable(content.substr(0, line_feed + 1), decoded);
    bytes.Add(decoded);
    content.remove_prefix(line_feed + 1);
  }
  if (!quoted) {
    bytes.Add(content);
    return bytes;
  }
  decoded.clear();
  decode_quoted_printable(content, decoded);
  bytes.Add(decoded);
  return bytes;
}

}  // namespace yinet
