#pragma once

// What is wrong with settings that people wrote. Names outside the table may be the host's own, so only those in a section
// of the table count as misspelt.

#include <string>
#include <string_view>

namespace yinet {

// Section and name of the row that a name outside the table may have been meant for; empty when it may be the host's.
std::string setting_meant_by(std::string_view section, std::string_view name);

// The same for a variable of the environment, whose name has no row either: that of the variable. The program's passwords
// ("YINET_FTP_PASSWORD") are not meant for any.
std::string variable_meant_by(std::string_view variable);

}  // namespace yinet
