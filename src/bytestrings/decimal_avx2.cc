// The decimal byte text with AVX2: a table tells for each pattern how the wanted bytes of a vector
// are moved together.
#include "bytestrings/decimal_kernels.h"

#if defined(__x86_64__)

#include <immintrin.h>

#define KVF_AVX2 __attribute__((target("avx2,popcnt")))

namespace kvf {

namespace {

// What a vector is shuffled by, so that the wanted bytes of it stand together.
struct Shuffles {
  // By a bit for each of four fields, whether it has tens, and four more for hundreds. In the
  // vector, the characters of a field stand in the order tens, ones, hundreds, space.
  alignas(16) uint8_t ofFields[256][16];
  alignas(8) uint8_t ofBytes[256][8];  // by a bit for each byte: whether it is wanted
};

constexpr Shuffles makeShuffles() {
  Shuffles made = {};
  for (unsigned pattern = 0; pattern < 256; ++pattern) {
    uint8_t* byte = made.ofBytes[pattern];
    for (uint8_t place = 0; place < 8; ++place) {
      if ((pattern >> place & 1U) != 0) *byte++ = place;
    }
    uint8_t* character = made.ofFields[pattern];
    for (unsigned field = 0; field < 4; ++field) {
      const auto place = static_cast<uint8_t>(4 * field);
      if ((pattern >> (4 + field) & 1U) != 0) *character++ = place + 2;
      if ((pattern >> field & 1U) != 0) *character++ = place;
      *character++ = place + 1;
      *character++ = place + 3;
    }
  }
  return made;
}

constexpr Shuffles SHUFFLES = makeShuffles();

KVF_AVX2 inline __m256i all(int byte) { return _mm256_set1_epi8(static_cast<char>(byte)); }

KVF_AVX2 inline __m256i load(const uint8_t* from) {
  return _mm256_loadu_si256(static_cast<const __m256i*>(static_cast<const void*>(from)));
}

KVF_AVX2 inline __m128i load16(const void* from) {
  return _mm_load_si128(static_cast<const __m128i*>(from));
}

// -1 for the numbers that are `least` or more, else 0.
KVF_AVX2 inline __m256i isFrom(int least, __m256i numbers) {
  return _mm256_cmpeq_epi8(_mm256_max_epu8(numbers, all(least)), numbers);
}

// Numbers below 100 in 16 bits each become two characters, the tens first: ones are the number
// less ten times the tens, and stand 8 bits higher.
KVF_AVX2 inline __m256i tensAndOnes(__m256i numbers) {
  const __m256i tens = _mm256_mulhi_epu16(numbers, _mm256_set1_epi16(6554));  // a tenth of 2^16
  const __m256i tensLessTenfold = _mm256_mullo_epi16(tens, _mm256_set1_epi16(1 - 10 * 256));
  return _mm256_add_epi16(_mm256_add_epi16(_mm256_slli_epi16(numbers, 8), all('0')),
                          tensLessTenfold);
}

KVF_AVX2 inline char* storeFourFields(__m128i fields, uint64_t pattern, char* out) {
  const __m128i moved = _mm_shuffle_epi8(fields, load16(SHUFFLES.ofFields[pattern]));
  _mm_storeu_si128(static_cast<__m128i*>(static_cast<void*>(out)), moved);
  return out + 8 + _mm_popcnt_u64(pattern);
}

// The patterns are the lowest byte of each half of `patterns`.
KVF_AVX2 inline char* storeFields(__m256i fields, uint32_t patterns, char* out) {
  out = storeFourFields(_mm256_castsi256_si128(fields), patterns & 0xFF, out);
  return storeFourFields(_mm256_extracti128_si256(fields, 1), patterns >> 16 & 0xFF, out);
}

KVF_AVX2 inline char* printHalfBlock(const uint8_t* bytes, char* out) {
  // Interleaving goes on within each half of the vectors. With the groups of four bytes transposed
  // before, the fields come in order.
  const __m256i transposed = _mm256_setr_epi32(0, 2, 4, 6, 1, 3, 5, 7);
  const __m256i number = _mm256_permutevar8x32_epi32(load(bytes), transposed);
  const __m256i from10 = isFrom(10, number);
  const __m256i from100 = isFrom(100, number);
  const __m256i from200 = isFrom(200, number);
  const __m256i hundredsOver =
      _mm256_add_epi8(_mm256_and_si256(from100, all(100)), _mm256_and_si256(from200, all(100)));
  const __m256i rest = _mm256_sub_epi8(number, hundredsOver);
  const __m256i hundreds = _mm256_sub_epi8(all('0'), _mm256_add_epi8(from100, from200));

  const __m256i none = _mm256_setzero_si256();
  const __m256i frontLow = tensAndOnes(_mm256_unpacklo_epi8(rest, none));
  const __m256i frontHigh = tensAndOnes(_mm256_unpackhi_epi8(rest, none));
  const __m256i backLow = _mm256_unpacklo_epi8(hundreds, all(' '));
  const __m256i backHigh = _mm256_unpackhi_epi8(hundreds, all(' '));
  const auto low =
      static_cast<uint32_t>(_mm256_movemask_epi8(_mm256_unpacklo_epi32(from10, from100)));
  const auto high =
      static_cast<uint32_t>(_mm256_movemask_epi8(_mm256_unpackhi_epi32(from10, from100)));
  out = storeFields(_mm256_unpacklo_epi16(frontLow, backLow), low, out);
  out = storeFields(_mm256_unpackhi_epi16(frontLow, backLow), low >> 8, out);
  out = storeFields(_mm256_unpacklo_epi16(frontHigh, backHigh), high, out);
  return storeFields(_mm256_unpackhi_epi16(frontHigh, backHigh), high >> 8, out);
}

constexpr NibbleTable DIGIT_HUNDREDS = digitsTimes(100);
constexpr NibbleTable DIGIT_THOUSANDS = digitsTimes(1000);

KVF_AVX2 inline __m256i lookUp(const NibbleTable& table, __m256i nibbles) {
  return _mm256_shuffle_epi8(_mm256_broadcastsi128_si256(load16(&table)), nibbles);
}

KVF_AVX2 inline uint64_t highestBits(__m256i low, __m256i high) {
  return static_cast<uint32_t>(_mm256_movemask_epi8(low)) |
         static_cast<uint64_t>(static_cast<uint32_t>(_mm256_movemask_epi8(high))) << 32;
}

// A half of a window, less '0': digits are 0 to 9, and separators have the highest bit set, for
// which a lookup finds 0. The halves are moved by a few characters with the help of `previous` and
// `following`, in which the neighbours stand.

// 0 for separators, the character for others.
KVF_AVX2 inline __m256i otherThanSeparators(__m256i half) {
  const __m256i character = _mm256_add_epi8(half, all('0'));
  const __m256i isSeparator = _mm256_cmpeq_epi8(lookUp(DECIMAL_SEPARATORS, character), character);
  return _mm256_andnot_si256(isSeparator, half);
}

KVF_AVX2 inline bool hasForeign(__m256i low, __m256i high) {
  const __m256i others = _mm256_max_epu8(otherThanSeparators(low), otherThanSeparators(high));
  return _mm256_movemask_epi8(isFrom(10, others)) != 0;
}

// -1 for the digits in front of a separator.
KVF_AVX2 inline __m256i endsIn(__m256i half, __m256i following) {
  const __m256i next = _mm256_alignr_epi8(following, half, 1);
  return _mm256_cmpgt_epi8(_mm256_setzero_si256(), _mm256_andnot_si256(half, next));
}

// For each digit, the value of the digits of its run up to it, modulo 256.
KVF_AVX2 inline __m256i sumsOf(__m256i half, __m256i previous) {
  const __m256i separatorBit = all(0x80);
  const __m256i tens = _mm256_alignr_epi8(half, previous, 15);
  __m256i hundreds = _mm256_alignr_epi8(half, previous, 14);
  hundreds = _mm256_or_si256(hundreds, _mm256_and_si256(tens, separatorBit));
  __m256i thousands = _mm256_alignr_epi8(half, previous, 13);
  thousands = _mm256_or_si256(thousands, _mm256_and_si256(hundreds, separatorBit));
  const __m256i low = _mm256_add_epi8(half, lookUp(DIGIT_TENS, tens));
  const __m256i high =
      _mm256_add_epi8(lookUp(DIGIT_HUNDREDS, hundreds), lookUp(DIGIT_THOUSANDS, thousands));
  return _mm256_add_epi8(low, high);
}

// Of two neighbours, one is no end of a value, and 0 here: 64 bytes become 32.
KVF_AVX2 inline __m256i joinPairs(__m256i low, __m256i high) {
  const __m256i pairs =
      _mm256_packus_epi16(_mm256_maddubs_epi16(low, all(1)), _mm256_maddubs_epi16(high, all(1)));
  return _mm256_permute4x64_epi64(pairs, 0b11'01'10'00);
}

KVF_AVX2 inline uint8_t* storeEight(__m128i values, uint64_t wanted, uint8_t* out) {
  const void* from = SHUFFLES.ofBytes[wanted];
  const __m128i moved =
      _mm_shuffle_epi8(values, _mm_loadl_epi64(static_cast<const __m128i*>(from)));
  _mm_storel_epi64(static_cast<__m128i*>(static_cast<void*>(out)), moved);
  return out + _mm_popcnt_u64(wanted);
}

KVF_AVX2 inline uint8_t* storeWanted(__m256i values, uint32_t wanted, uint8_t* out) {
  const __m128i low = _mm256_castsi256_si128(values);
  const __m128i high = _mm256_extracti128_si256(values, 1);
  out = storeEight(low, wanted & 0xFF, out);
  out = storeEight(_mm_unpackhi_epi64(low, low), wanted >> 8 & 0xFF, out);
  out = storeEight(high, wanted >> 16 & 0xFF, out);
  return storeEight(_mm_unpackhi_epi64(high, high), wanted >> 24, out);
}

}  // namespace

KVF_AVX2 size_t printDecimalAvx2(const uint8_t* bytes, size_t count, char* text) {
  char* out = text;
  for (size_t i = 0; i < count; i += DECIMAL_BLOCK / 2) out = printHalfBlock(bytes + i, out);
  return static_cast<size_t>(out - text);
}

KVF_AVX2 DecimalProgress parseDecimalAvx2(const uint8_t* text, size_t length, uint8_t* out,
                                          size_t capacity) {
  DecimalProgress done = {0, 0};
  for (size_t at = 0; windowFits(at, length, capacity - done.produced);
       at = nextWindow(at, length)) {
    const __m256i low = _mm256_sub_epi8(load(text + at), all('0'));
    const __m256i high = _mm256_sub_epi8(load(text + at + 32), all('0'));
    const uint64_t isSeparator = highestBits(low, high);
    if (hasForeign(low, high) || fifthDigits(~isSeparator) != 0) break;

    const __m256i before = _mm256_permute2x128_si256(low, low, 0x08);
    const __m256i middle = _mm256_permute2x128_si256(low, high, 0x21);
    const __m256i behind = _mm256_permute2x128_si256(high, high, 0x81);
    const __m256i lowEnds = endsIn(low, middle);
    const __m256i highEnds = endsIn(high, behind);
    const __m256i values = joinPairs(_mm256_and_si256(lowEnds, sumsOf(low, before)),
                                     _mm256_and_si256(highEnds, sumsOf(high, middle)));
    // What was consumed ended with a separator: it cuts no pair that has an end.
    const auto ends = static_cast<uint32_t>(_mm256_movemask_epi8(joinPairs(lowEnds, highEnds))) &
                      static_cast<uint32_t>(movedUp(~uint64_t{0}, (done.consumed - at) / 2));
    uint8_t* const end = storeWanted(values, ends, out + done.produced);
    done.produced = static_cast<size_t>(end - out);
    done.consumed = at + DECIMAL_BLOCK - static_cast<size_t>(__builtin_clzll(isSeparator));
  }
  return done;
}

}  // namespace kvf

#endif
