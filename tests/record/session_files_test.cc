// All files of a session: closing, counting, finalising, and the session's beginning and end.
#include "support/record_fixture.h"
#include "support/returning_raise.h"
#include "support/standard_streams.h"

namespace kvtest {
namespace {

class SessionFiles : public RecordTest {
 protected:
  void SetUp() override {
    RecordTest::SetUp();
    writeFile("plain", "abc");
  }
  void TearDown() override {
    clearFaults();
    kvhost::sessionSelect(session_);
    RecordTest::TearDown();
  }

  static OopType identifier(OopType file) { return kvhost::newInteger(static_cast<int64>(file)); }

  OopType count() { return call("KvfFinalizeAll", {kvhost::CLASS_KV_FILE}); }
  OopType closeAll() { return call("KvfCloseAll", {kvhost::CLASS_KV_FILE}); }
  OopType finalize(const std::vector<OopType>& elements) {
    return call("KvfClientFinalize", {kvhost::newArray(elements)});
  }
  OopType isOpen(OopType file) { return call("KvfIsOpen", {file}); }

  KvFileDataSType* recordOf(OopType file) const {
    KciOopMapEntryType* entry = KciOopMapEntryFind(KciSupGetKvfileOopMap(session_), file);
    return entry ? static_cast<KvFileDataSType*>(KciOopMapEntryGetValue(entry)) : nullptr;
  }

  OopType standardFile(int id) {
    const OopType file = kvhost::newKvFile();
    EXPECT_EQ(call("KvfCreateStdFile", {file, smallInt(id)}), smallInt(1));
    return file;
  }

  static int64_t countOf(const std::vector<seam::Call>& calls, const char* name) {
    return std::count_if(calls.begin(), calls.end(),
                         [&](const seam::Call& each) { return each.name == name; });
  }
};

TEST_F(SessionFiles, CloseAllClosesAndKeepsTheRecords) {
  writeGzip("packed", "abc");
  const int descriptors = openDescriptorCount();
  const OopType plain = openFile("plain", "r");
  const OopType packed = openFile("packed", "rb", true);
  leaveFailure(recordOf(plain), 5, -3, "old");
  EXPECT_EQ(count(), smallInt(2));
  EXPECT_EQ(closeAll(), kvhost::CLASS_KV_FILE);
  EXPECT_EQ(openDescriptorCount(), descriptors);
  EXPECT_EQ(count(), smallInt(2));
  EXPECT_EQ(isOpen(plain), OOP_FALSE);
  EXPECT_EQ(isOpen(packed), OOP_FALSE);
  EXPECT_EQ(failureOf(recordOf(plain)), NO_FAILURE);
  EXPECT_EQ(call("KvfOpen", {plain, str("plain"), str("r"), OOP_FALSE}), smallInt(2));
  EXPECT_EQ(finalize({identifier(plain), identifier(packed)}), OOP_TRUE);
  EXPECT_EQ(count(), smallInt(0));
  EXPECT_EQ(openDescriptorCount(), descriptors);
}

TEST_F(SessionFiles, AFailedCloseIsLeftInItsRecordAndTheOthersAreClosed) {
  const OopType first = openFile("plain", "r");
  const OopType second = openFile("plain", "r");
  fault("fclose:1:EIO");
  EXPECT_EQ(closeAll(), kvhost::CLASS_KV_FILE);
  EXPECT_EQ(isOpen(first), OOP_FALSE);
  EXPECT_EQ(isOpen(second), OOP_FALSE);
  const bool firstFailed = recordOf(first)->errCode == EIO;
  EXPECT_EQ(failureOf(recordOf(firstFailed ? first : second)), hostFailure(EIO));
  EXPECT_EQ(failureOf(recordOf(firstFailed ? second : first)), NO_FAILURE);
}

TEST_F(SessionFiles, WithoutASessionClosingAndCountingAreFatal) {
  kvhost::sessionSelect(0);
  expectRaise(4100, {smallInt(0)}, "KvfCloseAll", {kvhost::CLASS_KV_FILE});
  expectRaise(4100, {smallInt(0)}, "KvfFinalizeAll", {kvhost::CLASS_KV_FILE});
}

TEST_F(SessionFiles, WithoutAMapThereIsNothingToCloseOrCount) {
  KvfShutdown(session_);
  EXPECT_EQ(closeAll(), kvhost::CLASS_KV_FILE);
  EXPECT_EQ(count(), smallInt(0));
}

TEST_F(SessionFiles, CountingClosesNothing) {
  const OopType file = openFile("plain", "r");
  const auto calls = callsDuring([&] { EXPECT_EQ(count(), smallInt(1)); });
  EXPECT_EQ(fileTraffic(calls), Traffic{});
  EXPECT_EQ(countOf(calls, "KciI64ToOop"), 1);
  EXPECT_EQ(isOpen(file), OOP_TRUE);
}

TEST_F(SessionFiles, FinalizingFreesRecordTextAndEntry) {
  const OopType file = openFile("plain", "r");
  recordOf(file)->storeErrorString("text");
  const OopType ids = kvhost::newArray({identifier(file)});
  const auto calls = callsDuring([&] { EXPECT_EQ(call("KvfClientFinalize", {ids}), OOP_TRUE); });
  EXPECT_EQ(fileTraffic(calls), Traffic{"fclose"});
  EXPECT_EQ(countOf(calls, "UtlFree"), 2);
  EXPECT_EQ(countOf(calls, "KciOopMapEntryDelete"), 1);
  EXPECT_EQ(count(), smallInt(0));
  expectRaise(2364, {file}, "KvfIsOpen", {file});
}

TEST_F(SessionFiles, FinalizingWorksInBatchesOf500) {
  std::vector<OopType> ids;
  for (int i = 0; i < 1200; ++i) {
    const OopType file = kvhost::newKvFile();
    EXPECT_EQ(call("KvfCreateStdFile", {file, smallInt(2)}), smallInt(1));
    ids.push_back(identifier(file));
  }
  EXPECT_EQ(count(), smallInt(1200));
  const OopType array = kvhost::newArray(ids);
  OopType answer = OOP_NIL;
  const auto calls = callsDuring([&] { answer = call("KvfClientFinalize", {array}); });
  EXPECT_EQ(answer, OOP_TRUE);
  std::vector<std::string> fetches;
  for (const seam::Call& each : calls)
    if (each.name == "KciFetchOops")
      fetches.push_back(argumentOf(each, 1) + " of " + argumentOf(each, 3) + ": " + each.result);
  EXPECT_EQ(fetches,
            (Traffic{"1 of 500: 500", "501 of 500: 500", "1001 of 500: 200", "1201 of 500: 0"}));
  EXPECT_EQ(count(), smallInt(0));
}

TEST_F(SessionFiles, ABatchThatComesShortGoesOnBehindIt) {
  const OopType first = openFile("plain", "r");
  const OopType second = openFile("plain", "r");
  const auto calls = callsDuring([&] {
    EXPECT_EQ(finalize({identifier(first), identifier(second)}), OOP_TRUE);
  });
  EXPECT_EQ(countOf(calls, "KciFetchOops"), 2);
  EXPECT_EQ(count(), smallInt(0));
}

TEST_F(SessionFiles, AnElementThatIsNoIntegerIsSkippedAndMakesTheAnswerFalse) {
  for (const size_t place : {0U, 1U, 2U}) {
    const OopType first = openFile("plain", "r");
    const OopType second = openFile("plain", "r");
    std::vector<OopType> elements = {identifier(first), identifier(second)};
    elements.insert(elements.begin() + static_cast<std::ptrdiff_t>(place), OOP_NIL);
    EXPECT_EQ(finalize(elements), OOP_FALSE) << place;
    EXPECT_EQ(count(), smallInt(0)) << "the others are finalised";
  }
}

TEST_F(SessionFiles, TheIdentifierOfNilIsNoFile) {
  EXPECT_EQ(finalize({kvhost::newInteger(0x14)}), OOP_FALSE);
}

TEST_F(SessionFiles, AnUnknownFileIsRaised) {
  const OopType unknown = kvhost::newKvFile();
  const OopType known = openFile("plain", "r");
  expectRaise(2364, {unknown}, "KvfClientFinalize",
              {kvhost::newArray({identifier(unknown), identifier(known)})});
  EXPECT_EQ(isOpen(known), OOP_TRUE) << "the raise ended the action before it";
}

TEST_F(SessionFiles, AnUnknownFileWhoseRaiseComesBackMakesTheAnswerFalse) {
  const OopType unknown = kvhost::newKvFile();
  const OopType known = openFile("plain", "r");
  letRaisesReturn(1);
  EXPECT_EQ(finalize({identifier(unknown), identifier(known)}), OOP_FALSE);
  EXPECT_EQ(count(), smallInt(0));
}

TEST_F(SessionFiles, AnEmptyArrayIsFinalised) { EXPECT_EQ(finalize({}), OOP_TRUE); }

TEST_F(SessionFiles, ANegativeCountEndsTheFinalising) {
  const OopType file = openFile("plain", "r");
  fault("KciFetchOops:1:result=-1");
  EXPECT_EQ(finalize({identifier(file)}), OOP_TRUE);
  EXPECT_EQ(isOpen(file), OOP_TRUE);
}

TEST_F(SessionFiles, FinalizingWithoutASessionOrMapIsFatal) {
  const OopType file = openFile("plain", "r");
  const OopType ids = kvhost::newArray({identifier(file)});
  kvhost::sessionSelect(0);
  expectRaise(4100, {smallInt(0)}, "KvfClientFinalize", {ids});
  kvhost::sessionSelect(session_);
  KvfShutdown(session_);
  expectRaise(4100, {smallInt(session_)}, "KvfClientFinalize", {ids});
}

TEST_F(SessionFiles, StandardOutputWithinALineGetsOneNewlineAtCloseAll) {
  const OopType file = standardFile(1);
  OopType first = OOP_NIL;
  OopType second = OOP_NIL;
  const std::string text = writtenTo(STDOUT_FILENO, [&] {
    write(recordOf(file), "abc");
    first = closeAll();
    second = closeAll();
  });
  EXPECT_EQ(text, "abc\n");
  EXPECT_EQ(first, kvhost::CLASS_KV_FILE);
  EXPECT_EQ(second, kvhost::CLASS_KV_FILE);
}

TEST_F(SessionFiles, StandardOutputWithinALineGetsOneNewlineAtShutdown) {
  const OopType file = standardFile(1);
  EXPECT_EQ(writtenTo(STDOUT_FILENO,
                      [&] {
                        write(recordOf(file), "abc");
                        KvfShutdown(session_);
                      }),
            "abc\n");
}

TEST_F(SessionFiles, ShutdownHidesTheMapThenClosesThenDestroys) {
  const int descriptors = openDescriptorCount();
  const OopType file = openFile("plain", "r");
  recordOf(file)->storeErrorString("text");
  Traffic steps;
  for (const seam::Call& each : callsDuring([&] { KvfShutdown(session_); }))
    for (const char* name : {"KciSupStoreKvfileOopMap", "fclose", "UtlFree", "KciOopMapEntryDelete",
                             "KciOopMapDestroy"})
      if (each.name == name) steps.push_back(each.name);
  ASSERT_EQ(steps.size(), 6U);
  EXPECT_EQ(steps.front(), "KciSupStoreKvfileOopMap");
  EXPECT_EQ(steps[1], "fclose");
  EXPECT_EQ(std::count(steps.begin(), steps.end(), "UtlFree"), 2);
  EXPECT_EQ(std::count(steps.begin(), steps.end(), "KciOopMapEntryDelete"), 1);
  EXPECT_EQ(steps.back(), "KciOopMapDestroy");
  EXPECT_EQ(KciSupGetKvfileOopMap(session_), nullptr);
  EXPECT_EQ(openDescriptorCount(), descriptors);
  expectRaise(4100, {smallInt(session_)}, "KvfIsOpen", {file});
}

TEST_F(SessionFiles, ShutdownDeletesAnEntryWithoutARecord) {
  int status = 0;
  KciOopMapEntryAdd(KciSupGetKvfileOopMap(session_), kvhost::newKvFile(), nullptr, &status);
  openFile("plain", "r");
  const auto calls = callsDuring([&] { KvfShutdown(session_); });
  EXPECT_EQ(countOf(calls, "KciOopMapEntryDelete"), 2);
  EXPECT_EQ(countOf(calls, "UtlFree"), 1);
  EXPECT_EQ(countOf(calls, "KciOopMapDestroy"), 1);
}

TEST_F(SessionFiles, ShutdownGoesOnBehindAFailedClose) {
  const int descriptors = openDescriptorCount();
  openFile("plain", "r");
  fault("fclose:1:EIO");
  KvfShutdown(session_);
  EXPECT_EQ(KciSupGetKvfileOopMap(session_), nullptr);
  EXPECT_EQ(openDescriptorCount(), descriptors);
}

TEST_F(SessionFiles, StartupOverALiveMapClosesTheOldFilesFirst) {
  const int descriptors = openDescriptorCount();
  const OopType file = openFile("plain", "r");
  KciOopMapType* old = KciSupGetKvfileOopMap(session_);
  ASSERT_NE(old, nullptr);
  Traffic steps;
  for (const seam::Call& each : callsDuring([&] { KvfStartup(session_); }))
    for (const char* name : {"fclose", "KciOopMapDestroy", "KciOopMapCreate"})
      if (each.name == name) steps.push_back(each.name);
  EXPECT_EQ(steps, (Traffic{"fclose", "KciOopMapDestroy", "KciOopMapCreate"}));
  EXPECT_NE(KciSupGetKvfileOopMap(session_), nullptr);
  EXPECT_EQ(count(), smallInt(0));
  EXPECT_EQ(openDescriptorCount(), descriptors);
  expectRaise(2364, {file}, "KvfIsOpen", {file});
}

TEST_F(SessionFiles, SessionZeroNeitherStartsNorEnds) {
  openFile("plain", "r");
  EXPECT_EQ(callsDuring([] { KvfStartup(0); }).size(), 0U);
  EXPECT_EQ(callsDuring([] { KvfShutdown(0); }).size(), 0U);
  EXPECT_EQ(count(), smallInt(1));
}

TEST_F(SessionFiles, ANegativeSessionIsTakenLikeAnyOther) {
  const auto calls = callsDuring([] { KvfShutdown(-3); });
  EXPECT_EQ(namesOf(calls), Traffic{"KciSupGetKvfileOopMap"});
}

TEST_F(SessionFiles, ShutdownTwiceDoesNothingTheSecondTime) {
  KvfShutdown(session_);
  EXPECT_EQ(namesOf(callsDuring([&] { KvfShutdown(session_); })), Traffic{"KciSupGetKvfileOopMap"});
}

TEST_F(SessionFiles, SessionsDoNotSeeEachOthersFiles) {
  const OopType file = openFile("plain", "r");
  const int other = kvhost::sessionBegin();
  KvfStartup(other);
  EXPECT_EQ(count(), smallInt(0));
  expectRaise(2364, {file}, "KvfIsOpen", {file});
  EXPECT_EQ(call("KvfOpen", {file, str("plain"), str("r"), OOP_FALSE}), smallInt(1));
  KvfShutdown(other);
  kvhost::sessionEnd(other);
  kvhost::sessionSelect(session_);
  EXPECT_EQ(isOpen(file), OOP_TRUE);
}

}  // namespace
}  // namespace kvtest
