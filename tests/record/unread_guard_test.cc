// Which bytes of the read buffer the address sanitizer lets nobody touch: all that hold no bytes of
// the file. Other builds have no guard, and nothing to test.
#include "record/unread_guard.h"

#include "record/eol_scan.h"
#include "support/record_fixture.h"
#include "support/standard_streams.h"

namespace kvtest {
namespace {

class UnreadGuard : public RecordTest {
 protected:
  void SetUp() override {
    RecordTest::SetUp();
#ifndef KVF_ADDRESS_SANITIZER
    GTEST_SKIP() << "a build without the address sanitizer";
#endif
  }

  // How many bytes of the buffer may be touched; they must be its first. The end may stay open by
  // fewer than eight.
  static intptr_t openBytes([[maybe_unused]] const KvFileDataSType* record) {
#ifdef KVF_ADDRESS_SANITIZER
    const auto closed = [&](intptr_t at) {
      return __asan_address_is_poisoned(&record->readBuffer[at]) != 0;
    };
    intptr_t open = 0;
    while (open < read_buf_size && !closed(open)) ++open;
    for (intptr_t at = open; at < read_buf_size - 8; ++at)
      EXPECT_TRUE(closed(at)) << at << " of the guard from " << open;
    return open;
#else
    return -1;
#endif
  }
};

TEST_F(UnreadGuard, AFreshRecordHasNoByteToTouch) {
  EXPECT_EQ(openBytes(openPlainWith("abc", "r")), 0);
}

TEST_F(UnreadGuard, ARefillOpensWhatItBrought) {
  for (const size_t size : {1U, 7U, 8U, 9U, 100U, 4095U, 4096U, 5000U}) {
    KvFileDataSType* record = openPlainWith(countingBytes(size), "r");
    record->readIntoBuffer(1, "");
    EXPECT_EQ(openBytes(record), std::min<intptr_t>(static_cast<intptr_t>(size), 4096)) << size;
  }
}

TEST_F(UnreadGuard, AShorterRefillClosesWhatTheOneBeforeHadBrought) {
  KvFileDataSType* record = openPlainWith(countingBytes(4099), "r");
  EXPECT_EQ(readThroughBuffer(record, 4096).size(), 4096U);
  record->readIntoBuffer(1, "");
  EXPECT_EQ(openBytes(record), 3);
}

TEST_F(UnreadGuard, MovingTheUnreadBytesToTheFrontLeavesTheOthersClosed) {
  KvFileDataSType* record = openPlainWith(countingBytes(200), "r");
  EXPECT_EQ(readThroughBuffer(record, 150), countingBytes(150));
  record->readIntoBuffer(51, "");
  EXPECT_EQ(openBytes(record), 50) << "the end of the file brought nothing more";
}

TEST_F(UnreadGuard, AFailedAndAnInterruptedRefillCloseAll) {
  for (const char* const how : {"EIO", "interrupt"}) {
    KvFileDataSType* record = openPlainWith(countingBytes(100), "r");
    EXPECT_EQ(readThroughBuffer(record, 100), countingBytes(100));
    fault(std::string("HostReadFile_:1:") + how);
    record->readIntoBuffer(1, "");
    EXPECT_EQ(openBytes(record), 0) << how;
    clearFaults();
  }
}

TEST_F(UnreadGuard, ASeekAWriteAndAFlushCloseAll) {
  KvFileDataSType* record = openPlainWith(countingBytes(100), "r+");
  EXPECT_EQ(readThroughBuffer(record, 10), countingBytes(10));
  EXPECT_EQ(doSeek(record, 20, 0), 20);
  EXPECT_EQ(openBytes(record), 0);
  EXPECT_EQ(readThroughBuffer(record, 10).size(), 10U);
  EXPECT_EQ(write(record, "x"), 1);
  EXPECT_EQ(openBytes(record), 0);
}

TEST_F(UnreadGuard, ASeekBackInTheBufferStaysOnOpenBytes) {
  KvFileDataSType* record = openPlainWith(countingBytes(100), "r");
  EXPECT_EQ(readThroughBuffer(record, 90), countingBytes(90));
  EXPECT_EQ(doSeek(record, 5, 0), 5);
  EXPECT_EQ(openBytes(record), 100);
  EXPECT_EQ(take(record, 3), countingBytes(8).substr(5));
}

TEST_F(UnreadGuard, ALineOfStandardInputOpensTheLineAlone) {
  const StandardInputFrom input("a long line comes first\nab\n");
  KvFileDataSType* record = adopt(stdin, nullptr, true, "r");
  EXPECT_EQ(record->readIntoBuffer(4096, ""), 24);
  EXPECT_EQ(openBytes(record), 24);
  EXPECT_EQ(take(record, 24).size(), 24U);
  EXPECT_EQ(record->readIntoBuffer(4096, ""), 3);
  EXPECT_EQ(openBytes(record), 3);
}

TEST_F(UnreadGuard, AReusedRecordIsClosed) {
  KvFileDataSType* record = openPlainWith(countingBytes(100), "r");
  record->readIntoBuffer(1, "");
  FILE* const stream = record->fPtr;
  record->reinitialize(stream, nullptr, TRUE, OOP_NIL, FALSE, "r");
  EXPECT_EQ(openBytes(record), 0);
}

// Under another name, since it starts a process: a scan that takes the buffer for one byte larger.
using UnreadGuardDeathTest = UnreadGuard;

TEST_F(UnreadGuardDeathTest, AUseOfAByteBehindTheBytesReadIsReported) {
  KvFileDataSType* record = openPlainWith(countingBytes(100), "r");
  record->readIntoBuffer(1, "");
  const ByteType end = 255;
  EXPECT_EQ(scanForEol(record->readBuffer, 0, record->readBufSize, &end, 1).found, 0);
  EXPECT_DEATH(scanForEol(record->readBuffer, 0, record->readBufSize + 1, &end, 1),
               "use-after-poison");
}

}  // namespace
}  // namespace kvtest
