// Asking whether a file is at its end.
#include "support/record_fixture.h"

namespace kvtest {
namespace {

class EndOfFile : public RecordTest {
 protected:
  // The answer, and what the host was asked for it.
  static OopType ask(KvFileDataSType* record, Traffic* traffic) {
    seam::clear();
    seam::start();
    const OopType answer = record->atEnd();
    *traffic = fileTraffic(seam::stop());
    return answer;
  }
  Traffic traffic_;
};

TEST_F(EndOfFile, AFreshFileIsLookedIntoWithOneRead) {
  KvFileDataSType* record = openPlainWith("abc", "r");
  EXPECT_EQ(ask(record, &traffic_), OOP_FALSE);
  EXPECT_EQ(traffic_, (Traffic{"lseek(0, SEEK_CUR)", "HostReadFile_(4096)"}));
  EXPECT_EQ(positionsOf(record), (Positions{0, 3, 3}));
  EXPECT_EQ(ask(record, &traffic_), OOP_FALSE);
  EXPECT_EQ(traffic_, Traffic{}) << "bytes are buffered";
  EXPECT_EQ(take(record, 3), "abc");
  EXPECT_EQ(ask(record, &traffic_), OOP_TRUE);
  EXPECT_EQ(traffic_, (Traffic{"lseek(0, SEEK_CUR)", "HostReadFile_(4096)"}));
}

TEST_F(EndOfFile, AnEmptyFileIsAtItsEnd) {
  KvFileDataSType* record = openPlainWith("", "r");
  EXPECT_EQ(ask(record, &traffic_), OOP_TRUE);
  EXPECT_EQ(record->lastReadEof, TRUE);
}

TEST_F(EndOfFile, OnceSeenTheEndStaysThoughTheFileGrows) {
  KvFileDataSType* record = openPlainWith("", "r");
  record->readIntoBuffer(1, "");
  std::ofstream("plain", std::ios::app) << "more";
  EXPECT_EQ(ask(record, &traffic_), OOP_TRUE);
  EXPECT_EQ(traffic_, Traffic{});
  record->clearReadBuf();
  EXPECT_EQ(ask(record, &traffic_), OOP_FALSE);
}

TEST_F(EndOfFile, ASeenEndCountsBeforeBytesThatAreLeft) {
  KvFileDataSType* record = openPlainWith("abc", "r");
  record->readIntoBuffer(1, "");
  record->readIntoBuffer(4, "");
  ASSERT_EQ(record->lastReadEof, TRUE);
  EXPECT_EQ(record->bufBytesAvail(), 3);
  EXPECT_EQ(record->atEnd(), OOP_TRUE);
}

TEST_F(EndOfFile, AReadErrorPassesForTheEnd) {
  KvFileDataSType* fresh = openPlainWith("abc", "r");
  fault("HostReadFile_:1:EIO");
  EXPECT_EQ(ask(fresh, &traffic_), OOP_TRUE);
  EXPECT_EQ(failureOf(fresh), hostFailure(EIO));

  KvFileDataSType* read = openPlainWith("abc", "r");
  EXPECT_EQ(readThroughBuffer(read, 3), "abc");
  clearFaults();
  fault("HostReadFile_:1:EIO");
  EXPECT_EQ(ask(read, &traffic_), OOP_TRUE);
  EXPECT_EQ(read->lastReadEof, FALSE);
}

TEST_F(EndOfFile, BehindAFullBufferThatIsUsedUpMoreIsReadIfThereIsMore) {
  for (const intptr_t size : {4096, 4097, 10000}) {
    KvFileDataSType* record = openPlainWith(countingBytes(static_cast<size_t>(size)), "r");
    EXPECT_EQ(readThroughBuffer(record, 4096), countingBytes(4096));
    EXPECT_EQ(ask(record, &traffic_), oopFromBool(size == 4096)) << size;
    EXPECT_EQ(traffic_, (Traffic{"lseek(0, SEEK_CUR)", "HostReadFile_(4096)"}));
    EXPECT_EQ(record->bufBytesAvail(), std::min<intptr_t>(size - 4096, 4096));
  }
}

TEST_F(EndOfFile, AnInterruptAfterAReadIsNotTheEnd) {
  KvFileDataSType* record = openPlainWith("abc", "r");
  EXPECT_EQ(readThroughBuffer(record, 3), "abc");
  fault("HostReadFile_:1:interrupt");
  EXPECT_EQ(ask(record, &traffic_), OOP_FALSE);
  EXPECT_EQ(traffic_, (Traffic{"lseek(0, SEEK_CUR)", "HostReadFile_(4096)"})) << "asked once";
}

TEST_F(EndOfFile, WithNothingReadAnInterruptIsTriedAgain) {
  KvFileDataSType* record = openPlainWith("abc", "r");
  for (const int64_t at : {1, 2, 3}) fault("HostReadFile_:" + std::to_string(at) + ":interrupt");
  EXPECT_EQ(ask(record, &traffic_), OOP_FALSE);
  EXPECT_EQ(std::count(traffic_.begin(), traffic_.end(), "HostReadFile_(4096)"), 4);
}

TEST_F(EndOfFile, AnEndSeenByABareReadCountsWithBytesBuffered) {
  KvFileDataSType* record = openPlainWith("abc", "r");
  record->lastReadEof = TRUE;  // a bare read of nothing leaves this behind
  EXPECT_EQ(ask(record, &traffic_), OOP_TRUE);
  EXPECT_EQ(record->bufBytesAvail(), 3);
}

TEST_F(EndOfFile, AWriteOnlyFileComparesItsPositionWithItsSize) {
  writeFile("plain", "abcdef");
  KvFileDataSType* record = openPlain("plain", "r+");
  record->setFromMode("w");
  EXPECT_EQ(ask(record, &traffic_), OOP_FALSE);
  EXPECT_EQ(traffic_, (Traffic{"lseek(0, SEEK_CUR)", "lseek(0, SEEK_END)", "lseek(0, SEEK_CUR)",
                               "lseek(0, SEEK_SET)"}));
  EXPECT_EQ(hostPosition(record), 0);
  ::lseek(fileno(record->fPtr), 4, SEEK_SET);
  EXPECT_EQ(record->atEnd(), OOP_FALSE);
  EXPECT_EQ(hostPosition(record), 4);
  ::lseek(fileno(record->fPtr), 6, SEEK_SET);
  EXPECT_EQ(record->atEnd(), OOP_TRUE);
  ::lseek(fileno(record->fPtr), 60, SEEK_SET);
  EXPECT_EQ(record->atEnd(), OOP_TRUE);
  EXPECT_EQ(hostPosition(record), 60);
}

TEST_F(EndOfFile, AnAppendFileCannotGoBack) {
  writeFile("plain", "abcdef");
  KvFileDataSType* record = openPlain("plain", "a");
  ::lseek(fileno(record->fPtr), 2, SEEK_SET);
  EXPECT_EQ(ask(record, &traffic_), OOP_FALSE);
  EXPECT_EQ(traffic_, (Traffic{"lseek(0, SEEK_CUR)", "lseek(0, SEEK_END)", "lseek(0, SEEK_CUR)"}));
  EXPECT_EQ(hostPosition(record), 6);
  EXPECT_EQ(failureOf(record), (Failure{EBADF, 0, APPEND_REFUSAL}));
  EXPECT_EQ(record->atEnd(), OOP_TRUE);
}

TEST_F(EndOfFile, GzipLooksOneByteAhead) {
  writeGzip("packed", "ab");
  KvFileDataSType* record = openGzip("packed", "rb");
  leaveFailure(record, 4, 0, "kept");
  EXPECT_EQ(ask(record, &traffic_), OOP_FALSE);
  EXPECT_EQ(traffic_, (Traffic{"gzgetc", "gzungetc"}));
  EXPECT_EQ(failureOf(record), (Failure{4, 0, "kept"})) << "nothing is cleared";
  EXPECT_EQ(readThroughBuffer(record, 1), "a");
  EXPECT_EQ(ask(record, &traffic_), OOP_FALSE);
  EXPECT_EQ(traffic_, Traffic{}) << "a byte is buffered";
  EXPECT_EQ(take(record, 1), "b");
  EXPECT_EQ(ask(record, &traffic_), OOP_TRUE);
  EXPECT_EQ(traffic_, Traffic{"gzgetc"});
}

TEST_F(EndOfFile, GzipComparesIndexesAsTheyStand) {
  writeGzip("packed", "ab");
  KvFileDataSType* record = openGzip("packed", "rb");
  EXPECT_EQ(readThroughBuffer(record, 2), "ab");
  record->readBufSize = 0;  // what a bare read behind a cleared buffer leaves
  EXPECT_EQ(record->zAtEnd(), FALSE);
  record->lastOpWasRead = 0;
  EXPECT_EQ(record->zAtEnd(), TRUE);
}

TEST_F(EndOfFile, GzipForWritingIsAlwaysAtItsEnd) {
  KvFileDataSType* record = openGzip("packed", "wb");
  EXPECT_EQ(ask(record, &traffic_), OOP_TRUE);
  EXPECT_EQ(traffic_, Traffic{});
  EXPECT_EQ(write(record, "abc"), 3);
  EXPECT_EQ(record->zAtEnd(), TRUE);
}

TEST_F(EndOfFile, AnAppendAndReadFileIsAskedLikeAWriteOnlyOne) {
  writeFile("plain", "abcdef");
  KvFileDataSType* record = openPlain("plain", "ab+");
  EXPECT_EQ(ask(record, &traffic_), OOP_FALSE) << "position 0 of 6";
  EXPECT_EQ(hostPosition(record), 6);
}

}  // namespace
}  // namespace kvtest
