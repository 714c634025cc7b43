#pragma once

// Writing mail headers: pure functions over text. Safe to call from several threads. Linear.

#include <string>
#include <string_view>

namespace yinet {

inline constexpr int kUsualLineLength = 76;  // RFC 2047, 2

// The text as encoded words of the iso-8859-1 charset in base64 (RFC 2047), one per line, continuation lines led by a
// tab; no line end behind the last one. A line holds `line_length` - 40 characters of the text (at least one); 0 counts
// as kUsualLineLength. Plain ASCII is encoded too.
std::string encoded_header_line(std::string_view text, int line_length);

// What stands in a header must not end its line: a line break (CRLF, CR or LF) and a NUL each become one blank.
std::string one_header_line(std::string_view text);

// The same for a file name that will stand between double quotes: a double quote becomes an apostrophe.
std::string quotable_file_name(std::string_view name);

// CR and LF that stand alone become CRLF.
std::string with_crlf_line_ends(std::string_view text);

// Doubles the dots that begin a line, as SMTP wants it (RFC 5321, 4.5.2). In the first line only a dot that stands alone
// is doubled.
void stuff_dots(std::string& text);

}  // namespace yinet
