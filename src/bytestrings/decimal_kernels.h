// Kernels: the decimal byte text in blocks of 64, for processors that can. They know the ordinary
// case only; decimal_text.cc knows every rule, and does what they leave.
//
// Printing. Each byte becomes four characters, of which those that are not wanted, leading zeros,
// are then dropped.
//
// Parsing. A window of 64 characters is parsed by itself. A value ends in each digit that a
// separator follows; its byte is that digit and 10, 100 and 1000 times the three before it, modulo
// 256, as far as they are of the same run of digits. These sums are made for all 64 positions at
// once, and those at the ends of values are moved together. Windows overlap, so that each value
// lies whole in one of them; what the window before has delivered is left out. A window with a
// foreign character or five digits in a row is not parsed: the kernel ends in front of it.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>

namespace kvf {

inline constexpr size_t DECIMAL_BLOCK = 64;  // bytes to print, characters to parse

// A block of characters holds half as many values at most. With one place more there is room left
// behind the last of them, so that the separators that follow it may be consumed.
inline constexpr size_t DECIMAL_BLOCK_ROOM = DECIMAL_BLOCK / 2 + 1;

struct DecimalProgress {
  size_t consumed;  // characters of the text
  size_t produced;  // bytes stored
};

struct DecimalKernel {
  const char* name;

  // Writes the fields of `count` bytes, a multiple of DECIMAL_BLOCK, to `text`, which has room for
  // DECIMAL_FIELD_MAX characters each; answers the characters written. Reads these bytes only, and
  // may overwrite all of that room.
  size_t (*print)(const uint8_t* bytes, size_t count, char* text);

  // Reads values from `text`, which begins outside a value, while a block is left to read, there
  // is room for DECIMAL_BLOCK_ROOM values, and nothing comes but separators and values of one to
  // four digits. Ends outside a value. Nothing is consumed where the first block is not that
  // ordinary. Reads `length` characters only, none before and none behind, and may overwrite the
  // `capacity` bytes at `out`.
  DecimalProgress (*parse)(const uint8_t* text, size_t length, uint8_t* out, size_t capacity);
};

// The kernels that this processor can run, the fastest first; none but on x86-64. The processor is
// asked each time, about a nanosecond: that needs no state.
std::span<const DecimalKernel> usableKernels();

// The fastest of them; null where there is none.
const DecimalKernel* fastestKernel();

// ---- what kernels are made of ----

size_t printDecimalVbmi2(const uint8_t* bytes, size_t count, char* text);
size_t printDecimalAvx2(const uint8_t* bytes, size_t count, char* text);
DecimalProgress parseDecimalVbmi2(const uint8_t* text, size_t length, uint8_t* out,
                                  size_t capacity);
DecimalProgress parseDecimalAvx2(const uint8_t* text, size_t length, uint8_t* out, size_t capacity);

// Whether a window at `at` lies within the text and the values of a window within the room.
inline bool windowFits(size_t at, size_t length, size_t room) {
  return at + DECIMAL_BLOCK <= length && room >= DECIMAL_BLOCK_ROOM;
}

// The next window begins with the last four characters of this one: a value that is not delivered
// yet has no more digits there. The last window ends with the text.
inline size_t nextWindow(size_t at, size_t length) {
  const size_t last = length - DECIMAL_BLOCK;
  return at == last ? length : std::min(at + DECIMAL_BLOCK - 4, last);
}

// The bits moved up by fewer than 64 places. What is moved out is dropped before, which says that it
// is meant, and costs nothing where the places are known.
inline uint64_t movedUp(uint64_t bits, size_t places) {
  return (bits & ~uint64_t{0} >> places) << places;
}

// The characters of a window, one a bit, that are the fifth digit of a run or a later one.
inline uint64_t fifthDigits(uint64_t digits) {
  const uint64_t second = digits & movedUp(digits, 1);
  return second & movedUp(second, 2) & movedUp(digits, 4);
}

// A table with an entry for each value of a character's low four bits.
struct alignas(16) NibbleTable {
  uint8_t entries[16];
};

// The ten digits times `factor`, modulo 256.
constexpr NibbleTable digitsTimes(unsigned factor) {
  NibbleTable table = {};
  for (unsigned digit = 0; digit < 10; ++digit) {
    table.entries[digit] = static_cast<uint8_t>(digit * factor);
  }
  return table;
}
inline constexpr NibbleTable DIGIT_TENS = digitsTimes(10);

// The separators. No other character equals its entry.
inline constexpr NibbleTable DECIMAL_SEPARATORS = {
    {' ', 0, 0, 0, 0, 0, 0, 0, 0, '\t', '\n', 0, 0, 0, 0, 0}};

}  // namespace kvf
