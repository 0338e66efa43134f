// Looking for the end of a line the fast way: 64 bytes at a glance, then memchr.
#pragma once

#include <cstdint>
#include <cstring>
#include <string_view>

#ifdef __SSE2__
#include <emmintrin.h>
#endif

namespace bench {

// The first `c` from `begin` on, or null.
inline const char* findByte(const char* begin, const char* end, char c) {
#ifdef __SSE2__
  if (end - begin >= 64) {
    const __m128i wanted = _mm_set1_epi8(c);
    uint64_t mask = 0;
    for (unsigned lane = 0; lane < 4; ++lane) {
      const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(begin + 16 * lane));
      const auto bits = static_cast<unsigned>(_mm_movemask_epi8(_mm_cmpeq_epi8(bytes, wanted)));
      mask |= static_cast<uint64_t>(bits) << (16 * lane);
    }
    if (mask != 0) return begin + __builtin_ctzll(mask);
    begin += 64;
  }
#endif
  return static_cast<const char*>(std::memchr(begin, c, static_cast<size_t>(end - begin)));
}

// Behind the first `eol` from `begin` on, or null. A sequence of several bytes is found by its last
// byte, so that one that the end of the buffer cuts in two is found as well.
inline const char* findLast(const char* begin, const char* end, std::string_view eol) {
  const char* at = begin;
  while ((at = findByte(at, end, eol.back())) != nullptr) {
    ++at;
    const auto before = static_cast<size_t>(at - begin);
    if (eol.size() == 1) return at;
    const size_t known = before < eol.size() ? before : eol.size();
    if (std::memcmp(at - known, eol.data() + eol.size() - known, known) == 0) return at;
  }
  return nullptr;
}

}  // namespace bench
