#pragma once

// Lists of mail recipients as people and mail programs write them. Pure functions; safe to call from several threads.

#include <cstddef>
#include <limits>
#include <string>
#include <string_view>
#include <vector>

namespace yinet {

struct Recipient {
  std::string address;  // with its angle brackets when it stood in any
  std::string name;     // what stands before the bracket, without blanks around it
};

// Items are separated by ";" or ",", inside quotes too. Each item, and a list that is one single encoded word, is decoded
// first; empty items are left out. From `limit` items on, the last one keeps the rest of the list. Linear.
std::vector<Recipient> parse_recipients(std::string_view list,
                                        std::size_t limit = std::numeric_limits<std::size_t>::max());

}  // namespace yinet
