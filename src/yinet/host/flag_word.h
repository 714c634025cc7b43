#pragma once

// The words for yes and no, as settings, parameters and the command line take them.

#include <optional>
#include <string_view>

#include "yinet/host/export.h"

namespace yinet {

// "1", "true", "ja", "yes", "on" and "0", "false", "nein", "no", "off", without regard to case and to blanks around;
// nothing for any other text.
YINET_API std::optional<bool> flag_word(std::string_view text);

}  // namespace yinet
