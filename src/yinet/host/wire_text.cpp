#include "yinet/host/wire_text.h"

#include <algorithm>

#include "yinet/host/codepage.h"
#include "yinet/host/setting_table.h"

namespace yinet {
namespace {

bool is_ascii(std::string_view text) {
  return std::ranges::all_of(text, [](char c) { return static_cast<unsigned char>(c) < 0x80; });
}

bool passes_unchanged(std::string_view text) { return is_ascii(text) || setting_flag(settings::kRawNames); }

}  // namespace

std::string text_for_wire(std::string_view text) {
  return passes_unchanged(text) ? std::string(text) : name_to_utf8(text);
}

std::string text_from_wire(std::string_view text) {
  if (passes_unchanged(text)) return std::string(text);
  std::string converted;
  converted.reserve(text.size());
  while (!text.empty()) {
    const std::size_t line_feed = text.find('\n');
    const std::size_t length = line_feed == std::string_view::npos ? text.size() : line_feed + 1;
    converted += name_from_utf8(text.substr(0, length));
    text.remove_prefix(length);
  }
  return converted;
}

}  // namespace yinet
