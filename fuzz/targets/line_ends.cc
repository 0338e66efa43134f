// Lines that end in any sequence of bytes, read from any content in any mixture with other reads,
// against the model. The content is the input's own bytes, so that a fuzzer sees which matter.
#include "model/comparison.h"
#include "model/generator.h"
#include "model/transcript.h"
#include "support/target.h"

namespace {

using model::Operation;
using model::Step;
using model::Value;

constexpr model::int64 READ_BUF_SIZE = FUZZ_READ_BUF_SIZE;
constexpr size_t LONGEST_CONTENT = 1200;

// One to some bytes; most are few, so that parts of them occur in the content.
std::string lineEnd(fuzz::Input* input) {
  const size_t kind = input->below(8);
  if (kind == 0) return std::string(fuzz::textOf(input->bytes(input->below(140))));
  if (kind == 1) return "\n";
  return std::string(fuzz::textOf(input->bytes(1 + kind / 2)));
}

// Runs of a byte, and bytes as they are.
std::string content(fuzz::Input* input) {
  std::string made;
  for (size_t pieces = 1 + input->below(12); pieces > 0 && made.size() < LONGEST_CONTENT;
       --pieces) {
    const size_t length = input->below(140);
    if (input->below(3) == 0) {
      made.append(length, static_cast<char>(input->byte()));
    } else {
      made += fuzz::textOf(input->bytes(std::min<size_t>(length, 40)));
    }
  }
  return made;
}

Operation onFile(Step step, std::vector<Value> arguments) {
  Operation made;
  made.step = step;
  made.arguments = {Value::file(0)};
  made.arguments.insert(made.arguments.end(), arguments.begin(), arguments.end());
  return made;
}

Operation getLine(const std::string& end, bool asByte, Value into) {
  const Value start = into.isNil() ? Value::integer(1) : Value::fromSizeOf(1);
  const Value sequence =
      asByte && !end.empty() ? Value::integer(static_cast<uint8_t>(end[0])) : Value::text(end);
  return onFile(Step::KvfGetLine, {into, start, sequence, Value::nil()});
}

Operation step(fuzz::Input* input, const std::string ends[2]) {
  const size_t choice = input->byte();
  const size_t amount = input->below(140);
  switch (choice % 8) {
    case 0:
      return onFile(Step::KvfRead, {Value::object(0), Value::integer(1),
                                    Value::integer(static_cast<model::int64>(amount))});
    case 1:
      return onFile(Step::KvfGetC, {});
    case 2:
      return onFile(Step::KvfSeek, {Value::integer(static_cast<model::int64>(amount) - 70),
                                    Value::integer(static_cast<model::int64>(choice / 8 % 3))});
    case 3:
      return onFile(choice / 8 % 2 == 0 ? Step::KvfAtEnd : Step::KvfPosition, {});
    case 4:
      return getLine(ends[choice / 8 % 2], true, Value::nil());
    case 5:
      return getLine(ends[choice / 8 % 2], false, Value::object(0));
    default:
      return getLine(ends[choice / 8 % 2], false, Value::nil());
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static auto& comparison = *(fuzz::hostModelDirectory(), new model::Comparison(READ_BUF_SIZE));
  fuzz::Input input({data, size});
  const std::string ends[] = {lineEnd(&input), lineEnd(&input)};
  model::Sequence sequence;
  const std::string bytes = content(&input);
  for (const char* name : model::STANDARD_FILES) sequence.files.push_back({name, ""});
  for (const char* name : model::DATA_FILES) sequence.files.push_back({name, bytes});
  const bool throughGzip = input.below(4) == 0;
  sequence.operations.push_back(onFile(
      Step::KvfOpen,
      {Value::text(throughGzip ? "g0" : "p0"), Value::text("r"), Value::boolean(throughGzip)}));
  while (!input.empty() && sequence.operations.size() < 100)
    sequence.operations.push_back(step(&input, ends));
  // What is left of the file ends the sequence.
  for (int i = 0; i < 20; ++i) sequence.operations.push_back(getLine(ends[0], false, Value::nil()));
  fuzz::limitFileSize(static_cast<uint64_t>(model::sizeLimitFor(READ_BUF_SIZE)));
  const auto difference = comparison.run(sequence, {});
  fuzz::limitFileSize(0);
  if (difference) {
    fuzz::fail(model::showOperation(sequence.operations[difference->operation]) + ": " +
               difference->text);
  }
  return 0;
}
