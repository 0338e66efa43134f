// Every operation on a record without a stream or handle is harmless and answers its failure.
#include "support/record_fixture.h"

namespace kvtest {
namespace {

class ClosedRecord : public RecordTest {
 protected:
  KvFileDataSType* closedPlain(const char* mode) {
    writeFile("plain", "abc");
    KvFileDataSType* record = openPlain("plain", mode);
    record->kvfClose();
    return record;
  }
  KvFileDataSType* closedGzip(const char* mode) {
    writeGzip("packed", "abc");
    KvFileDataSType* record = openGzip("packed", mode);
    record->kvfClose();
    return record;
  }

  // What every closed record answers alike, without touching the host.
  static void expectFailures(KvFileDataSType* record) {
    ByteType bytes[4];
    intptr_t next = 0;
    leaveFailure(record, 5, -3, "old");
    EXPECT_EQ(record->kvfread(bytes, 4), -1);
    EXPECT_EQ(failureOf(record), NO_FAILURE) << "cleared, and nothing recorded";
    EXPECT_EQ(record->kvfgetc(), -1);
    EXPECT_EQ(record->kvfseek(0, SEEK_SET), -1);
    EXPECT_EQ(record->kvfseek(0, SEEK_END), -1);
    EXPECT_EQ(record->kvftell(), -1);
    EXPECT_EQ(record->kvfFileDesc(), -1);
    EXPECT_EQ(record->isOpen(), FALSE);
    EXPECT_EQ(record->readIntoBuffer(1, ""), -1);
    EXPECT_EQ(record->lastOpWasRead, -1);
    EXPECT_EQ(record->readToEol(asBytes("\n"), 1, &next, FALSE, ""), 0)
        << "no code was set, so there is nothing to find";
    EXPECT_EQ(next, record->readBufIdx);
    EXPECT_EQ(record->basicRead(bytes, 4), -1);
    EXPECT_EQ(record->atEnd(), OOP_TRUE);
    for (const int kind : {0, 1, 2}) EXPECT_EQ(doSeek(record, 0, kind), -1) << kind;
    record->kvfputc('x');
    record->kvfputs("xyz");
    record->kvclearerr();
    record->getGzError();
    EXPECT_EQ(record->kvfClose(), 0);
    EXPECT_EQ(failureOf(record), NO_FAILURE);
  }

  // Calls that reach no file: none may remain.
  static Traffic trafficOf(const std::vector<seam::Call>& calls) { return fileTraffic(calls); }
};

TEST_F(ClosedRecord, Plain) {
  for (const char* mode : {"r", "w", "r+", "a+", "ab+"}) {
    SCOPED_TRACE(mode);
    KvFileDataSType* record = closedPlain(mode);
    EXPECT_EQ(trafficOf(callsDuring([&] { expectFailures(record); })), Traffic{});
    EXPECT_EQ(record->kvfflush(FALSE), -1);
    EXPECT_EQ(record->kvfflush(TRUE), -1);
    EXPECT_EQ(write(record, "abc"), -1);
    EXPECT_EQ(failureOf(record), NO_FAILURE);
  }
}

TEST_F(ClosedRecord, PlainNeverFlushesEveryStream) {
  KvFileDataSType* record = closedPlain("w");
  const auto calls = callsDuring([&] {
    record->kvfflush(TRUE);
    record->kvclearerr();
    record->kvfFileDesc();
  });
  EXPECT_EQ(calls.size(), 0U);
}

TEST_F(ClosedRecord, Compressed) {
  for (const char* mode : {"rb", "wb", "ab"}) {
    SCOPED_TRACE(mode);
    KvFileDataSType* record = closedGzip(mode);
    expectFailures(record);
    EXPECT_EQ(record->zAtEnd(), TRUE);
    EXPECT_NE(record->kvfflush(FALSE), 0);
    EXPECT_EQ(write(record, "abc"), 0) << "as zlib tells every failed write";
    EXPECT_EQ(failureOf(record), NO_FAILURE);
    EXPECT_EQ(record->isCompressed(), TRUE);
    EXPECT_EQ(record->usingCompression(), TRUE);
  }
}

TEST_F(ClosedRecord, WithBytesStillBufferedServesThem) {
  KvFileDataSType* record = openPlainWith("abcdef", "r");
  EXPECT_EQ(readThroughBuffer(record, 2), "ab");
  record->kvfClose();
  EXPECT_EQ(record->readIntoBuffer(2, ""), 4) << "the buffer state outlives the stream";
  EXPECT_EQ(take(record, 2), "cd");
  ByteType bytes[8];
  EXPECT_EQ(record->basicRead(bytes, 8), -1);
}

TEST_F(ClosedRecord, ThatWasWrittenLast) {
  KvFileDataSType* record = openPlain("plain", "w");
  EXPECT_EQ(write(record, "abc"), 3);
  record->kvfClose();
  EXPECT_EQ(write(record, "def"), -1);
  EXPECT_EQ(readFile("plain"), "abc");
}

TEST_F(ClosedRecord, WithReadAheadCannotBeRepositioned) {
  KvFileDataSType* record = openPlainWith("abcdef", "r+");
  EXPECT_EQ(readThroughBuffer(record, 2), "ab");
  record->kvfClose();
  EXPECT_EQ(record->clearReadBufBeforeWrite(), FALSE);
  EXPECT_EQ(failureOf(record), NO_FAILURE);
  EXPECT_EQ(record->clearReadBufBeforeWrite(), TRUE) << "there is nothing left to undo";
}

// What an operation takes for granted of its record is checked in debug builds.
TEST_F(ClosedRecord, ABrokenOneStopsADebugBuild) {
#ifdef KVF_ASSERTIONS
  KvFileDataSType* record = openPlainWith("abc", "r");
  EXPECT_DEATH(
      {
        record->readBufIdx = -1;
        record->kvftell();
      },
      "holds");
#else
  GTEST_SKIP() << "only a debug build checks";
#endif
}

}  // namespace
}  // namespace kvtest
