// Finding, making and reusing the record of a file object in the session's map.
#include "support/record_fixture.h"
#include "support/returning_raise.h"

namespace kvtest {
namespace {

// What one registry operation is called with and answers; it runs where a raise may leave it.
struct LookUp {
  OopType file = OOP_NIL;
  int session = 0;
  BoolType okIfNoEntry = FALSE;
  KvFileDataSType* record = nullptr;
  KciOopMapEntryType* entry = nullptr;
  FILE* stream = nullptr;
  gzFile handle = nullptr;
  const char* mode = "r";
};

kvhost::Outcome runLookUp(LookUp* look) {
  return kvhost::protect(
      [](void* context) -> OopType {
        auto* each = static_cast<LookUp*>(context);
        each->record =
            fetchKvFileAndEntry(each->file, &each->entry, each->okIfNoEntry, each->session);
        return OOP_NIL;
      },
      look);
}

kvhost::Outcome runFetch(LookUp* look) {
  return kvhost::protect(
      [](void* context) -> OopType {
        auto* each = static_cast<LookUp*>(context);
        each->record = fetchKvFile(each->file, each->session);
        return OOP_NIL;
      },
      look);
}

kvhost::Outcome runNew(LookUp* look) {
  return kvhost::protect(
      [](void* context) -> OopType {
        auto* each = static_cast<LookUp*>(context);
        return newKvFile(each->file, each->stream, each->handle, FALSE, each->mode);
      },
      look);
}

class Registry : public RecordTest {
 protected:
  static void expectRaised(const kvhost::Outcome& outcome, int number,
                           const std::vector<OopType>& args) {
    ASSERT_EQ(outcome.status, kvhost::CallStatus::Raised);
    EXPECT_EQ(outcome.error.number, number);
    EXPECT_EQ(outcome.error.fatal, number == 4100 ? 1 : 0);
    EXPECT_EQ(std::vector<OopType>(outcome.error.args, outcome.error.args + outcome.error.argCount),
              args);
  }

  KvFileDataSType* recordOf(OopType file) {
    LookUp look;
    look.file = file;
    EXPECT_EQ(runLookUp(&look).status, kvhost::CallStatus::Answered);
    return look.record;
  }

  OopType count() { return call("KvfFinalizeAll", {kvhost::CLASS_KV_FILE}); }

  // An entry whose record is missing.
  OopType registerWithoutRecord() {
    const OopType file = kvhost::newKvFile();
    int status = 0;
    KciOopMapEntryAdd(KciSupGetKvfileOopMap(session_), file, nullptr, &status);
    EXPECT_EQ(status, 0);
    return file;
  }

  void TearDown() override {
    kvhost::sessionSelect(session_);
    RecordTest::TearDown();
  }
};

TEST_F(Registry, NilHasNoRecordAndRaisesNothing) {
  LookUp look;
  EXPECT_EQ(runLookUp(&look).status, kvhost::CallStatus::Answered);
  EXPECT_EQ(look.record, nullptr);
  kvhost::sessionSelect(0);
  EXPECT_EQ(runLookUp(&look).status, kvhost::CallStatus::Answered) << "not even without a session";
  EXPECT_EQ(runFetch(&look).status, kvhost::CallStatus::Answered);
  EXPECT_EQ(look.record, nullptr);
}

TEST_F(Registry, AKnownFileHasItsRecordAndEntry) {
  writeFile("plain", "abc");
  const OopType file = openFile("plain", "r");
  LookUp look;
  look.file = file;
  ASSERT_EQ(runLookUp(&look).status, kvhost::CallStatus::Answered);
  ASSERT_NE(look.record, nullptr);
  ASSERT_NE(look.entry, nullptr);
  EXPECT_EQ(KciOopMapEntryGetValue(look.entry), look.record);
  EXPECT_EQ(look.record->objId, file);
  EXPECT_EQ(look.record->isOpen(), TRUE);
  EXPECT_EQ(look.record->isStdFile, FALSE);
}

TEST_F(Registry, AnUnknownFileIsRaisedUnlessItMayBeMissing) {
  LookUp look;
  look.file = kvhost::newKvFile();
  expectRaised(runLookUp(&look), 2364, {look.file});
  expectRaised(runFetch(&look), 2364, {look.file});
  look.okIfNoEntry = TRUE;
  EXPECT_EQ(runLookUp(&look).status, kvhost::CallStatus::Answered);
  EXPECT_EQ(look.record, nullptr);
}

TEST_F(Registry, WithoutASessionTheLookUpIsFatal) {
  kvhost::sessionSelect(0);
  LookUp look;
  look.file = smallInt(1);
  look.okIfNoEntry = TRUE;
  expectRaised(runLookUp(&look), 4100, {smallInt(0)});
  look.session = -5;
  expectRaised(runLookUp(&look), 4100, {smallInt(0)});
  look.stream = std::tmpfile();
  expectRaised(runNew(&look), 4100, {smallInt(0)});
  std::fclose(look.stream);
}

TEST_F(Registry, WithoutAMapTheLookUpIsFatal) {
  KvfShutdown(session_);
  LookUp look;
  look.file = smallInt(1);
  look.okIfNoEntry = TRUE;
  expectRaised(runLookUp(&look), 4100, {smallInt(session_)});
  look.stream = std::tmpfile();
  expectRaised(runNew(&look), 4100, {smallInt(session_)});
  std::fclose(look.stream);
  look.session = 123456;
  expectRaised(runLookUp(&look), 4100, {smallInt(123456)});
}

TEST_F(Registry, AnotherSessionCanBeNamed) {
  writeFile("plain", "abc");
  const OopType file = openFile("plain", "r");
  KvFileDataSType* record = recordOf(file);
  const int other = kvhost::sessionBegin();
  KvfStartup(other);
  LookUp look;
  look.file = file;
  expectRaised(runLookUp(&look), 2364, {file});
  look.session = session_;
  EXPECT_EQ(runLookUp(&look).status, kvhost::CallStatus::Answered);
  EXPECT_EQ(look.record, record);
  const auto calls = callsDuring([&] { runLookUp(&look); });
  EXPECT_EQ(std::count_if(calls.begin(), calls.end(),
                          [](const auto& each) { return each.name == "KciGetSessionId"; }),
            0);
  KvfShutdown(other);
  kvhost::sessionEnd(other);
}

TEST_F(Registry, OnlyOpenFilesAreFetched) {
  writeFile("plain", "abc");
  const OopType file = openFile("plain", "r");
  LookUp look;
  look.file = file;
  runFetch(&look);
  EXPECT_EQ(look.record, recordOf(file));
  EXPECT_EQ(call("KvfClose", {file}), file);
  EXPECT_EQ(runFetch(&look).status, kvhost::CallStatus::Answered);
  EXPECT_EQ(look.record, nullptr);
  EXPECT_NE(recordOf(file), nullptr);
}

TEST_F(Registry, AnEntryWithoutARecordAnswersNullAndRaisesNothing) {
  LookUp look;
  look.file = registerWithoutRecord();
  EXPECT_EQ(runLookUp(&look).status, kvhost::CallStatus::Answered);
  EXPECT_EQ(look.record, nullptr);
  EXPECT_NE(look.entry, nullptr);
  EXPECT_EQ(runFetch(&look).status, kvhost::CallStatus::Answered);
  EXPECT_EQ(look.record, nullptr);
  EXPECT_EQ(count(), smallInt(1));
  EXPECT_EQ(call("KvfClientFinalize",
                 {kvhost::newArray({kvhost::newInteger(static_cast<int64>(look.file))})}),
            OOP_FALSE);
  EXPECT_EQ(count(), smallInt(1));
}

TEST_F(Registry, ANewFileIsAnsweredByOneAndAReusedByTwo) {
  writeFile("first", "abc");
  writeFile("second", "def");
  const OopType file = kvhost::newKvFile();
  EXPECT_EQ(call("KvfOpen", {file, str("first"), str("r"), OOP_FALSE}), smallInt(1));
  KvFileDataSType* record = recordOf(file);
  EXPECT_EQ(call("KvfOpen", {file, str("second"), str("r"), OOP_FALSE}), smallInt(2));
  EXPECT_EQ(recordOf(file), record);
  EXPECT_NE(record->fPtr, nullptr);
  EXPECT_EQ(count(), smallInt(1));
  EXPECT_EQ(readThroughBuffer(record, 3), "def");
  EXPECT_EQ(call("KvfClose", {file}), file);
  EXPECT_EQ(call("KvfOpen", {file, str("first"), str("r"), OOP_FALSE}), smallInt(2));
}

TEST_F(Registry, TheOldStreamIsClosedBeforeTheNewOneIsInstalled) {
  writeFile("first", "abc");
  const OopType file = openFile("first", "r");
  KvFileDataSType* record = recordOf(file);
  FILE* oldStream = record->fPtr;
  LookUp look;
  look.file = file;
  look.stream = std::fopen("first", "r");
  FILE* installedAtClose = nullptr;
  seam::setListener([&](const seam::Call& made) {
    if (made.name == "fclose") installedAtClose = record->fPtr;
  });
  seam::start();
  const kvhost::Outcome outcome = runNew(&look);
  const auto calls = seam::stop();
  seam::setListener(nullptr);
  EXPECT_EQ(outcome.value, smallInt(2));
  EXPECT_EQ(fileTraffic(calls), Traffic{"fclose"});
  EXPECT_NE(installedAtClose, look.stream);
  EXPECT_NE(record->fPtr, oldStream);
  EXPECT_EQ(record->fPtr, look.stream);
}

TEST_F(Registry, ReuseStartsAfreshButKeepsTheTextBuffer) {
  writeFile("plain", "abcdef");
  const OopType file = openFile("plain", "r");
  KvFileDataSType* record = recordOf(file);
  EXPECT_EQ(readThroughBuffer(record, 2), "ab");
  leaveFailure(record, 5, -3, "first");
  KvFileErrStrType* text = record->errString;
  record->lastReadEof = TRUE;
  EXPECT_EQ(call("KvfOpen", {file, str("plain"), str("r+"), OOP_FALSE}), smallInt(2));
  EXPECT_EQ(record->errString, text);
  EXPECT_EQ(failureOf(record), NO_FAILURE);
  EXPECT_EQ(record->lastOpWasRead, -1);
  EXPECT_EQ(record->lastReadEof, FALSE);
  EXPECT_EQ(record->writable, TRUE);
  EXPECT_EQ(positionsOf(record), (Positions{0, 0, 0}));
}

TEST_F(Registry, AFailedCloseOfTheOldStreamLeavesItsTextOnly) {
  writeFile("plain", "abc");
  const OopType file = openFile("plain", "r");
  KvFileDataSType* record = recordOf(file);
  fault("fclose:1:EIO");
  EXPECT_EQ(call("KvfOpen", {file, str("plain"), str("r"), OOP_FALSE}), smallInt(2));
  EXPECT_EQ(failureOf(record), (Failure{0, 0, hostText(EIO)}));
  EXPECT_EQ(record->isOpen(), TRUE);
}

TEST_F(Registry, ReuseMayChangeBetweenPlainAndCompressed) {
  writeFile("plain", "abc");
  writeGzip("packed", "def");
  const OopType file = openFile("plain", "r");
  KvFileDataSType* record = recordOf(file);
  const int descriptors = openDescriptorCount();
  EXPECT_EQ(call("KvfOpen", {file, str("packed"), str("rb"), OOP_TRUE}), smallInt(2));
  EXPECT_EQ(record->compressed, TRUE);
  EXPECT_EQ(record->fPtr, nullptr);
  EXPECT_EQ(call("KvfOpen", {file, str("plain"), str("r"), OOP_FALSE}), smallInt(2));
  EXPECT_EQ(record->compressed, FALSE);
  EXPECT_EQ(record->zf, nullptr);
  EXPECT_EQ(openDescriptorCount(), descriptors);
}

TEST_F(Registry, NilIsNeverRegistered) {
  LookUp look;
  look.stream = std::tmpfile();
  const kvhost::Outcome outcome = runNew(&look);
  EXPECT_EQ(outcome.status, kvhost::CallStatus::Answered);
  EXPECT_EQ(outcome.value, OOP_NIL);
  EXPECT_EQ(count(), smallInt(0));
  std::fclose(look.stream);
}

TEST_F(Registry, WithoutMemoryNothingIsRegistered) {
  LookUp look;
  look.file = kvhost::newKvFile();
  look.stream = std::tmpfile();
  fault("UtlMalloc:1:nomem");
  expectRaised(runNew(&look), 2208, {});
  EXPECT_EQ(seam::faultsFired(), 1);
  EXPECT_EQ(count(), smallInt(0));
  look.stream = std::tmpfile();
  const kvhost::Outcome again = runNew(&look);
  EXPECT_EQ(again.value, smallInt(1));
}

TEST_F(Registry, ShouldARaiseComeBackTheAnswerIsNil) {
  LookUp look;
  look.file = kvhost::newKvFile();
  look.stream = std::tmpfile();
  letRaisesReturn(6);
  fault("UtlMalloc:1:nomem");
  EXPECT_EQ(runNew(&look).value, OOP_NIL);
  look.stream = std::tmpfile();
  look.record = reinterpret_cast<KvFileDataSType*>(&look);
  EXPECT_EQ(runLookUp(&look).status, kvhost::CallStatus::Answered);
  EXPECT_EQ(look.record, nullptr);
  kvhost::sessionSelect(0);
  look.record = reinterpret_cast<KvFileDataSType*>(&look);
  runLookUp(&look);
  EXPECT_EQ(look.record, nullptr);
  EXPECT_EQ(runNew(&look).value, OOP_NIL);
  EXPECT_EQ(call("KvfCloseAll", {kvhost::CLASS_KV_FILE}), OOP_NIL);
  EXPECT_EQ(call("KvfFinalizeAll", {kvhost::CLASS_KV_FILE}), OOP_NIL);
  EXPECT_EQ(raisesThatWillReturn(), 0);
  std::fclose(look.stream);
}

}  // namespace
}  // namespace kvtest
