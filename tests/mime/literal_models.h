#pragma once

// The rules of text routines, character by character and stage by stage, on a text that really changes meanwhile: slow and
// plain. Tests and fuzzers hold the quick routines against them.

#include <cstdlib>
#include <string>
#include <string_view>

#include "yinet/host/codepage.h"
#include "yinet/host/text.h"
#include "yinet/host/ybase64.h"
#include "yinet/mime/quoted_printable.h"

namespace yinet::test {

inline std::string folded_by_the_rule(std::string text) {
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

// In lower case, and without character references.
inline std::string lower_text_without_tags_by_stages(std::string_view html) {
  std::string text = replaced(replaced(to_lower(html), "&nbsp;", " "), "<br>", "\r\n");
  for (std::size_t at = 0, end = 0; (at = text.find('<', at)) != text.npos && (end = text.find('>', at)) != text.npos;)
    text.erase(at, end + 1 - at);
  while (text.starts_with("\r\n")) text.erase(0, 2);
  return text;
}

// --- Header values: encoded words and extended parameter values ---------------------------------------------------------

inline bool has(const std::string& text, std::string_view what) { return find_ignoring_case(text, what) != text.npos; }

inline std::string encoding_mark(const std::string& word) {
  if (!word.starts_with("=?") || !word.ends_with("?=")) return {};
  return has(word, "?B?") ? "?B?" : has(word, "?Q?") ? "?Q?" : "";
}

// The content of a word with this mark; words that were glued to it may be merged first.
inline std::string decoded_word(const std::string& word, const std::string& mark, bool merges) {
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

inline std::string extended_value(const std::string& item) {
  std::size_t at = 0;
  for (const std::string_view prefix : {"utf-8''", "ISO-8859-15''", "ISO-8859-2''"})
    if (starts_with_ignoring_case(item, prefix)) at = prefix.size();
  std::string text;
  for (const bool encoded = at > 0; at < item.size(); at += encoded && item[at] == '%' ? 3 : 1)
    text += encoded && item[at] == '%' ? static_cast<char>(std::strtol(item.substr(at + 1, 2).c_str(), nullptr, 16))
                                       : item[at];
  return text;
}

inline std::string mixed_value(const std::string& item) {
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

inline std::string header_value_by_the_rule(std::string value) {
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

}  // namespace yinet::test
