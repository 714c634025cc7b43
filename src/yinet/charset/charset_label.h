#pragma once

// What mails call their charsets. Safe to call from several threads.

#include <string>
#include <string_view>

#include "yinet/host/export.h"

namespace yinet {

inline constexpr const char* kAnsiConverter = "ibm-5348_P100-1997";  // Windows-1252 with the euro sign

// The name under which ICU lists the converter that it knows by this name or alias, without regard to letter case; empty
// when it knows none, and for a label that no converter can have: one with a comma or longer than any charset's name.
YINET_API std::string listed_converter(std::string_view label);

// The converter to use for the charset label of a mail: the name that ICU lists where it knows the label as an alias
// ("iso-8859-15", "koi8-r", "gb2312", "utf8"), and Windows-1252 for "iso-8859-1" and "us-ascii". A label that ICU does not
// know, holds a comma or is longer than any charset's name comes back as it is, and so does every label while the setting
// kMailCharsetAliases is off.
std::string converter_for_label(std::string_view label);

}  // namespace yinet
