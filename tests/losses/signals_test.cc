// Reading, writing, opening and closing a FIFO while a timer's signals, handled without SA_RESTART,
// keep interrupting the process: every byte that is delivered is right, or the call fails and goes on
// failing until the file is opened again.
//
// KVF_SIGNAL_ROUNDS sets the number of rounds of each test; a few dozen are the usual number.
#include "losses/gzip_files.h"

#include <signal.h>
#include <sys/stat.h>
#include <sys/time.h>

#include <atomic>

namespace kvtest {
namespace {

constexpr int USUAL_ROUNDS = 32;
constexpr suseconds_t INTERVAL_US = 200;

int rounds() {
  const char* asked = getenv("KVF_SIGNAL_ROUNDS");
  const int number = asked != nullptr ? atoi(asked) : 0;
  return number > 0 ? number : USUAL_ROUNDS;
}

volatile sig_atomic_t ticks = 0;

// The signals, for as long as it lives.
class Interruptions {
 public:
  Interruptions() {
    ticks = 0;
    struct sigaction action = {};
    action.sa_handler = [](int) { ticks = ticks + 1; };
    sigaction(SIGALRM, &action, &before_);
    struct itimerval timer = {{0, INTERVAL_US}, {0, INTERVAL_US}};
    setitimer(ITIMER_REAL, &timer, nullptr);
  }
  ~Interruptions() {
    struct itimerval none = {};
    setitimer(ITIMER_REAL, &none, nullptr);
    sigaction(SIGALRM, &before_, nullptr);
  }
  Interruptions(const Interruptions&) = delete;
  Interruptions& operator=(const Interruptions&) = delete;

 private:
  struct sigaction before_ = {};
};

// The process at the other end of the FIFO. It makes breaks, so that this end has to wait.
class OtherEnd {
 public:
  // Writes `bytes` in pieces.
  static OtherEnd thatWrites(const std::string& path, const std::string& bytes, int round) {
    return OtherEnd([=] {
      const int fd = open(path.c_str(), O_WRONLY);
      unsigned state = static_cast<unsigned>(round) * 7919U + 1;
      for (std::size_t at = 0; at < bytes.size();) {
        state = state * 1664525U + 1013904223U;
        const std::size_t piece = std::min<std::size_t>(bytes.size() - at, 256 + (state >> 22));
        if (::write(fd, bytes.data() + at, piece) != static_cast<ssize_t>(piece)) return;
        at += piece;
        if ((state >> 8) % 4 == 0) usleep((state >> 12) % 1000);
      }
    });
  }

  // Reads all that comes into the file `received`, slowly, through a pipe that holds one page.
  static OtherEnd thatReads(const std::string& path, const std::string& received, int round) {
    return OtherEnd([=] {
      const int fd = open(path.c_str(), O_RDONLY);
      fcntl(fd, F_SETPIPE_SZ, 4096);
      const int out = open(received.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
      unsigned state = static_cast<unsigned>(round) * 104729U + 1;
      char piece[3000];
      for (ssize_t n; (n = ::read(fd, piece, sizeof piece)) > 0;) {
        if (::write(out, piece, static_cast<std::size_t>(n)) != n) _exit(4);
        state = state * 1664525U + 1013904223U;
        if ((state >> 8) % 3 == 0) usleep((state >> 12) % 800);
      }
    });
  }

  ~OtherEnd() {
    if (pid_ <= 0) return;
    int status = 0;
    while (waitpid(pid_, &status, 0) < 0 && errno == EINTR) {
    }
    EXPECT_EQ(status, 0) << "the other end did not end in peace";
  }
  OtherEnd(const OtherEnd&) = delete;
  OtherEnd& operator=(const OtherEnd&) = delete;

 private:
  explicit OtherEnd(const std::function<void()>& body) {
    fflush(nullptr);
    pid_ = fork();
    if (pid_ != 0) return;
    signal(SIGPIPE, SIG_IGN);
    alarm(300);
    body();
    _exit(0);
  }
  pid_t pid_ = 0;
};

class Signals : public OpenFileTest {
 protected:
  void SetUp() override {
    OpenFileTest::SetUp();
    ASSERT_EQ(mkfifo("fifo", 0600), 0);
    pipeBefore_ = signal(SIGPIPE, SIG_IGN);
  }
  void TearDown() override {
    signal(SIGPIPE, pipeBefore_);
    OpenFileTest::TearDown();
  }

  // Opens the FIFO; an open that was interrupted says so, and is tried again.
  OopType openFifo(const char* mode, bool compressed) {
    const OopType file = kvhost::newKvFile();
    for (;;) {
      const OopType answer =
          call("KvfOpen", {file, str("fifo"), str(mode), oopFromBool(compressed)});
      if (answer != OOP_NIL) {
        EXPECT_EQ(show(answer), "1");
        return file;
      }
      const std::string code = errorCode(OOP_NIL);
      takeError(OOP_NIL);
      if (code != std::to_string(EINTR)) {
        ADD_FAILURE() << "the open failed with " << code;
        return OOP_NIL;
      }
      ++interruptedOpens_;
    }
  }

  // One piece of the file, by a kind of read that the round chooses; nothing at its end, and `failed`
  // where the read failed.
  std::string readPiece(OopType file, int kind, bool* failed) {
    switch (kind % 4) {
      case 0: {
        const OopType into = str("");
        const OopType count = read(file, into, 1, 1000);
        *failed = count == OOP_NIL;
        return *failed ? "" : bytes(into);
      }
      case 1: {
        const OopType line = getLine(file);
        *failed = line == OOP_NIL && errorCode(file) != "0";
        return line == OOP_NIL ? "" : bytes(line);
      }
      case 2: {
        const OopType c = call("KvfGetC", {file});
        *failed = c == OOP_NIL && errorCode(file) != "0";
        if (!oopIsCharacter(c)) return "";
        return std::string(1, static_cast<char>(oopCharacterCode(c)));
      }
      default: {
        ByteType memory[777];
        const intptr_t count = KvFileRead(file, memory, sizeof memory, 0);
        *failed = count < 0;
        return count <= 0 ? std::string() : std::string(memory, memory + count);
      }
    }
  }

  std::string answerAndCode(OopType answer, OopType file) {
    return show(answer) + " " + errorCode(file);
  }

  // A file that failed once fails at everything.
  void expectAllRefused(OopType file) {
    for (int i = 0; i < 3; ++i) {
      EXPECT_EQ(answerAndCode(read(file, str(""), 1, 100), file), "nil 5");
      EXPECT_EQ(answerAndCode(call("KvfGetC", {file}), file), "nil 5");
      EXPECT_EQ(answerAndCode(getLine(file), file), "nil 5");
      ByteType memory[100];
      EXPECT_EQ(KvFileRead(file, memory, sizeof memory, 0), -1);
      EXPECT_EQ(show(seek(file, 1000000)), "nil");
      EXPECT_EQ(call("KvfFlush", {file}), OOP_NIL);
      if (HasFailure()) return;
    }
  }

  static bool isPrefix(const std::string& part, const std::string& whole) {
    return part.size() <= whole.size() && whole.compare(0, part.size(), part) == 0;
  }

  int interruptedOpens_ = 0;

 private:
  void (*pipeBefore_)(int) = SIG_DFL;
};

TEST_F(Signals, APlainFifoIsReadWholeAndRight) {
  int64 signalsSeen = 0;
  for (int round = 0; round < rounds() && !HasFailure(); ++round) {
    const std::string text = linesThatHardlyPack(20000, static_cast<unsigned>(round));
    const OtherEnd writer = OtherEnd::thatWrites("fifo", text, round);
    const Interruptions signals;
    const OopType file = openFifo("r", false);
    std::string delivered;
    bool failed = false;
    for (;;) {
      // Single bytes and direct reads are taken in turns with the others.
      const std::string piece = readPiece(file, round % 3, &failed);
      if (piece.empty()) break;
      delivered += piece;
    }
    signalsSeen += ticks;
    EXPECT_TRUE(delivered == text)
        << "round " << round << ": " << delivered.size() << " bytes of " << text.size();
    call("KvfClose", {file});
    kvhost::collectGarbage();
  }
  EXPECT_GT(signalsSeen, rounds()) << "too few signals came to show anything";
}

TEST_F(Signals, APlainFifoIsReadDirectlyWholeAndRight) {
  for (int round = 0; round < rounds() && !HasFailure(); ++round) {
    const std::string text = linesThatHardlyPack(20000, static_cast<unsigned>(round));
    const OtherEnd writer = OtherEnd::thatWrites("fifo", text, round);
    const Interruptions signals;
    const OopType file = openFifo("r", false);
    std::string delivered;
    bool failed = false;
    for (;;) {
      const std::string piece = readPiece(file, 3, &failed);
      if (piece.empty()) break;
      delivered += piece;
    }
    EXPECT_FALSE(failed) << "round " << round;
    EXPECT_TRUE(delivered == text) << "round " << round << ": " << delivered.size() << " bytes";
    call("KvfClose", {file});
    kvhost::collectGarbage();
  }
}

TEST_F(Signals, AGzipFifoDeliversNothingWrongAndStaysFailed) {
  int failures = 0;
  for (int round = 0; round < rounds() && !HasFailure(); ++round) {
    const std::string text = linesThatHardlyPack(40000, static_cast<unsigned>(round));
    const OtherEnd writer = OtherEnd::thatWrites("fifo", gzipMember(text), round);
    const Interruptions signals;
    const OopType file = openFifo("r", true);
    std::string delivered;
    bool failed = false;
    for (;;) {
      const std::string piece = readPiece(file, round, &failed);
      if (piece.empty()) break;
      delivered += piece;
    }
    EXPECT_TRUE(isPrefix(delivered, text))
        << "round " << round << ": wrong bytes among " << delivered.size();
    if (failed) {
      ++failures;
      SCOPED_TRACE("round " + std::to_string(round) + ", first failure " + errorCode(file));
      expectAllRefused(file);
    } else {
      EXPECT_EQ(delivered.size(), text.size()) << "round " << round << ": cut and not told";
    }
    call("KvfClose", {file});
    kvhost::collectGarbage();
  }
  EXPECT_GT(failures, 0) << "no signal met a read that waited";
  RecordProperty("failedRounds", failures);
}

TEST_F(Signals, AGzipFifoThatFailedIsReadAfterItWasOpenedAgain) {
  const std::string text = linesThatHardlyPack(40000);
  int failures = 0;
  for (int round = 0; round < rounds() && !HasFailure(); ++round) {
    OopType file = OOP_NIL;
    bool failed = false;
    {
      const OtherEnd writer = OtherEnd::thatWrites("fifo", gzipMember(text), round);
      {
        const Interruptions signals;
        file = openFifo("r", true);
        while (!readPiece(file, 0, &failed).empty()) {
        }
      }
      failures += failed ? 1 : 0;
      call("KvfClose", {file});
    }
    const OtherEnd writer = OtherEnd::thatWrites("fifo", gzipMember(text), round);
    EXPECT_EQ(call("KvfOpen", {file, str("fifo"), str("r"), OOP_TRUE}), smallInt(2));
    std::string delivered;
    for (;;) {
      const std::string piece = readPiece(file, 0, &failed);
      if (piece.empty()) break;
      delivered += piece;
    }
    EXPECT_TRUE(delivered == text) << "round " << round;
    call("KvfClose", {file});
    kvhost::collectGarbage();
  }
  EXPECT_GT(failures, 0) << "no signal met a read that waited";
}

TEST_F(Signals, APlainFifoIsWrittenWholeAndRight) {
  for (int round = 0; round < rounds() && !HasFailure(); ++round) {
    const std::string text = linesThatHardlyPack(60000, static_cast<unsigned>(round));
    {
      const OtherEnd reader = OtherEnd::thatReads("fifo", "received", round);
      const Interruptions signals;
      const OopType file = openFifo("w", false);
      for (std::size_t at = 0; at < text.size(); at += 9000) {
        const std::string piece = text.substr(at, 9000);
        if (round % 2 == 0) {
          EXPECT_EQ(show(write(file, piece)), std::to_string(piece.size()));
        } else {
          EXPECT_EQ(KvFileWrite(file, reinterpret_cast<const ByteType*>(piece.data()),
                                static_cast<intptr_t>(piece.size()), 0),
                    TRUE);
        }
      }
      EXPECT_EQ(call("KvfClose", {file}), file);
    }
    EXPECT_TRUE(readFile("received") == text) << "round " << round;
    kvhost::collectGarbage();
  }
}

// Writes the text in pieces until one is not taken whole; the bytes that were taken.
class GzipWriting : public Signals {
 protected:
  struct Written {
    std::size_t accepted = 0;
    bool failed = false;
    bool flushed = false;
  };

  bool writePiece(OopType file, const std::string& piece, int round, std::size_t* taken) {
    if (round % 2 == 0) {
      const OopType count = write(file, piece);
      *taken = count == OOP_NIL ? 0 : static_cast<std::size_t>(oopSmallIntegerValue(count));
      return *taken == piece.size();
    }
    const bool done = KvFileWrite(file, reinterpret_cast<const ByteType*>(piece.data()),
                                  static_cast<intptr_t>(piece.size()), 0) == TRUE;
    *taken = done ? piece.size() : 0;
    return done;
  }

  // The longest piece that is handed over at once.
  static constexpr std::size_t PIECE = 9000;

  Written writeAll(OopType file, const std::string& text, int round) {
    Written result;
    while (result.accepted < text.size()) {
      const std::string piece = text.substr(result.accepted, round % 3 == 0 ? 500 : PIECE);
      std::size_t taken = 0;
      result.failed = !writePiece(file, piece, round, &taken);
      result.accepted += taken;
      if (result.failed) return result;
    }
    result.flushed = call("KvfFlush", {file}) == file;
    result.failed = !result.flushed;
    return result;
  }

  // What somebody tries who does not know that the handle is lost.
  void expectNothingIsTaken(OopType file, const std::string& piece) {
    for (int i = 0; i < 3; ++i) {
      std::size_t taken = 0;
      EXPECT_FALSE(writePiece(file, piece, 0, &taken));
      EXPECT_EQ(taken, 0U);
      EXPECT_FALSE(writePiece(file, piece, 1, &taken));
      call("KvfPutC", {file, smallInt('!')});
      call("KvfPrintBytes", {file, str("AB")});
      EXPECT_EQ(call("KvfFlush", {file}), OOP_NIL);
      EXPECT_EQ(show(seek(file, 10000000)), "nil");
      if (HasFailure()) return;
    }
  }
};

TEST_F(GzipWriting, AGzipFifoReceivesNothingWrongAndNothingTwice) {
  int failures = 0;
  for (int round = 0; round < rounds() && !HasFailure(); ++round) {
    const std::string text = linesThatHardlyPack(60000, static_cast<unsigned>(round));
    Written written;
    {
      const OtherEnd reader = OtherEnd::thatReads("fifo", "received", round);
      const Interruptions signals;
      const OopType file = openFifo("w", true);
      written = writeAll(file, text, round);
      if (written.failed) {
        ++failures;
        expectNothingIsTaken(file, text.substr(written.accepted, 1000) + "x");
      }
      call("KvfClose", {file});
    }
    const std::string received = unpackedAsFarAsPossible(readFile("received"));
    EXPECT_TRUE(isPrefix(received, text)) << "round " << round << ": wrong or doubled bytes";
    EXPECT_LE(received.size(), written.accepted + PIECE) << "round " << round;
    if (written.flushed) {
      EXPECT_EQ(received.size(), text.size()) << "round " << round << ": a flush that did not hold";
    }
    kvhost::collectGarbage();
  }
  EXPECT_GT(failures, 0) << "no signal met a write that waited";
  RecordProperty("failedRounds", failures);
}

// Without a flush the close has to write what is left; it answers the file object in any case, so
// what arrived is at least the beginning.
TEST_F(GzipWriting, AnInterruptedCloseWritesNothingWrong) {
  for (int round = 0; round < rounds() && !HasFailure(); ++round) {
    const std::string text = linesThatHardlyPack(7000, static_cast<unsigned>(round));
    bool accepted = false;
    {
      const OtherEnd reader = OtherEnd::thatReads("fifo", "received", round);
      const Interruptions signals;
      const OopType file = openFifo("w", true);
      accepted = write(file, text) == smallInt(static_cast<int64>(text.size()));
      const auto calls = callsNamed("gzclose", [&] { EXPECT_EQ(call("KvfClose", {file}), file); });
      ASSERT_EQ(calls.size(), 1U);
      accepted = accepted && calls[0].result == "0";
    }
    const std::string received = unpackedAsFarAsPossible(readFile("received"));
    EXPECT_TRUE(isPrefix(received, text)) << "round " << round;
    if (accepted) {
      EXPECT_EQ(received.size(), text.size()) << "round " << round;
    }
    kvhost::collectGarbage();
  }
}

// The other end comes late, so that the open itself waits.
TEST_F(Signals, AnOpenThatIsInterruptedSaysSoAndCanBeTriedAgain) {
  for (int round = 0; round < rounds() && !HasFailure(); ++round) {
    const bool compressed = round % 2 == 0;
    const std::string text = linesThatHardlyPack(100, static_cast<unsigned>(round));
    const std::string sent = compressed ? gzipMember(text) : text;
    fflush(nullptr);
    const pid_t late = fork();
    if (late == 0) {
      alarm(300);
      usleep(3000);
      const int fd = open("fifo", O_WRONLY);
      _exit(::write(fd, sent.data(), sent.size()) == static_cast<ssize_t>(sent.size()) ? 0 : 4);
    }
    OopType file = OOP_NIL;
    {
      const Interruptions signals;
      file = openFifo("r", compressed);
    }
    EXPECT_EQ(readBytes(file, 1000), text) << "round " << round;
    call("KvfClose", {file});
    int status = 0;
    waitpid(late, &status, 0);
    EXPECT_EQ(status, 0);
  }
  RecordProperty("interruptedOpens", interruptedOpens_);
}

}  // namespace
}  // namespace kvtest
