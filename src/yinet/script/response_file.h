#pragma once

// Where a script finds the body of a reply: a new file in the temporary folder, which is the script's from then on.

#include <optional>
#include <string_view>

#include "yinet/host/ystring.h"

namespace yinet {

// Writes `body` to a new file "TEMP:<number>.tmp" and gives that logical name. The number is the first free one behind
// `start`, counting in a circle of 1,000,000. The file is created exclusively: neither an existing file nor a planted link
// is ever opened. Empty, logged, and without a remainder on the disk when it can't be created or written whole.
std::optional<YString> write_response_file(std::string_view body, unsigned start);
// The same with the milliseconds since the start of the machine.
std::optional<YString> write_response_file(std::string_view body);

}  // namespace yinet
