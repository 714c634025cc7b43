#include "yinet/host/flag_word.h"

#include <utility>

#include "yinet/host/text.h"

namespace yinet {

std::optional<bool> flag_word(std::string_view text) {
  constexpr std::pair<std::string_view, bool> kWords[] = {
      {"1", true},  {"true", true},   {"ja", true},    {"yes", true}, {"on", true},
      {"0", false}, {"false", false}, {"nein", false}, {"no", false}, {"off", false}};
  for (const auto& [word, flag] : kWords)
    if (equal_ignoring_case(trimmed(text), word)) return flag;
  return std::nullopt;
}

}  // namespace yinet
