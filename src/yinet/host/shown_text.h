#pragma once

// Text from outside on its way to a terminal or a disk: what could move the cursor, recolour the terminal or turn the
// reading direction of a line does not get there. Pure; safe to call from several threads.

#include <string>
#include <string_view>

#include "yinet/host/export.h"

namespace yinet {

// UTF-8 for one line of a terminal: control characters become "\r", "\n", "\t" or "\xHH", bidirectional controls and the
// line separators of Unicode "\uHHHH", malformed bytes U+FFFD.
YINET_API std::string shown_utf8(std::string_view utf8);

// The same characters, and the dots in front that hide a file, become "_": a file name that looks like what it is.
std::string safe_file_name(std::string_view utf8);

// 1A, which converters leave for characters that Windows-1252 lacks, becomes the character for such cases, U+FFFD.
YINET_API std::string with_shown_substitutes(std::string_view utf8);

}  // namespace yinet
