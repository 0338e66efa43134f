// The decimal byte text: bytes written as decimal numbers, and read back. Works on memory alone and
// knows no objects, so that it can be tested and timed by itself.
#pragma once

#include "bytestrings/decimal_kernels.h"

#include <cstddef>
#include <cstdint>
#include <type_traits>

namespace kvf {

inline constexpr int64_t CHUNKSIZE = 1024;      // bytes that are fetched and printed at a time
inline constexpr size_t DECIMAL_FIELD_MAX = 4;  // three digits and a space

// One byte as text: its decimal value without leading zeros and one space.
struct DecimalField {
  char text[7];  // NUL-terminated
  uint8_t length;
};
const DecimalField& decimalField(uint8_t value);

// Writes the fields of `count` bytes to `text`, which must have room for DECIMAL_FIELD_MAX bytes
// each and 4 bytes more. Answers the bytes written. What fills whole blocks is left to `kernel`,
// the fastest of this processor unless one is given; null does
// without.
size_t printDecimal(const uint8_t* bytes, size_t count, char* text);
size_t printDecimal(const uint8_t* bytes, size_t count, char* text, const DecimalKernel* kernel);

// Values are separated by spaces, tabs and line feeds.
inline bool isDecimalSeparator(int c) { return c == ' ' || c == '\t' || c == '\n'; }
inline bool isDecimalDigit(int c) { return c >= '0' && c <= '9'; }

// Reads decimal text piece by piece. A value is one to four digits, of which the low eight bits
// count; after four digits it ends, and a fifth digit begins the next value.
class DecimalReader {
 public:
  enum class Status {
    NeedsText,  // all of the text was consumed
    Full,       // all values asked for were read; text may be left
    Stopped     // a character that is neither digit nor separator was consumed: reading has ended
  };
  struct Result {
    size_t consumed;  // characters of the text
    size_t produced;  // bytes stored
    Status status;
  };

  // Consumes text until it ends, `capacity` values were stored at `out`, or a foreign character
  // came. What is ordinary and fills whole blocks is left to `kernel`, as in printDecimal. All of
  // the `capacity` places may be overwritten.
  Result read(const uint8_t* text, size_t length, uint8_t* out, size_t capacity);
  Result read(const uint8_t* text, size_t length, uint8_t* out, size_t capacity,
              const DecimalKernel* kernel);

  // True while digits were read whose value is not stored yet; the end of the text ends such a
  // value.
  bool insideValue() const { return digits_ > 0; }

  // True when the value was begun by the fifth digit of a run and that digit was the last
  // character.
  bool insideValueBegunByFifthDigit() const { return digits_ > 0 && begunByFifthDigit_; }

  // Ends the value that was begun, answering its byte.
  uint8_t endValue();

  // True once a foreign character was consumed.
  bool stopped() const { return stopped_; }

 private:
  bool take(int c, uint8_t* value);

  uint32_t value_ = 0;
  uint32_t digits_ = 0;
  bool begunByFifthDigit_ = false;
  bool stopped_ = false;
};
static_assert(std::is_trivially_destructible_v<DecimalReader>);

}  // namespace kvf
