// Two sessions must not notice each other: the steps of each, on files of its own, are performed one
// session after the other, and then mixed as the input says. Every answer, byte object and file must be
// the same. The file objects are shared: each session has a record of its own for each.
#include <kvfile/kvhost.h>

#include "model/generator.h"
#include "model/module_side.h"
#include "model/transcript.h"
#include "support/target.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <string>
#include <vector>

namespace {

using model::Operation;
using model::Step;
using model::Value;

constexpr model::int64 READ_BUF_SIZE = FUZZ_READ_BUF_SIZE;
constexpr size_t SESSIONS = 2;

// What sessions share as things are: the class-level error, standard files, descriptor numbers. And
// what closes several files, in an order that follows from where their objects lie: two of them may be
// writing the same file.
bool isLeftOut(const Operation& operation) {
  switch (operation.step) {
    case Step::KvfCreateStdFile:
    case Step::KvfClassError:
    case Step::KvfCloseAll:
    case Step::KvfClientFinalize:
    case Step::KvfGetFileDesc:
    case Step::KvfStartup:
    case Step::KvfShutdown:
    case Step::SelectSession:
      return true;
    case Step::SetObject:  // the one that nobody may change serves both
      return operation.arguments[0].number == model::Model::OBJECTS - 1;
    default:
      return !operation.arguments.empty() && operation.arguments[0].isNil();
  }
}

// The argument as the session `owner` may have it.
void makeOwn(Value* value, size_t owner) {
  if (value->kind == Value::Kind::Object && value->number < model::Model::OBJECTS - 1)
    value->number = owner == 0 ? 0 : 2;
  // A path ends at a NUL.
  if (std::min(value->bytes.find('\0'), value->bytes.size()) != 2) return;
  const char last = owner == 0 ? '0' : '1';
  if (value->bytes[0] == 'p' || value->bytes[0] == 'g') value->bytes[1] = last;
  if (value->bytes[0] == 's' || value->bytes[0] == 'n') value->bytes.replace(0, 2, {'p', last});
}

// A counted-back integer as a number.
void resolve(Operation* operation, model::ModuleSide* side) {
  for (Value& value : operation->arguments) {
    if (!value.fromSize) continue;
    value.fromSize = false;
    const Value& sized = operation->arguments[1];
    if (sized.kind == Value::Kind::Object)
      value.number +=
          static_cast<model::int64>(side->bytesOf(side->objectIdentifier(sized.number)).size());
    else
      value.number += static_cast<model::int64>(sized.bytes.size());
  }
}

struct OwnStep {
  size_t owner = 0;
  bool fromOutside = false;  // performed while the other session is current, where it names its own
  Operation operation;
};

// What each session saw, a line a step, and the files at the end.
struct Seen {
  std::array<std::vector<std::string>, SESSIONS> steps;
  std::vector<std::string> files;

  bool operator==(const Seen&) const = default;
};

// An identifier that a text names is another one each time.
std::string withoutIdentifier(std::string text) {
  const size_t at = text.find("0x");
  return at == std::string::npos ? text : text.substr(0, at);
}

std::string show(const model::Observed& observed) {
  if (observed.raised) return "error " + std::to_string(observed.error.number);
  if (observed.forC) {
    return std::to_string(observed.result) + " " + withoutIdentifier(std::string(observed.bytes));
  }
  int failed = 0;
  const model::int64 number = KciOopToI64_(observed.value, &failed);
  if (failed == 0) return std::to_string(number);
  if (kvhost::classOf(observed.value) == OOP_CLASS_STRING)
    return withoutIdentifier(kvhost::bytesOf(observed.value));
  if (oopIsCharacter(observed.value)) return std::to_string(oopCharacterCode(observed.value));
  return std::string(kvhost::className(kvhost::classOf(observed.value)));
}

Seen performAll(model::ModuleSide* side, const model::Sequence& sequence,
                const std::vector<const OwnStep*>& steps) {
  side->begin(sequence.files, {});
  for (model::int64 i = 0; i < model::Model::OBJECTS; ++i)
    side->setObject(i, i == 1, i == model::Model::OBJECTS - 1, "some bytes");
  const auto sessions = side->sessionIds();
  Seen seen;
  for (const OwnStep* step : steps) {
    Operation operation = step->operation;
    const bool fromOutside = step->fromOutside && operation.count != 0;
    operation.session = fromOutside ? sessions[step->owner] : 0;
    kvhost::sessionSelect(sessions[fromOutside ? 1 - step->owner : step->owner]);
    resolve(&operation, side);
    side->prepare(operation);
    // What is shared must not be told: a file object without a record answers the class-level error.
    const OopType nothing = OOP_NIL;
    kvhost::callAction("KvfErrorString", &nothing, 1);
    errno = 0;
    const model::Observed observed = side->perform(operation);
    const size_t object = step->owner == 0 ? 0 : 2;
    std::string line = model::showOperation(operation) + " = " + show(observed) + " | ";
    line += side->bytesOf(side->objectIdentifier(static_cast<model::int64>(object)));
    seen.steps[step->owner].push_back(std::move(line));
  }
  for (const int session : sessions) {
    kvhost::sessionSelect(session);
    for (model::int64 i = 0; i < model::Model::FILES; ++i) {
      const OopType file = side->fileIdentifier(i);
      kvhost::callAction("KvfClose", &file, 1);
    }
  }
  kvhost::sessionSelect(sessions[0]);
  side->begin({}, {});
  for (const char* name : model::DATA_FILES) seen.files.emplace_back(side->contentOf(name));
  return seen;
}

void tellDifference(const Seen& apart, const Seen& mixed) {
  for (size_t owner = 0; owner < SESSIONS; ++owner) {
    for (size_t i = 0; i < apart.steps[owner].size(); ++i) {
      if (apart.steps[owner][i] != mixed.steps[owner][i])
        fuzz::fail("session " + std::to_string(owner + 1) + ", step " + std::to_string(i) +
                   "\n  apart: " + apart.steps[owner][i] + "\n  mixed: " + mixed.steps[owner][i]);
    }
  }
  fuzz::fail("the files differ");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static auto* side =
      (fuzz::hostModelDirectory(), new model::ModuleSide(model::sizeLimitFor(READ_BUF_SIZE)));
  fuzz::Input input({data, size});
  const fuzz::Bytes order = input.bytes(16);
  const model::Sequence sequence = model::generateFrom(input.rest(), READ_BUF_SIZE);
  std::vector<OwnStep> steps;
  for (const Operation& operation : sequence.operations) {
    if (isLeftOut(operation) || order.empty()) continue;
    const size_t at = steps.size() * 2;
    const unsigned bits = order[at / 8 % order.size()] >> (at % 8);
    OwnStep step = {bits & 1U, (bits & 2U) != 0, operation};
    for (Value& value : step.operation.arguments) makeOwn(&value, step.owner);
    steps.push_back(std::move(step));
  }
  std::vector<const OwnStep*> apart;
  for (size_t owner = 0; owner < SESSIONS; ++owner)
    for (const OwnStep& step : steps)
      if (step.owner == owner) apart.push_back(&step);
  std::vector<const OwnStep*> mixed;
  for (const OwnStep& step : steps) mixed.push_back(&step);
  fuzz::limitFileSize(static_cast<uint64_t>(model::sizeLimitFor(READ_BUF_SIZE)));
  const Seen seenApart = performAll(side, sequence, apart);
  const Seen seenMixed = performAll(side, sequence, mixed);
  fuzz::limitFileSize(0);
  if (seenApart != seenMixed) tellDifference(seenApart, seenMixed);
  return 0;
}
