#include "yinet/mime/header_decoding.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "yinet/host/codepage.h"
#include "yinet/host/structured_value.h"
#include "yinet/host/text.h"
#include "yinet/host/ybase64.h"
#include "yinet/mime/quoted_printable.h"

namespace yinet {
namespace {

TEST(HeaderValue, DecodesWhatSendersWrite) {
  const struct { std::string_view value, expected; } kRows[] = {
      {"=?UTF-8?B?SGFsbG8=?=", "Hallo"},
      {"=?utf-8?q?Gr=C3=BC=C3=9Fe?=", "Gr\xFC\xDF" "e"},
      {"=?iso-8859-1?Q?Gr=FC=DFe_aus_K=F6ln?=", "Gr\xFC\xDF" "e aus K\xF6ln"},
      {"=?iso-8859-15?Q?=A4?=", "\xA4"},                                 // not converted
      {"Re: =?utf-8?Q?Test?=", "Re:Test"},                              // glued: the blanks go
      {"=?utf-8?Q?Hallo?= Welt", "HalloWelt"},                          // no blank behind a word
      {"=?utf-8?B?w6Q=?= =?utf-8?B?w7w=?=", "\xE4\xFC"},
      {"=?utf-8?B?w6Q=?==?utf-8?B?w7w=?=", "\xE4\xFC"},                 // merged, padding in the middle
      {"=?utf-8?Q?x?==?utf-8?Q?y?=", "xy"},
      {"a=?utf-8?Q?=C3=A4?=b=?utf-8?Q?c?=d", "a\xE4" "bcd"},
      {"utf-8''M%C3%BCller.pdf", "M\xFCller.pdf"},
      {"ISO-8859-15''M%FCller.pdf", "M\xFCller.pdf"},
      {"utf-8'de'M%C3%BCller", "utf-8'de'M%C3%BCller"},                 // a language is not recognised
      {"utf-8''100%", std::string_view("100\0", 4)},
      {"utf-8''%4", "\x04"},
      {"utf-8''%zz!", std::string_view("\0!", 2)},
      {"=?utf-8?Q?b?=", ""},                                            // "?b?" is found first and has no payload
      {"=?utf-8?B?###?=", "###"},                                       // no base64: the payload stays
      {"=?utf-8?X?abc?=", "=?utf-8?X?abc?="},
      {"=?utf-8?B?SGFsbG8", "=?utf-8?B?SGFsbG8"},                       // never closed
      {"abc=?utf-8?Q?x", "abc=?utf-8?Q?x"},
      {"a=?utf-8?Q?x?=c=?rest", "axc"},                                 // no "?" behind the charset: dropped
      {"zwei  Blanks", "zwei  Blanks"},
      {"am Ende ", "am Ende  "},
      {"", ""},
  };
  for (const auto& row : kRows) EXPECT_EQ(decode_header_value(row.value), row.expected) << row.value;
}

// --- The rules as they are told, one after the other, without regard to cost ----------------------------------------

int item_code(const std::string& word) {
  if (word.substr(0, 2) != "=?" || word.size() < 2 || word.substr(word.size() - 2) != "?=") return 0;
  for (const auto& [mark, code] : {std::pair("?B?", 2), std::pair("?Q?", 1)}) {
    const auto at = find_ignoring_case(word, mark);
    if (at != std::string::npos && at > 0) return code;
  }
  return 0;
}

std::string decoded_payload(const std::string& payload, int code) {
  if (code == 2) {
    std::string result;
    for (std::size_t at = 0; at < payload.size();) {
      std::size_t end = at;
      while (end < payload.size() && payload[end] != '=') ++end;
      while (end < payload.size() && payload[end] == '=') ++end;
      if (!base64_decode(payload.substr(at, end - at), result)) return payload;
      at = end;
    }
    return result;
  }
  std::string text = payload;
  for (char& c : text) c = c == '_' ? ' ' : c;
  return quoted_printable_decoded(text);
}

std::string payload(const std::string& word, int code) {
  const std::size_t first = find_ignoring_case(word, code == 2 ? "?B?" : "?Q?") + 3;
  return first + 2 > word.size() ? "" : word.substr(first, word.size() - 2 - first);
}

std::string naive_decode(std::string value) {
  if (value.substr(0, 2) != "=?" && value.find(' ', 1) != std::string::npos && value.find("=?", 2) != std::string::npos &&
      value.size() >= 2 && value.substr(value.size() - 2) == "?=") {
    std::erase(value, ' ');
  }
  std::vector<std::string> items;
  if (!value.empty()) items.emplace_back();
  for (const char c : value) {
    if (c == ' ') items.emplace_back();
    else items.back() += c;
  }
  std::string result;
  int mark = 0;
  for (std::size_t i = 0; i < items.size(); ++i) {
    const std::string& item = items[i];
    const auto has = [&](std::string_view what) { return find_ignoring_case(item, what) != std::string::npos; };
    if (trimmed(item).empty()) {
      result += ' ';
      continue;
    }
    if (mark == 0 && !has("charset")) mark = has("iso-8859-1") ? 4 : has("iso-8859-2") ? 16 : has("utf-8") ? 8 : 0;
    const int code = item_code(item);
    if (code > 0) {
      std::string text = payload(item, code);
      for (;;) {
        const auto end = text.find("?=");
        if (end == std::string::npos || end == 0) break;
        const auto next = find_ignoring_case(text, code == 2 ? "?B?" : "?Q?", end + 2);
        if (next == std::string::npos) break;
        text.erase(end, next + 3 - end);
      }
      result += decoded_payload(text, code);
      continue;
    }
    if (!has("=?") && !has("?=") && !has("?B?") && !has("?Q?")) {
      std::string text = item;
      for (const std::string prefix : {"utf-8''", "ISO-8859-15''", "ISO-8859-2''"}) {
        if (!starts_with_ignoring_case(item, prefix)) continue;
        text.clear();
        for (std::size_t at = prefix.size(); at < item.size(); ++at) {
          if (item[at] != '%') {
            text += item[at];
            continue;
          }
          text += static_cast<char>(std::strtol(item.substr(at + 1, 2).c_str(), nullptr, 16));
          at += 2;
        }
        break;
      }
      result += text;
    } else {
      std::size_t p = item.find("=?");
      if (p == std::string::npos || p < 1) {
        result += item;
      } else {
        result += item.substr(0, p);
        for (;;) {
          const std::size_t q = item.find('?', p + 3);
          const std::size_t e = q == std::string::npos ? q : item.find("?=", q + 3);
          if (e == std::string::npos) {
            result += item.substr(p);
            break;
          }
          const std::string word = item.substr(p, e + 2 - p);
          const int inner = item_code(word);
          result += inner == 0 ? word : decoded_payload(payload(word, inner), inner);
          const std::size_t next = item.find("=?", e + 2);
          if (next == std::string::npos) {
            result += item.substr(e + 2);
            break;
          }
          result += item.substr(e + 2, next - e - 2);
          if (item.find('?', next + 3) == std::string::npos) break;
          p = next;
        }
      }
    }
    if (i + 1 < items.size()) result += ' ';
  }
  return mark == 8 ? ansi_from_utf8_lossy(result) : result;
}

TEST(HeaderValue, AgreesWithTheRulesOnGeneratedValues) {
  static const std::vector<std::string> kPieces = {
      "=?",  "?=",  "?B?", "?Q?",    "?b?",        "?",          "=",  "_",   " ",   "  ",     "\t",          "utf-8",
      "UTF", "iso-8859-1", "iso-8859-2", "charset", "utf-8''", "%41", "%4",  "%",  "SGFsbG8=", "w6Q=", "=C3=A4", "=?utf-8?Q?a?=",
      "=?utf-8?B?w6Q=?=", "a",  "\xE4", "\xC3\xA4", "=?utf-8?Q?", "=?x?B?", "\""};
  std::mt19937 random(20261121);
  for (int round = 0; round < 60000; ++round) {
    std::string value;
    for (std::size_t i = random() % 9; i > 0; --i) value += kPieces[random() % kPieces.size()];
    ASSERT_EQ(decode_header_value(value), naive_decode(value)) << printable(value);
  }
}

std::vector<std::string> unfolded(std::string_view header) {
  std::vector<std::string> lines;
  unfold_header(header, [&](std::string_view line, bool last) { lines.push_back(std::string(line) + (last ? "$" : "")); });
  return lines;
}

TEST(HeaderBlock, UnfoldsLines) {
  using Lines = std::vector<std::string>;
  const struct { std::string_view header; Lines lines; } kRows[] = {
      {"A: 1\r\nB: 2\r\n", {"A: 1", "B: 2$"}},
      {"A: 1\r\n  2\t\r\n\t3\r\nB: 4\r\n", {"A: 1 2 3", "B: 4$"}},
      {"A: 1\r\nB: no line end", {"A: 1$"}},
      {"A: 1\r\n\r\nB: 2\r\n", {"A: 1", "B: 2$"}},     // one empty line is skipped
      {" first\r\nA: 1\r\n", {"first", "A: 1$"}},
      {"\r\nA: 1\r\n", {}},                              // begins with a line end: nothing is read
      {"A: 1\nB: 2\r\n", {"A: 1\nB: 2$"}},               // LF alone ends no line
      {"", {}},
  };
  for (const auto& row : kRows) EXPECT_EQ(unfolded(row.header), row.lines) << printable(row.header);
}

TEST(StructuredValue, QuotesKeepSeparators) {
  const struct { std::string_view value; bool first_equals; std::string expected; } kRows[] = {
      {"text/plain; charset=UTF-8", false, "text/plain|charset>UTF-8"},
      {"multipart/mixed; boundary=\"=_a;b=c\" ; x = y", false, "multipart/mixed|boundary>=_a;b=c|x>y"},
      {"a/b; name=\"x", false, "a/b|name>\"x"},                         // a quote that never closes splits nothing
      {"a/b; name=\"a\\\"; b\"; c=d", false, "a/b|name>a\\\"; b|c>d"},
      {"a/b; boundary==_x; c=d", false, "a/b|c>d"},                     // two "=": left out
      {"a/b; boundary==_x; c=d", true, "a/b|boundary>=_x|c>d"},
      {"a/b;;flag; =v", false, "a/b|>v"},
      {"", false, ""},
  };
  for (const auto& row : kRows) {
    const StructuredValue value = split_structured_value(row.value, row.first_equals);
    std::string seen(value.first);
    for (const auto& parameter : value.parameters) {
      seen.append("|").append(parameter.name).append(">").append(parameter.value);
    }
    EXPECT_EQ(seen, row.expected) << row.value;
  }
}

}  // namespace
}  // namespace yinet
