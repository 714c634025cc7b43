// Bytes as a test reads and writes them. Pure functions.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace yinet::test {

// For failure texts: bytes outside 0x20 to 0x7E are escaped, and of more than `limit` only the first ones are shown.
std::string printable(std::string_view bytes, std::size_t limit = 400);

// "05 01 00" gives three bytes; blanks are free.
std::string from_hex(std::string_view digits);

// `count` bytes that look random and are the same in every run with the same seed.
std::string pattern_bytes(std::size_t count, unsigned seed = 1);

}  // namespace yinet::test
