// Decimal text in every vector variant that this processor has, against the plain loop: read whole and
// in two pieces, printed, and printed and read again. Blocks of memory have exactly the size that is
// allowed, so that a byte too far is seen.
#include "bytestrings/decimal_text.h"

#include "bytestrings/decimal_kernels.h"
#include "support/target.h"

#include <cstring>
#include <memory>
#include <vector>

namespace {

using fuzz::Bytes;
using kvf::DecimalKernel;
using kvf::DecimalReader;

// What a reader made of a text.
struct Outcome {
  std::vector<uint8_t> values;
  size_t consumed = 0;
  DecimalReader::Status status = DecimalReader::Status::NeedsText;
  bool inside = false;
  bool begunByFifthDigit = false;
  bool stopped = false;
  uint8_t pending = 0;

  bool operator==(const Outcome&) const = default;
};

using Block = std::unique_ptr<uint8_t[]>;

Block copyOf(Bytes bytes) {
  Block block(new uint8_t[bytes.size()]);
  std::copy(bytes.begin(), bytes.end(), block.get());
  return block;
}

// Reads `text` up to `cut` and then the rest.
Outcome readWith(const DecimalKernel* kernel, Bytes text, size_t cut, size_t capacity) {
  DecimalReader reader;
  Outcome outcome;
  for (const Bytes part : {text.first(cut), text.subspan(cut)}) {
    const Block from = copyOf(part);
    const size_t room = capacity - outcome.values.size();
    const Block to(new uint8_t[room]);
    const auto result = reader.read(from.get(), part.size(), to.get(), room, kernel);
    fuzz::expect(result.consumed <= part.size() && result.produced <= room,
                 "more was consumed or produced than there is");
    outcome.values.insert(outcome.values.end(), to.get(), to.get() + result.produced);
    outcome.consumed += result.consumed;
    outcome.status = result.status;
    if (result.consumed < part.size()) break;
  }
  outcome.inside = reader.insideValue();
  outcome.begunByFifthDigit = reader.insideValueBegunByFifthDigit();
  outcome.stopped = reader.stopped();
  if (outcome.inside) outcome.pending = reader.endValue();
  return outcome;
}

std::vector<uint8_t> printWith(const DecimalKernel* kernel, Bytes bytes) {
  const Block from = copyOf(bytes);
  const size_t room = bytes.size() * kvf::DECIMAL_FIELD_MAX + 4;
  const std::unique_ptr<char[]> to(new char[room]);
  const size_t length = kvf::printDecimal(from.get(), bytes.size(), to.get(), kernel);
  fuzz::expect(length <= room - 4, "printed more than four characters a byte");
  return {to.get(), to.get() + length};
}

// Most bytes of an input become digits and separators.
std::vector<uint8_t> decimalText(Bytes bytes) {
  static constexpr char USUAL[] = "0123456789 \n\t 0123456789   12 34 ";
  std::vector<uint8_t> text;
  for (const uint8_t byte : bytes) {
    const bool asItIs = byte >= 0xF0 || byte == '\r' || byte == '/' || byte == ':';
    text.push_back(asItIs ? byte : static_cast<uint8_t>(USUAL[byte % (sizeof USUAL - 1)]));
  }
  return text;
}

void compareReading(const DecimalKernel& kernel, Bytes text, size_t cut, size_t capacity) {
  const Outcome expected = readWith(nullptr, text, cut, capacity);
  fuzz::expect(readWith(&kernel, text, cut, capacity) == expected, kernel.name);
  // Where room is left, the place of the cut cannot be seen.
  if (expected.status != DecimalReader::Status::Full) {
    fuzz::expect(readWith(&kernel, text, text.size(), capacity).values == expected.values,
                 "the cut decides what is read");
  }
}

void comparePrinting(const DecimalKernel* kernel, Bytes bytes) {
  const std::vector<uint8_t> text = printWith(kernel, bytes);
  fuzz::expect(text == printWith(nullptr, bytes), "printed otherwise");
  const Outcome again = readWith(kernel, text, 0, bytes.size() + 1);
  fuzz::expect(std::equal(again.values.begin(), again.values.end(), bytes.begin(), bytes.end()),
               "what was printed is read as something else");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzz::Input input({data, size});
  const bool asItIs = input.below(4) == 0;
  const size_t repeats = input.below(8) == 0 ? 1 + input.below(8) : 1;
  const size_t cutShare = input.byte();
  const size_t room = input.below(512);
  const Bytes rest = input.rest();
  std::vector<uint8_t> once =
      asItIs ? std::vector<uint8_t>(rest.begin(), rest.end()) : decimalText(rest);
  std::vector<uint8_t> text;
  for (size_t i = 0; i < repeats; ++i) text.insert(text.end(), once.begin(), once.end());
  const size_t cut = text.size() * cutShare / 256;
  for (const DecimalKernel& kernel : kvf::usableKernels()) {
    compareReading(kernel, text, cut, 1 + room);
    compareReading(kernel, text, cut, text.size() + kvf::DECIMAL_BLOCK_ROOM);
    comparePrinting(&kernel, text);
  }
  comparePrinting(nullptr, text);
  return 0;
}
