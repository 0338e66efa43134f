// The decimal byte text with AVX-512 VBMI2: it moves chosen bytes of a vector together in one
// instruction, and has a mask for everything.
#include "bytestrings/decimal_kernels.h"

#if defined(__x86_64__)

#include <immintrin.h>

#define KVF_VBMI2 __attribute__((target("avx512f,avx512bw,avx512vl,avx512vbmi,avx512vbmi2,popcnt")))

namespace kvf {

namespace {

struct alignas(64) Tables {
  uint8_t tens[128];  // of the numbers below 100, as characters
  uint8_t ones[128];
  uint8_t hundredfold[128];  // the numbers below 100 times 100, modulo 256
  uint8_t twoBefore[64];     // the place before the place before each
};

constexpr Tables makeTables() {
  Tables made = {};
  for (unsigned number = 0; number < 100; ++number) {
    made.tens[number] = static_cast<uint8_t>('0' + number / 10);
    made.ones[number] = static_cast<uint8_t>('0' + number % 10);
    made.hundredfold[number] = static_cast<uint8_t>(number * 100);
  }
  for (unsigned place = 2; place < 64; ++place) {
    made.twoBefore[place] = static_cast<uint8_t>(place - 2);
  }
  return made;
}

constexpr Tables TABLES = makeTables();

KVF_VBMI2 inline __m512i lookUp(const uint8_t (&table)[128], __m512i numbers) {
  return _mm512_permutex2var_epi8(_mm512_load_si512(&table[0]), numbers,
                                  _mm512_load_si512(&table[64]));
}

// Stores the characters that are not 0, and answers the place behind them.
KVF_VBMI2 inline char* storeWanted(__m512i fields, char* out) {
  const __mmask64 wanted = _mm512_test_epi8_mask(fields, fields);
  _mm512_storeu_si512(out, _mm512_maskz_compress_epi8(wanted, fields));
  return out + _mm_popcnt_u64(wanted);
}

KVF_VBMI2 inline char* printBlock(const uint8_t* bytes, char* out) {
  // Interleaving goes on within each quarter of the vectors. With the groups of four bytes
  // transposed before, the fields come in order.
  const __m512i transposed =
      _mm512_setr_epi32(0, 4, 8, 12, 1, 5, 9, 13, 2, 6, 10, 14, 3, 7, 11, 15);
  const __m512i hundred = _mm512_set1_epi8(100);
  const __m512i number =
      _mm512_maskz_permutexvar_epi32(0xFFFF, transposed, _mm512_loadu_si512(bytes));
  const __mmask64 from10 = _mm512_cmpge_epu8_mask(number, _mm512_set1_epi8(10));
  const __mmask64 from100 = _mm512_cmpge_epu8_mask(number, hundred);
  const __mmask64 from200 = _mm512_cmpge_epu8_mask(number, _mm512_add_epi8(hundred, hundred));
  __m512i below100 = _mm512_mask_sub_epi8(number, from100, number, hundred);
  below100 = _mm512_mask_sub_epi8(below100, from200, below100, hundred);

  const __m512i hundreds =
      _mm512_mask_set1_epi8(_mm512_maskz_set1_epi8(from100, '1'), from200, '2');
  const __m512i tens = _mm512_maskz_mov_epi8(from10, lookUp(TABLES.tens, below100));
  const __m512i ones = lookUp(TABLES.ones, below100);
  const __m512i space = _mm512_set1_epi8(' ');
  const __m512i frontLow = _mm512_unpacklo_epi8(hundreds, tens);
  const __m512i frontHigh = _mm512_unpackhi_epi8(hundreds, tens);
  const __m512i backLow = _mm512_unpacklo_epi8(ones, space);
  const __m512i backHigh = _mm512_unpackhi_epi8(ones, space);
  out = storeWanted(_mm512_unpacklo_epi16(frontLow, backLow), out);
  out = storeWanted(_mm512_unpackhi_epi16(frontLow, backLow), out);
  out = storeWanted(_mm512_unpacklo_epi16(frontHigh, backHigh), out);
  return storeWanted(_mm512_unpackhi_epi16(frontHigh, backHigh), out);
}

KVF_VBMI2 inline __m512i lookUp(const NibbleTable& table, __m512i nibbles) {
  const auto* entries = static_cast<const __m128i*>(static_cast<const void*>(&table));
  return _mm512_shuffle_epi8(_mm512_maskz_broadcast_i32x4(0xFFFF, _mm_load_si128(entries)),
                             nibbles);
}

// For each digit of a window, the value of the digits of its run up to it, modulo 256.
KVF_VBMI2 inline __m512i sumsOf(const uint8_t* window, __m512i digit, __mmask64 isDigit) {
  const __mmask64 isSecond = isDigit & movedUp(isDigit, 1);
  const __mmask64 isThird = isSecond & movedUp(isDigit, 2);
  // The characters before. What lies before the window is masked out, and so not read.
  const __m512i tens = _mm512_maskz_loadu_epi8(isSecond, window - 1);
  const __m512i sum = _mm512_add_epi8(digit, lookUp(DIGIT_TENS, tens));
  const __m512i hundreds =
      _mm512_maskz_permutexvar_epi8(isThird, _mm512_load_si512(TABLES.twoBefore), sum);
  return _mm512_add_epi8(sum, lookUp(TABLES.hundredfold, hundreds));
}

}  // namespace

KVF_VBMI2 size_t printDecimalVbmi2(const uint8_t* bytes, size_t count, char* text) {
  char* out = text;
  for (size_t i = 0; i < count; i += DECIMAL_BLOCK) out = printBlock(bytes + i, out);
  return static_cast<size_t>(out - text);
}

KVF_VBMI2 DecimalProgress parseDecimalVbmi2(const uint8_t* text, size_t length, uint8_t* out,
                                            size_t capacity) {
  DecimalProgress done = {0, 0};
  for (size_t at = 0; windowFits(at, length, capacity - done.produced);
       at = nextWindow(at, length)) {
    const __m512i character = _mm512_loadu_si512(text + at);
    const __m512i digit = _mm512_sub_epi8(character, _mm512_set1_epi8('0'));
    const __mmask64 isDigit = _mm512_cmple_epu8_mask(digit, _mm512_set1_epi8(9));
    const __mmask64 isSeparator =
        _mm512_cmpeq_epi8_mask(lookUp(DECIMAL_SEPARATORS, character), character);
    if (~(isDigit | isSeparator) != 0 || fifthDigits(isDigit) != 0) break;

    const __m512i sums = sumsOf(text + at, digit, isDigit);
    const __mmask64 ends = isDigit & isSeparator >> 1 & movedUp(~uint64_t{0}, done.consumed - at);
    const __m512i values = _mm512_maskz_compress_epi8(ends, sums);
    _mm512_mask_storeu_epi64(out + done.produced, 0xF, values);  // 32 bytes
    done.produced += static_cast<size_t>(_mm_popcnt_u64(ends));
    done.consumed = at + DECIMAL_BLOCK - static_cast<size_t>(__builtin_clzll(isSeparator));
  }
  return done;
}

}  // namespace kvf

#endif
