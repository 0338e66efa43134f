// Steps on open files while calls of the platform fail: those that the input names, once or from there
// on. There is no model of what is then answered; what must hold whatever fails is asked instead: no
// frame of an error jump is left, no descriptor either, a file that no step touched is as it was, and
// once nothing fails any more a new file can be written and read.
#include <kvfile/kvfile.h>
#include <kvfile/kvhost.h>

#include "model/generator.h"
#include "model/module_side.h"
#include "model/transcript.h"
#include "seam/seam.h"
#include "support/target.h"

#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

namespace {

using model::Operation;
using model::Step;

constexpr model::int64 READ_BUF_SIZE = FUZZ_READ_BUF_SIZE;
constexpr std::string_view BYSTANDER_TEXT =
    "one line\nand another, longer than a read buffer may be\n";

// A fault and the steps that it lasts for.
struct TimedFault {
  seam::Fault fault;
  size_t firstStep = 0;
  size_t endStep = 0;
};

TimedFault readFault(fuzz::Input* input) {
  static constexpr int ERRORS[] = {EIO, ENOSPC, EINTR, EBADF, ENOMEM, EACCES, EAGAIN, EMFILE};
  static constexpr int RAISED[] = {2101, 2034, 2008, 4100};
  static constexpr int LENGTHS[] = {0, 1, 7, 63, 4095};
  const auto& names = seam::functionNames();
  TimedFault made;
  seam::Fault& fault = made.fault;
  const size_t kind = input->byte();
  const size_t function = input->below(names.size() + 20);
  if (function < names.size()) fault.function = names[function];
  fault.at = static_cast<int64_t>(1 + input->below(8));
  fault.forever = kind >= 128;
  const size_t value = input->byte();
  switch (kind % 6) {
    case 0:
      fault.kind = seam::Fault::Kind::Short;
      fault.value = LENGTHS[value % std::size(LENGTHS)];
      break;
    case 1:
      fault.kind = seam::Fault::Kind::Interrupt;
      break;
    case 2:
      fault.kind = seam::Fault::Kind::Raise;
      fault.value = RAISED[value % std::size(RAISED)];
      break;
    case 3:
      fault.kind = seam::Fault::Kind::NoMemory;
      break;
    default:
      fault.kind = seam::Fault::Kind::Error;
      fault.value = ERRORS[value % std::size(ERRORS)];
      break;
  }
  made.firstStep = input->below(40);
  made.endStep = made.firstStep + 1 + input->below(8);
  return made;
}

// What would close the bystander, or lose a file that nobody can then close.
bool isLeftOut(const Operation& operation) {
  switch (operation.step) {
    case Step::KvfCloseAll:
    case Step::KvfStartup:
    case Step::KvfShutdown:
    case Step::SelectSession:
      return true;
    case Step::KvfOpen:  // for no file object, it opens what nobody can close
      return operation.arguments[0].isNil();
    default:
      return operation.session > 1 || operation.session < 0;
  }
}

class FaultyRun {
 public:
  FaultyRun(model::ModuleSide* side, const model::Sequence& sequence,
            std::vector<TimedFault> faults)
      : side_(side), sequence_(sequence), faults_(std::move(faults)) {}

  void run() {
    side_->begin(sequence_.files, {});
    for (model::int64 i = 0; i < model::Model::OBJECTS; ++i)
      side_->setObject(i, i == 1, i == model::Model::OBJECTS - 1, "some bytes");
    const int descriptors = fuzz::openDescriptors();
    openBystander();
    for (size_t i = 0; i < sequence_.operations.size(); ++i) {
      if (!isLeftOut(sequence_.operations[i])) step(i);
    }
    seam::clearFaults();
    checkBystander();
    checkNewFile();
    side_->begin({}, {});
    if (fuzz::openDescriptors() != descriptors) fuzz::fail("a descriptor is left open");
  }

 private:
  void step(size_t which) {
    const Operation& operation = sequence_.operations[which];
    side_->prepare(operation);
    for (const TimedFault& each : faults_)
      if (each.firstStep <= which && which < each.endStep) seam::addFault(each.fault);
    const model::Observed observed = side_->perform(operation);
    tellStep(which, observed);
    seam::clearFaults();
    if (kvhost::errorJumpDepth() != 0 || kvhost::forgottenErrorJumps() != 0)
      fuzz::fail("a frame is left registered by step " + std::to_string(which) + ", " +
                 model::showOperation(operation));
    if (observed.outsideTouched)
      fuzz::fail("bytes behind the buffer were written by " + model::showOperation(operation));
    if (!observed.raised && !observed.forC && !kvhost::isValid(observed.value))
      fuzz::fail("the answer is no object, of " + model::showOperation(operation));
  }

  // In a replay: what is done, and what befell it.
  void tellStep(size_t which, const model::Observed& observed) const {
    static const bool tells = std::getenv("FUZZ_SYMBOLS") != nullptr;
    if (!tells) return;
    std::string text =
        std::to_string(which) + ": " + model::showOperation(sequence_.operations[which]);
    if (observed.raised) text += " raised " + std::to_string(observed.error.number);
    for (const seam::FaultCount& each : seam::faultCounts())
      if (each.fired > 0)
        text += " [" + each.fault.function + " failed in kind " +
                std::to_string(static_cast<int>(each.fault.kind)) + ", " +
                std::to_string(each.fault.value) + "]";
    fuzz::report(text + ", " + std::to_string(fuzz::openDescriptors()) + " descriptors\n");
  }

  // Answers nil when it raised.
  template <size_t COUNT>
  static OopType call(const char* action, const OopType (&arguments)[COUNT]) {
    const kvhost::Outcome outcome = kvhost::callAction(action, arguments, COUNT);
    return outcome.status == kvhost::CallStatus::Answered ? outcome.value : OOP_NIL;
  }

  void openBystander() {
    bystander_ = kvhost::newKvFile();
    kvhost::addRoot(&bystander_);
    const OopType arguments[] = {bystander_, kvhost::newString("bystander"), kvhost::newString("r"),
                                 OOP_FALSE};
    fuzz::expect(call("KvfOpen", arguments) != OOP_NIL, "the bystander cannot be opened");
    lineOf(9);
  }

  std::string lineOf(size_t size) const {
    const OopType arguments[] = {bystander_, OOP_NIL, kvhost::newInteger(1),
                                 kvhost::newInteger('\n'), OOP_NIL};
    const OopType line = call("KvfGetLine", arguments);
    if (line == OOP_NIL) return "";
    std::string text = kvhost::bytesOf(line);
    fuzz::expect(text.size() == size, "the bystander's line has another length");
    return text;
  }

  void checkBystander() {
    fuzz::expect(lineOf(BYSTANDER_TEXT.size() - 9) == BYSTANDER_TEXT.substr(9),
                 "the bystander was changed");
    const OopType arguments[] = {bystander_};
    fuzz::expect(call("KvfClose", arguments) != OOP_NIL, "the bystander cannot be closed");
    kvhost::removeRoot(&bystander_);
  }

  static void checkNewFile() {
    const OopType file = kvhost::newKvFile();
    const OopType path = kvhost::newString("p0");
    const OopType opening[] = {file, path, kvhost::newString("w+"), OOP_FALSE};
    fuzz::expect(call("KvfOpen", opening) != OOP_NIL, "no new file can be opened");
    const OopType writing[] = {file, path, kvhost::newInteger(1), kvhost::newInteger(2)};
    fuzz::expect(call("KvfWrite", writing) == oopFromSmallInteger(2), "it cannot be written");
    const OopType seeking[] = {file, kvhost::newInteger(1), kvhost::newInteger(0)};
    fuzz::expect(call("KvfSeek", seeking) != OOP_NIL, "it cannot be sought");
    const OopType reading[] = {file};
    fuzz::expect(call("KvfGetC", reading) == oopFromCharacter('0'), "it cannot be read");
    fuzz::expect(call("KvfClose", reading) != OOP_NIL, "it cannot be closed");
  }

  model::ModuleSide* side_;
  const model::Sequence& sequence_;
  std::vector<TimedFault> faults_;
  OopType bystander_ = OOP_NIL;
};

model::ModuleSide* makeSide() {
  fuzz::hostModelDirectory();
  auto* side = new model::ModuleSide(model::sizeLimitFor(READ_BUF_SIZE));
  std::ofstream("bystander") << BYSTANDER_TEXT;
  return side;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static model::ModuleSide* side = makeSide();
  fuzz::Input input({data, size});
  std::vector<TimedFault> faults;
  for (size_t count = input.below(4); count > 0; --count) faults.push_back(readFault(&input));
  const model::Sequence sequence = model::generateFrom(input.rest(), READ_BUF_SIZE);
  fuzz::limitFileSize(static_cast<uint64_t>(model::sizeLimitFor(READ_BUF_SIZE)));
  FaultyRun(side, sequence, std::move(faults)).run();
  fuzz::limitFileSize(0);
  return 0;
}
