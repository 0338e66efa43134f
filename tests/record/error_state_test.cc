// The codes and the one text of a record, and where a failure without a record goes.
#include "support/record_fixture.h"

namespace kvtest {
namespace {

class ErrorState : public RecordTest {
 protected:
  void SetUp() override {
    RecordTest::SetUp();
    KvfInit();
  }
  void TearDown() override {
    KvfInit();
    RecordTest::TearDown();
  }
};

TEST_F(ErrorState, HostTextsTellNumberNameAndMeaning) {
  KvFileDataSType* record = adopt(nullptr, nullptr, false, "r");
  record->errCode = EBADF;
  record->getErrorString();
  EXPECT_EQ(failureOf(record), (Failure{9, 0, "errno=9,EBADF, Bad file descriptor"}));
}

TEST_F(ErrorState, OnlyTheFirstTextOfARecordIsStored) {
  KvFileDataSType* record = adopt(nullptr, nullptr, false, "r");
  record->storeErrorString("first");
  record->storeErrorString("second");
  EXPECT_EQ(failureOf(record).text, "first");
  record->errCode = ENOENT;
  record->getErrorString();
  EXPECT_EQ(failureOf(record), (Failure{ENOENT, 0, "first"}));

  KvFileErrStrType* buffer = record->errString;
  record->zErrCode = -3;
  record->clearErrorCode();
  EXPECT_EQ(failureOf(record), NO_FAILURE);
  EXPECT_EQ(record->errString, buffer) << "the buffer is emptied, not freed";

  record->storeErrorString("third");
  record->errCode = EIO;
  record->getErrorString();
  EXPECT_EQ(failureOf(record), (Failure{EIO, 0, ""})) << "the codes change, the text does not";
}

TEST_F(ErrorState, ClearingWithoutATextAllocatesNothing) {
  KvFileDataSType* record = adopt(nullptr, nullptr, false, "r");
  record->errCode = 5;
  EXPECT_EQ(callsDuring([&] { record->clearErrorCode(); }).size(), 0U);
  EXPECT_EQ(record->errString, nullptr);
  EXPECT_EQ(failureOf(record), NO_FAILURE);
}

TEST_F(ErrorState, ATextIsCutTo1023Characters) {
  for (const size_t length : {1022U, 1023U, 1024U, 3000U}) {
    KvFileDataSType* record = adopt(nullptr, nullptr, false, "r");
    const std::string text = std::string(length - 1, 'x') + "y";
    record->storeErrorString(text.c_str());
    EXPECT_EQ(failureOf(record).text, text.substr(0, 1023)) << length;
  }
}

TEST_F(ErrorState, AnEmptyTextUsesUpTheOneBuffer) {
  KvFileDataSType* record = adopt(nullptr, nullptr, false, "r");
  record->storeErrorString("");
  ASSERT_NE(record->errString, nullptr);
  record->storeErrorString("later");
  EXPECT_EQ(failureOf(record).text, "");
}

TEST_F(ErrorState, WithoutMemoryTheCodeStandsAlone) {
  KvFileDataSType* record = adopt(nullptr, nullptr, false, "r");
  fault("UtlMalloc:1:nomem");
  record->storeErrorString("lost");
  EXPECT_EQ(record->errString, nullptr);

  clearFaults();
  fault("UtlMalloc:1:nomem");
  record->errCode = EIO;
  record->getErrorString();
  EXPECT_EQ(record->errString, nullptr);
  EXPECT_EQ(failureOf(record), (Failure{EIO, 0, ""}));

  record->getErrorString();
  EXPECT_EQ(failureOf(record), hostFailure(EIO)) << "the next failure tries again";
}

TEST_F(ErrorState, StoreErrnoTakesTheErrnoOfTheFailingCall) {
  KvFileDataSType* record = adopt(nullptr, nullptr, false, "r");
  errno = ENOSPC;
  record->storeErrno();
  EXPECT_EQ(failureOf(record), hostFailure(ENOSPC));
  errno = EPIPE;
  record->storeErrno();
  EXPECT_EQ(failureOf(record), (Failure{EPIPE, 0, hostText(ENOSPC)}));
}

TEST_F(ErrorState, ErrnoSurvivesTheAllocationOfTheText) {
  KvFileDataSType* record = adopt(nullptr, nullptr, false, "r");
  fault("UtlMalloc:1:nomem");
  errno = ENOSPC;
  record->storeErrno();
  EXPECT_EQ(failureOf(record), (Failure{ENOSPC, 0, ""})) << "not the allocator's ENOMEM";
}

TEST_F(ErrorState, AHandleWithoutAnErrorChangesNothing) {
  writeGzip("packed", "abc");
  KvFileDataSType* record = openGzip("packed", "rb");
  record->errCode = 7;
  record->getGzError();
  EXPECT_EQ(failureOf(record), (Failure{7, 0, ""}));
  EXPECT_EQ(record->errString, nullptr);
}

TEST_F(ErrorState, NoHandleAsksNothing) {
  writeGzip("packed", "abc");
  KvFileDataSType* record = openGzip("packed", "rb");
  record->kvfClose();
  leaveFailure(record, 7, -3, "kept");
  record->getGzError();
  EXPECT_EQ(failureOf(record), (Failure{7, -3, "kept"}));
}

TEST_F(ErrorState, AHandleWithAHostErrorGivesErrno) {
  writeGzip("packed", countingBytes(100));
  KvFileDataSType* record = adopt(nullptr, brokenGzip("packed", "rb"), false, "rb");
  ByteType byte = 0;
  EXPECT_EQ(record->kvfread(&byte, 1), -1);
  EXPECT_EQ(failureOf(record), (Failure{EBADF, Z_ERRNO, hostText(EBADF)}));
  EXPECT_EQ(record->kvferror(), Z_ERRNO);
}

TEST_F(ErrorState, AHandleWithBadDataGivesZlibsTextAndNoErrno) {
  writeGzip("packed", "hello");
  std::string damaged = readFile("packed");
  damaged[damaged.size() - 8] = static_cast<char>(damaged[damaged.size() - 8] ^ 1);
  writeFile("packed", damaged);
  KvFileDataSType* record = openGzip("packed", "rb");
  ByteType bytes[64];
  EXPECT_EQ(record->kvfread(bytes, sizeof bytes), -1);
  EXPECT_EQ(failureOf(record), (Failure{0, Z_DATA_ERROR, "packed: incorrect data check"}));
}

TEST_F(ErrorState, ThePendingErrorIsZlibsForACompressedFile) {
  KvFileDataSType* record = adopt(nullptr, nullptr, false, "r");
  record->errCode = 3;
  record->zErrCode = -5;
  EXPECT_EQ(record->kvferror(), 3);
  record->compressed = TRUE;
  EXPECT_EQ(record->kvferror(), -5);
  record->compressed = FALSE;
}

TEST_F(ErrorState, AFailureOfARecordStaysOutOfTheClassSlot) {
  KvFileDataSType* record = adopt(nullptr, nullptr, false, "r");
  storeError(record, 17, "told");
  EXPECT_EQ(failureOf(record), (Failure{17, 0, "told"}));
  storeError(record, 18, "dropped");
  EXPECT_EQ(failureOf(record), (Failure{18, 0, "told"}));
  storeErrorString(record, "dropped too");
  EXPECT_EQ(failureOf(record), (Failure{18, 0, "told"}));
  EXPECT_EQ(classErrorCode, 0);
  EXPECT_STREQ(classErrorString, "");
}

TEST_F(ErrorState, WithoutARecordTheClassTextIsReplaced) {
  storeError(nullptr, 17, "first");
  EXPECT_EQ(classErrorCode, 17);
  EXPECT_STREQ(classErrorString, "first");
  storeErrorString(nullptr, "second");
  EXPECT_EQ(classErrorCode, 17) << "a text alone leaves the code";
  EXPECT_STREQ(classErrorString, "second");
  storeError(nullptr, 18, "");
  EXPECT_EQ(classErrorCode, 18);
  EXPECT_STREQ(classErrorString, "");
}

TEST_F(ErrorState, TheClassTextIsCutTo2047Characters) {
  for (const size_t length : {2046U, 2047U, 2048U, 5000U}) {
    const std::string text = std::string(length - 1, 'x') + "y";
    storeErrorString(nullptr, text.c_str());
    EXPECT_EQ(std::string(classErrorString), text.substr(0, 2047)) << length;
  }
}

KciErrSType interfaceError(int number, const std::string& message) {
  KciErrSType error;
  error.initialize();
  error.number = number;
  message.copy(error.message, sizeof error.message - 1);
  error.message[std::min(message.size(), sizeof error.message - 1)] = '\0';
  return error;
}

TEST_F(ErrorState, AnInterfaceErrorIsNamed) {
  const KciErrSType error = interfaceError(2101, "object does not exist");
  postKciErr(nullptr, &error);
  EXPECT_EQ(classErrorCode, 2101);
  EXPECT_STREQ(classErrorString, "Kestrova KCI error 2101, message: object does not exist");

  KvFileDataSType* record = adopt(nullptr, nullptr, false, "r");
  postKciErr(record, &error);
  EXPECT_EQ(failureOf(record),
            (Failure{2101, 0, "Kestrova KCI error 2101, message: object does not exist"}));
}

TEST_F(ErrorState, ALongInterfaceMessageIsCutByTheRecordOnly) {
  const std::string message(1024, 'm');
  const KciErrSType error = interfaceError(-7, message);
  const std::string whole = "Kestrova KCI error -7, message: " + message;
  postKciErr(nullptr, &error);
  EXPECT_EQ(std::string(classErrorString), whole);
  KvFileDataSType* record = adopt(nullptr, nullptr, false, "r");
  postKciErr(record, &error);
  EXPECT_EQ(failureOf(record), (Failure{-7, 0, whole.substr(0, 1023)}));
}

TEST_F(ErrorState, OnlyAPendingInterfaceErrorIsPosted) {
  KvFileDataSType* record = adopt(nullptr, nullptr, false, "r");
  KciErrSType unwanted;
  unwanted.initialize();
  KciErr(&unwanted);
  EXPECT_FALSE(postPendingKciErr(record));
  EXPECT_EQ(failureOf(record), NO_FAILURE);

  EXPECT_EQ(KciFetchSize_(0x7FFFFFFFFFFFFF01), 0) << "names no object, so an error is pending";
  EXPECT_TRUE(postPendingKciErr(record));
  EXPECT_NE(record->errCode, 0);
  EXPECT_EQ(failureOf(record).text.rfind(
                "Kestrova KCI error " + std::to_string(record->errCode) + ", message: ", 0),
            0U);
  EXPECT_FALSE(postPendingKciErr(record)) << "fetching cleared it";
}

TEST_F(ErrorState, AHostErrorOfAPathNamesThePath) {
  HostErrSType error;
  error.initialize();
  error.theErrno = ENOENT;
  postError(nullptr, &error, "no/such");
  EXPECT_EQ(classErrorCode, ENOENT);
  EXPECT_STREQ(classErrorString, "errno=2,ENOENT, No such file or directory : no/such");

  KvFileDataSType* record = adopt(nullptr, nullptr, false, "r");
  postError(record, &error, "no/such");
  EXPECT_EQ(failureOf(record),
            (Failure{ENOENT, 0, "errno=2,ENOENT, No such file or directory : no/such"}));
}

TEST_F(ErrorState, AHostErrorOfAPathObjectGivesItsIdentifier) {
  HostErrSType error;
  error.initialize();
  error.theErrno = EACCES;
  postError(nullptr, &error, OopType{0xFFFFFFFFFFFFFF01});
  EXPECT_EQ(classErrorCode, EACCES);
  EXPECT_EQ(std::string(classErrorString), hostText(EACCES) + " : pathOop 18446744073709551361");
}

TEST_F(ErrorState, TheFormOfThePathDecidesWhichIsTold) {
  HostErrSType error;
  error.initialize();
  error.theErrno = EACCES;
  KvfPath path;
  std::snprintf(path.path, sizeof path.path, "%s", "some/path");
  postError(nullptr, &error, &path, smallInt(4));
  EXPECT_EQ(std::string(classErrorString), hostText(EACCES) + " : some/path");
  path.isUtf16 = TRUE;
  postError(nullptr, &error, &path, smallInt(4));
  EXPECT_EQ(std::string(classErrorString), hostText(EACCES) + " : pathOop 34");
}

TEST_F(ErrorState, ALongPathIsCutWithTheText) {
  HostErrSType error;
  error.initialize();
  error.theErrno = ENOENT;
  const std::string path(4000, 'p');
  postError(nullptr, &error, path.c_str());
  EXPECT_EQ(std::string(classErrorString), (hostText(ENOENT) + " : " + path).substr(0, 2047));
}

}  // namespace
}  // namespace kvtest
