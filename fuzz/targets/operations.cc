// Steps on open files, every choice of them read from the input, against the model of the module.
#include "model/comparison.h"
#include "model/generator.h"
#include "model/transcript.h"
#include "support/target.h"

#include <cstdlib>

namespace {

constexpr model::int64 READ_BUF_SIZE = FUZZ_READ_BUF_SIZE;

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static auto& comparison = *(fuzz::hostModelDirectory(), new model::Comparison(READ_BUF_SIZE));
  static const char* transcript = std::getenv("FUZZ_TRANSCRIPT");
  const model::Sequence sequence = model::generateFrom({data, size}, READ_BUF_SIZE);
  fuzz::limitFileSize(static_cast<uint64_t>(model::sizeLimitFor(READ_BUF_SIZE)));
  const auto difference =
      comparison.run(sequence, {}, transcript != nullptr ? transcript : std::string());
  fuzz::limitFileSize(0);
  if (difference) {
    fuzz::fail("step " + std::to_string(difference->operation) + ", " +
               model::showOperation(sequence.operations[difference->operation]) + ": " +
               difference->text);
  }
  return 0;
}
