// What is said of every record between two operations: that it is noticed where it does not hold.
#include "support/record_fixture.h"

namespace kvtest {
namespace {

class Invariants : public RecordTest {
 protected:
  // Whether the record would hold with this value in that place.
  template <typename Value>
  static bool holdsWith(KvFileDataSType* record, Value KvFileDataSType::*place, Value value) {
    const Value sound = record->*place;
    record->*place = value;
    const bool held = record->holds();
    record->*place = sound;
    return held;
  }
};

TEST_F(Invariants, HoldOfARecordThatWasOpenedReadWrittenAndClosed) {
  KvFileDataSType* record = openPlainWith(countingBytes(5000), "r+");
  EXPECT_TRUE(record->holds());
  EXPECT_EQ(readThroughBuffer(record, 100), countingBytes(100));
  EXPECT_TRUE(record->holds());
  EXPECT_EQ(write(record, "abc"), 3);
  EXPECT_TRUE(record->holds());
  EXPECT_EQ(record->kvfClose(), 0);
  EXPECT_TRUE(record->holds());
}

TEST_F(Invariants, APlainRecordHasNoHandleAndACompressedOneNoStream) {
  KvFileDataSType* plain = openPlainWith("abc", "r");
  writeGzip("packed", "abc");
  KvFileDataSType* packed = openGzip("packed", "rb");
  EXPECT_TRUE(packed->holds());
  EXPECT_FALSE(holdsWith(plain, &KvFileDataSType::zf, packed->zf));
  EXPECT_FALSE(holdsWith(packed, &KvFileDataSType::fPtr, plain->fPtr));
  EXPECT_TRUE(holdsWith(plain, &KvFileDataSType::fPtr, static_cast<FILE*>(nullptr))) << "closed";
  EXPECT_TRUE(holdsWith(packed, &KvFileDataSType::zf, static_cast<gzFile>(nullptr))) << "closed";
}

TEST_F(Invariants, IndexAndSizeOfTheBufferLieWithinItAndALinesEnd) {
  KvFileDataSType* record = openPlainWith("abc", "r");
  for (const auto place : {&KvFileDataSType::readBufIdx, &KvFileDataSType::readBufSize}) {
    for (const intptr_t within : {intptr_t{0}, intptr_t{1}, read_buf_size, read_buf_size + 1})
      EXPECT_TRUE(holdsWith(record, place, within)) << within;
    for (const intptr_t outside : {intptr_t{-1}, read_buf_size + 2, INTPTR_MIN, INTPTR_MAX})
      EXPECT_FALSE(holdsWith(record, place, outside)) << outside;
  }
}

TEST_F(Invariants, TheLastOperationIsOneOfThree) {
  KvFileDataSType* record = openPlainWith("abc", "r");
  for (const int known : {-1, 0, 1})
    EXPECT_TRUE(holdsWith(record, &KvFileDataSType::lastOpWasRead, known)) << known;
  for (const int unknown : {-2, 2, INT_MIN, INT_MAX})
    EXPECT_FALSE(holdsWith(record, &KvFileDataSType::lastOpWasRead, unknown)) << unknown;
}

}  // namespace
}  // namespace kvtest
