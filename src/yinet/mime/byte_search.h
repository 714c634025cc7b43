#pragma once

#include <cstddef>
#include <string_view>

namespace yinet {

// Position of `what` at or after `from`, npos when there is none; the empty text is found at `from`. Mails are walked
// several times over in search of delimiters, so this is as fast as memory gives bytes, and linear whatever the texts
// are. Safe to call from several threads.
std::size_t find_bytes(std::string_view text, std::string_view what, std::size_t from = 0);

}  // namespace yinet
