#include "yinet/host/base64_blocks.h"

#ifdef __x86_64__

#include <immintrin.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace {

// A character is judged by its two halves: the upper one chooses a bit, and the lower one tells for which of these bits it
// makes a character that is not in the alphabet. Upper halves that allow the same lower ones share a bit, 0x10 allows none.
constexpr std::array<std::uint8_t, 16> kBits = {0x10, 0x10, 0x01, 0x02, 0x04, 0x08, 0x04, 0x08,
                                                0x10, 0x10, 0x10, 0x10, 0x10, 0x10, 0x10, 0x10};

constexpr bool in_alphabet(std::size_t character) {
  constexpr std::string_view kAlphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  return character < 128 && kAlphabet.find(static_cast<char>(character)) != std::string_view::npos;
}

constexpr auto kRefusals = [] {
  std::array<std::uint8_t, 16> refusals{};
  for (std::size_t lower = 0; lower < 16; ++lower)
    for (std::size_t upper = 0; upper < 16; ++upper)
      if (!in_alphabet(upper * 16 + lower)) refusals[lower] |= kBits[upper];
  return refusals;
}();

// What turns a character with this upper half into its value; "/" is looked up one place before "+".
constexpr std::array<std::int8_t, 16> kShifts = {0, 63 - '/', 62 - '+', 52 - '0', -'A', -'A', 26 - 'a', 26 - 'a'};

template <typename Table>
__attribute__((target("avx2"))) __m256i twice(const Table& table) {
  return _mm256_broadcastsi128_si256(_mm_loadu_si128(reinterpret_cast<const __m128i*>(table.data())));
}

__attribute__((target("avx2"))) void decode_blocks(const unsigned char*& in, const unsigned char* end,
                                                   unsigned char*& out) {
  constexpr std::ptrdiff_t kBlock = 32;
  const __m256i refusals = twice(kRefusals);
  const __m256i bits = twice(kBits);
  const __m256i shifts = twice(kShifts);
  const __m256i lower_half = _mm256_set1_epi8(0x0F);
  const __m256i slash = _mm256_set1_epi8('/');
  const __m256i order = _mm256_setr_epi8(2, 1, 0, 6, 5, 4, 10, 9, 8, 14, 13, 12, -1, -1, -1, -1,  //
                                         2, 1, 0, 6, 5, 4, 10, 9, 8, 14, 13, 12, -1, -1, -1, -1);
  const __m256i together = _mm256_setr_epi32(0, 1, 2, 4, 5, 6, 3, 7);
  const unsigned char* from = in;
  unsigned char* to = out;
  for (; end - from >= kBlock; from += kBlock, to += kBlock / 4 * 3) {
    const __m256i characters = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(from));
    const __m256i upper = _mm256_and_si256(_mm256_srli_epi32(characters, 4), lower_half);
    const __m256i lower = _mm256_and_si256(characters, lower_half);
    if (!_mm256_testz_si256(_mm256_shuffle_epi8(refusals, lower), _mm256_shuffle_epi8(bits, upper))) break;
    const __m256i place = _mm256_add_epi8(upper, _mm256_cmpeq_epi8(characters, slash));  // equal is -1
    const __m256i values = _mm256_add_epi8(characters, _mm256_shuffle_epi8(shifts, place));
    // Two values become 12 bits, two of these 24; the bytes of each group are turned round, and all are moved together.
    const __m256i pairs = _mm256_maddubs_epi16(values, _mm256_set1_epi16(0x0140));
    const __m256i groups = _mm256_madd_epi16(pairs, _mm256_set1_epi32(0x0001'1000));
    const __m256i bytes = _mm256_permutevar8x32_epi32(_mm256_shuffle_epi8(groups, order), together);
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(to), bytes);
  }
  in = from;
  out = to;
}

}  // namespace

namespace yinet {

void decode_base64_blocks(const unsigned char*& in, const unsigned char* end, unsigned char*& out) {
  static const bool kCapable = __builtin_cpu_supports("avx2") != 0;
  if (kCapable) decode_blocks(in, end, out);
}

}  // namespace yinet

#else

void yinet::decode_base64_blocks(const unsigned char*&, const unsigned char*, unsigned char*&) {}

#endif
