#include "bytestrings/decimal_text.h"

#include <algorithm>
#include <array>
#include <cstring>

namespace kvf {

namespace {

constexpr DecimalField makeField(unsigned value) {
  DecimalField field = {{}, 0};
  uint8_t length = 0;
  if (value >= 100) field.text[length++] = static_cast<char>('0' + value / 100);
  if (value >= 10) field.text[length++] = static_cast<char>('0' + value / 10 % 10);
  field.text[length++] = static_cast<char>('0' + value % 10);
  field.text[length++] = ' ';
  field.length = length;
  return field;
}

constexpr std::array<DecimalField, 256> makeFields() {
  std::array<DecimalField, 256> fields = {};
  for (unsigned value = 0; value < fields.size(); ++value) fields[value] = makeField(value);
  return fields;
}

constexpr std::array<DecimalField, 256> FIELDS = makeFields();
static_assert(sizeof(DecimalField) == 8);

constexpr uint32_t MAX_DIGITS = 4;

}  // namespace

const DecimalField& decimalField(uint8_t value) { return FIELDS[value]; }

size_t printDecimal(const uint8_t* bytes, size_t count, char* text) {
  return printDecimal(bytes, count, text, count >= DECIMAL_BLOCK ? fastestKernel() : nullptr);
}

size_t printDecimal(const uint8_t* bytes, size_t count, char* text, const DecimalKernel* kernel) {
  const size_t inBlocks = kernel != nullptr ? count - count % DECIMAL_BLOCK : 0;
  char* out = text;
  if (inBlocks > 0) out += kernel->print(bytes, inBlocks, text);
  for (size_t i = inBlocks; i < count; ++i) {
    // The whole entry is stored, whatever its length: that is one move, and the next field covers
    // what is too much.
    const DecimalField& field = FIELDS[bytes[i]];
    memcpy(out, &field, sizeof field);
    out += field.length;
  }
  return static_cast<size_t>(out - text);
}

uint8_t DecimalReader::endValue() {
  digits_ = 0;
  begunByFifthDigit_ = false;
  return static_cast<uint8_t>(value_);
}

// Consumes one character; true when it ended a value, which is then stored.
bool DecimalReader::take(int c, uint8_t* value) {
  const bool digit = isDecimalDigit(c);
  if (digit && digits_ > 0 && digits_ < MAX_DIGITS) {
    value_ = value_ * 10 + static_cast<uint32_t>(c - '0');
    ++digits_;
    begunByFifthDigit_ = false;
    return false;
  }
  const bool ended = digits_ > 0;
  if (ended) *value = endValue();
  if (digit) {
    value_ = static_cast<uint32_t>(c - '0');
    digits_ = 1;
    begunByFifthDigit_ = ended;
  } else if (!isDecimalSeparator(c)) {
    stopped_ = true;
  }
  return ended;
}

DecimalReader::Result DecimalReader::read(const uint8_t* text, size_t length, uint8_t* out,
                                          size_t capacity) {
  return read(text, length, out, capacity,
              windowFits(0, length, capacity) ? fastestKernel() : nullptr);
}

DecimalReader::Result DecimalReader::read(const uint8_t* text, size_t length, uint8_t* out,
                                          size_t capacity, const DecimalKernel* kernel) {
  size_t consumed = 0;
  size_t produced = 0;
  size_t retry = 0;  // the kernel is tried again when so much was consumed
  while (consumed < length && produced < capacity && !stopped_) {
    if (kernel != nullptr && digits_ == 0 && consumed >= retry) {
      const DecimalProgress done =
          kernel->parse(text + consumed, length - consumed, out + produced, capacity - produced);
      consumed += done.consumed;
      produced += done.produced;
      // Here stands less than a block, or something in a block that the kernel does not know.
      retry = consumed + DECIMAL_BLOCK;
    } else if (take(text[consumed++], &out[produced])) {
      ++produced;
    }
  }
  const Status status = stopped_              ? Status::Stopped
                        : produced < capacity ? Status::NeedsText
                                              : Status::Full;
  return {consumed, produced, status};
}

}  // namespace kvf
