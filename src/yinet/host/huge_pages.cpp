#include "yinet/host/huge_pages.h"

#include <sys/mman.h>

#include <cerrno>
#include <cstdint>

namespace yinet {

void prefer_huge_pages(void* block, std::size_t size) noexcept {
  constexpr std::size_t kLeastBytes = std::size_t{4} << 20;
  constexpr std::uintptr_t kPage = std::uintptr_t{2} << 20;
  if (size < kLeastBytes) return;
  const int kept = errno;
  const auto start = reinterpret_cast<std::uintptr_t>(block);
  const std::uintptr_t first = (start + kPage - 1) / kPage * kPage;
  const std::uintptr_t end = (start + size) / kPage * kPage;
  madvise(reinterpret_cast<void*>(first), end - first, MADV_HUGEPAGE);
  errno = kept;
}

}  // namespace yinet
