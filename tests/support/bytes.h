// Bytes as a test writes them.
#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace yinet::test {

// `count` bytes that look random and are the same in every run with the same seed.
std::string pattern_bytes(std::size_t count, unsigned seed = 1);

// Each row says "given -> expected", which is compared with what `routine` makes of the given text.
void expect_rows(const std::function<std::string(const std::string&)>& routine, const std::vector<std::string>& rows);

}  // namespace yinet::test
