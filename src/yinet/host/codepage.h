#pragma once

// Windows-1252, the system code page of the library, to and from UTF-8: the one place where text changes its form at
// the edges (command line, JSON, disk, wire, terminal). The five bytes that Windows-1252 leaves unassigned (81, 8D, 8F,
// 90, 9D) stand for U+0081 and so on, so that every byte survives a round trip. Safe to call from several threads.

#include <optional>
#include <string>
#include <string_view>

#include "yinet/host/export.h"

namespace yinet {

YINET_API std::string utf8_from_ansi(std::string_view text);

// Empty when the input is not valid UTF-8 or holds a character that Windows-1252 lacks.
YINET_API std::optional<std::string> ansi_from_utf8(std::string_view text);

// The plain conversion: "?" for every character that Windows-1252 lacks and for every malformed sequence.
YINET_API std::string ansi_from_utf8_lossy(std::string_view text);

// Valid UTF-8 as RFC 3629 has it: no overlong form, no surrogate, nothing above U+10FFFF. ASCII counts as valid.
YINET_API bool is_valid_utf8(std::string_view text);

// Names of files and users, as they go to the disk or the wire: a name that is already valid UTF-8 with bytes above 127
// goes out unchanged, any other is converted from Windows-1252.
YINET_API std::string name_to_utf8(std::string_view name);
// The way back: UTF-8 that Windows-1252 can hold is converted, anything else stays as its bytes.
YINET_API std::string name_from_utf8(std::string_view name);

// Windows-1252 byte for a Unicode code point, or -1.
YINET_API int ansi_from_code_point(char32_t code_point);
// Unicode code point of a Windows-1252 byte.
YINET_API char32_t code_point_from_ansi(unsigned char byte);
// Appends one code point as UTF-8.
YINET_API void append_utf8(std::string& out, char32_t code_point);

}  // namespace yinet
