// Bytes as a test reads and writes them. Pure functions.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace yinet::test {

// For failure texts and transcripts: CR, LF, tab and other bytes outside 0x20 to 0x7E are escaped, and of
// more than `limit` bytes only the first ones are shown, followed by the whole count.
std::string printable(std::string_view bytes, std::size_t limit = 400);

// "05 01 00" gives three bytes; blanks are free. Throws std::invalid_argument for anything else.
std::string from_hex(std::string_view digits);

// `count` bytes that look random and are the same in every run with the same seed.
std::string pattern_bytes(std::size_t count, unsigned seed = 1);

std::string times(int count, std::string_view piece);

}  // namespace yinet::test
