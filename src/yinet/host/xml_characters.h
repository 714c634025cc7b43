#pragma once

// Which characters and names XML has (XML 1.0, fifth edition). Internal to YXml.

#include <algorithm>
#include <array>
#include <cstdint>
#include <string_view>
#include <utility>

namespace yinet {

using CodePointRange = std::pair<std::int32_t, std::int32_t>;  // first and last

template <std::size_t Size>
constexpr bool in_ranges(std::int32_t character, const std::array<CodePointRange, Size>& ranges) {
  return std::any_of(ranges.begin(), ranges.end(), [character](const CodePointRange& range) {
    return character >= range.first && character <= range.second;
  });
}

constexpr bool is_xml_character(std::int32_t character) {
  constexpr auto kRanges = std::to_array<CodePointRange>(
      {{'\t', '\n'}, {'\r', '\r'}, {0x20, 0xD7FF}, {0xE000, 0xFFFD}, {0x10000, 0x10FFFF}});
  return in_ranges(character, kRanges);
}

// A name with at most one prefix: parts of name characters on both sides of one colon. The text must be valid UTF-8.
bool is_qualified_xml_name(std::string_view utf8);

}  // namespace yinet
