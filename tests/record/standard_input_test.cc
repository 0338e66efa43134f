// Refills from standard input, a line at a time.
#include <kvfile/kvfile.h>

#include "support/record_fixture.h"
#include "support/standard_streams.h"

#include <gmock/gmock.h>

#include <pty.h>

#include <cstring>

namespace kvtest {
namespace {

class StandardInput : public RecordTest {
 protected:
  void TearDown() override {
    KvFileSetLineReader(nullptr);
    RecordTest::TearDown();
  }

  KvFileDataSType* standardInput() { return adopt(stdin, nullptr, true, "r"); }

  // Pretends that a line reader is installed; every call of it has to be answered by a fault.
  static void installLineReader() {
    static int reader;
    KvFileSetLineReader(reinterpret_cast<LineReaderStateType*>(&reader));
  }

  // One refill, and the calls that it made. What it prints is kept out of the test's output.
  ssize_t refill(KvFileDataSType* record, ssize_t wanted, const char* prompt = "") {
    ssize_t available = 0;
    printed_ = writtenTo(STDOUT_FILENO, [&] {
      calls_ = callsDuring([&] { available = record->readIntoBuffer(wanted, prompt); });
    });
    return available;
  }

  // The size that the line fetch was given, -1 when it was not called.
  int sizeGiven(const char* function = "UnixIoFgets_") const {
    for (const seam::Call& call : calls_)
      if (call.name == function) return std::stoi(argumentOf(call, call.name[0] == 'U' ? 1 : 3));
    return -1;
  }
  Traffic traffic() const { return fileTraffic(calls_); }

  std::string printed_;
  std::vector<seam::Call> calls_;
};

TEST_F(StandardInput, IsReadALineAtATime) {
  const StandardInputFrom input("first\nsecond\nlast");
  KvFileDataSType* record = standardInput();
  EXPECT_EQ(refill(record, 4096), 6);
  EXPECT_EQ(traffic(), (Traffic{"lseek(0, SEEK_CUR)", "printf", "fflush", "UnixIoFgets_"}));
  EXPECT_EQ(record->nextOsReadPos, 6);
  EXPECT_EQ(record->readPosition(), 0);
  EXPECT_EQ(record->lastOpWasRead, 1);
  EXPECT_EQ(take(record, 99), "first\n");
  EXPECT_EQ(refill(record, 4096), 7);
  EXPECT_EQ(take(record, 99), "second\n");
  EXPECT_EQ(refill(record, 4096), 4);
  EXPECT_EQ(take(record, 99), "last");
  EXPECT_EQ(record->lastReadEof, FALSE);
  EXPECT_EQ(refill(record, 4096), 0);
  EXPECT_EQ(record->lastReadEof, TRUE);
  EXPECT_EQ(record->lastOpWasRead, 1);
  EXPECT_EQ(failureOf(record), NO_FAILURE);
}

TEST_F(StandardInput, TheSizeLeavesRoomForTheLineEndAndTheNul) {
  struct Case {
    ssize_t wanted;
    int size;
  };
  for (const Case& each :
       {Case{1, 3}, Case{2, 4}, Case{100, 102}, Case{4092, 4094}, Case{4093, 4095},
        Case{4094, 4096}, Case{4095, 4096}, Case{4096, 4096}}) {
    const StandardInputFrom input("line\n");
    KvFileDataSType* record = standardInput();
    refill(record, each.wanted);
    EXPECT_EQ(sizeGiven(), each.size) << each.wanted;
  }
}

TEST_F(StandardInput, BufferedBytesCountAgainstTheSize) {
  const StandardInputFrom input("abc\ndef\n");
  KvFileDataSType* record = standardInput();
  EXPECT_EQ(refill(record, 10), 4);
  EXPECT_EQ(take(record, 1), "a");
  EXPECT_EQ(refill(record, 10), 7) << "the next line lies behind the unread bytes";
  EXPECT_EQ(sizeGiven(), 10 - 3 + 2);
  EXPECT_EQ(record->readBufIdx, 0);
  EXPECT_EQ(take(record, 99), "bc\ndef\n");
}

TEST_F(StandardInput, ALineMayFillTheSpareBytes) {
  const StandardInputFrom input("ab\n" + std::string(6000, 'x') + "\n");
  KvFileDataSType* record = standardInput();
  EXPECT_EQ(refill(record, 4096), 3);
  EXPECT_EQ(refill(record, 4096), 4097);
  EXPECT_EQ(sizeGiven(), 4095);
  EXPECT_EQ(record->readBufSize, 4097);
  EXPECT_EQ(record->readBuffer[4097], 0) << "the NUL is the very last byte";
  EXPECT_EQ(take(record, 5000), "ab\n" + std::string(4094, 'x'));
  EXPECT_EQ(refill(record, 4096), 1907) << "what did not fit comes with the next fetch";
}

TEST_F(StandardInput, APromptIsShownBeforeEachFetchAndFlushed) {
  const StandardInputFrom input("yes\n");
  KvFileDataSType* record = standardInput();
  EXPECT_EQ(refill(record, 4096, "100% sure? "), 4);
  EXPECT_EQ(printed_, "100% sure? ");
  EXPECT_EQ(refill(record, 1, "not again"), 4);
  EXPECT_EQ(printed_, "") << "bytes were buffered";
}

TEST_F(StandardInput, PartOfALineCanBeAskedFor) {
  const StandardInputFrom input("abcdef\n");
  KvFileDataSType* record = standardInput();
  EXPECT_EQ(refill(record, 1), 2) << "size 3: two bytes and the NUL";
  EXPECT_EQ(take(record, 2), "ab");
  EXPECT_EQ(refill(record, 2), 3);
  EXPECT_EQ(take(record, 3), "cde");
}

TEST_F(StandardInput, ALineEndsAtItsNul) {
  const StandardInputFrom input(std::string_view("ab\0cd\nnext\n", 11));
  KvFileDataSType* record = standardInput();
  EXPECT_EQ(refill(record, 4096), 2);
  EXPECT_EQ(take(record, 99), "ab");
}

TEST_F(StandardInput, AnInterruptIsPassedUpEvenWithBytesBuffered) {
  const StandardInputFrom input("abc\ndef\n");
  KvFileDataSType* record = standardInput();
  fault("UnixIoFgets_:1:interrupt");
  EXPECT_EQ(refill(record, 4096), -2);
  EXPECT_EQ(record->lastOpWasRead, -1) << "unchanged";
  EXPECT_EQ(record->lastReadEof, FALSE);
  EXPECT_EQ(failureOf(record), NO_FAILURE);
  clearFaults();
  EXPECT_EQ(refill(record, 4096), 4);
  EXPECT_EQ(take(record, 1), "a");
  fault("UnixIoFgets_:1:interrupt");
  EXPECT_EQ(refill(record, 4096), -2);
  EXPECT_EQ(record->lastOpWasRead, 1);
  EXPECT_EQ(take(record, 99), "bc\n") << "nothing was lost";
}

TEST_F(StandardInput, AnInterruptOfALineScanIsPassedUp) {
  const StandardInputFrom input("abc\n");
  KvFileDataSType* record = standardInput();
  fault("UnixIoFgets_:1:interrupt");
  intptr_t next = 0;
  EXPECT_EQ(record->readToEol(asBytes("\n"), 1, &next, TRUE, ""), -2);
}

TEST_F(StandardInput, EndOfInputWithBytesBufferedAnswersThose) {
  const StandardInputFrom input("abc\n");
  KvFileDataSType* record = standardInput();
  EXPECT_EQ(refill(record, 4096), 4);
  EXPECT_EQ(refill(record, 4096), 4);
  EXPECT_EQ(record->lastReadEof, TRUE);
  EXPECT_EQ(record->lastOpWasRead, 1);
}

TEST_F(StandardInput, AnyOtherStatusIsNoEndAndNoFailure) {
  for (const int status : {-3, 1, 5}) {
    const StandardInputFrom input("abc\n");
    KvFileDataSType* record = standardInput();
    clearFaults();
    fault("UnixIoFgets_:1:result=" + std::to_string(status));
    EXPECT_EQ(refill(record, 4096), 0) << status;
    EXPECT_EQ(record->lastReadEof, FALSE);
    EXPECT_EQ(record->lastOpWasRead, 1);
    EXPECT_EQ(failureOf(record), NO_FAILURE);
  }
}

TEST_F(StandardInput, AnEmptyTextOfTheLineFetchIsAReadOfNothing) {
  const StandardInputFrom input("abc\n");
  KvFileDataSType* record = standardInput();
  leaveInBuffer(record, std::string(1, '\0'));
  fault("UnixIoFgets_:1:result=0");
  EXPECT_EQ(refill(record, 4096), 0);
  EXPECT_EQ(record->lastReadEof, FALSE);
  EXPECT_EQ(record->lastOpWasRead, 1);
}

TEST_F(StandardInput, FromAPipeThePositionCannotBeTold) {
  int ends[2];
  ASSERT_EQ(::pipe(ends), 0);
  ASSERT_EQ(::write(ends[1], "abc\n", 4), 4);
  ::close(ends[1]);
  const StandardInputFrom input(ends[0]);
  ::close(ends[0]);
  KvFileDataSType* record = standardInput();
  EXPECT_EQ(refill(record, 4096), 4);
  EXPECT_EQ(record->nextOsReadPos, 3);
  EXPECT_EQ(failureOf(record), hostFailure(ESPIPE)) << "and nothing cleared it";
  EXPECT_EQ(take(record, 99), "abc\n");
  EXPECT_EQ(refill(record, 4096), 0);
  EXPECT_EQ(record->lastReadEof, TRUE);
  EXPECT_EQ(failureOf(record), (Failure{ESPIPE, 0, ""}));
}

TEST_F(StandardInput, FromAPipeAGoodReadLeavesACodeAndTheEndIsAnError) {
  int ends[2];
  ASSERT_EQ(::pipe(ends), 0);
  ASSERT_EQ(::write(ends[1], "abc\n", 4), 4);
  ::close(ends[1]);
  const StandardInputFrom input(ends[0]);
  ::close(ends[0]);
  const OopType file = kvhost::newKvFile();
  EXPECT_EQ(call("KvfCreateStdFile", {file, smallInt(0)}), smallInt(1));
  const OopType bytesRead = kvhost::newByteArray("");
  EXPECT_EQ(call("KvfRead", {file, bytesRead, smallInt(1), smallInt(4)}), smallInt(4));
  EXPECT_EQ(bytes(bytesRead), "abc\n");
  EXPECT_EQ(call("KvfErrorCode", {file}), smallInt(ESPIPE));
  EXPECT_EQ(call("KvfRead", {file, bytesRead, smallInt(1), smallInt(4)}), OOP_NIL);
}

TEST_F(StandardInput, WithoutALineReaderTheTerminalIsNotAskedFor) {
  const StandardInputFrom input("abc\n");
  refill(standardInput(), 4096);
  const auto names = namesOf(calls_);
  EXPECT_EQ(std::count(names.begin(), names.end(), "isatty"), 0);
}

TEST_F(StandardInput, TheLineReaderServesATerminalOnly) {
  installLineReader();
  const StandardInputFrom input("abc\n");
  EXPECT_EQ(refill(standardInput(), 4096), 4);
  EXPECT_EQ(sizeGiven(), 4096);
  EXPECT_EQ(sizeGiven("LrSupReadLine"), -1);
}

TEST_F(StandardInput, TheLineReaderShowsThePromptItself) {
  installLineReader();
  const StandardInputFrom input("unused\n");
  KvFileDataSType* record = standardInput();
  leaveInBuffer(record, std::string("typed\n\0", 7));
  fault("isatty:1:result=1");
  fault("LrSupReadLine:1:result=0");
  EXPECT_EQ(refill(record, 100, "name? "), 6);
  EXPECT_EQ(traffic(), (Traffic{"lseek(0, SEEK_CUR)", "LrSupReadLine"}));
  EXPECT_EQ(printed_, "");
  EXPECT_EQ(sizeGiven("LrSupReadLine"), 102);
  const auto call = std::find_if(calls_.begin(), calls_.end(),
                                 [](const auto& each) { return each.name == "LrSupReadLine"; });
  EXPECT_THAT(call->arguments,
              ::testing::ElementsAre("ptr", "stdin", "ptr", "102", "\"name? \"", "1"));
  EXPECT_EQ(take(record, 99), "typed\n");
}

TEST_F(StandardInput, ARefillOfOneByteNeverUsesTheLineReader) {
  installLineReader();
  const StandardInputFrom input("abc\ndef\n");
  KvFileDataSType* record = standardInput();
  EXPECT_EQ(countOf(callsDuring([&] { EXPECT_EQ(refill(record, 1), 2); }), "isatty"), 0);
  EXPECT_EQ(sizeGiven(), 3);
  EXPECT_EQ(refill(record, 3), 4) << "one more than the two that are buffered";
  EXPECT_EQ(sizeGiven(), 3);
}

TEST_F(StandardInput, TheLineReadersEndAndInterrupt) {
  installLineReader();
  const StandardInputFrom input("unused\n");
  KvFileDataSType* record = standardInput();
  fault("isatty:1+:result=1");
  fault("LrSupReadLine:1:interrupt");
  EXPECT_EQ(refill(record, 4096), -2);
  EXPECT_EQ(record->lastReadEof, FALSE);
  clearFaults();
  fault("isatty:1+:result=1");
  fault("LrSupReadLine:1:result=-1");
  EXPECT_EQ(refill(record, 4096), 0);
  EXPECT_EQ(record->lastReadEof, TRUE);
  EXPECT_EQ(record->lastOpWasRead, 1);
}

TEST_F(StandardInput, FromATerminalWithoutALineReader) {
  int controller = -1;
  int terminal = -1;
  ASSERT_EQ(::openpty(&controller, &terminal, nullptr, nullptr, nullptr), 0);
  ASSERT_EQ(::write(controller, "typed\n", 6), 6);
  {
    const StandardInputFrom input(terminal);
    KvFileDataSType* record = standardInput();
    EXPECT_EQ(refill(record, 4096, "> "), 6);
    EXPECT_EQ(printed_, "> ");
    EXPECT_EQ(record->errCode, ESPIPE);
    EXPECT_EQ(take(record, 99), "typed\n");
  }
  ::close(terminal);
  ::close(controller);
}

}  // namespace
}  // namespace kvtest
