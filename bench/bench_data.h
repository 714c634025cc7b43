#pragma once

// What the benchmarks feed on: the same in every run with the same seed.

#include <cstddef>
#include <iterator>
#include <random>
#include <string>
#include <string_view>

namespace yinet::bench {

inline std::string random_bytes(std::size_t count, unsigned seed = 1) {
  std::mt19937_64 random(seed);
  std::string bytes(count, '\0');
  for (char& byte : bytes) byte = static_cast<char>(random());
  return bytes;
}

// The form of base64 in mails.
inline std::string in_lines(std::string_view text) {
  std::string lines;
  lines.reserve(text.size() + text.size() / 38 + 2);
  for (std::size_t at = 0; at < text.size(); at += 76) {
    lines += text.substr(at, 76);
    lines += "\r\n";
  }
  return lines;
}

// Windows-1252, in lines of up to 66 characters; no line end behind the last.
inline std::string german_text(std::size_t size, std::string_view line_end, unsigned seed = 42) {
  static constexpr std::string_view kWords[] = {"Sehr",
                                                "geehrte",
                                                "Gr\xFC\xDF"
                                                "e",
                                                "aus",
                                                "K\xF6ln",
                                                "wir",
                                                "\xFC"
                                                "bersenden",
                                                "Ihnen",
                                                "das",
                                                "Angebot",
                                                "mit",
                                                "freundlichen",
                                                "Preisen",
                                                "f\xFCr",
                                                "M\xE4rz."};
  std::mt19937 random(seed);
  std::string text;
  std::size_t column = 0;
  while (text.size() < size) {
    const std::string_view word = kWords[random() % std::size(kWords)];
    if (column + word.size() > 66) {
      text += line_end;
      column = 0;
    } else if (column > 0) {
      text += ' ';
    }
    text += word;
    column += word.size() + 1;
  }
  return text;
}

}  // namespace yinet::bench
