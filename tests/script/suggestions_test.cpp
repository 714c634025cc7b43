#include "yinet/script/suggestions.h"

#include <gmock/gmock.h>

#include <array>
#include <tuple>

namespace yinet {
namespace {

using testing::ElementsAre;

TEST(NameDistance, CountsInsertionsDeletionsReplacementsAndSwaps) {
  const std::tuple<std::string, std::string, int> rows[] = {
      {"", "abc", 3}, {"HTTP_GTE", "http_get", 1}, {"pUrl", "pUtls", 2},
      {std::string(1000000, 'a'), std::string(64, 'a') + "bbb", 0}};  // only the beginning of huge names counts
  for (const auto& [a, b, distance] : rows) {
    EXPECT_EQ(name_distance(a, b), distance) << b;
    EXPECT_EQ(name_distance(b, a), distance) << b;
  }
}

TEST(NearestNames, ComeNearestFirstAndLeaveOutTheFarOnes) {
  constexpr auto kKnown = std::to_array<std::string_view>({"MIME_DEKODIERE", "HTTP_POST", "HTTP_GET", "SSH_DOWNLOAD"});
  EXPECT_THAT(nearest_names("HTTP_GTE", kKnown), ElementsAre("HTTP_GET"));
  EXPECT_THAT(nearest_names("download", kKnown), ElementsAre("SSH_DOWNLOAD"));
}

}  // namespace
}  // namespace yinet
