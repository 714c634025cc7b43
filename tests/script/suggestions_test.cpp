#include "yinet/script/suggestions.h"

#include <gmock/gmock.h>

#include <array>

namespace yinet {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TEST(NameDistance, CountsInsertionsDeletionsReplacementsAndSwaps) {
  const struct {
    std::string a, b;
    int distance;
  } rows[] = {{"", "abc", 3}, {"abc", "ABC", 0}, {"HTTP_GTE", "HTTP_GET", 1}, {"pUrl", "pUtls", 2}, {"kitten", "sitting", 3},
              {std::string(1000000, 'a'), std::string(64, 'a') + "bbb", 0}};  // only the beginning of huge names counts
  for (const auto& [a, b, distance] : rows) {
    EXPECT_EQ(name_distance(a, b), distance) << b;
    EXPECT_EQ(name_distance(b, a), distance) << b;
  }
}

TEST(NearestNames, ComeNearestFirstAndLeaveOutTheFarOnes) {
  constexpr auto kKnown = std::to_array<std::string_view>({"MIME_DEKODIERE", "HTTP_POST", "HTTP_GET", "SSH_DOWNLOAD"});
  EXPECT_THAT(nearest_names("HTTP_GTE", kKnown), ElementsAre("HTTP_GET"));
  EXPECT_THAT(nearest_names("http_pst", kKnown, 1), ElementsAre("HTTP_POST"));
  EXPECT_THAT(nearest_names("download", kKnown), ElementsAre("SSH_DOWNLOAD"));
  EXPECT_THAT(nearest_names("x", {}), IsEmpty());
}

TEST(NearestNames, AreListedWithOr) {
  const std::vector<std::string_view> names = {"A", "B", "C"};
  EXPECT_EQ(listed_with_or(names), "A, B or C");
  EXPECT_EQ(listed_with_or(std::span(names).first(1)), "A");
  EXPECT_EQ(listed_with_or({}), "");
}

}  // namespace
}  // namespace yinet
