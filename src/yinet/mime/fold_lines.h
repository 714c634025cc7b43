#pragma once

// Line folding of composed text parts. A pure function; safe to call from several threads.

#include <string>
#include <string_view>

namespace yinet {

// Breaks long lines at blanks where it can, otherwise hard. Folding looks for the last space it passed, on an earlier line
// too, once 77 columns went by without a fold or a line end; blanks and tabs around the break are dropped. A line without
// any space is broken after 998 characters. Since the scan goes on by index after a break, it may pass over some characters
// unseen, and a continuation line may be longer than 77. Linear.
std::string fold_lines(std::string_view text);

}  // namespace yinet
