// Bytes as a test writes them. Pure functions.
#pragma once

#include <string>
#include <string_view>

namespace yinet::test {

std::string from_hex(std::string_view digits);  // "05 01 00" gives three bytes; blanks are free

// `count` bytes that look random and are the same in every run with the same seed.
std::string pattern_bytes(std::size_t count, unsigned seed = 1);

}  // namespace yinet::test
