#pragma once

#include <cstddef>

namespace yinet {

// Asks the system for large pages under a block of at least 4 MiB that is about to be filled: touching it for the first
// time then costs a five-hundredth of the page faults. Only a hint; smaller blocks are left alone.
void prefer_huge_pages(void* block, std::size_t size) noexcept;

}  // namespace yinet
