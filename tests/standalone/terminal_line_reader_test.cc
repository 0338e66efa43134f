// The line reader on a real terminal: a child process on the far side of a pseudo-terminal reads
// lines, while the test types and looks at what is shown.

#include <kvfile/kvhost.h>
#include <kvfile/platform/unixio.h>

#include "standalone/host_fixture.h"
#include "terminal/line_reader.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <sys/ioctl.h>
#include <termios.h>

#include <cerrno>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

namespace {

using hosttest::Clock;
using hosttest::millisSince;
using hosttest::PATIENCE_MILLIS;

constexpr size_t BUFFER_SIZE = 64;

// Everything that the child reports stands between these, so that it can be told from the echo.
std::string reported(const std::string& text) { return "{" + text + "}"; }

std::vector<std::string> completeFruit(std::string_view line, size_t cursor, size_t* wordStart) {
  const size_t space = line.substr(0, cursor).rfind(' ');
  *wordStart = space == std::string_view::npos ? 0 : space + 1;
  const std::string word(line.substr(*wordStart, cursor - *wordStart));
  if (word == "CH") return {"cherry"};
  std::vector<std::string> found;
  for (const char* fruit : {"apple", "apricot",
                            "p\xc3\xa9"
                            "che",
                            "p\xc3\xaaru"}) {
    if (std::string(fruit).rfind(word, 0) == 0) found.emplace_back(fruit);
  }
  return found;
}

int report(int status, std::string text) {
  if (!text.empty() && text.back() == '\n') text.back() = '$';
  std::printf("{%d:%s}\n", status, text.c_str());
  std::fflush(stdout);
  return status;
}

using Read = int (*)(LineReaderStateType* reader, char* buf, size_t size);

int readByEditor(LineReaderStateType* reader, char* buf, size_t size) {
  return LrSupReadLine(reader, stdin, buf, size, "prompt> ", TRUE);
}

int readByStream(LineReaderStateType*, char* buf, size_t size) {
  return UnixIoFgets_(buf, size, stdin);
}

// Reads a line, or the next piece of one, and reports its status, which it answers, and its text.
int readAndReport(LineReaderStateType* reader, size_t size, Read read = readByEditor) {
  std::vector<char> buf(size + 1, '#');
  const int status = read(reader, buf.data(), size);
  if (buf[size] != '#') _exit(8);
  return report(status, buf.data());
}

// What the child does with the reader that it has made.
using Body = std::function<void(LineReaderStateType* reader)>;

int withReader(const std::string& history, const Body& body) {
  kvhost::enableInterrupts();
  LineReaderStateType* reader = kvhost::lineReaderCreate("test", history.c_str());
  if (reader == nullptr) return 9;
  kvhost::lineReaderSetCompleter(reader, completeFruit);
  body(reader);
  LineReadShutdown(reader);
  return 0;
}

void waitFor(int gate) {
  char byte = 0;
  if (read(gate, &byte, 1) != 1) _exit(7);
}

class LineReader : public hosttest::InDirectory {
 protected:
  void TearDown() override {
    if (child_ > 0) {
      kill(child_, SIGKILL);
      waitpid(child_, nullptr, 0);
    }
    if (terminal_ >= 0) close(terminal_);
    InDirectory::TearDown();
  }

  // A child on a terminal of its own; `screen` is what its output is read from, its terminal if
  // there is none.
  void launch(const std::function<int()>& child, int screen = -1) {
    if (terminal_ >= 0) close(terminal_);
    shown_.clear();
    struct winsize window = {24, 80, 0, 0};
    child_ = forkpty(&terminal_, nullptr, nullptr, &window);
    ASSERT_GE(child_, 0);
    if (child_ == 0) {
      setenv("TERM", "xterm", 1);
      setenv("HOME", directory.c_str(), 1);
      setenv("LC_ALL", "C.UTF-8", 1);
      _exit(child());
    }
    screen_ = screen >= 0 ? screen : terminal_;
  }

  // One that reads lines until the end of the input.
  int readLines(size_t size = BUFFER_SIZE) {
    return withReader(in("history"), [size](LineReaderStateType* reader) {
      while (readAndReport(reader, size) != -1) {
      }
    });
  }

  void start(size_t size = BUFFER_SIZE) {
    launch([this, size] { return readLines(size); });
    expectShown("prompt> ");
  }

  void type(const std::string& keys) {
    ASSERT_EQ(write(terminal_, keys.data(), keys.size()), static_cast<ssize_t>(keys.size()));
  }

  // Waits until `text` is shown and forgets the screen up to its end.
  void expectShown(const std::string& text) {
    const Clock::time_point begin = Clock::now();
    size_t at = 0;
    while ((at = shown_.find(text)) == std::string::npos) {
      ASSERT_LT(millisSince(begin), PATIENCE_MILLIS) << "not shown: " << text << "\n" << shown_;
      if (!readScreen()) FAIL() << "the terminal was closed; not shown: " << text << "\n" << shown_;
    }
    shown_.erase(0, at + text.size());
  }

  // What is typed before the next prompt would still be handled by the terminal itself.
  void expectReport(const std::string& report) {
    expectShown(reported(report));
    expectShown("prompt> ");
  }
  void expectLine(const std::string& line) { expectReport("0:" + line + "$"); }

  void expectEnd() {
    type("\x04");
    expectShown(reported("-1:"));
    const Clock::time_point begin = Clock::now();
    while (readScreen()) ASSERT_LT(millisSince(begin), PATIENCE_MILLIS) << "it goes on";
    int status = 0;
    ASSERT_EQ(waitpid(child_, &status, 0), child_);
    child_ = -1;
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
  }

  struct termios settings() const {
    struct termios result = {};
    tcgetattr(terminal_, &result);
    return result;
  }

  std::string shown_;
  int terminal_ = -1;
  int screen_ = -1;
  pid_t child_ = -1;

 private:
  // False when the far side is closed.
  bool readScreen() {
    struct pollfd ready = {screen_, POLLIN, 0};
    if (poll(&ready, 1, 500) == 0) return true;
    char piece[512];
    const ssize_t got = read(screen_, piece, sizeof piece);
    if (got <= 0) return false;
    shown_.append(piece, static_cast<size_t>(got));
    return true;
  }
};

TEST_F(LineReader, readsLinesUntilTheEndOfTheInput) {
  start();
  type("hello there\n");
  expectLine("hello there");
  type("\n");
  expectLine("");
  expectEnd();
}

TEST_F(LineReader, editsTheLine) {
  start();
  type("hellp\x7fo\x01>\x05<\n");  // rub out, start of line, end of line
  expectLine(">hello<");
  type("abc\x1b[D\x1b[Dx\n");  // two times cursor left
  expectLine("axbc");
  expectEnd();
}

TEST_F(LineReader, recallsEarlierLines) {
  start();
  type("first\n");
  expectLine("first");
  type("second\n");
  expectLine("second");
  type("\x1b[A\x1b[A\n");
  expectLine("first");
  expectEnd();
}

TEST_F(LineReader, keepsItsHistoryBetweenRunsInAFileOfTheUserAlone) {
  start();
  type("remember me\n");
  expectLine("remember me");
  type("caf\xc3\xa9\n");
  expectLine("caf\xc3\xa9");
  expectEnd();
  struct stat status = {};
  ASSERT_EQ(stat(in("history").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777, 0600U);
  start();
  type("\x1b[A\n");
  expectLine("caf\xc3\xa9");
  type("\x1b[A\x1b[A\n");
  expectLine("remember me");
  expectEnd();
  int files = 0;
  for (const auto& entry : std::filesystem::directory_iterator(directory)) {
    files += entry.path().empty() ? 0 : 1;
  }
  EXPECT_EQ(files, 1) << "only the history itself is left";
}

TEST_F(LineReader, neverWritesOverAFileThatIsNoHistory) {
  hosttest::writeFile(in("history"), "a letter to a friend\n");
  start();
  type("line\n");
  expectLine("line");
  expectEnd();
  EXPECT_EQ(hosttest::readFile(in("history")), "a letter to a friend\n");
}

TEST_F(LineReader, takesUtf8AsCharacters) {
  start();
  type("\xc3\xa9\xe2\x82\xac\xf0\x9f\x98\x80x\x7f\x7f\n");  // rubs out x and one character
  expectLine("\xc3\xa9\xe2\x82\xac");
  expectEnd();
}

TEST_F(LineReader, showsBytesThatAreNoCharacterAsSuch) {
  start();
  type(
      "a\xff"
      "b\n");
  expectLine(
      "a\xef\xbf\xbd"
      "b");
  expectEnd();
}

TEST_F(LineReader, deliversALongLineInPieces) {
  start(9);
  type("0123456789abcdef\n");
  expectShown(reported("0:01234567"));
  expectShown(reported("0:89abcdef"));
  expectReport("0:$");
  const std::string longLine(3000, 'z');
  type(longLine.substr(0, 1500));
  type(longLine.substr(1500) + "\n");
  for (int i = 0; i < 3000 / 8; ++i) expectShown(reported("0:zzzzzzzz"));
  expectReport("0:$");
  expectEnd();
}

TEST_F(LineReader, answersAnInterruptAndForgetsTheLine) {
  start();
  type("half a li");
  expectShown("half a li");
  type("\x03");
  expectShown("^C");
  expectReport("-2:");
  type("whole\n");
  expectLine("whole");
  expectEnd();
}

TEST_F(LineReader, endsOnlyOnAnEmptyLine) {
  start();
  type("ab\x01\x04\n");  // at the start of the line the key deletes the a
  expectLine("b");
  expectEnd();
}

TEST_F(LineReader, restoresTheTerminalAfterEachLineAndAtTheEnd) {
  start();
  const tcflag_t watched = ICANON | ECHO | ISIG;
  const Clock::time_point begin = Clock::now();
  while ((settings().c_lflag & ICANON) != 0 && millisSince(begin) < PATIENCE_MILLIS) usleep(1000);
  EXPECT_EQ(settings().c_lflag & (ICANON | ECHO), 0U) << "edited character by character";
  const int keeper = open(ptsname(terminal_), O_RDWR | O_NOCTTY | O_CLOEXEC);
  ASSERT_GE(keeper, 0);
  type("\x04");
  expectShown(reported("-1:"));
  int status = 0;
  ASSERT_EQ(waitpid(child_, &status, 0), child_);
  child_ = -1;
  EXPECT_EQ(settings().c_lflag & watched, watched);
  close(keeper);
}

TEST_F(LineReader, completesWords) {
  start();
  type("eat ap\t");
  expectShown("apple");
  expectShown("apricot");
  type("pl\n");
  expectLine("eat appl");
  type("eat app\t now\n");
  expectLine("eat apple now");
  type("CH\t\n");
  expectLine("cherry");
  type("p\t\xc3\xa9\t\n");  // the two begin with the same byte, not with the same character
  expectLine(
      "p\xc3\xa9"
      "che");
  type("nothing\t\n");
  expectLine("nothing");
  expectEnd();
}

TEST_F(LineReader, sharesWhatIsTypedAheadWithOtherReaders) {
  launch([this] {
    return withReader(in("history"), [](LineReaderStateType* reader) {
      for (const Read read : {readByEditor, readByStream, readByEditor, readByStream}) {
        readAndReport(reader, BUFFER_SIZE, read);
      }
      readAndReport(reader, BUFFER_SIZE);
    });
  });
  expectShown("prompt> ");
  type("one\ntwo\rthree\rfour\n");  // in one piece, while the editor has the terminal
  for (const char* line : {"one", "two", "three", "four"}) {
    expectShown(reported("0:" + std::string(line) + "$"));
  }
  expectShown("prompt> ");
  expectEnd();
}

TEST_F(LineReader, sharesTheRestOfALongLineWithOtherReaders) {
  launch([this] {
    return withReader(in("history"), [](LineReaderStateType* reader) {
      for (const Read read : {readByEditor, readByStream, readByEditor, readByStream}) {
        readAndReport(reader, 9, read);
      }
      readAndReport(reader, BUFFER_SIZE);
    });
  });
  expectShown("prompt> ");
  type("0123456789abcdefXYZ\nnext\n");
  for (const char* piece : {"01234567", "89abcdef", "XYZ$", "next$"}) {
    expectShown(reported("0:" + std::string(piece)));
  }
  expectShown("prompt> ");
  expectEnd();
}

TEST_F(LineReader, takesWhatWasTypedBeforeItCameUpAndBetweenLines) {
  const hosttest::Pipe gate;
  launch([&] {
    waitFor(gate.readEnd());
    return withReader(in("history"), [&](LineReaderStateType* reader) {
      for (int i = 0; i < 2; ++i) readAndReport(reader, BUFFER_SIZE);
      waitFor(gate.readEnd());
      for (int i = 0; i < 4; ++i) readAndReport(reader, BUFFER_SIZE);
    });
  });
  type("first\nsecond\n");
  expectShown("second\r\n");
  ASSERT_EQ(write(gate.writeEnd(), "1", 1), 1);
  expectShown(reported("0:first$"));
  expectShown(reported("0:second$"));
  type(
      "third\n\x04"
      "fourth\npart");  // with an end of the input
  expectShown("fourth\r\npart");
  ASSERT_EQ(write(gate.writeEnd(), "2", 1), 1);
  expectShown(reported("0:third$"));
  expectShown(reported("-1:"));
  expectShown(reported("0:fourth$"));
  expectShown("prompt> part");
  type("ner\n");
  expectShown(reported("0:partner$"));
}

TEST_F(LineReader, leavesTheTerminalAsItIsWhereTheLineCannotBeShown) {
  hosttest::Pipe output;
  launch(
      [&] {
        dup2(output.writeEnd(), STDOUT_FILENO);
        return readLines();
      },
      output.readEnd());
  output.closeWriteEnd();
  expectShown("prompt> ");
  const tcflag_t watched = ICANON | ECHO | ISIG;
  EXPECT_EQ(settings().c_lflag & watched, watched);
  const int keeper = open(ptsname(terminal_), O_RDWR | O_NOCTTY | O_CLOEXEC);
  ASSERT_GE(keeper, 0);
  type("wrong\x15\xff\tap\t\n");
  expectLine("\xff\tap\t");
  type("enter\r");
  expectLine("enter");
  type("half a li\x03");
  expectReport("-2:");
  expectEnd();
  EXPECT_EQ(settings().c_lflag & watched, watched);
  close(keeper);
}

TEST_F(LineReader, leavesTheTerminalAsItIsWhereTheUserWantsNoEditing) {
  hosttest::writeFile(in(".editrc"), "edit off\n");
  start();
  EXPECT_NE(settings().c_lflag & ICANON, 0U);
  type("wrong\x15right\n");
  expectLine("right");
  expectEnd();
}

TEST_F(LineReader, followsTheSizeOfTheTerminalAndGoesOnAfterAStop) {
  start();
  type("before ");
  expectShown("before");
  const struct winsize window = {24, 40, 0, 0};
  ASSERT_EQ(ioctl(terminal_, TIOCSWINSZ, &window), 0);
  ASSERT_EQ(kill(child_, SIGSTOP), 0);
  int status = 0;
  ASSERT_EQ(waitpid(child_, &status, WUNTRACED), child_);
  struct termios cooked = settings();
  cooked.c_lflag |= ICANON | ECHO;
  ASSERT_EQ(tcsetattr(terminal_, TCSANOW, &cooked), 0);
  ASSERT_EQ(kill(child_, SIGCONT), 0);
  const Clock::time_point begin = Clock::now();
  while ((settings().c_lflag & ICANON) != 0 && millisSince(begin) < PATIENCE_MILLIS) usleep(1000);
  EXPECT_EQ(settings().c_lflag & (ICANON | ECHO), 0U);
  type("after\n");
  expectLine("before after");
  expectEnd();
}

TEST(LineReaderArguments, areCheckedFirst) {
  char buf[4] = "###";
  EXPECT_GT(LrSupReadLine(nullptr, stdin, buf, sizeof buf, "", TRUE), 0);
  EXPECT_EQ(errno, EINVAL);
  LineReadShutdown(nullptr);
  kvhost::lineReaderSetCompleter(nullptr, completeFruit);
}

}  // namespace
