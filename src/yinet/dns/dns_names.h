#pragma once

// Names before they are asked for. Pure functions, safe from several threads.

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace yinet {

// "192.0.2.7" in network byte order: four decimal numbers of 0 to 255 without leading zeros, nothing else around them.
std::optional<std::uint32_t> parse_dotted_address(std::string_view text);

// Whether a resolver may be asked for this name: at most 253 characters without the dot that may end it, labels of 1 to
// 63, no blank, control character, colon or backslash (the resolver library would read "\" as the start of an escape).
// Bytes above 127 pass.
bool is_askable_name(std::string_view name);

// Names to ask for, in this order. A name that ends in a dot is complete and stays alone, and so is one with `ndots`
// dots or more; any other is tried under each domain of the search list before it is tried as it is. Domains that make
// the name too long are left out.
std::vector<std::string> names_to_ask(std::string_view name, std::span<const std::string> search_list, int ndots);

}  // namespace yinet
