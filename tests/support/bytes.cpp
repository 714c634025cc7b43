#include "support/bytes.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>

namespace yinet::test {

std::string pattern_bytes(std::size_t count, unsigned seed) {
  // xorshift64: the standard engines would cost seconds for the gigabyte bodies in debug builds.
  std::uint64_t state = 0x9E3779B97F4A7C15ULL ^ (static_cast<std::uint64_t>(seed) << 32 | seed);
  std::string bytes(count, '\0');
  for (std::size_t at = 0; at < count; at += sizeof(state)) {
    state ^= state << 13;
    state ^= state >> 7;
    state ^= state << 17;
    std::memcpy(bytes.data() + at, &state, std::min(count - at, sizeof(state)));
  }
  return bytes;
}

void expect_rows(const std::function<std::string(const std::string&)>& routine, const std::vector<std::string>& rows) {
  for (const std::string& row : rows) {
    const std::size_t arrow = row.find(" -> ");
    const std::string found = routine(row.substr(0, arrow)), expected = row.substr(arrow + 4);
    EXPECT_TRUE(found == expected) << testing::PrintToString(row) << "\ngave " << testing::PrintToString(found);
  }
}

}  // namespace yinet::test
