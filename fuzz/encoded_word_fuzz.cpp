// Encoded words and extended parameter values: decoding gives what its rules give stage by stage, hardly makes a value
// longer and leaves a text without marks as it is; what was encoded comes back.

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <cstdlib>
#include <random>
#include <string>
#include <string_view>

#include "yinet/host/codepage.h"
#include "yinet/host/text.h"
#include "yinet/host/ybase64.h"
#include "yinet/mime/header_decoding.h"
#include "yinet/mime/header_encoding.h"
#include "yinet/mime/quoted_printable.h"

namespace {

using namespace yinet;

// --- The rules, on a text that really changes meanwhile: slow and plain ---------------------------------------------------

bool has(const std::string& text, std::string_view what) { return find_ignoring_case(text, what) != text.npos; }

std::string encoding_mark(const std::string& word) {
  if (!word.starts_with("=?") || !word.ends_with("?=")) return {};
  return has(word, "?B?") ? "?B?" : has(word, "?Q?") ? "?Q?" : "";
}

// The content of a word with this mark; words that were glued to it may be merged first.
std::string decoded_word(const std::string& word, const std::string& mark, bool merges) {
  const std::size_t first = find_ignoring_case(word, mark) + 3;
  std::string payload = first + 2 > word.size() ? "" : word.substr(first, word.size() - 2 - first);
  for (std::size_t end = 0; merges && (end = payload.find("?=")) != payload.npos && end > 0;) {
    const auto next = find_ignoring_case(payload, mark, end + 2);
    if (next == payload.npos) break;
    payload.erase(end, next + 3 - end);
  }
  if (mark == "?Q?") return quoted_printable_decoded(replaced(payload, "_", " "));
  std::string result;
  for (std::size_t at = 0, end = 0; at < payload.size(); at = end) {  // padding ends a run
    end = std::min(payload.find_first_not_of('=', std::min(payload.find('=', at), payload.size())), payload.size());
    if (!base64_decode(payload.substr(at, end - at), result)) return payload;
  }
  return result;
}

std::string extended_value(const std::string& item) {
  std::size_t at = 0;
  for (const std::string_view prefix : {"utf-8''", "ISO-8859-15''", "ISO-8859-2''"})
    if (starts_with_ignoring_case(item, prefix)) at = prefix.size();
  std::string text = item.substr(0, at == 0 ? item.npos : 0);
  for (; at > 0 && at < item.size(); at += item[at] == '%' ? 3 : 1) {
    unsigned value = static_cast<unsigned char>(item[at]);
    if (item[at] == '%') {
      value = 0;
      std::from_chars(item.data() + at + 1, item.data() + std::min(at + 3, item.size()), value, 16);
    }
    text += static_cast<char>(value);
  }
  return text;
}

std::string mixed_value(const std::string& item) {
  std::size_t p = item.find("=?");
  if (p == item.npos || p < 1) return item;
  std::string text = item.substr(0, p);
  for (;;) {
    const std::size_t q = item.find('?', p + 3);
    const std::size_t e = q == item.npos ? q : item.find("?=", q + 3);
    if (e == item.npos) return text + item.substr(p);
    const std::string word = item.substr(p, e + 2 - p);
    const std::string mark = encoding_mark(word);
    text += mark.empty() ? word : decoded_word(word, mark, false);
    p = item.find("=?", e + 2);
    text += item.substr(e + 2, p == item.npos ? p : p - e - 2);
    if (p == item.npos || item.find('?', p + 3) == item.npos) return text;
  }
}

std::string header_value_by_the_rule(std::string value) {
  if (!value.starts_with("=?") && value.find(' ', 1) != value.npos && value.find("=?", 2) != value.npos &&
      value.ends_with("?="))
    std::erase(value, ' ');
  std::string result;
  int mark = 0;
  const auto items = split(value, " ");
  for (std::size_t i = 0; i < items.size(); ++i) {
    const std::string item(items[i]);
    const std::string encoding = encoding_mark(item);
    if (mark == 0 && !has(item, "charset"))
      mark = has(item, "iso-8859-1") ? 4 : has(item, "iso-8859-2") ? 16 : has(item, "utf-8") ? 8 : 0;
    if (trimmed(item).empty()) {
      result += ' ';
    } else if (!encoding.empty()) {
      result += decoded_word(item, encoding, true);
    } else {
      const bool marked = has(item, "=?") || has(item, "?=") || has(item, "?B?") || has(item, "?Q?");
      result += (marked ? mixed_value(item) : extended_value(item)) + (i + 1 < items.size() ? " " : "");
    }
  }
  return mark == 8 ? ansi_from_utf8_lossy(result) : result;
}

// --- What is checked --------------------------------------------------------------------------------------------------------

void require(bool condition) {
  if (!condition) std::abort();
}

// Holds nothing that decoding takes for more than text.
bool is_plain(const std::string& value) {
  return value.find_first_of(std::string_view("?'\t\r\n\0", 6)) == std::string::npos &&
         value.find("-8") == std::string::npos && !value.ends_with(' ');
}

void check(const std::string& value) {
  const std::string decoded = decode_header_value(value);
  require(decoded == header_value_by_the_rule(value));
  require(decoded.size() <= value.size() + 1);  // a blank at the end counts twice
  const EncodedWord kind = encoded_word_kind(value);
  require(kind == EncodedWord::none || (value.starts_with("=?") && value.ends_with("?=")));
  if (is_plain(value)) require(decoded == value);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string input(reinterpret_cast<const char*>(data), size);
  check(input);
  static const auto likely = split(
      "=?|?=|?B?|?Q?|?b?|?|=|_| |  |\t|utf-8|UTF|iso-8859-1|iso-8859-2|charset|utf-8''|iso-8859-15''|%41|%4|%|"
      "SGFsbG8=|w6Q=|=C3=A4|=?utf-8?Q?a?=|=?utf-8?B?w6Q=?=|a|\xE4|\xC3\xA4|=?utf-8?Q?|=?x?B?|\"",
      "|");
  std::string mapped;
  for (const char c : input) mapped += likely[static_cast<unsigned char>(c) % likely.size()];
  check(mapped);
  // Short values are where the rules meet; the input only says which ones.
  std::seed_seq seed(input.begin(), input.end());
  std::mt19937 random(seed);
  for (int i = 0; i < 8; ++i) {
    std::string drawn;
    for (std::size_t pieces = random() % 9; pieces > 0; --pieces) drawn += likely[random() % likely.size()];
    check(drawn);
  }

  if (!is_plain(input)) return 0;
  std::string folded = "Subject: " + encoded_header_line(input, 76) + "\r\n";
  unfold_header(folded, [&](std::string_view line, bool) {
    line.remove_prefix(std::min<std::size_t>(line.size(), 9));
    require(decode_header_value(line) == one_header_line(input));
  });
  return 0;
}
