// Writing bytes, and undoing read-ahead before it.
#include "support/record_fixture.h"
#include "support/standard_streams.h"

#include <sys/mman.h>

namespace kvtest {
namespace {

class Writing : public RecordTest {};

TEST_F(Writing, GoesToTheDescriptorInOneCall) {
  KvFileDataSType* record = openPlain("plain", "w");
  leaveFailure(record, 5, -3, "old");
  const auto calls = callsDuring([&] { EXPECT_EQ(write(record, "abc"), 3); });
  EXPECT_EQ(fileTraffic(calls), Traffic{"HostWriteFile_(3)"});
  EXPECT_EQ(readFile("plain"), "abc") << "without a flush";
  EXPECT_EQ(failureOf(record), NO_FAILURE);
  EXPECT_EQ(record->lastOpWasRead, 0);
  EXPECT_EQ(positionsOf(record), (Positions{3, 3, 0}));
}

TEST_F(Writing, ClearsTheIndicatorsFirst) {
  KvFileDataSType* record = openPlain("plain", "w");
  const auto names = namesOf(callsDuring([&] { write(record, "abc"); }));
  EXPECT_EQ(std::count(names.begin(), names.end(), "clearerr_unlocked"), 1);
  KvFileDataSType* packed = openGzip("packed", "wb");
  const auto zlibNames = namesOf(callsDuring([&] { write(packed, "abc"); }));
  EXPECT_EQ(std::count(zlibNames.begin(), zlibNames.end(), "gzclearerr"), 1);
}

struct LineEndCase {
  std::string text;
  bool endsLine;
};

TEST_F(Writing, TheLastByteTellsWhetherALineEnded) {
  KvFileDataSType* record = openPlain("plain", "w");
  const LineEndCase cases[] = {
      {"abc", false}, {"\n", true}, {"x", false}, {"abc\n", true}, {"\nx", false}};
  for (const LineEndCase& each : cases) {
    write(record, each.text);
    EXPECT_EQ(record->lastPutcWasEoln, each.endsLine) << each.text;
    write(record, "");
    EXPECT_EQ(record->lastPutcWasEoln, each.endsLine) << "writing nothing changes nothing";
  }
}

TEST_F(Writing, NothingIsAWriteOfNoBytes) {
  KvFileDataSType* record = openPlainWith("abcdef", "r+");
  EXPECT_EQ(readThroughBuffer(record, 2), "ab");
  EXPECT_EQ(record->kvfwrite(nullptr, 0), 0);
  EXPECT_EQ(positionsOf(record), (Positions{2, 2, 0})) << "read-ahead is undone all the same";
  EXPECT_EQ(readFile("plain"), "abcdef");
}

TEST_F(Writing, LandsBehindTheLastByteThatWasConsumed) {
  KvFileDataSType* record = openPlainWith(countingBytes(5000), "r+");
  EXPECT_EQ(readThroughBuffer(record, 10), countingBytes(10));
  EXPECT_EQ(positionsOf(record), (Positions{10, 4096, 4086}));
  const auto calls = callsDuring([&] { EXPECT_EQ(write(record, "X"), 1); });
  EXPECT_EQ(fileTraffic(calls), (Traffic{"lseek(10, SEEK_SET)", "HostWriteFile_(1)"}));
  std::string expected = countingBytes(5000);
  expected[10] = 'X';
  EXPECT_EQ(readFile("plain"), expected);
  EXPECT_EQ(positionsOf(record), (Positions{11, 11, 0}));
}

TEST_F(Writing, BehindAFullyConsumedBufferNeedsNoSeek) {
  KvFileDataSType* record = openPlainWith("abc", "r+");
  EXPECT_EQ(readThroughBuffer(record, 3), "abc");
  const auto calls = callsDuring([&] { EXPECT_EQ(write(record, "d"), 1); });
  EXPECT_EQ(fileTraffic(calls), Traffic{"HostWriteFile_(1)"});
  EXPECT_EQ(readFile("plain"), "abcd");
}

TEST_F(Writing, ABufferThatIsNotValidIsNotUndone) {
  for (const int state : {0, -1}) {
    KvFileDataSType* record = openPlainWith("abcdef", "r+");
    EXPECT_EQ(readThroughBuffer(record, 2), "ab");
    record->lastOpWasRead = state;
    const auto calls = callsDuring([&] { EXPECT_EQ(write(record, "g"), 1); });
    EXPECT_EQ(fileTraffic(calls), Traffic{"HostWriteFile_(1)"});
    EXPECT_EQ(readFile("plain"), "abcdefg");
  }
}

TEST_F(Writing, AnAppendPlusFileRepositionsAndAppends) {
  writeFile("plain", "abcdef");
  KvFileDataSType* record = openPlain("plain", "a+");
  EXPECT_EQ(readThroughBuffer(record, 2), "ab");
  const auto calls = callsDuring([&] { EXPECT_EQ(write(record, "Z"), 1); });
  EXPECT_EQ(fileTraffic(calls), (Traffic{"lseek(2, SEEK_SET)", "HostWriteFile_(1)"}));
  EXPECT_EQ(readFile("plain"), "abcdefZ");
  EXPECT_EQ(positionsOf(record), (Positions{7, 7, 0}));
}

TEST_F(Writing, ABinaryAppendAndReadFileWritesAfterARefill) {
  writeFile("plain", "abcdef");
  KvFileDataSType* record = openPlain("plain", "ab+");
  EXPECT_EQ(readThroughBuffer(record, 2), "ab");
  EXPECT_EQ(record->lastOpWasRead, 0) << "so there is no read-ahead to undo";
  const auto calls = callsDuring([&] { EXPECT_EQ(write(record, "Z"), 1); });
  EXPECT_EQ(fileTraffic(calls), Traffic{"HostWriteFile_(1)"});
  EXPECT_EQ(readFile("plain"), "abcdefZ");
}

// A record in append mode that holds valid read-ahead, as a direct read within a refill leaves it.
void bufferInAppendMode(KvFileDataSType* record) {
  ASSERT_EQ(record->readIntoBuffer(1, ""), 6);
  record->lastOpWasRead = 1;
  record->readBufIdx = 2;
}

TEST_F(Writing, ABinaryAppendAndReadFileWithReadAheadRefusesTheWrite) {
  writeFile("plain", "abcdef");
  KvFileDataSType* record = openPlain("plain", "ab+");
  bufferInAppendMode(record);
  record->lastPutcWasEoln = FALSE;
  const auto calls = callsDuring([&] { EXPECT_EQ(write(record, "Z\n"), -1); });
  EXPECT_EQ(fileTraffic(calls), Traffic{});
  EXPECT_EQ(failureOf(record), (Failure{EBADF, 0, APPEND_REFUSAL}));
  EXPECT_EQ(record->lastPutcWasEoln, FALSE);
  EXPECT_EQ(readFile("plain"), "abcdef");
  EXPECT_EQ(record->lastOpWasRead, 0) << "the buffer is gone, so the next write goes through";
  EXPECT_EQ(write(record, "Z"), 1);
}

TEST_F(Writing, AFailedRepositioningWritesNothing) {
  KvFileDataSType* record = openPlainWith("abcdef", "r+");
  EXPECT_EQ(readThroughBuffer(record, 2), "ab");
  fault("lseek:1:EOVERFLOW");
  EXPECT_EQ(write(record, "Z"), -1);
  EXPECT_EQ(failureOf(record), hostFailure(EOVERFLOW));
  EXPECT_EQ(readFile("plain"), "abcdef");
}

TEST_F(Writing, AFailedWriteAnswersItsCountAndErrno) {
  KvFileDataSType* record = openPlain("plain", "w");
  fault("HostWriteFile_:1:ENOSPC");
  EXPECT_EQ(write(record, "abc\n"), -1);
  EXPECT_EQ(failureOf(record), hostFailure(ENOSPC));
  EXPECT_EQ(record->lastPutcWasEoln, TRUE) << "told from what was to be written";
}

TEST_F(Writing, AShortWriteIsPassedOn) {
  KvFileDataSType* record = openPlain("plain", "w");
  fault("HostWriteFile_:1:short=2");
  EXPECT_EQ(write(record, "abc"), 2);
  EXPECT_EQ(failureOf(record), NO_FAILURE);
}

TEST_F(Writing, OfGzipGoesThroughZlib) {
  KvFileDataSType* record = openGzip("packed", "wb");
  const auto calls = callsDuring([&] { EXPECT_EQ(write(record, "abc"), 3); });
  EXPECT_EQ(fileTraffic(calls), Traffic{"gzwrite(3)"});
  EXPECT_EQ(record->lastPutcWasEoln, FALSE);
  record->kvfClose();
  EXPECT_EQ(readGzip("packed"), "abc");
}

TEST_F(Writing, OfGzipOnAHandleForReadingAnswersZeroWithoutATrace) {
  writeGzip("packed", "abc");
  KvFileDataSType* record = openGzip("packed", "rb");
  EXPECT_EQ(write(record, "x"), 0);
  EXPECT_EQ(failureOf(record), NO_FAILURE);
}

TEST_F(Writing, AFailedGzipWriteIsZeroAndNoFailure) {
  KvFileDataSType* record = openGzip("packed", "wb");
  fault("gzwrite:1:result=0");
  EXPECT_EQ(write(record, "abc"), 0);
  EXPECT_EQ(failureOf(record), NO_FAILURE);
}

TEST_F(Writing, ANegativeGzipCountIsAFailure) {
  KvFileDataSType* record = openGzip("packed", "wb");
  fault("gzwrite:1:result=-1");
  EXPECT_EQ(write(record, "abc"), -1);
  EXPECT_EQ(failureOf(record), NO_FAILURE) << "and tells no more than zlib does";
}

TEST_F(Writing, AGzipHandleWhoseDescriptorFailedStaysFailed) {
  KvFileDataSType* record = adopt(nullptr, brokenGzip("packed", "wb"), false, "wb");
  gzflush(record->zf, Z_FINISH);  // zlib does not know now how much was written
  errno = 0;
  EXPECT_EQ(write(record, "abc"), 0);
  EXPECT_NE(record->kvfflush(FALSE), 0);
  EXPECT_EQ(failureOf(record), (Failure{EIO, Z_ERRNO, "errno=5,EIO, Input/output error"}));
}

TEST_F(Writing, AHugeGzipWriteIsClamped) {
  constexpr size_t SIZE = 0x80000005U;
  void* memory = ::mmap(nullptr, SIZE, PROT_READ | PROT_WRITE,
                        MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  ASSERT_NE(memory, MAP_FAILED);
  auto* bytes = static_cast<ByteType*>(memory);
  bytes[SIZE - 1] = '\n';
  KvFileDataSType* record = openGzip("packed", "wb");
  record->lastPutcWasEoln = FALSE;
  fault("gzwrite:1:result=2147483647");
  ssize_t count = 0;
  const auto calls = callsDuring([&] { count = record->kvfwrite(bytes, SIZE); });
  EXPECT_EQ(fileTraffic(calls), Traffic{"gzwrite(2147483647)"});
  EXPECT_EQ(count, 2147483647);
  EXPECT_EQ(record->lastPutcWasEoln, TRUE) << "the last byte of the buffer counts";
  ::munmap(memory, SIZE);
}

TEST_F(Writing, OneByteIsOneHostWrite) {
  KvFileDataSType* record = openPlainWith("abcdef", "r+");
  EXPECT_EQ(readThroughBuffer(record, 2), "ab");
  const auto calls = callsDuring([&] { record->kvfputc('\n'); });
  EXPECT_EQ(fileTraffic(calls), (Traffic{"lseek(2, SEEK_SET)", "HostWriteFile_(1)"}));
  EXPECT_EQ(readFile("plain"), "ab\ndef");
  EXPECT_EQ(record->lastPutcWasEoln, TRUE);
  record->kvfputc(0xFF);
  EXPECT_EQ(readFile("plain"),
            "ab\n\xFF"
            "ef");
  EXPECT_EQ(record->lastPutcWasEoln, FALSE);
}

TEST_F(Writing, OneByteClearsTheErrorOnlyWhereItRepositions) {
  KvFileDataSType* record = openPlainWith("abcdef", "r+");
  leaveFailure(record, 5, 0, "kept");
  record->kvfputc('x');
  EXPECT_EQ(failureOf(record), (Failure{5, 0, "kept"}));
  EXPECT_EQ(readThroughBuffer(record, 1), "b");
  leaveFailure(record, 5, -3, "");
  record->kvfputc('x');
  EXPECT_EQ(failureOf(record), NO_FAILURE);
}

TEST_F(Writing, AFailedWriteOfOneByteLeavesNoTrace) {
  KvFileDataSType* record = openPlain("plain", "w");
  fault("HostWriteFile_:1:ENOSPC");
  record->kvfputc('\n');
  EXPECT_EQ(failureOf(record), NO_FAILURE);
  EXPECT_EQ(record->lastPutcWasEoln, TRUE);
}

TEST_F(Writing, AFailedRepositioningOfOneByteIsRecorded) {
  writeFile("plain", "abcdef");
  KvFileDataSType* record = openPlain("plain", "ab+");
  bufferInAppendMode(record);
  const auto calls = callsDuring([&] { record->kvfputc('x'); });
  EXPECT_EQ(fileTraffic(calls), Traffic{});
  EXPECT_EQ(failureOf(record), (Failure{EBADF, 0, APPEND_REFUSAL}));
  EXPECT_EQ(record->lastPutcWasEoln, FALSE) << "set before the buffer is looked at";
}

TEST_F(Writing, ATextGoesOutAsItStands) {
  KvFileDataSType* record = openPlainWith("abcdef", "r+");
  leaveFailure(record, 5, 0, "kept");
  const auto calls = callsDuring([&] { record->kvfputs("12 "); });
  EXPECT_EQ(fileTraffic(calls), Traffic{"HostWriteFile_(3)"});
  EXPECT_EQ(readFile("plain"), "12 def");
  EXPECT_EQ(record->lastPutcWasEoln, FALSE);
  EXPECT_EQ(failureOf(record), (Failure{5, 0, "kept"}));
  record->kvfputs("x\n");
  EXPECT_EQ(record->lastPutcWasEoln, TRUE);
  record->kvfputs("");
  EXPECT_EQ(record->lastPutcWasEoln, TRUE);
  fault("HostWriteFile_:1:ENOSPC");
  record->kvfputs("12 ");
  EXPECT_EQ(failureOf(record), (Failure{5, 0, "kept"}));
}

TEST_F(Writing, ATextDoesNotUndoReadAhead) {
  KvFileDataSType* record = openPlainWith("abcdef", "r+");
  EXPECT_EQ(readThroughBuffer(record, 2), "ab");
  record->kvfputs("12 ");
  EXPECT_EQ(readFile("plain"), "abcdef12 ");
}

TEST_F(Writing, GzipBytesAndTexts) {
  KvFileDataSType* record = openGzip("packed", "wb");
  const auto calls = callsDuring([&] {
    record->kvfputc('a');
    record->kvfputs("bc\n");
  });
  EXPECT_EQ(fileTraffic(calls), (Traffic{"gzputc(97)", "gzputs"}));
  EXPECT_EQ(record->lastPutcWasEoln, TRUE);
  record->kvfClose();
  EXPECT_EQ(readGzip("packed"), "abc\n");
}

TEST_F(Writing, StandardOutputIsWrittenThroughItsDescriptor) {
  KvFileDataSType* record = adopt(stdout, nullptr, true, "a");
  std::vector<seam::Call> calls;
  ssize_t count = 0;
  const std::string text = writtenTo(STDOUT_FILENO, [&] {
    calls = callsDuring([&] { count = write(record, "abc"); });
    record->kvfputc('d');
    record->kvfputs("ef\n");
  });
  EXPECT_EQ(count, 3);
  EXPECT_EQ(text, "abcdef\n");
  EXPECT_EQ(fileTraffic(calls), Traffic{"HostWriteFile_(3)"});
}

}  // namespace
}  // namespace kvtest
