// What is in the file when the process is killed right behind an answer, or at any call in between.
#include "losses/gzip_files.h"

#include <sys/mman.h>

#include <csignal>
#include <new>

namespace kvtest {
namespace {

// How far a process came that is gone: the bytes that were accepted, and those that a flush, sync or
// close answered for.
struct Progress {
  std::size_t accepted = 0;
  std::size_t flushed = 0;
};

// Memory that a child shares with the test.
class SharedProgress {
 public:
  SharedProgress()
      : progress_(new (mmap(nullptr, sizeof(Progress), PROT_READ | PROT_WRITE,
                            MAP_SHARED | MAP_ANONYMOUS, -1, 0)) Progress()) {}
  ~SharedProgress() { munmap(progress_, sizeof(Progress)); }
  SharedProgress(const SharedProgress&) = delete;
  SharedProgress& operator=(const SharedProgress&) = delete;
  Progress* operator->() const { return progress_; }

 private:
  Progress* progress_;
};

class KilledProcess : public OpenFileTest {
 protected:
  enum class End { Killed, Came, Failed };

  static End endOf(const std::function<void()>& body) {
    std::fflush(nullptr);
    const pid_t child = fork();
    if (child == 0) {
      body();
      _exit(2);
    }
    int status = 0;
    waitpid(child, &status, 0);
    if (WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL) return End::Killed;
    return WIFEXITED(status) && WEXITSTATUS(status) == 0 ? End::Came : End::Failed;
  }

  // Runs `body` in a process that is killed as soon as all of its answers were right.
  static void killBehind(const std::function<bool()>& body) {
    EXPECT_EQ(endOf([&] {
                if (body()) kill(getpid(), SIGKILL);
              }),
              End::Killed)
        << "an answer was another";
  }

  // Runs `body` in a process that is killed behind its at-th call of the platform.
  static End killBehindCall(int64 at, const std::function<bool()>& body) {
    return endOf([&] {
      int64 made = 0;
      seam::setListener([&](const seam::Call&) {
        if (++made == at) kill(getpid(), SIGKILL);
      });
      _exit(body() ? 0 : 1);
    });
  }

  bool accepts(OopType file, std::string_view text) {
    return write(file, text) == smallInt(static_cast<int64>(text.size()));
  }
  bool answersItself(const char* action, OopType file) { return call(action, {file}) == file; }

  // Text that goes out in every way, with flushes between.
  bool writeInEveryWay(const SharedProgress& progress, bool compressed) {
    const OopType file = openFile("out", "w", compressed);
    const auto took = [&](bool answered, std::size_t count) {
      if (answered) progress->accepted += count;
      return answered;
    };
    const auto flushed = [&](bool answered) {
      if (answered) progress->flushed = progress->accepted;
      return answered;
    };
    const auto directly = [&] {
      return KvFileWrite(file, reinterpret_cast<const ByteType*>(text().data() + 20002), 3000, 0);
    };
    return took(accepts(file, text().substr(0, 10000)), 10000) &&
           took(call("KvfPutC", {file, smallInt(text()[10000])}) == OOP_TRUE, 1) &&
           flushed(answersItself("KvfFlush", file)) &&
           took(accepts(file, text().substr(10001, 10001)), 10001) &&
           flushed(answersItself("KvfSync", file)) && took(directly() == TRUE, 3000) &&
           flushed(answersItself("KvfClose", file));
  }
  static const std::string& text() {
    static const std::string lines = linesThatHardlyPack(30000);
    return lines;
  }
  static constexpr std::size_t WRITTEN = 23002;

  // Kills the writer behind each of its calls in turn and hands what is in the file to `check`.
  void killBehindEveryCall(bool compressed,
                           const std::function<void(const Progress&, const std::string&)>& check) {
    int64 at = 1;
    for (;; ++at) {
      SCOPED_TRACE("killed behind call " + std::to_string(at));
      std::filesystem::remove("out");
      const SharedProgress progress;
      const End end = killBehindCall(at, [&] { return writeInEveryWay(progress, compressed); });
      ASSERT_NE(end, End::Failed);
      check(*progress.operator->(), readFile("out"));
      if (end == End::Came) break;
    }
    EXPECT_GT(at, 40) << "the calls of the writer";
  }
};

TEST_F(KilledProcess, PlainBytesThatWereAcceptedAreInTheFile) {
  const std::string large = patternBytes(100000);
  killBehind([&] {
    const OopType file = openFile("out", "w");
    return accepts(file, "small ") && accepts(file, large);
  });
  EXPECT_EQ(readFile("out"), "small " + large);
}

TEST_F(KilledProcess, PlainBytesThatWerePutPrintedAndWrittenDirectlyAreInTheFile) {
  killBehind([&] {
    const OopType file = openFile("out", "a");
    const ByteType direct[] = {'d', 'e'};
    return call("KvfPutC", {file, smallInt('a')}) == OOP_TRUE &&
           call("KvfPrintBytes", {file, str("bc")}) == file &&
           KvFileWrite(file, direct, sizeof direct, 0) == TRUE;
  });
  EXPECT_EQ(readFile("out"), "a98 99 de");
}

TEST_F(KilledProcess, StandardOutputThatWasAcceptedIsInItsFileWithoutALineEnd) {
  killBehind([&] {
    const int target = open("out", O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
    dup2(target, STDOUT_FILENO);
    const OopType file = kvhost::newKvFile();
    call("KvfCreateStdFile", {file, smallInt(1)});
    return accepts(file, "no line end");
  });
  EXPECT_EQ(readFile("out"), "no line end");
}

TEST_F(KilledProcess, GzipBytesThatWereOnlyAcceptedAreLost) {
  killBehind([&] {
    const OopType file = openFile("out", "w", true);
    return accepts(file, "lost") && call("KvfPutC", {file, smallInt('!')}) == OOP_TRUE;
  });
  EXPECT_EQ(readFile("out"), "");
}

TEST_F(KilledProcess, GzipHoldsBackMegabytesOfWhatPacksWell) {
  killBehind([&] { return accepts(openFile("out", "w", true), std::string(5000000, '\0')); });
  EXPECT_EQ(readFile("out"), "");
}

TEST_F(KilledProcess, GzipThatHardlyPacksKeepsItsBeginning) {
  const std::string lines = linesThatHardlyPack(1000000);
  killBehind([&] { return accepts(openFile("out", "w", true), lines); });
  const std::string kept = unpackedAsFarAsPossible(readFile("out"));
  EXPECT_GT(kept.size(), lines.size() - 100000);
  EXPECT_LT(kept.size(), lines.size());
  EXPECT_EQ(lines.compare(0, kept.size(), kept), 0);
}

TEST_F(KilledProcess, GzipBytesAreInTheFileOnceAFlushASyncOrACloseAnsweredIt) {
  for (const char* action : {"KvfFlush", "KvfSync", "KvfClose"}) {
    SCOPED_TRACE(action);
    killBehind([&] {
      const OopType file = openFile("out", "w", true);
      return accepts(file, "kept") && answersItself(action, file);
    });
    EXPECT_EQ(readFile("out").size(), gzipMember("kept").size()) << "the member is whole";
    EXPECT_EQ(unpackedAsFarAsPossible(readFile("out")), "kept");
  }
}

TEST_F(KilledProcess, GzipBytesBehindTheLastFlushAreLostAndThoseBeforeItSound) {
  killBehind([&] {
    const OopType file = openFile("out", "w", true);
    return accepts(file, "kept") && answersItself("KvfFlush", file) && accepts(file, "lost");
  });
  EXPECT_EQ(readFile("out").size(), gzipMember("kept").size());
  EXPECT_EQ(readGzip("out"), "kept");
}

TEST_F(KilledProcess, AtAnyCallAPlainFileHoldsAllThatWasAcceptedAndNothingElse) {
  killBehindEveryCall(false, [&](const Progress& progress, const std::string& content) {
    EXPECT_EQ(text().compare(0, content.size(), content), 0);
    EXPECT_GE(content.size(), progress.accepted);
    EXPECT_LE(content.size(), WRITTEN);
  });
}

TEST_F(KilledProcess, AtAnyCallAGzipFileHoldsAllThatWasFlushedAndNothingElse) {
  killBehindEveryCall(true, [&](const Progress& progress, const std::string& content) {
    const std::string unpacked = unpackedAsFarAsPossible(content);
    EXPECT_EQ(text().compare(0, unpacked.size(), unpacked), 0);
    EXPECT_GE(unpacked.size(), progress.flushed);
    EXPECT_LE(unpacked.size(), WRITTEN);
  });
}

// What an open for writing does to the file does not wait for anything.
TEST_F(KilledProcess, AnOpenForWritingHasEmptiedTheFileBeforeAnythingIsWritten) {
  for (const bool compressed : {false, true}) {
    writeFile("out", "what was there");
    killBehind([&] { return openFile("out", "w", compressed) != OOP_NIL; });
    EXPECT_EQ(readFile("out"), "");
  }
}

}  // namespace
}  // namespace kvtest
