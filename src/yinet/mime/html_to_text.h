#pragma once

// Plain text out of HTML, for mails that bring no plain text of their own. A pure function; safe to call from several
// threads. Linear, however many "<" and "&" there are.

#include <string>
#include <string_view>

namespace yinet {

// "&nbsp;" becomes a blank and "<br>" a line end; then all tags go, and character references become what they stand for
// where Windows-1252 has it. Empty lines at the start go. A "<" without a ">" after it is text. The content of script and
// style elements stays, as text.
std::string html_to_text(std::string_view html);

}  // namespace yinet
