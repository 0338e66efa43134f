#include "every_fault/runner.h"

#include <kvfile/kvfile.h>

#include "every_fault/compressed.h"
#include "every_fault/contents.h"

#include <cerrno>
#include <cstdlib>

namespace every_fault {

namespace {

constexpr OopType NO_FILE = OOP_NIL;
constexpr int THIRD_SESSION = 3;  // a scenario may begin it

// ---- the files that every run finds ----

struct Prepared {
  std::string name;
  std::string bytes;
  Kind kind;
};
std::vector<Prepared> preparedFiles;

std::string lines(size_t count) {
  std::string text;
  for (size_t i = 0; i < count; ++i) {
    text += "line " + std::to_string(i) + pattern(80).substr(i % 40) + "\n";
  }
  return text;
}

// ---- the session that nothing may touch ----

struct Bystander {
  const char* file;
  OopType object;
  int session;
  void* record;
  size_t recordSize;
  std::string recordBytes;
  Descriptor descriptor;
  int fd;
};
Bystander otherSession = {"other.txt", 0, BYSTANDER, nullptr, 0, "", {}, -1};
Bystander ownSession = {"own.txt", 0, 1, nullptr, 0, "", {}, -1};

// The address sanitizer closes a part of a record to everybody; here the whole is looked at, in words.
[[gnu::no_sanitize_address]] uint64_t wordOf(const void* record, size_t index) {
  return static_cast<const uint64_t*>(record)[index];
}

std::string bytesOfRecord(const Bystander& bystander) {
  std::string bytes(bystander.recordSize, '\0');
  for (size_t i = 0; i < bystander.recordSize / sizeof(uint64_t); ++i) {
    const uint64_t word = wordOf(bystander.record, i);
    memcpy(&bytes[i * sizeof word], &word, sizeof word);
  }
  return bytes;
}

void openBystander(Bystander* bystander) {
  w.session = bystander->session;
  const OopType path = newBytes(OOP_CLASS_STRING, bystander->file);
  const OopType mode = newBytes(OOP_CLASS_STRING, "r+");
  act("KvfOpen", {bystander->object, path, mode, OOP_FALSE});
  bystander->record = w.lastBlock;
  bystander->recordSize = w.lastBlockSize;
  const OopType target = newBytes(OOP_CLASS_STRING, "");
  act("KvfRead", {bystander->object, target, oopFromSmallInteger(1), oopFromSmallInteger(3)});
  bystander->fd =
      static_cast<int>(oopSmallIntegerValue(act("KvfGetFileDesc", {bystander->object}).oop));
  bystander->descriptor = w.descriptors[bystander->fd];
  bystander->recordBytes = bytesOfRecord(*bystander);
  w.session = 1;
}

std::string checkBystander(const Bystander& bystander) {
  const Descriptor& now = w.descriptors[bystander.fd];
  const int file = fileNamed(bystander.file);
  if (bytesOfRecord(bystander) != bystander.recordBytes)
    return std::string("the record of ") + bystander.file + " changed";
  if (!now.open || now.position != bystander.descriptor.position || now.file != file) {
    return std::string("the descriptor of ") + bystander.file + " changed";
  }
  if (w.files[file].bytes != "a bystander's bytes, to be left alone") {
    return std::string(bystander.file) + " changed";
  }
  return "";
}

// ---- before and behind a run ----

void restoreFiles(const Scenario& scenario) {
  for (size_t i = 0; i < FILES; ++i) {
    MemFile& file = w.files[i];
    if (i >= preparedFiles.size()) {
      if (!file.name.empty()) file = MemFile();
      continue;
    }
    const Prepared& prepared = preparedFiles[i];
    if (file.name != prepared.name) file.name = prepared.name;
    if (file.bytes != prepared.bytes) file.bytes = prepared.bytes;
    file.kind = prepared.kind;
    file.exists = true;
  }
  w.files[0].bytes = scenario.inputText;
  w.files[0].kind = scenario.input;
  w.files[1].kind = scenario.output;
  w.descriptors[0] = {true, 0, 0, true, false, false};
  w.descriptors[1] = {true, 1, 0, false, true, true};
  w.descriptors[2] = {true, 2, 0, false, true, true};
  w.outBuffer.clear();
  w.logged.clear();
  w.environment = {{"HOME", "/home/me"}, {"NAME", "dr\xC3\xBC"}};
  w.loggerFlush = 0;
  w.conflict = scenario.conflict;
}

void makeVariables() {
  w.objectCount = 0;
  for (size_t i = 0; i < VAR_COUNT; ++i) newObject(OOP_NIL, true);
  *findObject(variable(VAR_B)) = {OOP_CLASS_STRING, false, "", {}};
  *findObject(variable(VAR_S)) = {OOP_CLASS_STRING, false, "0123456789", {}};
}

void emptyClassError() { act("KvfErrorString", {NO_FILE}); }

// What a session leaves behind is counted from here.
struct Counts {
  int blocks = 0;
  int descriptors = 0;
  int maps = 0;
};

int usedMaps() {
  int count = 0;
  for (const KciOopMapType& map : w.maps) count += map.used;
  return count;
}

Counts countNow() { return {w.blocks, openDescriptors(), usedMaps()}; }

void clearCalls() {
  w.calls = 0;
  w.made.clear();
  w.log.clear();
  w.fired = 0;
  w.firstFired = 0;
  w.digest = 0;
  w.plannedCount = 0;
  w.zlibDepth = 0;
  w.releasable.clear();
}

// ---- the run ----

std::string changedFiles(const Scenario& scenario);

class Runner {
 public:
  Runner(const Scenario& scenario, const Plan& plan, Run* run)
      : scenario_(scenario), plan_(plan), run_(run) {}

  void run(const Run* reference, bool logging);

 private:
  void begin(bool logging);
  void steps(std::vector<std::string>* answers, bool counted);
  std::string step(const Step& step);
  void look();
  void rerun(const Run* reference);
  void end();
  void complain(const std::string& complaint);

  const Scenario& scenario_;
  const Plan& plan_;
  Run* run_;
  Contents contents_;
  Counts before_;
};

void Runner::complain(const std::string& complaint) {
  if (run_->complaint.empty()) run_->complaint = complaint;
}

void Runner::begin(bool logging) {
  restoreFiles(scenario_);
  makeVariables();
  forgetGzErrors();
  w.session = 1;
  w.isPending = false;
  w.quiet = true;
  before_ = countNow();
  KvfStartup(1);
  openBystander(&ownSession);
  emptyClassError();
  if (scenario_.lineReader)
    KvFileSetLineReader(reinterpret_cast<LineReaderStateType*>(&w.lineReader));
  clearCalls();
  contents_.begin();
  w.logging = logging;
  for (int i = 0; i < plan_.count; ++i) w.planned[i] = plan_.faults[i];
  w.plannedCount = plan_.count;
}

std::string Runner::step(const Step& step) {
  OopType file = OOP_NIL;
  const std::vector<OopType> arguments = makeArguments(step, &file);
  const std::string oldB = findObject(variable(VAR_B))->bytes;
  const std::string oldS = findObject(variable(VAR_S))->bytes;
  const std::string oldLog = w.logged;
  w.ownsMap = step.name == "KvfStartup" || step.name == "KvfShutdown";
  contents_.before(step, arguments, file);
  const Answer answer = carryOut(step, arguments);
  const bool quiet = w.quiet;
  w.quiet = true;
  complain(contents_.after(step, arguments, file, answer));
  w.quiet = quiet;
  if (answer.frameLeft) complain("an error-jump frame is left");
  std::string text = answer.text;
  const std::string& newB = findObject(variable(VAR_B))->bytes;
  const std::string& newS = findObject(variable(VAR_S))->bytes;
  if (newB != oldB) text += ", B = " + quoted(newB);
  if (newS != oldS) text += ", S = " + quoted(newS);
  if (w.logged != oldLog) text += ", logged " + quoted(w.logged);
  return text;
}

void Runner::steps(std::vector<std::string>* answers, bool counted) {
  for (size_t i = 0; i < scenario_.steps.size(); ++i) {
    w.step = static_cast<int>(i);
    w.quiet = !counted;
    answers->push_back(step(scenario_.steps[i]));
    w.quiet = true;
  }
}

// The files that are not as every run finds them. A gzip file's bytes are zlib's own affair.
std::string changedFiles(const Scenario& scenario) {
  std::string text;
  for (size_t i = 0; i < FILES; ++i) {
    const MemFile& file = w.files[i];
    const bool known = i < preparedFiles.size();
    const std::string old = i == 0 ? scenario.inputText : known ? preparedFiles[i].bytes : "";
    if (file.name.empty() ||
        (known && file.exists && file.bytes == old && file.name == preparedFiles[i].name))
      continue;
    text += ", " + file.name;
    if (!file.exists) {
      text += " is gone";
    } else if (file.kind == Kind::Directory) {
      text += " is a directory";
    } else if (file.name.ends_with(".gz")) {
      std::string content;
      const bool complete = expand(file.bytes, &content);
      text += std::string(complete ? " = gzip " : " = part of a gzip ") + quoted(content);
    } else {
      text += " = " + quoted(file.bytes);
    }
  }
  return text;
}

// Asks all that Smalltalk can ask of the file and of the class, and then for the step once more.
void Runner::look() {
  const Step& marked = scenario_.steps[scenario_.marked];
  OopType file = OOP_NIL;
  makeArguments(marked, &file);
  if (file == OOP_NIL) file = variable(VAR_F);
  w.step = -1;
  w.session = 1;
  std::string& look = run_->look;
  // First what the class holds: an object that is not registered would take it.
  const std::string classCode = act("KvfErrorCode", {NO_FILE}).text;
  const std::string classText = act("KvfErrorString", {NO_FILE}).text;
  const OopType room = oopFromSmallInteger(1100);
  look = "code " + act("KvfErrorCode", {file}).text;
  look += " " + act("KvFileFetchErrorString", {file, room, oopFromSmallInteger(1)}).text;
  act("KvfErrorString", {file});
  const Answer isOpen = act("KvfIsOpen", {file});
  look += isOpen.raised ? ", unknown" : isOpen.oop == OOP_TRUE ? ", open" : ", closed";
  if (isOpen.oop == OOP_TRUE) look += " at " + act("KvfPosition", {file}).text;
  if (classCode != "0" || classText != "nil") look += ", class " + classCode + " " + classText;
  look += changedFiles(scenario_);
  run_->again = step(marked);
}

void Runner::end() {
  w.session = 1;
  KvfShutdown(1);
  KvfShutdown(THIRD_SESSION);
  KvFileShutdownLineReader();
  const int allowed = contents_.allowedLeaks();
  // Their descriptors go with them.
  if (closeLeftHandles() > allowed) complain("gzip handles are left");
  const Counts now = countNow();
  if (now.blocks != before_.blocks)
    complain("blocks are left: " + std::to_string(now.blocks - before_.blocks));
  if (now.descriptors > before_.descriptors + allowed) complain("descriptors are left");
  if (now.descriptors < before_.descriptors) complain("descriptors of others were closed");
  if (now.maps != before_.maps) complain("a file map is left");
  if (w.zlibBlocks != 0) complain("blocks of zlib are left");
  if (!w.releasable.empty()) complain("a converted text was not released");
  for (int fd = FIRST_FREE_FD; fd < DESCRIPTORS; ++fd) {
    if (fd == otherSession.fd) continue;
    w.descriptors[fd].open = false;
    w.streams[fd].open = false;
  }
  w.zlibBlocks = 0;
  // What is left now would be counted against the next run.
  w.blocks = before_.blocks;
  for (KciOopMapType& map : w.maps) map.used = map.used && &map == w.slots[BYSTANDER];
  complain(checkBystander(otherSession));
}

// The file objects are used once more, for the whole scenario, and nothing fails: all is as it would
// have been. Only texts may be missing, since a record keeps its first one for ever.
void Runner::rerun(const Run* reference) {
  w.quiet = true;
  w.session = 1;
  if (!scenario_.touchesAll) complain(checkBystander(ownSession));
  act("KvfCloseAll", {variable(VAR_CLASS)});
  complain(contents_.compressedFiles(scenario_.gap));
  contents_.forget();
  restoreFiles(scenario_);
  *findObject(variable(VAR_B)) = {OOP_CLASS_STRING, false, "", {}};
  *findObject(variable(VAR_S)) = {OOP_CLASS_STRING, false, "0123456789", {}};
  emptyClassError();
  const bool hadSession = w.slots[1] != nullptr;
  if (!hadSession) KvfStartup(1);
  std::vector<std::string> answers;
  steps(&answers, false);
  run_->rerun = answers[scenario_.marked];
  const Step& marked = scenario_.steps[scenario_.marked];
  // These answers tell whether the object was known, which a failure may well have changed.
  if (marked.name == "KvfOpen" || marked.name == "KvfCreateStdFile" ||
      marked.name == "KvfFinalizeAll" || marked.name == "KvfGetFileDesc") {
    const bool integer = !run_->rerun.empty() && isdigit(run_->rerun[0]);
    if (integer) run_->rerun = "an integer";
  }
  // Nor do these tell more than whether the text was the record's first.
  if (marked.name == "KvfErrorString" || marked.name == "KvFileFetchErrorString") return;
  if (reference != nullptr && reference->rerun != run_->rerun) {
    complain("used again it answers " + run_->rerun + " instead of " + reference->rerun);
  }
}

void Runner::run(const Run* reference, bool logging) {
  begin(logging);
  steps(&run_->answers, true);
  run_->fired = w.fired;
  run_->firstFired = w.firstFired;
  run_->made = w.made;
  run_->log = w.log;
  w.plannedCount = 0;
  for (const std::string& answer : run_->answers) mixText(answer.data(), answer.size());
  look();
  // What failed in the first run lies behind.
  const int fired = w.fired;
  rerun(reference);
  w.fired = fired;
  end();
  mixText(run_->look.data(), run_->look.size());
  mixText(run_->again.data(), run_->again.size());
  run_->digest = w.digest;
}

}  // namespace

void prepare() {
  const std::string text = "first line\nsecond line\r\nthe third is a longer line of text\nno end";
  const std::string large = lines(110);
  const std::string numbers = "104 101 108\t108 111\n256 0065 12345 7 x 9";
  std::string damaged = compress(large);
  damaged[damaged.size() / 2] = static_cast<char>(damaged[damaged.size() / 2] ^ 0x55);
  const std::string bystander = "a bystander's bytes, to be left alone";
  preparedFiles = {
      {"stdin", "", Kind::Regular},
      {"stdout", "", Kind::Regular},
      {"stderr", "", Kind::Regular},
      {"other.txt", bystander, Kind::Regular},
      {"own.txt", bystander, Kind::Regular},
      {"a.txt", text, Kind::Regular},
      {"large.txt", large, Kind::Regular},
      {"numbers.txt", numbers, Kind::Regular},
      {"empty.txt", "", Kind::Regular},
      {"dir", "", Kind::Directory},
      {"a.gz", compress(text), Kind::Regular},
      {"large.gz", compress(large), Kind::Regular},
      {"two.gz", compress("first\n") + compress("second\n"), Kind::Regular},
      {"numbers.gz", compress(numbers), Kind::Regular},
      {"damaged.gz", damaged, Kind::Regular},
      {"cut.gz", compress(large).substr(0, 200), Kind::Regular},
      {"empty.gz", "", Kind::Regular},
  };
  w.quiet = true;
  otherSession.object = variable(VAR_OTHER);
  ownSession.object = variable(VAR_OWN);
  restoreFiles(Scenario());
  makeVariables();
  KvfUserActionInit();
  KvfPassiveObjActionInit();
  KvfStartup(BYSTANDER);
  openBystander(&otherSession);
}

Run runScenario(const Scenario& scenario, const Plan& plan, const Run* reference, bool logging) {
  Run run;
  Runner(scenario, plan, &run).run(reference, logging);
  return run;
}

std::string planText(const Plan& plan) {
  std::string text;
  for (int i = 0; i < plan.count; ++i) {
    const Planned& planned = plan.faults[i];
    if (i > 0) text += " and ";
    text += "call " + std::to_string(planned.at) + " " + planned.fault->name +
            (planned.forever ? " for ever" : "");
  }
  return text.empty() ? "no fault" : text;
}

}  // namespace every_fault
