#pragma once

// "Did you mean ...?" for names that nobody knows.

#include <cstddef>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "yinet/host/export.h"

namespace yinet {

// Steps from one name to the other: a letter inserted, deleted, replaced, or two neighbours swapped. Letter case does not
// count. Only the first 64 characters of either are looked at.
YINET_API int name_distance(std::string_view a, std::string_view b);

// The known names nearest to `name`, nearest first, at most `most`; those clearly farther off than the nearest are left
// out. Empty only when nothing is known.
YINET_API std::vector<std::string_view> nearest_names(std::string_view name, std::span<const std::string_view> known,
                                                      std::size_t most = 3);

// "HTTP_GET, HTTP_POST or X".
YINET_API std::string listed_with_or(std::span<const std::string_view> names);

}  // namespace yinet
