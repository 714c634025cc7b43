#pragma once

// The rules of text routines, character by character and stage by stage, on a text that really changes meanwhile: slow and
// plain. Tests and fuzzers hold the quick routines against them.

#include <string>
#include <string_view>

#include "yinet/host/text.h"

namespace yinet::test {

inline std::string folded_by_the_rule(std::string text) {
  const auto is_blank = [](char c) { return c == ' ' || c == '\t'; };
  std::size_t column = 0;
  std::size_t last_blank = 0;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const std::size_t candidate = text[i] == ' ' ? i : last_blank;
    if (text.compare(i, 2, "\r\n") == 0) {
      column = 0;
      last_blank = candidate;
    } else if (column > 76 && candidate > 0) {
      std::string tail = text.substr(candidate);
      text.resize(candidate);
      while (!text.empty() && is_blank(text.back())) text.pop_back();
      while (!tail.empty() && is_blank(tail.front())) tail.erase(0, 1);
      text += "\r\n" + tail;
      column = 0;
      last_blank = 0;
      continue;
    } else {
      last_blank = candidate;
    }
    if (column == 998) {
      text.insert(i, "\r\n");
      column = 0;
    } else {
      ++column;
    }
  }
  return text;
}

// In lower case, and without character references.
inline std::string lower_text_without_tags_by_stages(std::string_view html) {
  std::string text = replaced(to_lower(html), "&nbsp;", " ");
  text = replaced(text, "<br>", "\r\n");
  for (std::size_t at = text.find('<'); at != std::string::npos; at = text.find('<', at)) {
    const std::size_t end = text.find('>', at);
    if (end == std::string::npos) break;
    text.erase(at, end + 1 - at);
  }
  while (text.starts_with("\r\n")) text.erase(0, 2);
  return text;
}

}  // namespace yinet::test
