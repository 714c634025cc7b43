#pragma once

// Quoted-printable (RFC 2045, 6.7) in the form that mails are written and read here. Pure functions; safe to call from
// several threads. Linear.

#include <string>
#include <string_view>

namespace yinet {

// "=" and every byte above 127 as "=" and two hexadecimal digits, lower case; everything else, line ends and control
// characters too, as it is. Writes no soft line breaks: folding is somebody else's business.
std::string quoted_printable_encoded(std::string_view text);

// "=" and two hexadecimal digits, in either case, become that byte; "=" at the end of a line (CRLF) joins it with the
// next; any other "=" stays. Appends to `out`.
void decode_quoted_printable(std::string_view text, std::string& out);
std::string quoted_printable_decoded(std::string_view text);

}  // namespace yinet
