// Reading straight into the caller's memory, and byte by byte past the buffer.
#include "support/record_fixture.h"

namespace kvtest {
namespace {

class DirectReading : public RecordTest {
 protected:
  static std::string readDirectly(KvFileDataSType* record, intptr_t count, ssize_t* result) {
    std::string bytes(4096, '#');
    *result = record->basicRead(reinterpret_cast<ByteType*>(bytes.data()), count);
    return bytes.substr(0, static_cast<size_t>(*result < 0 ? 0 : *result));
  }
  ssize_t result_ = 0;
};

TEST_F(DirectReading, WithNothingBufferedIsOneReadOfWhatIsAskedFor) {
  KvFileDataSType* record = openPlainWith("abcdef", "r");
  seam::start();
  EXPECT_EQ(readDirectly(record, 4, &result_), "abcd");
  EXPECT_EQ(fileTraffic(seam::stop()), Traffic{"HostReadFile_(4)"});
  EXPECT_EQ(record->lastOpWasRead, 1);
  EXPECT_EQ(positionsOf(record), (Positions{4, 4, 0}));
}

TEST_F(DirectReading, WithEnoughBufferedMakesNoCall) {
  KvFileDataSType* record = openPlainWith("abcdef", "r");
  EXPECT_EQ(readThroughBuffer(record, 1), "a");
  leaveFailure(record, 5, 0, "kept");
  seam::start();
  EXPECT_EQ(readDirectly(record, 5, &result_), "bcdef");
  EXPECT_EQ(seam::stop().size(), 0U);
  EXPECT_EQ(positionsOf(record), (Positions{6, 6, 0}));
  EXPECT_EQ(failureOf(record), (Failure{5, 0, "kept"}));
}

TEST_F(DirectReading, TheBufferedPartCountsTwiceInThePosition) {
  KvFileDataSType* record = openPlainWith(countingBytes(5000), "r");
  EXPECT_EQ(readThroughBuffer(record, 4086), countingBytes(4086));
  EXPECT_EQ(readDirectly(record, 30, &result_), countingBytes(5000).substr(4086, 30));
  EXPECT_EQ(hostPosition(record), 4116);
  EXPECT_EQ(record->nextOsReadPos, 4096 + 30) << "ten of the thirty had been counted already";
  EXPECT_EQ(record->readPosition(), 4126);
}

TEST_F(DirectReading, BehindAClearedBufferItsOldIndexShiftsThePosition) {
  KvFileDataSType* record = openPlainWith(countingBytes(5000), "r");
  EXPECT_EQ(readThroughBuffer(record, 3), countingBytes(3));
  record->clearReadBuf();
  EXPECT_EQ(readDirectly(record, 5, &result_), countingBytes(5000).substr(4096, 5));
  EXPECT_EQ(record->nextOsReadPos, 4101);
  EXPECT_EQ(record->bufBytesAvail(), -3);
  EXPECT_EQ(record->readPosition(), 4104);
  EXPECT_EQ(readDirectly(record, 5, &result_), countingBytes(5000).substr(4101, 5))
      << "a negative count of unread bytes is none";
}

TEST_F(DirectReading, NothingIsReadForACountOfZeroOrLess) {
  KvFileDataSType* record = openPlainWith("abcdef", "r");
  EXPECT_EQ(readThroughBuffer(record, 1), "a");
  for (const intptr_t count : {intptr_t{0}, intptr_t{-1}, INTPTR_MIN}) {
    seam::start();
    EXPECT_EQ(readDirectly(record, count, &result_), "");
    EXPECT_EQ(result_, 0) << count;
    EXPECT_EQ(seam::stop().size(), 0U);
  }
  EXPECT_EQ(positionsOf(record), (Positions{1, 6, 5}));
}

TEST_F(DirectReading, ANegativeCountWithNothingBufferedReadsNothingEither) {
  KvFileDataSType* record = openPlainWith("abcdef", "r");
  EXPECT_EQ(readDirectly(record, -1, &result_), "");
  EXPECT_EQ(result_, 0);
  EXPECT_EQ(hostPosition(record), 0);
  EXPECT_EQ(record->lastOpWasRead, -1);
}

TEST_F(DirectReading, TheEndIsZeroAndStillARead) {
  KvFileDataSType* record = openPlainWith("", "r");
  readDirectly(record, 9, &result_);
  EXPECT_EQ(result_, 0);
  EXPECT_EQ(record->lastReadEof, TRUE);
  EXPECT_EQ(record->lastOpWasRead, 1);
}

TEST_F(DirectReading, AFailureAnswersItsCountAndLosesTheBufferedPart) {
  KvFileDataSType* record = openPlainWith("abcdef", "r");
  EXPECT_EQ(readThroughBuffer(record, 4), "abcd");
  fault("HostReadFile_:1:EIO");
  readDirectly(record, 9, &result_);
  EXPECT_EQ(result_, -1);
  EXPECT_EQ(failureOf(record), hostFailure(EIO));
  EXPECT_EQ(record->bufBytesAvail(), 0);
  EXPECT_EQ(record->nextOsReadPos, 6);
  fault("HostReadFile_:1:interrupt");
  readDirectly(record, 9, &result_);
  EXPECT_EQ(result_, -2);
}

TEST_F(DirectReading, AppendAndReadFilesKeepWhatItBuffers) {
  writeFile("plain", "abcdef");
  KvFileDataSType* record = openPlain("plain", "ab+");
  EXPECT_EQ(readDirectly(record, 2, &result_), "ab");
  EXPECT_EQ(record->lastOpWasRead, 1);
  EXPECT_EQ(readThroughBuffer(record, 1), "c");
  EXPECT_EQ(record->lastOpWasRead, 0) << "the refill set it back, as the mode is not readable";
}

TEST_F(DirectReading, OfGzipGoesThroughZlib) {
  writeGzip("packed", "abcdef");
  KvFileDataSType* record = openGzip("packed", "rb");
  EXPECT_EQ(readThroughBuffer(record, 1), "a");
  seam::start();
  EXPECT_EQ(readDirectly(record, 9, &result_), "bcdef");
  EXPECT_EQ(fileTraffic(seam::stop()), Traffic{"gzread(4)"});
}

TEST_F(DirectReading, SingleBytesBypassTheBuffer) {
  KvFileDataSType* record = openPlainWith("a\xFF", "r");
  leaveFailure(record, 5, 0, "old");
  seam::start();
  EXPECT_EQ(record->kvfgetc(), 'a');
  EXPECT_EQ(fileTraffic(seam::stop()), Traffic{"HostReadFile_(1)"});
  EXPECT_EQ(failureOf(record), NO_FAILURE);
  EXPECT_EQ(record->lastOpWasRead, -1);
  EXPECT_EQ(record->kvfgetc(), 255);
  EXPECT_EQ(record->kvfgetc(), -1);
  EXPECT_EQ(record->lastReadEof, TRUE);
}

TEST_F(DirectReading, SingleBytesComeFromTheHostThoughSomeAreBuffered) {
  KvFileDataSType* record = openPlainWith(countingBytes(5000), "r");
  EXPECT_EQ(readThroughBuffer(record, 1), countingBytes(1));
  EXPECT_EQ(record->kvfgetc(), 4096 % 251);
  EXPECT_EQ(record->bufBytesAvail(), 4095);
  EXPECT_EQ(record->nextOsReadPos, 4096);
}

TEST_F(DirectReading, EveryFailureOfASingleByteIsMinusOne) {
  KvFileDataSType* record = openPlainWith("abc", "r");
  fault("HostReadFile_:1:EIO");
  EXPECT_EQ(record->kvfgetc(), -1);
  EXPECT_EQ(failureOf(record), hostFailure(EIO));
  fault("HostReadFile_:1:interrupt");
  EXPECT_EQ(record->kvfgetc(), -1);
}

TEST_F(DirectReading, SingleBytesOfGzipLeaveTheErrorStateAlone) {
  writeGzip("packed", "a\xFF");
  KvFileDataSType* record = openGzip("packed", "rb");
  leaveFailure(record, 5, -3, "kept");
  EXPECT_EQ(record->kvfgetc(), 'a');
  EXPECT_EQ(record->kvfgetc(), 255);
  EXPECT_EQ(record->kvfgetc(), -1);
  EXPECT_EQ(failureOf(record), (Failure{5, -3, "kept"}));
  EXPECT_EQ(record->lastReadEof, FALSE);
}

}  // namespace
}  // namespace kvtest
