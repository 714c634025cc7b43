#include "yinet/host/suggestions.h"

#include <algorithm>
#include <array>
#include <utility>

#include "yinet/host/text.h"

namespace yinet {
namespace {

constexpr std::size_t kLongestName = 64;

// A name that was cut short or remembered by one word only ("GET") is nearer than its missing letters make it.
int distance_for_suggestion(std::string_view name, std::string_view known) {
  const int distance = name_distance(name, known);
  const bool is_part = name.size() >= 3 && find_ignoring_case(known, name) != std::string_view::npos;
  return is_part ? std::min(distance, 2) : distance;
}

}  // namespace

int name_distance(std::string_view a, std::string_view b) {
  a = a.substr(0, kLongestName);
  b = b.substr(0, kLongestName);
  const std::string from = to_lower(a);
  const std::string to = to_lower(b);
  // Three rows of the table of distances between all beginnings of the two names.
  using Row = std::array<int, kLongestName + 1>;
  Row before{};
  Row previous{};
  Row current{};
  for (std::size_t j = 0; j <= to.size(); ++j) current[j] = static_cast<int>(j);
  for (std::size_t i = 1; i <= from.size(); ++i) {
    before = previous;
    previous = current;
    current[0] = static_cast<int>(i);
    for (std::size_t j = 1; j <= to.size(); ++j) {
      const int replace = previous[j - 1] + (from[i - 1] == to[j - 1] ? 0 : 1);
      current[j] = std::min({replace, previous[j] + 1, current[j - 1] + 1});
      if (i > 1 && j > 1 && from[i - 1] == to[j - 2] && from[i - 2] == to[j - 1])
        current[j] = std::min(current[j], before[j - 2] + 1);
    }
  }
  return current[to.size()];
}

std::vector<std::string_view> nearest_names(std::string_view name, std::span<const std::string_view> known,
                                            std::size_t most) {
  std::vector<std::pair<int, std::string_view>> ranked;
  for (const std::string_view candidate : known)
    ranked.emplace_back(distance_for_suggestion(name, candidate), candidate);
  std::ranges::stable_sort(ranked, {}, &std::pair<int, std::string_view>::first);
  std::vector<std::string_view> nearest;
  for (const auto& [distance, candidate] : ranked)
    if (nearest.size() < most && distance <= ranked.front().first + 1) nearest.push_back(candidate);
  return nearest;
}

std::string listed_with_or(std::span<const std::string_view> names) {
  std::string text;
  for (std::size_t i = 0; i < names.size(); ++i) {
    if (i > 0) text += i + 1 == names.size() ? " or " : ", ";
    text += names[i];
  }
  return text;
}

}  // namespace yinet
