// Programs of the shell: tokens that stand in their order within the text, a tree or a syntax error in
// it, and a run that leaves nothing behind. What is run whole and what is run as it is read must print
// the same. Runs in a root directory of its own, with loops cut short.
#include <kvfile/kvfile.h>
#include <kvfile/kvhost.h>

#include "interpreter.h"
#include "lexer.h"
#include "parser.h"
#include "runner.h"
#include "support/jail.h"
#include "support/target.h"
#include "value.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <sstream>
#include <string>

namespace {

constexpr int LOOP_TURNS = 300;
constexpr int NOT_RUNNING = 1 << 30;
int turnsLeft = NOT_RUNNING;

// What is not the same in a second run.
bool isRepeatable(std::string_view source) {
  static constexpr std::array VARYING = {
      std::string_view("Session"),  std::string_view("Smalltalk"), std::string_view("millis"),
      std::string_view("Time"),     std::string_view("Lock"),      std::string_view("Startup"),
      std::string_view("Shutdown"), std::string_view("EnvVar")};
  for (const std::string_view word : VARYING)
    if (source.find(word) != std::string_view::npos) return false;
  return true;
}

void checkTokens(std::string_view source) {
  size_t last = 0;
  for (const shell::Token& token : shell::tokenize(source)) {
    fuzz::expect(token.offset >= last && token.offset <= source.size(), "a token out of its place");
    last = token.offset;
  }
}

bool parses(std::string_view source) {
  try {
    checkTokens(source);
    shell::parse(source);
    return true;
  } catch (const shell::SyntaxError& error) {
    const shell::SourceText text(source);
    fuzz::expect(!shell::describe(error, "input", text).empty(), "an error without words");
    return false;
  }
}

// A text that is handed out line by line.
class Lines : public shell::TextSource {
 public:
  explicit Lines(std::string_view text) : text_(text) {}

  bool readMore(std::string* text) override {
    const size_t length = std::min(text_.find('\n'), text_.size() - 1) + 1;
    if (text_.empty()) return false;
    text->append(text_.substr(0, length));
    text_.remove_prefix(length);
    return true;
  }

 private:
  std::string_view text_;
};

std::string run(std::string_view source, bool asRead) {
  const fuzz::Jail jail;
  std::ostringstream out;
  turnsLeft = LOOP_TURNS;
  try {
    shell::Interpreter interpreter(out);
    const OopType nothing = OOP_NIL;
    kvhost::callAction("KvfErrorString", &nothing, 1);  // the class-level error is the process's
    shell::RunOptions options;
    options.keepGoing = true;
    options.longestAnswer = 2000;
    shell::Runner runner(interpreter, out, options);
    if (asRead) {
      Lines lines(source);
      runner.runAsRead(lines, "input");
    } else {
      runner.run(source, "input");
    }
  } catch (const shell::QuitRequest&) {
    out << "quit";
  }
  turnsLeft = NOT_RUNNING;
  fuzz::expect(kvhost::errorJumpDepth() == 0 && kvhost::forgottenErrorJumps() == 0,
               "a frame is left registered");
  return out.str();
}

bool begin() {
  if (!fuzz::Jail::isPossible()) return false;
  fuzz::silence(STDIN_FILENO);
  fuzz::silence(STDOUT_FILENO);
  fuzz::silence(STDERR_FILENO);
  kvhost::initialize();
  KvfUserActionInit();
  KvfPassiveObjActionInit();
  return true;
}

}  // namespace

// Loops ask whether the user interrupts them: he does, after so many turns.
extern "C" bool __wrap__ZN6kvhost13takeInterruptEv() { return --turnsLeft < 0; }
// A fault on purpose would be taken for a finding.
extern "C" void __wrap__ZN6kvhost20setTestPointerFaultsEb(bool /*faults*/) {}
// Other programs are not this target's matter; libFuzzer itself starts some when it merges.
extern "C" int __real_system(const char* command);
extern "C" int __wrap_system(const char* command) {
  return turnsLeft == NOT_RUNNING ? __real_system(command) : -1;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const bool possible = begin();
  if (!possible) return 0;
  const std::string_view source = fuzz::textOf({data, size});
  const bool isWhole = parses(source);
  const int descriptors = fuzz::openDescriptors();
  const std::string whole = run(source, false);
  fuzz::expect(fuzz::openDescriptors() == descriptors, "a descriptor is left open");
  if (isWhole && isRepeatable(source)) {
    const std::string asRead = run(source, true);
    if (whole != asRead) fuzz::fail("run whole:\n" + whole + "\nas read:\n" + asRead);
  }
  kvhost::collectGarbage();
  return 0;
}
