// How a record is made, set up, reused and freed, and what its mode string allows.
#include <kvfile/platform/utl.h>

#include "support/record_fixture.h"

#include <cstring>

namespace kvtest {
namespace {

class LifeCycle : public RecordTest {};

TEST_F(LifeCycle, AllocationAsksForOneRecord) {
  KvFileDataSType* record = nullptr;
  const auto calls = callsDuring([&] { record = KvFileDataSType::allocate(); });
  ASSERT_NE(record, nullptr);
  EXPECT_EQ(record->readBuffer[0], 0);
  ASSERT_EQ(namesOf(calls), Traffic{"UtlMalloc"});
  EXPECT_EQ(argumentOf(calls[0], 0), std::to_string(sizeof(KvFileDataSType)));
  record->errString = nullptr;
  KvFileDataSType::deallocate(record);
}

TEST_F(LifeCycle, AllocationAnswersNullWithoutMemory) {
  fault("UtlMalloc:1+:nomem");
  EXPECT_EQ(KvFileDataSType::allocate(), nullptr);
  EXPECT_EQ(KvFileErrStrType::allocate(), nullptr);
}

TEST_F(LifeCycle, TextBufferIsBornEmpty) {
  KvFileErrStrType* text = nullptr;
  const auto calls = callsDuring([&] { text = KvFileErrStrType::allocate(); });
  ASSERT_NE(text, nullptr);
  EXPECT_STREQ(text->msg, "");
  EXPECT_EQ(sizeof *text, 1024U);
  ASSERT_EQ(namesOf(calls), Traffic{"UtlMalloc"});
  EXPECT_EQ(argumentOf(calls[0], 0), "1024");
  UtlFree(text);
}

TEST_F(LifeCycle, TheBufferHasTwoBytesToSpare) {
  EXPECT_EQ(read_buf_size, 4096);
  EXPECT_GE(sizeof(KvFileDataSType::readBuffer), 4098U);
  EXPECT_EQ(eol_max_size, 128);
}

void expectFreshState(const KvFileDataSType& record) {
  EXPECT_EQ(record.pathObj, OOP_NIL);
  EXPECT_EQ(record.isClient, TRUE);
  EXPECT_EQ(record.closeOnFinalize, TRUE);
  EXPECT_EQ(record.lastOpWasRead, -1);
  EXPECT_EQ(record.lastReadEof, FALSE);
  EXPECT_EQ(record.lastPutcWasEoln, TRUE);
  EXPECT_EQ(record.errCode, 0);
  EXPECT_EQ(record.zErrCode, 0);
  EXPECT_EQ(record.nextOsReadPos, 0);
  EXPECT_EQ(record.readBufSize, 0);
  EXPECT_EQ(record.readBufIdx, 0);
}

// Fields that an earlier life may have left in any state.
void spoil(KvFileDataSType* record) {
  std::memset(static_cast<void*>(record), 0x5A, sizeof *record);
}

TEST_F(LifeCycle, InitializeSetsEveryFieldOfAPlainRecord) {
  writeFile("plain", "abc");
  KvFileDataSType* record = KvFileDataSType::allocate();
  ASSERT_NE(record, nullptr);
  spoil(record);
  FILE* stream = std::fopen("plain", "r");
  record->initialize(stream, nullptr, TRUE, smallInt(77), FALSE, "r");
  expectFreshState(*record);
  EXPECT_EQ(record->errString, nullptr);
  EXPECT_EQ(record->next, nullptr);
  EXPECT_EQ(record->prev, nullptr);
  EXPECT_EQ(record->fPtr, stream);
  EXPECT_EQ(record->zf, nullptr);
  EXPECT_EQ(record->compressed, FALSE);
  EXPECT_EQ(record->objId, smallInt(77));
  EXPECT_EQ(record->isStdFile, FALSE);
  EXPECT_EQ(record->kvfClose(), 0);
  KvFileDataSType::deallocate(record);
}

TEST_F(LifeCycle, InitializeOfAHandleMakesACompressedRecord) {
  writeGzip("packed", "abc");
  gzFile handle = gzopen("packed", "rb");
  KvFileDataSType* record = KvFileDataSType::allocate();
  ASSERT_NE(record, nullptr);
  spoil(record);
  record->initialize(nullptr, handle, TRUE, smallInt(5), FALSE, "rb");
  expectFreshState(*record);
  EXPECT_EQ(record->fPtr, nullptr);
  EXPECT_EQ(record->zf, handle);
  EXPECT_EQ(record->compressed, TRUE);
  EXPECT_EQ(record->isCompressed(), TRUE);
  EXPECT_EQ(record->kvfClose(), 0);
  KvFileDataSType::deallocate(record);
}

TEST_F(LifeCycle, TheClientFlagIsTrueWhateverIsPassed) {
  KvFileDataSType* record = adopt(stdout, nullptr, true, "a");
  record->reinitialize(stdout, nullptr, FALSE, OOP_NIL, 2, "a");
  EXPECT_EQ(record->isClient, TRUE);
  EXPECT_EQ(record->isStdFile, TRUE) << "any non-zero flag counts as true";
}

TEST_F(LifeCycle, ReinitializeKeepsTheTextBufferAndResetsTheRest) {
  KvFileDataSType* record = openPlainWith("0123456789", "r");
  EXPECT_EQ(readThroughBuffer(record, 4), "0123");
  record->storeErrorString("first");
  KvFileErrStrType* text = record->errString;
  record->lastReadEof = TRUE;
  record->lastPutcWasEoln = FALSE;
  record->errCode = 5;
  record->zErrCode = -3;
  record->next = record->prev = record;
  FILE* stream = record->fPtr;
  record->reinitialize(stream, nullptr, TRUE, smallInt(9), FALSE, "w");
  expectFreshState(*record);
  EXPECT_EQ(record->errString, text);
  EXPECT_STREQ(text->msg, "first");
  EXPECT_EQ(record->objId, smallInt(9));
  EXPECT_EQ(record->writable, TRUE);
  EXPECT_EQ(record->readable, FALSE);
  record->next = record->prev = nullptr;
}

TEST_F(LifeCycle, FreeingGivesBackTextAndRecord) {
  KvFileDataSType* record = KvFileDataSType::allocate();
  record->initialize(nullptr, nullptr, TRUE, OOP_NIL, FALSE, "r");
  EXPECT_EQ(namesOf(callsDuring([&] { KvFileDataSType::deallocate(record); })), Traffic{"UtlFree"});

  record = KvFileDataSType::allocate();
  record->initialize(nullptr, nullptr, TRUE, OOP_NIL, FALSE, "r");
  record->storeErrorString("text");
  EXPECT_EQ(namesOf(callsDuring([&] { KvFileDataSType::deallocate(record); })),
            (Traffic{"UtlFree", "UtlFree"}));
}

struct ModeCase {
  const char* mode;
  bool readable, writable, append;
  const char* text = "";
};

class Mode : public RecordTest, public ::testing::WithParamInterface<ModeCase> {};

TEST_P(Mode, DecidesWhatTheFileMayDo) {
  const ModeCase& expected = GetParam();
  KvFileDataSType* record = adopt(nullptr, nullptr, false, expected.mode);
  EXPECT_EQ(record->readable, expected.readable);
  EXPECT_EQ(record->writable, expected.writable);
  EXPECT_EQ(record->isAppend, expected.append);
  EXPECT_EQ(failureOf(record), (Failure{0, 0, expected.text}));
}

INSTANTIATE_TEST_SUITE_P(
    All, Mode,
    ::testing::Values(ModeCase{"r", true, false, false}, ModeCase{"w", false, true, false},
                      ModeCase{"a", false, true, true}, ModeCase{"r+", true, true, false},
                      ModeCase{"w+", true, true, false}, ModeCase{"a+", true, true, false},
                      ModeCase{"rb", true, false, false}, ModeCase{"wb", false, true, false},
                      ModeCase{"ab", false, true, true}, ModeCase{"r+b", true, true, false},
                      ModeCase{"w+b", true, true, false}, ModeCase{"a+b", true, true, false},
                      ModeCase{"rb+", true, false, false}, ModeCase{"wb+", false, true, false},
                      ModeCase{"ab+", false, true, true}, ModeCase{"w1", false, true, false},
                      ModeCase{"a9", false, true, true}, ModeCase{"wb9", false, true, false},
                      ModeCase{"ab1", false, true, true}, ModeCase{"r1", true, false, false},
                      ModeCase{"rw", true, true, false}, ModeCase{"wa", false, true, false},
                      ModeCase{"ra", true, true, true}, ModeCase{"xa+x", true, true, false},
                      ModeCase{"", false, false, false, "inconsistent mode A"},
                      ModeCase{"b+", false, false, false, "inconsistent mode A"},
                      ModeCase{"x", false, false, false, "inconsistent mode A"}));

TEST_F(LifeCycle, ANullModeChangesNothing) {
  KvFileDataSType* record = adopt(nullptr, nullptr, false, "r+");
  record->isAppend = TRUE;
  record->setFromMode(nullptr);
  EXPECT_EQ(record->readable, TRUE);
  EXPECT_EQ(record->writable, TRUE);
  EXPECT_EQ(record->isAppend, TRUE);
  EXPECT_EQ(failureOf(record), NO_FAILURE);
}

TEST_F(LifeCycle, AnInconsistentModeIsNotToldOverAnEarlierText) {
  KvFileDataSType* record = adopt(nullptr, nullptr, false, "r");
  record->storeErrorString("earlier");
  record->setFromMode("x");
  EXPECT_EQ(failureOf(record), (Failure{0, 0, "earlier"}));
  EXPECT_EQ(record->readable, FALSE);
}

TEST_F(LifeCycle, OpenAndCompressedAreToldByTheRightPointer) {
  KvFileDataSType* plain = openPlainWith("abc", "r");
  EXPECT_EQ(plain->isOpen(), TRUE);
  EXPECT_EQ(plain->usingCompression(), FALSE);
  EXPECT_EQ(plain->isCompressed(), FALSE);
  EXPECT_EQ(plain->ungetChar('a'), 0);
  plain->kvfClose();
  EXPECT_EQ(plain->isOpen(), FALSE);

  writeGzip("packed", "abc");
  KvFileDataSType* packed = openGzip("packed", "rb");
  EXPECT_EQ(packed->isOpen(), TRUE);
  EXPECT_EQ(packed->usingCompression(), TRUE);
  packed->kvfClose();
  packed->fPtr = stdout;  // the stream does not count in a compressed record
  EXPECT_EQ(packed->isOpen(), FALSE);
  packed->fPtr = nullptr;
  EXPECT_EQ(packed->isCompressed(), TRUE);
  EXPECT_EQ(packed->usingCompression(), TRUE) << "a closed compressed file still counts";
}

TEST_F(LifeCycle, PlainDataReadThroughZlibIsNotCompressed) {
  writeFile("plain", "just text");
  KvFileDataSType* record = openGzip("plain", "rb");
  EXPECT_EQ(record->isCompressed(), TRUE);
  EXPECT_EQ(record->usingCompression(), FALSE);
  EXPECT_EQ(readThroughBuffer(record, 9), "just text");
}

}  // namespace
}  // namespace kvtest
