// A disk that takes no more: which answer tells it, and which does not.
#include "losses/gzip_files.h"

#include <sys/resource.h>

#include <csignal>

namespace kvtest {
namespace {

class FullDisk : public OpenFileTest {
 protected:
  OopType full(const char* mode, bool compressed = false) {
    return openFile("/dev/full", mode, compressed);
  }

  static bool writeDirectly(OopType file, std::string_view text) {
    return KvFileWrite(file, reinterpret_cast<const ByteType*>(text.data()),
                       static_cast<intptr_t>(text.size()), 0) == TRUE;
  }

  // The code and the text that the file object has; both are then taken.
  std::string told(OopType file) { return Transcript() << errorCode(file) << takeError(file); }
  // The same behind the answer that left them.
  std::string told(OopType file, OopType answer) {
    return Transcript() << (answer == file ? "itself" : show(answer)) << told(file);
  }
  static std::string noSpace() { return "28 '" + hostText(ENOSPC) + "'"; }

  // This process may make no file longer than `bytes`; what would exceed it fails with EFBIG.
  static void limitFilesTo(rlim_t bytes) {
    std::signal(SIGXFSZ, SIG_IGN);
    struct rlimit limit = {};
    getrlimit(RLIMIT_FSIZE, &limit);
    limit.rlim_cur = bytes;
    setrlimit(RLIMIT_FSIZE, &limit);
  }
};

// ---- plain files ----

TEST_F(FullDisk, APlainWriteAnswersNilWithCodeAndText) {
  const OopType file = full("w");
  EXPECT_EQ(told(file, write(file, "abc")), "nil " + noSpace());
}

TEST_F(FullDisk, APlainWriteOfAModuleInCIsFalseWithCodeAndText) {
  const OopType file = full("a");
  EXPECT_FALSE(writeDirectly(file, "abc"));
  EXPECT_EQ(told(file), noSpace());
}

TEST_F(FullDisk, APutByteAndPrintedBytesAreLostWithoutAWord) {
  for (const bool compressed : {false, true}) {
    const OopType file = full("w", compressed);
    EXPECT_EQ(told(file, call("KvfPutC", {file, smallInt('a')})), "true 0 nil");
    EXPECT_EQ(told(file, call("KvfPrintBytes", {file, str("abc")})), "itself 0 nil");
    call("KvfClose", {file});
  }
}

// The bytes were refused before: these have nothing to write, and no reason to fail.
TEST_F(FullDisk, FlushAndCloseOfAPlainFileKnowNothingOfAnEarlierWrite) {
  const OopType file = full("w");
  EXPECT_EQ(write(file, "abc"), OOP_NIL);
  EXPECT_EQ(call("KvfFlush", {file}), file);
  EXPECT_EQ(errorCode(file), "0") << "and the code of the write is gone";
  EXPECT_EQ(call("KvfClose", {file}), file);
}

TEST_F(FullDisk, AWriteThatStoppedInItsMidstAnswersNilAndLeavesItsBeginning) {
  const std::string text = patternBytes(8192);
  EXPECT_EQ(inChild([&] {
              limitFilesTo(5000);
              const OopType file = openFile("out", "w");
              return Transcript() << told(file, write(file, text)) << position(file);
            }),
            "nil 27 '" + hostText(EFBIG) + "' 5000");
  EXPECT_EQ(readFile("out"), text.substr(0, 5000));
}

TEST_F(FullDisk, AnAppendThatStoppedInItsMidstAndIsTriedAgainLeavesItsBeginningTwice) {
  const std::string text = patternBytes(8192);
  EXPECT_EQ(inChild([&] {
              limitFilesTo(5000);
              const OopType file = openFile("out", "a");
              Transcript seen;
              seen << show(write(file, text));
              limitFilesTo(100000);
              return seen << show(write(file, text)) << position(file);
            }),
            "nil 8192 13192");
  EXPECT_EQ(readFile("out"), text.substr(0, 5000) + text);
}

TEST_F(FullDisk, ACloseThatTheSystemRefusesIsNilWithCodeAndText) {
  const OopType file = openFile("out", "w");
  fault("fclose:1:EDQUOT");
  EXPECT_EQ(told(file, call("KvfClose", {file})), "nil 122 '" + hostText(EDQUOT) + "'");
}

// ---- gzip files ----

TEST_F(FullDisk, AShortGzipWriteIsAcceptedAndTheFlushTells) {
  const OopType file = full("w", true);
  EXPECT_EQ(told(file, write(file, "abc")), "3 0 nil");
  EXPECT_EQ(told(file, call("KvfFlush", {file})), "nil " + noSpace());
  EXPECT_EQ(told(file, call("KvfClose", {file})), "itself 0 nil");
}

TEST_F(FullDisk, ASyncOfAGzipFileTellsAsAFlush) {
  const OopType file = full("a", true);
  write(file, "abc");
  EXPECT_EQ(told(file, call("KvfSync", {file})), "nil " + noSpace());
}

TEST_F(FullDisk, AGzipFileThatCouldNotBeWrittenIsClosedAsIfItHadBeen) {
  const OopType file = full("w", true);
  EXPECT_EQ(told(file, write(file, "abc")), "3 0 nil");
  EXPECT_EQ(told(file, call("KvfClose", {file})), "itself 0 nil");
}

TEST_F(FullDisk, EveryOtherCloseOfAGzipFileIsSilentToo) {
  const auto written = [&] {
    const OopType file = full("w", true);
    EXPECT_EQ(show(write(file, "abc")), "3");
    return file;
  };
  OopType file = written();
  EXPECT_EQ(call("KvfCloseAll", {kvhost::CLASS_KV_FILE}), kvhost::CLASS_KV_FILE);
  EXPECT_EQ(told(file), "0 nil");
  file = written();
  EXPECT_EQ(call("KvfOpen", {file, str("other"), str("w"), OOP_FALSE}), smallInt(2));
  EXPECT_EQ(told(file), "0 nil");
  file = written();
  const OopType id = kvhost::newInteger(static_cast<int64>(file));
  EXPECT_EQ(call("KvfClientFinalize", {kvhost::newArray({id})}), OOP_TRUE);
}

TEST_F(FullDisk, ALongGzipWriteAnswersFewerBytesWithoutCodeOrText) {
  const OopType file = full("w", true);
  const std::string lines = linesThatHardlyPack(300000);
  const OopType answer = write(file, lines);
  ASSERT_TRUE(oopIsSmallInteger(answer)) << show(answer);
  EXPECT_LT(oopSmallIntegerValue(answer), static_cast<int64>(lines.size()));
  EXPECT_EQ(told(file), "0 nil");
}

TEST_F(FullDisk, ALongGzipWriteOfAModuleInCIsFalseWithoutCodeOrText) {
  const OopType file = full("w", true);
  const std::string lines = linesThatHardlyPack(300000);
  EXPECT_FALSE(writeDirectly(file, lines));
  EXPECT_EQ(told(file), "0 nil");
  call("KvfClose", {file});  // zlib points into `lines` until then
}

// ---- standard output ----

TEST_F(FullDisk, StandardOutputTellsAWriteAndNotItsLastLineEnd) {
  const auto transcript = [&] {
    const int target = open("/dev/full", O_WRONLY | O_CLOEXEC);
    dup2(target, STDOUT_FILENO);
    const OopType file = kvhost::newKvFile();
    call("KvfCreateStdFile", {file, smallInt(1)});
    Transcript seen;
    seen << told(file, write(file, "abc"));
    return seen << told(file, call("KvfClose", {file}));
  };
  EXPECT_EQ(inChild(transcript), "nil " + noSpace() + " nil 0 nil");
}

// ---- signals ----

TEST_F(FullDisk, AWritePastTheLimitOfFileSizesEndsAProcessThatDoesNotIgnoreItsSignal) {
  const pid_t child = fork();
  if (child == 0) {
    struct rlimit none = {0, 0};
    setrlimit(RLIMIT_CORE, &none);
    limitFilesTo(10);
    std::signal(SIGXFSZ, SIG_DFL);
    write(openFile("out", "w"), "0123456789abc");  // the limit cuts this one short
    _exit(0);
  }
  int status = 0;
  waitpid(child, &status, 0);
  EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGXFSZ);
  EXPECT_EQ(readFile("out"), "0123456789");
}

TEST_F(FullDisk, AWriteToAPipeWithoutAReaderEndsAProcessThatDoesNotIgnoreItsSignal) {
  const pid_t child = fork();
  if (child == 0) {
    std::signal(SIGPIPE, SIG_DFL);
    int ends[2];
    if (pipe(ends) != 0) _exit(1);
    dup2(ends[1], STDOUT_FILENO);
    close(ends[0]);
    const OopType file = kvhost::newKvFile();
    call("KvfCreateStdFile", {file, smallInt(1)});
    write(file, "nobody reads");
    _exit(0);
  }
  int status = 0;
  waitpid(child, &status, 0);
  EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGPIPE);
}

}  // namespace
}  // namespace kvtest
