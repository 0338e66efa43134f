// Reading past the buffer and refilling it, from plain and compressed files.
#include "support/record_fixture.h"

namespace kvtest {
namespace {

class Reading : public RecordTest {};
class Refill : public RecordTest {};

TEST_F(Reading, DeliversTheCountAndClearsAnEarlierFailure) {
  KvFileDataSType* record = openPlainWith("abcdef", "r");
  leaveFailure(record, 5, -3, "old");
  ByteType bytes[4];
  const auto calls = callsDuring([&] { EXPECT_EQ(record->kvfread(bytes, 4), 4); });
  EXPECT_EQ(fileTraffic(calls), Traffic{"HostReadFile_(4)"});
  EXPECT_EQ(std::string(reinterpret_cast<char*>(bytes), 4), "abcd");
  EXPECT_EQ(failureOf(record), NO_FAILURE);
  EXPECT_EQ(record->lastReadEof, FALSE);
  EXPECT_EQ(record->lastOpWasRead, -1) << "a bare read says nothing about the buffer";
  EXPECT_EQ(record->kvfread(bytes, 4), 2);
  EXPECT_EQ(record->lastReadEof, FALSE) << "a short read is not the end";
  EXPECT_EQ(record->kvfread(bytes, 4), 0);
  EXPECT_EQ(record->lastReadEof, TRUE);
}

TEST_F(Reading, ANegativeCountIsAFailureWithErrno) {
  KvFileDataSType* record = openPlainWith("abcdef", "r");
  fault("HostReadFile_:1:EIO");
  ByteType bytes[4];
  EXPECT_EQ(record->kvfread(bytes, 4), -1);
  EXPECT_EQ(failureOf(record), hostFailure(EIO));
  EXPECT_EQ(record->lastReadEof, FALSE);
}

TEST_F(Reading, AnInterruptIsPassedUpAndLeavesACodeLikeAnyFailure) {
  KvFileDataSType* record = openPlainWith("abcdef", "r");
  fault("HostReadFile_:1:interrupt");
  errno = EINTR;
  ByteType bytes[4];
  EXPECT_EQ(record->kvfread(bytes, 4), -2);
  EXPECT_NE(record->errCode, 0);
  EXPECT_EQ(failureOf(record).text, hostText(record->errCode));
}

TEST_F(Reading, ZeroBytesOfAPlainFileCountAsItsEnd) {
  KvFileDataSType* record = openPlainWith("abcdef", "r");
  ByteType byte = 0;
  EXPECT_EQ(record->kvfread(&byte, 0), 0);
  EXPECT_EQ(record->lastReadEof, TRUE);
}

TEST_F(Reading, GzipDeliversDecompressedBytesToTheEnd) {
  writeGzip("packed", "abcdef");
  KvFileDataSType* record = openGzip("packed", "rb");
  leaveFailure(record, 5, -3, "old");
  ByteType bytes[8];
  EXPECT_EQ(record->kvfread(bytes, 4), 4);
  EXPECT_EQ(failureOf(record), NO_FAILURE);
  EXPECT_EQ(record->kvfread(bytes, 0), 0);
  EXPECT_EQ(record->lastReadEof, FALSE) << "what was asked for came";
  EXPECT_EQ(record->kvfread(bytes, 8), 2);
  EXPECT_EQ(record->lastReadEof, FALSE);
  EXPECT_EQ(record->kvfread(bytes, 8), 0);
  EXPECT_EQ(record->lastReadEof, TRUE);
  EXPECT_EQ(failureOf(record), NO_FAILURE);
}

TEST_F(Reading, AHugeGzipRequestIsClampedAndReportedUnclamped) {
  writeGzip("packed", "abcdef");
  KvFileDataSType* record = openGzip("packed", "rb");
  fault("gzread:1:result=2147483647");
  ByteType byte = 0;
  ssize_t count = 0;
  const auto calls = callsDuring([&] { count = record->kvfread(&byte, 0x80000005U); });
  EXPECT_EQ(fileTraffic(calls), Traffic{"gzread(2147483647)"});
  EXPECT_EQ(count, 0x80000005);

  clearFaults();
  fault("gzread:1:result=2147483646");
  EXPECT_EQ(record->kvfread(&byte, 0x80000005U), 2147483646);
}

TEST_F(Reading, AGzipHandleForWritingFailsWithoutATrace) {
  KvFileDataSType* record = openGzip("packed", "wb");
  ByteType byte = 0;
  EXPECT_EQ(record->kvfread(&byte, 1), -1);
  EXPECT_EQ(failureOf(record), NO_FAILURE);
  EXPECT_EQ(record->lastReadEof, FALSE);
}

TEST_F(Refill, IsOneTellAndOneReadOfTheWholeBuffer) {
  KvFileDataSType* record = openPlainWith(countingBytes(10000), "r");
  ssize_t available = 0;
  const auto calls = callsDuring([&] { available = record->readIntoBuffer(10, ""); });
  EXPECT_EQ(fileTraffic(calls), (Traffic{"lseek(0, SEEK_CUR)", "HostReadFile_(4096)"}));
  EXPECT_EQ(available, 4096);
  EXPECT_EQ(record->lastOpWasRead, 1);
  EXPECT_EQ(record->readBufIdx, 0);
  EXPECT_EQ(positionsOf(record), (Positions{0, 4096, 4096}));
}

TEST_F(Refill, WithEnoughBufferedMakesNoCall) {
  KvFileDataSType* record = openPlainWith(countingBytes(100), "r");
  record->readIntoBuffer(10, "");
  EXPECT_EQ(take(record, 40), countingBytes(40));
  leaveFailure(record, 5, 0, "kept");
  for (const ssize_t wanted : {ssize_t{60}, ssize_t{1}, ssize_t{0}, ssize_t{-7}}) {
    const auto calls = callsDuring([&] { EXPECT_EQ(record->readIntoBuffer(wanted, ""), 60); });
    EXPECT_EQ(calls.size(), 0U) << wanted;
  }
  EXPECT_EQ(failureOf(record), (Failure{5, 0, "kept"}));
}

TEST_F(Refill, OfNothingWithNothingBufferedReadsNothing) {
  KvFileDataSType* record = openPlainWith("abc", "r");
  EXPECT_EQ(callsDuring([&] { EXPECT_EQ(record->readIntoBuffer(0, ""), 0); }).size(), 0U);
  EXPECT_EQ(callsDuring([&] { EXPECT_EQ(record->readIntoBuffer(-1, ""), 0); }).size(), 0U);
  EXPECT_EQ(record->lastOpWasRead, -1);
}

TEST_F(Refill, MovesTheUnreadBytesToTheFrontAndReadsTheRestWithoutAsking) {
  KvFileDataSType* record = openPlainWith(countingBytes(10000), "r");
  record->readIntoBuffer(1, "");
  EXPECT_EQ(take(record, 4090), countingBytes(4090));
  ssize_t available = 0;
  const auto calls = callsDuring([&] { available = record->readIntoBuffer(7, ""); });
  EXPECT_EQ(fileTraffic(calls), Traffic{"HostReadFile_(4090)"});
  EXPECT_EQ(available, 4096);
  EXPECT_EQ(record->readBufIdx, 0);
  EXPECT_EQ(positionsOf(record), (Positions{4090, 4096 + 4090, 4096}));
  EXPECT_EQ(take(record, 4096), countingBytes(10000).substr(4090, 4096));
}

TEST_F(Refill, AtTheFrontOfTheBufferMovesNothing) {
  KvFileDataSType* record = openPlainWith(countingBytes(50), "r");
  record->readIntoBuffer(1, "");
  record->readBufSize = 30;  // as if the read had been short
  record->nextOsReadPos = 30;
  ::lseek(fileno(record->fPtr), 30, SEEK_SET);
  EXPECT_EQ(record->readIntoBuffer(31, ""), 50);
  EXPECT_EQ(positionsOf(record), (Positions{0, 50, 50}));
  EXPECT_EQ(take(record, 50), countingBytes(50));
}

TEST_F(Refill, ReadsAtMostOnceHoweverLittleComes) {
  KvFileDataSType* record = openPlainWith("abcdefgh", "r");
  fault("HostReadFile_:1+:short=3");
  EXPECT_EQ(record->readIntoBuffer(8, ""), 3);
  EXPECT_EQ(positionsOf(record), (Positions{0, 3, 3}));
  EXPECT_EQ(record->readIntoBuffer(8, ""), 6);
  EXPECT_EQ(positionsOf(record), (Positions{0, 6, 6}));
  EXPECT_EQ(take(record, 6), "abcdef");
}

TEST_F(Refill, AtTheEndAnswersZeroAndStaysARead) {
  KvFileDataSType* record = openPlainWith("ab", "r");
  EXPECT_EQ(readThroughBuffer(record, 2), "ab");
  EXPECT_EQ(record->lastReadEof, FALSE);
  EXPECT_EQ(record->readIntoBuffer(1, ""), 0);
  EXPECT_EQ(record->lastReadEof, TRUE);
  EXPECT_EQ(record->lastOpWasRead, 1);
  EXPECT_EQ(positionsOf(record), (Positions{2, 2, 0}));
  EXPECT_EQ(failureOf(record), NO_FAILURE) << "the end is no error here";
}

TEST_F(Refill, AtTheEndWithBytesBufferedAnswersThose) {
  KvFileDataSType* record = openPlainWith("abc", "r");
  record->readIntoBuffer(1, "");
  EXPECT_EQ(record->readIntoBuffer(4, ""), 3);
  EXPECT_EQ(record->lastReadEof, TRUE);
  EXPECT_EQ(record->lastOpWasRead, 1);
  EXPECT_EQ(take(record, 3), "abc");
}

TEST_F(Refill, TheEndIsRememberedThroughALaterRefill) {
  KvFileDataSType* record = openPlainWith("ab", "r");
  record->readIntoBuffer(3, "");
  record->readIntoBuffer(3, "");
  EXPECT_EQ(record->lastReadEof, TRUE);
  std::ofstream("plain", std::ios::app) << "cd";
  EXPECT_EQ(record->readIntoBuffer(3, ""), 4);
  EXPECT_EQ(record->lastReadEof, TRUE);
  record->clearReadBuf();
  EXPECT_EQ(record->lastReadEof, FALSE);
}

TEST_F(Refill, AFailureWithNothingBufferedForgetsTheBuffer) {
  KvFileDataSType* record = openPlainWith("ab", "r");
  fault("HostReadFile_:1:EIO");
  EXPECT_EQ(record->readIntoBuffer(1, ""), -1);
  EXPECT_EQ(record->lastOpWasRead, -1);
  EXPECT_EQ(failureOf(record), hostFailure(EIO));
  EXPECT_EQ(positionsOf(record), (Positions{0, 0, 0}));
  clearFaults();
  EXPECT_EQ(readThroughBuffer(record, 2), "ab") << "the next refill is as good as ever";
}

TEST_F(Refill, AFailureWithBytesBufferedAnswersThose) {
  KvFileDataSType* record = openPlainWith("abc", "r");
  record->readIntoBuffer(1, "");
  fault("HostReadFile_:1:EIO");
  EXPECT_EQ(record->readIntoBuffer(9, ""), 3);
  EXPECT_EQ(record->lastOpWasRead, 1);
  EXPECT_EQ(failureOf(record), hostFailure(EIO)) << "the code tells of it all the same";
  EXPECT_EQ(take(record, 3), "abc");
}

TEST_F(Refill, AnInterruptIsPassedUpOnlyWithNothingBuffered) {
  KvFileDataSType* record = openPlainWith("abc", "r");
  fault("HostReadFile_:1:interrupt");
  EXPECT_EQ(record->readIntoBuffer(1, ""), -2);
  EXPECT_EQ(record->lastOpWasRead, -1);
  clearFaults();
  EXPECT_EQ(record->readIntoBuffer(1, ""), 3);
  fault("HostReadFile_:1:interrupt");
  EXPECT_EQ(record->readIntoBuffer(9, ""), 3);
  EXPECT_EQ(record->lastOpWasRead, 1);
}

TEST_F(Refill, StaleBufferIndexesCountForNothing) {
  KvFileDataSType* record = openPlainWith("abcdefgh", "r");
  EXPECT_EQ(readThroughBuffer(record, 5), "abcde");
  record->clearReadBuf();
  EXPECT_EQ(record->lastOpWasRead, 0);
  EXPECT_EQ(record->readBufSize, 0);
  EXPECT_EQ(record->readBufIdx, 5) << "the index is left as it was";
  EXPECT_EQ(record->bufBytesAvail(), -5);
  EXPECT_EQ(record->readIntoBuffer(1, ""), 0) << "the read-ahead is lost: the host is at the end";
  EXPECT_EQ(positionsOf(record), (Positions{8, 8, 0}));
}

TEST_F(Refill, WhereThePositionCannotBeToldTheReadStillWorks) {
  int ends[2];
  ASSERT_EQ(::pipe(ends), 0);
  ASSERT_EQ(::write(ends[1], "abc", 3), 3);
  KvFileDataSType* record = adopt(::fdopen(ends[0], "r"), nullptr, false, "r");
  EXPECT_EQ(record->readIntoBuffer(3, ""), 3);
  EXPECT_EQ(record->nextOsReadPos, 2) << "counted on from the failed answer, -1";
  EXPECT_EQ(failureOf(record), NO_FAILURE) << "the read cleared what the tell had left";
  EXPECT_EQ(take(record, 3), "abc");
  ::close(ends[1]);
}

struct ReadBackCase {
  const char* mode;
  int lastOpWasRead;
};

class RefillByMode : public RecordTest, public ::testing::WithParamInterface<ReadBackCase> {};

TEST_P(RefillByMode, TheBufferIsKeptOnlyForReadableRecords) {
  writeFile("plain", "abcdef");
  KvFileDataSType* record = openPlain("plain", "r+");
  record->setFromMode(GetParam().mode);
  EXPECT_EQ(record->readIntoBuffer(2, ""), 6);
  EXPECT_EQ(record->lastOpWasRead, GetParam().lastOpWasRead);
  EXPECT_EQ(take(record, 2), "ab");
  const bool kept = GetParam().lastOpWasRead == 1;
  EXPECT_EQ(record->readIntoBuffer(2, ""), kept ? 4 : 0)
      << "where the buffer is not valid, read-ahead is lost between calls";
}

INSTANTIATE_TEST_SUITE_P(All, RefillByMode,
                         ::testing::Values(ReadBackCase{"r", 1}, ReadBackCase{"r+", 1},
                                           ReadBackCase{"a+", 1}, ReadBackCase{"w+", 1},
                                           ReadBackCase{"rb+", 1}, ReadBackCase{"wb+", 0},
                                           ReadBackCase{"ab+", 0}, ReadBackCase{"w", 0}));

TEST_F(Refill, OfGzipTellsAndReadsThroughZlib) {
  writeGzip("packed", countingBytes(10000));
  KvFileDataSType* record = openGzip("packed", "rb");
  auto calls = callsDuring([&] { EXPECT_EQ(record->readIntoBuffer(10, ""), 4096); });
  EXPECT_EQ(fileTraffic(calls), (Traffic{"gztell", "gzread(4096)"}));
  EXPECT_EQ(positionsOf(record), (Positions{0, 4096, 4096}));
  EXPECT_EQ(take(record, 4000), countingBytes(4000));
  calls = callsDuring([&] { EXPECT_EQ(record->readIntoBuffer(97, ""), 4096); });
  EXPECT_EQ(fileTraffic(calls), Traffic{"gzread(4000)"});
  EXPECT_EQ(positionsOf(record), (Positions{4000, 8096, 4096}));
}

TEST_F(Refill, OfAGzipHandleForWritingIsAFailureWithoutATrace) {
  KvFileDataSType* record = openGzip("packed", "wb");
  EXPECT_EQ(record->readIntoBuffer(1, ""), -1);
  EXPECT_EQ(record->lastOpWasRead, -1);
  EXPECT_EQ(failureOf(record), NO_FAILURE);
}

TEST_F(Refill, ClearsTheIndicatorsOfTheStreamFirst) {
  KvFileDataSType* record = openPlainWith("abc", "r");
  const auto calls = callsDuring([&] { record->readIntoBuffer(1, ""); });
  const auto names = namesOf(calls);
  const auto cleared = std::find(names.begin(), names.end(), "clearerr_unlocked");
  const auto read = std::find(names.begin(), names.end(), "HostReadFile_");
  ASSERT_NE(cleared, names.end());
  EXPECT_LT(cleared - names.begin(), read - names.begin());

  writeGzip("packed", "abc");
  KvFileDataSType* packed = openGzip("packed", "rb");
  const auto zlibNames = namesOf(callsDuring([&] { packed->readIntoBuffer(1, ""); }));
  EXPECT_EQ(std::count(zlibNames.begin(), zlibNames.end(), "gzclearerr"), 1);
}

TEST_F(Refill, AnErrorIsToldOnceAndItsCodeEachTime) {
  KvFileDataSType* record = openPlainWith("abc", "r");
  fault("HostReadFile_:1:EIO");
  fault("HostReadFile_:2:ENXIO");
  EXPECT_EQ(record->readIntoBuffer(1, ""), -1);
  EXPECT_EQ(failureOf(record), hostFailure(EIO));
  EXPECT_EQ(record->readIntoBuffer(1, ""), -1);
  EXPECT_EQ(failureOf(record), (Failure{ENXIO, 0, ""}));
}

}  // namespace
}  // namespace kvtest
