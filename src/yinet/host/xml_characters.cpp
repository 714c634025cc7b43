#include "yinet/host/xml_characters.h"

#include <unicode/utf8.h>

namespace yinet {
namespace {

// NameStartChar of XML 1.0, fifth edition, without the colon.
bool begins_name(std::int32_t character) {
  constexpr auto kRanges = std::to_array<CodePointRange>({{'A', 'Z'},
                                                          {'_', '_'},
                                                          {'a', 'z'},
                                                          {0xC0, 0xD6},
                                                          {0xD8, 0xF6},
                                                          {0xF8, 0x2FF},
                                                          {0x370, 0x37D},
                                                          {0x37F, 0x1FFF},
                                                          {0x200C, 0x200D},
                                                          {0x2070, 0x218F},
                                                          {0x2C00, 0x2FEF},
                                                          {0x3001, 0xD7FF},
                                                          {0xF900, 0xFDCF},
                                                          {0xFDF0, 0xFFFD},
                                                          {0x10000, 0xEFFFF}});
  return in_ranges(character, kRanges);
}

bool continues_name(std::int32_t character) {
  constexpr auto kRanges =
      std::to_array<CodePointRange>({{'-', '.'}, {'0', '9'}, {0xB7, 0xB7}, {0x300, 0x36F}, {0x203F, 0x2040}});
  return begins_name(character) || in_ranges(character, kRanges);
}

}  // namespace

bool is_qualified_xml_name(std::string_view utf8) {
  const auto* const bytes = reinterpret_cast<const uint8_t*>(utf8.data());
  bool at_start = true;
  bool prefixed = false;
  for (std::size_t position = 0; position < utf8.size();) {
    UChar32 character = 0;
    U8_NEXT(bytes, position, utf8.size(), character);
    if (character == ':' && !at_start && !prefixed) {
      prefixed = at_start = true;
      continue;
    }
    if (!(at_start ? begins_name(character) : continues_name(character))) return false;
    at_start = false;
  }
  return !at_start;
}

}  // namespace yinet
