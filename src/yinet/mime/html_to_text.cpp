#include "yinet/mime/html_to_text.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <optional>
#include <utility>

#include "yinet/host/codepage.h"
#include "yinet/host/text.h"

namespace yinet {

namespace {

constexpr std::string_view kBreak = "<br>";
constexpr std::string_view kBlank = "&nbsp;";
constexpr std::string_view kLineEnd = "\r\n";

using NamedCharacter = std::pair<std::string_view, unsigned char>;

// Names of characters that Windows-1252 has, sorted. They are case-sensitive: "Auml" and "auml" are two.
constexpr auto kNamedCharacters = [] {
  // clang-format off
  auto names = std::to_array<NamedCharacter>({
      {"amp", '&'},      {"apos", '\''},    {"gt", '>'},       {"lt", '<'},       {"quot", '"'},
      // Latin-1
      {"nbsp", 0xA0},    {"iexcl", 0xA1},   {"cent", 0xA2},    {"pound", 0xA3},   {"curren", 0xA4},  {"yen", 0xA5},
      {"brvbar", 0xA6},  {"sect", 0xA7},    {"uml", 0xA8},     {"copy", 0xA9},    {"ordf", 0xAA},    {"laquo", 0xAB},
      {"not", 0xAC},     {"shy", 0xAD},     {"reg", 0xAE},     {"macr", 0xAF},    {"deg", 0xB0},     {"plusmn", 0xB1},
      {"sup2", 0xB2},    {"sup3", 0xB3},    {"acute", 0xB4},   {"micro", 0xB5},   {"para", 0xB6},    {"middot", 0xB7},
      {"cedil", 0xB8},   {"sup1", 0xB9},    {"ordm", 0xBA},    {"raquo", 0xBB},   {"frac14", 0xBC},  {"frac12", 0xBD},
      {"frac34", 0xBE},  {"iquest", 0xBF},  {"Agrave", 0xC0},  {"Aacute", 0xC1},  {"Acirc", 0xC2},   {"Atilde", 0xC3},
      {"Auml", 0xC4},    {"Aring", 0xC5},   {"AElig", 0xC6},   {"Ccedil", 0xC7},  {"Egrave", 0xC8},  {"Eacute", 0xC9},
      {"Ecirc", 0xCA},   {"Euml", 0xCB},    {"Igrave", 0xCC},  {"Iacute", 0xCD},  {"Icirc", 0xCE},   {"Iuml", 0xCF},
      {"ETH", 0xD0},     {"Ntilde", 0xD1},  {"Ograve", 0xD2},  {"Oacute", 0xD3},  {"Ocirc", 0xD4},   {"Otilde", 0xD5},
      {"Ouml", 0xD6},    {"times", 0xD7},   {"Oslash", 0xD8},  {"Ugrave", 0xD9},  {"Uacute", 0xDA},  {"Ucirc", 0xDB},
      {"Uuml", 0xDC},    {"Yacute", 0xDD},  {"THORN", 0xDE},   {"szlig", 0xDF},   {"agrave", 0xE0},  {"aacute", 0xE1},
      {"acirc", 0xE2},   {"atilde", 0xE3},  {"auml", 0xE4},    {"aring", 0xE5},   {"aelig", 0xE6},   {"ccedil", 0xE7},
      {"egrave", 0xE8},  {"eacute", 0xE9},  {"ecirc", 0xEA},   {"euml", 0xEB},    {"igrave", 0xEC},  {"iacute", 0xED},
      {"icirc", 0xEE},   {"iuml", 0xEF},    {"eth", 0xF0},     {"ntilde", 0xF1},  {"ograve", 0xF2},  {"oacute", 0xF3},
      {"ocirc", 0xF4},   {"otilde", 0xF5},  {"ouml", 0xF6},    {"divide", 0xF7},  {"oslash", 0xF8},  {"ugrave", 0xF9},
      {"uacute", 0xFA},  {"ucirc", 0xFB},   {"uuml", 0xFC},    {"yacute", 0xFD},  {"thorn", 0xFE},   {"yuml", 0xFF},
      // what Windows-1252 has beyond Latin-1: mail programs write quotation marks and dashes this way
      {"euro", 0x80},    {"sbquo", 0x82},   {"fnof", 0x83},    {"bdquo", 0x84},   {"hellip", 0x85},  {"dagger", 0x86},
      {"Dagger", 0x87},  {"circ", 0x88},    {"permil", 0x89},  {"Scaron", 0x8A},  {"lsaquo", 0x8B},  {"OElig", 0x8C},
      {"lsquo", 0x91},   {"rsquo", 0x92},   {"ldquo", 0x93},   {"rdquo", 0x94},   {"bull", 0x95},    {"ndash", 0x96},
      {"mdash", 0x97},   {"tilde", 0x98},   {"trade", 0x99},   {"scaron", 0x9A},  {"rsaquo", 0x9B},  {"oelig", 0x9C},
      {"Yuml", 0x9F},
  });
  // clang-format on
  std::sort(names.begin(), names.end());
  return names;
}();

constexpr std::size_t kLongestReference = 10;  // characters between "&" and ";" that are looked at

std::optional<char> named_character(std::string_view name) {
  const auto found =
      std::lower_bound(kNamedCharacters.begin(), kNamedCharacters.end(), name,
                       [](const NamedCharacter& row, std::string_view wanted) { return row.first < wanted; });
  if (found == kNamedCharacters.end() || found->first != name) return std::nullopt;
  return static_cast<char>(found->second);
}

// "#8364" or "#x20AC". Senders write 128 to 159 for the characters that Windows-1252 has there, and browsers agree.
std::optional<char> numbered_character(std::string_view reference) {
  reference.remove_prefix(1);
  const bool hexadecimal = !reference.empty() && (reference.front() == 'x' || reference.front() == 'X');
  if (hexadecimal) reference.remove_prefix(1);
  if (reference.empty()) return std::nullopt;
  std::uint32_t code = 0;
  for (const char c : reference) {
    const int digit = hexadecimal ? hex_value(c) : is_digit(c) ? c - '0' : -1;
    if (digit < 0) return std::nullopt;
    code = code * (hexadecimal ? 16 : 10) + static_cast<std::uint32_t>(digit);
    if (code > 0x10FFFF) return std::nullopt;
  }
  if (code >= 128 && code <= 159) return static_cast<char>(code);
  const int byte = code == 0 ? -1 : ansi_from_code_point(code);
  if (byte < 0) return std::nullopt;
  return static_cast<char>(byte);
}

std::size_t find_markup(std::string_view html) {
  std::size_t at = 0;
  while (at < html.size() && html[at] != '<' && html[at] != '&') ++at;
  return at;
}

// Tags, "<br>" and "&nbsp;". What a removed tag leaves side by side may form a character reference, so those come later.
std::string without_tags(std::string_view html) {
  std::string out;
  out.reserve(html.size());
  bool tags_end = true;  // false once it is known that no ">" follows
  while (!html.empty()) {
    const std::size_t plain = find_markup(html);
    out.append(html.substr(0, plain));
    html.remove_prefix(plain);
    if (html.empty()) break;
    const bool is_tag = html.front() == '<';
    const std::string_view known = is_tag ? kBreak : kBlank;
    if (starts_with_ignoring_case(html, known)) {
      out.append(is_tag ? kLineEnd : " ");
      html.remove_prefix(known.size());
      continue;
    }
    if (is_tag && tags_end) {
      // A "<br>" inside another tag has become a line end by now, so its ">" closes nothing.
      std::size_t end = html.find('>', 1);
      while (end != std::string_view::npos && end + 1 > kBreak.size() &&
             starts_with_ignoring_case(html.substr(end + 1 - kBreak.size()), kBreak))
        end = html.find('>', end + 1);
      tags_end = end != std::string_view::npos;
      if (tags_end) {
        html.remove_prefix(end + 1);
        continue;
      }
    }
    out.push_back(html.front());
    html.remove_prefix(1);
  }
  return out;
}

// In place: a reference is longer than the character it stands for.
void resolve_references(std::string& text) {
  std::size_t from = text.find('&');
  std::size_t to = from;
  while (from < text.size()) {
    const std::string_view rest = std::string_view(text).substr(from);
    const std::string_view reference = rest.substr(1, kLongestReference + 1);
    const std::size_t end = rest.front() == '&' ? reference.find(';') : std::string_view::npos;
    std::optional<char> character;
    if (end != std::string_view::npos && end > 0) {
      const std::string_view name = reference.substr(0, end);
      character = name.front() == '#' ? numbered_character(name) : named_character(name);
    }
    if (character) {
      text[to++] = *character;
      from += end + 2;
    } else {
      text[to++] = text[from++];
    }
  }
  if (to < text.size()) text.resize(to);
}

}  // namespace

std::string html_to_text(std::string_view html) {
  std::string text = without_tags(html);
  resolve_references(text);
  std::size_t start = 0;
  while (std::string_view(text).substr(start).starts_with(kLineEnd)) start += kLineEnd.size();
  text.erase(0, start);
  return text;
}

}  // namespace yinet
