#include "yinet/mime/header_decoding.h"

#include <algorithm>
#include <array>

#include "yinet/host/codepage.h"
#include "yinet/host/text.h"
#include "yinet/host/ybase64.h"
#include "yinet/mime/quoted_printable.h"

namespace yinet {
namespace {

constexpr std::size_t kNone = std::string_view::npos;
constexpr std::string_view kWordStart = "=?";
constexpr std::string_view kWordEnd = "?=";

constexpr std::string_view mark_of(EncodedWord kind) { return kind == EncodedWord::base64 ? "?B?" : "?Q?"; }

// Several words glued together carry padding in the middle; each padded run is base64 of its own.
bool decode_base64_runs(std::string_view payload, std::string& out) {
  std::string decoded;
  while (!payload.empty()) {
    std::size_t end = payload.find('=');
    while (end < payload.size() && payload[end] == '=') ++end;
    const std::string_view run = payload.substr(0, end);
    if (!base64_decode(run, decoded)) return false;
    payload.remove_prefix(run.size());
  }
  out += decoded;
  return true;
}

void append_payload(std::string& out, std::string_view payload, EncodedWord kind) {
  if (kind == EncodedWord::base64) {
    if (!decode_base64_runs(payload, out)) out += payload;
    return;
  }
  std::string text(payload);
  std::replace(text.begin(), text.end(), '_', ' ');
  decode_quoted_printable(text, out);
}

// The text between the encoding mark and the final "?=" of a word of this kind.
std::string_view payload_of(std::string_view word, EncodedWord kind) {
  const std::size_t start = find_ignoring_case(word, mark_of(kind)) + 3;
  return start + kWordEnd.size() > word.size() ? std::string_view() : word.substr(start, word.size() - start - 2);
}

// Words that stand in one item without a blank between them: everything from each "?=" through the next encoding mark
// goes, so that one payload remains. A cut may bring a "?" and a "=" together, which counts as a "?=" again.
std::string merge_glued_words(std::string_view payload, EncodedWord kind) {
  std::string merged;
  for (;;) {
    const bool at_seam = !merged.empty() && merged.back() == '?' && payload.starts_with('=');
    const std::size_t end = at_seam ? 0 : payload.find(kWordEnd);
    if (end == kNone || (!at_seam && merged.empty() && end == 0)) break;
    if (at_seam && merged.size() == 1) break;
    const std::size_t mark = find_ignoring_case(payload, mark_of(kind), at_seam ? 1 : end + kWordEnd.size());
    if (mark == kNone) break;
    if (at_seam) merged.pop_back();
    else merged.append(payload, 0, end);
    payload.remove_prefix(mark + 3);
  }
  return merged.append(payload);
}

// "%41" to "A"; what follows a "%" is read as a hexadecimal number as far as it is one, 0 otherwise.
void append_percent_decoded(std::string& out, std::string_view text) {
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '%') {
      out += text[i];
      continue;
    }
    int value = 0;
    for (const char digit : text.substr(i + 1, 2)) {
      if (hex_value(digit) < 0) break;
      value = value * 16 + hex_value(digit);
    }
    out += static_cast<char>(value);
    i += 2;
  }
}

// An item without any part of an encoded word: RFC 2231 values begin with one of three charsets, spelled with an empty
// language; any other text stays.
void append_extended_value(std::string& out, std::string_view item) {
  static constexpr std::array<std::string_view, 3> kPrefixes = {"utf-8''", "ISO-8859-15''", "ISO-8859-2''"};
  for (const std::string_view prefix : kPrefixes) {
    if (!starts_with_ignoring_case(item, prefix)) continue;
    append_percent_decoded(out, item.substr(prefix.size()));
    return;
  }
  out += item;
}

// End of the encoded word that starts at `start`: the position of its "?=", which is looked for behind the charset and
// the encoding mark. kNone when there is none.
std::size_t word_end(std::string_view item, std::size_t start) {
  const std::size_t charset_end = item.find('?', start + 3);
  return charset_end == kNone ? kNone : item.find(kWordEnd, charset_end + 3);
}

// An item that holds encoded words among other text. Each complete word is decoded by itself.
void append_mixed_item(std::string& out, std::string_view item) {
  std::size_t start = item.find(kWordStart);
  if (start == kNone || start == 0) {
    out += item;
    return;
  }
  out.append(item, 0, start);
  for (;;) {
    const std::size_t end = word_end(item, start);
    if (end == kNone) {
      out += item.substr(start);  // no complete word any more: kept as text
      return;
    }
    const std::string_view word = item.substr(start, end + 2 - start);
    const EncodedWord kind = encoded_word_kind(word);
    if (kind == EncodedWord::none) out += word;
    else append_payload(out, payload_of(word, kind), kind);
    start = item.find(kWordStart, end + 2);
    out.append(item, end + 2, start == kNone ? kNone : start - end - 2);
    // What begins like a word but has no "?" behind its charset is dropped, not kept.
    if (start == kNone || item.find('?', start + 3) == kNone) return;
  }
}

bool holds_word_markers(std::string_view item) {
  return item.find(kWordStart) != kNone || item.find(kWordEnd) != kNone ||
         find_ignoring_case(item, mark_of(EncodedWord::base64)) != kNone ||
         find_ignoring_case(item, mark_of(EncodedWord::q)) != kNone;
}

// The charset that the first item names; only UTF-8 has a consequence.
enum class CharsetMark { none, other, utf8 };
CharsetMark charset_mark(std::string_view item) {
  if (find_ignoring_case(item, "charset") != kNone) return CharsetMark::none;
  if (find_ignoring_case(item, "iso-8859-1") != kNone) return CharsetMark::other;
  if (find_ignoring_case(item, "iso-8859-2") != kNone) return CharsetMark::other;
  return find_ignoring_case(item, "utf-8") != kNone ? CharsetMark::utf8 : CharsetMark::none;
}

bool ends_with_glued_word(std::string_view value) {
  return !value.starts_with(kWordStart) && value.find(' ', 1) != kNone && value.find(kWordStart, 2) != kNone &&
         value.ends_with(kWordEnd);
}

// Text that decoding gives back as it is: most values are, and asking costs less than walking their items.
bool is_plain(std::string_view value) {
  return value.find_first_of("?\t\r\n") == kNone && value.find("''") == kNone && !value.ends_with(' ') &&
         find_ignoring_case(value, "utf-8") == kNone;
}

}  // namespace

EncodedWord encoded_word_kind(std::string_view word) {
  if (!word.starts_with(kWordStart) || !word.ends_with(kWordEnd)) return EncodedWord::none;
  for (const EncodedWord kind : {EncodedWord::base64, EncodedWord::q}) {
    const std::size_t mark = find_ignoring_case(word, mark_of(kind));
    if (mark != kNone && mark > 0) return kind;
  }
  return EncodedWord::none;
}

std::string decode_header_value(std::string_view value) {
  if (is_plain(value)) return std::string(value);
  std::string glued;
  if (ends_with_glued_word(value)) {
    glued = value;
    std::erase(glued, ' ');
    value = glued;
  }
  std::string result;
  result.reserve(value.size());
  CharsetMark mark = CharsetMark::none;
  for (std::size_t start = 0; start <= value.size() && !value.empty();) {
    const std::size_t blank = std::min(value.find(' ', start), value.size());
    const std::string_view item = value.substr(start, blank - start);
    const bool last = blank == value.size();
    start = blank + 1;
    if (trimmed(item).empty()) {
      result += ' ';
      continue;
    }
    if (mark == CharsetMark::none) mark = charset_mark(item);
    const EncodedWord kind = encoded_word_kind(item);
    if (kind != EncodedWord::none) {
      append_payload(result, merge_glued_words(payload_of(item, kind), kind), kind);
      continue;  // no blank behind an encoded word
    }
    if (holds_word_markers(item)) append_mixed_item(result, item);
    else append_extended_value(result, item);
    if (!last) result += ' ';
  }
  return mark == CharsetMark::utf8 ? ansi_from_utf8_lossy(result) : result;
}

void unfold_header(std::string_view header, const std::function<void(std::string_view, bool)>& on_line) {
  std::string pending;
  std::size_t start = 0;
  for (;;) {
    const std::size_t end = header.find("\r\n", start);
    if (end == kNone || end == 0) break;
    const std::string_view line = header.substr(start, end - start);
    start = end + 2;
    if (header.substr(start).starts_with("\r\n")) start += 2;
    if (!line.empty() && (line.front() == ' ' || line.front() == '\t')) {
      if (!pending.empty()) pending += ' ';
      pending += trimmed(line);
      continue;
    }
    if (!pending.empty()) on_line(pending, false);
    pending = line;
  }
  if (!pending.empty()) on_line(pending, true);
}

}  // namespace yinet
