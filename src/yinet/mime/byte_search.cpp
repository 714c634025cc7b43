#include "yinet/mime/byte_search.h"

#include <string.h>

#include <bit>
#include <cstdint>

#ifdef __SSE2__
#include <emmintrin.h>
#endif

namespace yinet {
namespace {

constexpr std::size_t kNone = std::string_view::npos;

std::size_t find_by_library(std::string_view text, std::string_view what, std::size_t from) {
  const void* const hit = memmem(text.data() + from, text.size() - from, what.data(), what.size());
  return hit == nullptr ? kNone : static_cast<std::size_t>(static_cast<const char*>(hit) - text.data());
}

}  // namespace

#ifdef __SSE2__

// Looks at 32 places at a time: where both the first and the last character fit, the rest is compared. A text that is
// made of near hits is left to the library, whose search is slower and never quadratic.
std::size_t find_bytes(std::string_view text, std::string_view what, std::size_t from) {
  if (from > text.size() || what.size() > text.size() - from) return kNone;
  if (what.size() < 2) return text.find(what, from);
  constexpr std::size_t kStep = 32;
  constexpr std::size_t kFreeComparisons = 4096;  // bytes compared in vain before they are held against those walked
  const std::size_t last = what.size() - 1;
  const __m128i first_character = _mm_set1_epi8(what.front());
  const __m128i last_character = _mm_set1_epi8(what.back());
  const auto fits = [&](const char* place) {
    const auto load = [](const char* at) { return _mm_loadu_si128(reinterpret_cast<const __m128i*>(at)); };
    const __m128i both =
        _mm_and_si128(_mm_cmpeq_epi8(load(place), first_character), _mm_cmpeq_epi8(load(place + last), last_character));
    return static_cast<std::uint32_t>(_mm_movemask_epi8(both));
  };
  std::size_t at = from;
  std::size_t compared = 0;
  for (; text.size() - at >= last + kStep; at += kStep) {
    const char* const place = text.data() + at;
    for (std::uint32_t hits = fits(place) | fits(place + kStep / 2) << 16; hits != 0; hits &= hits - 1) {
      const auto offset = static_cast<std::size_t>(std::countr_zero(hits));
      if (memcmp(place + offset + 1, what.data() + 1, last) == 0) return at + offset;
      compared += last;
    }
    if (compared > kFreeComparisons + (at - from)) return find_by_library(text, what, at);
  }
  return find_by_library(text, what, at);
}

#else

std::size_t find_bytes(std::string_view text, std::string_view what, std::size_t from) {
  return from > text.size() ? kNone : find_by_library(text, what, from);
}

#endif

}  // namespace yinet
