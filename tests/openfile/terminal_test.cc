// Reading standard input that is a terminal, with the line reader and without it: a child process
// behind a pseudo-terminal runs the module, the test types.
#include "openfile/openfile_fixture.h"

#include <poll.h>
#include <pty.h>
#include <signal.h>

#include <chrono>

namespace kvtest {
namespace {

// Waits for `fd` to have something to read; long enough for a machine with much else to do.
bool readable(int fd) {
  struct pollfd waited = {fd, POLLIN, 0};
  return poll(&waited, 1, 300000) > 0;
}

// A child process whose controlling terminal is this object's; what `body` tells comes back.
class Terminal {
 public:
  explicit Terminal(const std::function<std::string()>& body) {
    int told[2];
    EXPECT_EQ(pipe(told), 0);
    fflush(nullptr);
    pid_ = forkpty(&keyboard_, nullptr, nullptr, nullptr);
    if (pid_ == 0) {
      close(told[0]);
      setenv("TERM", "dumb", 1);
      const std::string text = body();
      _exit(::write(told[1], text.data(), text.size()) == static_cast<ssize_t>(text.size()) ? 0
                                                                                            : 3);
    }
    close(told[1]);
    told_ = told[0];
  }
  Terminal(const Terminal&) = delete;
  Terminal& operator=(const Terminal&) = delete;
  ~Terminal() {
    if (pid_ != 0) finish();
  }

  // Waits until the screen shows `text` behind what was waited for before, then types.
  void typeAt(std::string_view text, std::string_view typed) {
    while (screen_.find(text, seen_) == std::string::npos) {
      char piece[512];
      const ssize_t n = readable(keyboard_) ? ::read(keyboard_, piece, sizeof piece) : 0;
      if (n <= 0) {
        ADD_FAILURE() << "'" << text << "' was not shown, but: " << screen_;
        return;
      }
      screen_.append(piece, static_cast<std::size_t>(n));
    }
    seen_ = screen_.find(text, seen_) + text.size();
    EXPECT_EQ(::write(keyboard_, typed.data(), typed.size()), static_cast<ssize_t>(typed.size()));
  }

  // What the child told in the end.
  std::string finish() {
    std::string text;
    char piece[4096];
    ssize_t n = 0;
    while (readable(told_) && (n = ::read(told_, piece, sizeof piece)) > 0)
      text.append(piece, static_cast<std::size_t>(n));
    close(told_);
    kill(pid_, SIGKILL);
    int status = 0;
    waitpid(pid_, &status, 0);
    pid_ = 0;
    close(keyboard_);
    return text;
  }

 private:
  pid_t pid_ = 0;
  int keyboard_ = -1;
  int told_ = -1;
  std::string screen_;
  std::size_t seen_ = 0;
};

class TerminalInput : public OpenFileTest {
 protected:
  OopType input() {
    const OopType file = kvhost::newKvFile();
    call("KvfCreateStdFile", {file, smallInt(0)});
    return file;
  }
  std::string ask(OopType file, std::string_view prompt) {
    return show(getLine(file, OOP_NIL, 1, smallInt(10), str(prompt)));
  }
  void installLineReader() {
    LineReaderStateType* reader = kvhost::lineReaderCreate("openfile_tests", "");
    KvFileSetLineReader(reader);
    lineReaderInstalled_ = reader != nullptr;
  }
  // Which function fetched lines while `body` ran.
  template <typename Body>
  std::string fetchedWith(Body body) {
    Transcript used;
    for (const seam::Call& one : callsDuring(body))
      if (one.name == "UnixIoFgets_" || one.name == "LrSupReadLine") used << one.name;
    return used;
  }
  // Shows `text`, so that the test knows when to type.
  static void announce(std::string_view text) {
    if (::write(1, text.data(), text.size()) < 0) _exit(4);
  }

  bool lineReaderInstalled_ = false;
};

TEST_F(TerminalInput, LinesAreTypedAtThePrompt) {
  Terminal terminal([this] {
    const OopType file = input();
    return Transcript() << ask(file, "first? ") << errorCode(file) << ask(file, "second? ")
                        << errorCode(file);
  });
  terminal.typeAt("first? ", "one\n");
  terminal.typeAt("second? ", "two words\n");
  EXPECT_EQ(terminal.finish(), "'one\n' 29 'two words\n' 29");
}

TEST_F(TerminalInput, EndOfInputIsNil) {
  Terminal terminal([this] {
    const OopType file = input();
    Transcript told;
    told << ask(file, "first? ") << ask(file, "second? ");
    const std::string used = fetchedWith([&] { told << atEnd(file); });
    return told << "[" + used + "]" << getC(file) << errorCode(file);
  });
  terminal.typeAt("first? ", "one\n");
  terminal.typeAt("second? ", "\x04");
  terminal.typeAt("", "\x04");
  EXPECT_EQ(terminal.finish(), "'one\n' nil true [] nil 29");
}

TEST_F(TerminalInput, AnInterruptIsMinusTwoAndTheNextLineIsRead) {
  Terminal terminal([this] {
    kvhost::enableInterrupts();
    const OopType file = input();
    Transcript told;
    told << ask(file, "first? ") << ask(file, "second? ");
    announce("third? ");
    return told << show(read(file, str(""), 1, 4)) << ask(file, "fourth? ");
  });
  terminal.typeAt("first? ", "\x03");
  terminal.typeAt("second? ", "two\n");
  terminal.typeAt("third? ", "\x03");
  terminal.typeAt("fourth? ", "four\n");
  EXPECT_EQ(terminal.finish(), "-2 'two\n' -2 'four\n'");
}

TEST_F(TerminalInput, SingleBytesComeFromALine) {
  Terminal terminal([this] {
    const OopType file = input();
    announce("type ");
    return Transcript() << getC(file) << readBytes(file, 1) << show(getLine(file))
                        << errorCode(file);
  });
  terminal.typeAt("type ", "abc\n");
  EXPECT_EQ(terminal.finish(), "$97 b 'c\n' 29");
}

TEST_F(TerminalInput, TheLineReaderReadsWhatIsTyped) {
  Terminal terminal([this] {
    installLineReader();
    const OopType file = input();
    Transcript told;
    told << (lineReaderInstalled_ ? "installed" : "refused");
    told << fetchedWith([&] { told << ask(file, "first? "); });
    told << fetchedWith([&] { told << ask(file, "second? "); });
    KvFileShutdownLineReader();
    return told;
  });
  terminal.typeAt("first? ", "one\n");
  terminal.typeAt("second? ", "two words\n");
  EXPECT_EQ(terminal.finish(), "installed 'one\n' LrSupReadLine 'two words\n' LrSupReadLine");
}

TEST_F(TerminalInput, TheLineReaderIsNotAskedForOneByte) {
  Terminal terminal([this] {
    installLineReader();
    const OopType file = input();
    Transcript told;
    announce("type ");
    told << fetchedWith([&] { told << readBytes(file, 1); });
    KvFileShutdownLineReader();
    return told;
  });
  terminal.typeAt("type ", "abc\n");
  EXPECT_EQ(terminal.finish(), "a UnixIoFgets_");
}

TEST_F(TerminalInput, WithoutATerminalTheLineReaderIsNotAsked) {
  EXPECT_EQ(inChild([this]() -> std::string {
              int ends[2];
              if (pipe(ends) != 0 || ::write(ends[1], "abc\n", 4) != 4) return "no pipe";
              dup2(ends[0], 0);
              char unused = 0;
              KvFileSetLineReader(reinterpret_cast<LineReaderStateType*>(&unused));
              Transcript told;
              told << fetchedWith([&] { told << show(getLine(input())); });
              return told;
            }),
            "'abc\n' UnixIoFgets_");
}

TEST_F(TerminalInput, TheLineReaderTellsTheEndOfInput) {
  Terminal terminal([this] {
    installLineReader();
    const OopType file = input();
    Transcript told;
    told << ask(file, "first? ") << atEnd(file) << errorCode(file);
    KvFileShutdownLineReader();
    return told;
  });
  terminal.typeAt("first? ", "\x04");
  EXPECT_EQ(terminal.finish(), "nil true 29");
}

TEST_F(TerminalInput, TheLineReaderIsInterrupted) {
  Terminal terminal([this] {
    kvhost::enableInterrupts();
    installLineReader();
    const OopType file = input();
    Transcript told;
    told << ask(file, "first? ") << ask(file, "second? ");
    KvFileShutdownLineReader();
    return told;
  });
  terminal.typeAt("first? ", "\x03");
  terminal.typeAt("second? ", "two\n");
  EXPECT_EQ(terminal.finish(), "-2 'two\n'");
}

// The line readers that were shut down while `body` ran.
template <typename Body>
std::string shutDownsDuring(Body body) {
  seam::clear();
  seam::start();
  body();
  Transcript shut;
  for (const seam::Call& one : seam::stop())
    if (one.name == "LineReadShutdown") shut << "shut";
  return std::string(shut).empty() ? "none" : std::string(shut);
}

TEST_F(TerminalInput, TheInstalledLineReaderIsShutDownOnceAndAReplacedOneNot) {
  Terminal terminal([] {
    Transcript told;
    told << shutDownsDuring([] { KvFileShutdownLineReader(); });
    LineReaderStateType* const first = kvhost::lineReaderCreate("first", "");
    LineReaderStateType* const second = kvhost::lineReaderCreate("second", "");
    told << shutDownsDuring([&] {
      KvFileSetLineReader(first);
      KvFileSetLineReader(second);
    });
    told << shutDownsDuring([] { KvFileShutdownLineReader(); });
    told << shutDownsDuring([] { KvFileShutdownLineReader(); });
    KvFileSetLineReader(first);
    KvFileSetLineReader(nullptr);
    return told << shutDownsDuring([] { KvFileShutdownLineReader(); });
  });
  EXPECT_EQ(terminal.finish(), "none none shut none none");
}

}  // namespace
}  // namespace kvtest
