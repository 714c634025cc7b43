#pragma once

#include <functional>
#include <string_view>

namespace yinet {

// Calls `on_part` with header block and content of every part between lines of "--boundary", up to the closing
// "--boundary--" (RFC 2046, section 5.1.1). LF alone ends lines too; what stands before the first and behind the last
// delimiter is ignored, a part without an empty line is all header. False when the closing delimiter or all parts are
// missing, when the boundary is empty or longer than the 70 characters it may have, and when `on_part` gives false,
// which ends the walk. No I/O, linear; the views end with the body.
bool for_each_part(std::string_view body, std::string_view boundary,
                   const std::function<bool(std::string_view header, std::string_view content)>& on_part);

}  // namespace yinet
