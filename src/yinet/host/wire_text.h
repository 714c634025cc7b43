#pragma once

// Names of files and users between the library's text and a server. Pure functions apart from the setting kRawNames, which
// lets every byte pass as it is.

#include <string>
#include <string_view>

namespace yinet {

// A name or a command line as it is sent: UTF-8.
std::string text_for_wire(std::string_view text);
// A reply or a listing as the library keeps it: line by line, so that one name which Windows-1252 cannot hold does not
// change how the others look.
std::string text_from_wire(std::string_view text);

}  // namespace yinet
