// A file that was opened and cannot be registered: with no memory for it everything is given back;
// without a session or a file object it stays open.
#include "losses/gzip_files.h"

#include <climits>

namespace kvtest {
namespace {

class Registration : public OpenFileTest {
 protected:
  void TearDown() override {
    letRaisesReturn(0);
    clearFaults();
    OpenFileTest::TearDown();
  }

  // What can go wrong. Each status of the map is one that it may answer, and most are no errno.
  static std::vector<seam::Fault> wantsOfMemory() {
    std::vector<seam::Fault> all = {{"UtlMalloc", 1, false, seam::Fault::Kind::NoMemory, 0}};
    for (const int64_t status : {1, -1, 2, 12, 255, 256, INT_MAX, INT_MIN})
      all.push_back({"KciOopMapEntryAdd", 1, false, seam::Fault::Kind::Error, status});
    return all;
  }
  static std::string nameOf(const seam::Fault& each) {
    return each.function + " " + std::to_string(each.value);
  }

  static std::size_t indexOf(const std::string& name, const std::vector<seam::Call>& calls) {
    const auto names = namesOf(calls);
    return static_cast<std::size_t>(std::find(names.begin(), names.end(), name) - names.begin());
  }

  // Everything that was taken is given back before the raise, and the same file object can be
  // opened afterwards.
  void expectAllGivenBack(const char* closing, bool compressed, const seam::Fault& want) {
    const OopType file = kvhost::newKvFile();
    const OopType path = str("file");
    const OopType mode = str("w");
    const int before = openDescriptorCount();
    std::vector<seam::Call> calls;
    seam::addFault(want);
    calls = callsDuring([&] {
      expectRaise(2208, {}, "KvfOpen", {file, path, mode, oopFromBool(compressed)});
    });
    EXPECT_EQ(seam::faultsFired(), 1) << nameOf(want);
    clearFaults();
    EXPECT_EQ(openDescriptorCount(), before) << nameOf(want);
    EXPECT_EQ(countOf(calls, closing), 1) << nameOf(want);
    EXPECT_LT(indexOf(closing, calls), indexOf("KciRaiseException", calls)) << nameOf(want);
    if (want.function != "UtlMalloc") {
      EXPECT_EQ(countOf(calls, "UtlFree"), countOf(calls, "UtlMalloc")) << nameOf(want);
      EXPECT_LT(indexOf("UtlFree", calls), indexOf("KciRaiseException", calls)) << nameOf(want);
    }
    EXPECT_EQ(show(call("KvfFinalizeAll", {kvhost::CLASS_KV_FILE})), "0") << nameOf(want);
    expectOpensNow(file, compressed);
  }

  void expectOpensNow(OopType file, bool compressed) {
    EXPECT_EQ(call("KvfOpen", {file, str("file"), str("w"), oopFromBool(compressed)}), smallInt(1));
    EXPECT_EQ(show(write(file, "abc")), "3");
    EXPECT_EQ(call("KvfClose", {file}), file);
    EXPECT_EQ(compressed ? readGzip("file") : readFile("file"), "abc");
    const OopType dead = kvhost::newArray({kvhost::newInteger(static_cast<int64>(file))});
    EXPECT_EQ(call("KvfClientFinalize", {dead}), OOP_TRUE);
  }
};

TEST_F(Registration, WithoutMemoryThePlainFileIsClosedAndItsRecordFreed) {
  for (const seam::Fault& want : wantsOfMemory()) expectAllGivenBack("fclose", false, want);
}

TEST_F(Registration, WithoutMemoryTheGzipFileIsClosedAndItsRecordFreed) {
  for (const seam::Fault& want : wantsOfMemory()) expectAllGivenBack("gzclose", true, want);
}

TEST_F(Registration, WithoutMemoryAStandardFileIsNotClosed) {
  for (const seam::Fault& want : wantsOfMemory()) {
    for (const int64 id : {0, 1, 2}) {
      const OopType file = kvhost::newKvFile();
      seam::addFault(want);
      const auto calls = callsDuring([&] {
        expectRaise(2208, {}, "KvfCreateStdFile", {file, smallInt(id)});
      });
      clearFaults();
      EXPECT_EQ(countOf(calls, "fclose"), 0) << nameOf(want);
      EXPECT_EQ(countOf(calls, "fwrite"), 0) << nameOf(want);
      if (want.function != "UtlMalloc") {
        EXPECT_EQ(countOf(calls, "UtlFree"), countOf(calls, "UtlMalloc")) << nameOf(want);
      }
      EXPECT_GE(fcntl(static_cast<int>(id), F_GETFD), 0) << "descriptor " << id << " was closed";
      EXPECT_EQ(call("KvfCreateStdFile", {file, smallInt(id)}), smallInt(1)) << nameOf(want);
    }
  }
}

TEST_F(Registration, ShouldTheRaiseComeBackTheAnswerIsNil) {
  for (const seam::Fault& want : wantsOfMemory()) {
    for (const bool compressed : {false, true}) {
      const int before = openDescriptorCount();
      seam::addFault(want);
      letRaisesReturn(1);
      EXPECT_EQ(
          call("KvfOpen", {kvhost::newKvFile(), str("file"), str("w"), oopFromBool(compressed)}),
          OOP_NIL)
          << nameOf(want);
      EXPECT_EQ(raisesThatWillReturn(), 0) << nameOf(want);
      EXPECT_EQ(openDescriptorCount(), before) << nameOf(want);
      seam::addFault(want);
      letRaisesReturn(1);
      EXPECT_EQ(call("KvfCreateStdFile", {kvhost::newKvFile(), smallInt(1)}), OOP_NIL)
          << nameOf(want);
      clearFaults();
    }
  }
}

TEST_F(Registration, AFailureLeavesNothingInTheClassErrorSlot) {
  fault("KciOopMapEntryAdd:1:12");
  expectRaise(2208, {}, "KvfOpen", {kvhost::newKvFile(), str("file"), str("w"), OOP_FALSE});
  EXPECT_EQ(errorCode(OOP_NIL), "0");
  EXPECT_EQ(takeClassError(), "");
}

TEST_F(Registration, AnotherFileOfTheSessionStaysAsItIs) {
  const OopType other = openWith("other text", "r", "other");
  EXPECT_EQ(readBytes(other, 5), "other");
  fault("KciOopMapEntryAdd:1:12");
  expectRaise(2208, {}, "KvfOpen", {kvhost::newKvFile(), str("file"), str("w"), OOP_FALSE});
  EXPECT_EQ(show(call("KvfFinalizeAll", {kvhost::CLASS_KV_FILE})), "1");
  EXPECT_EQ(readBytes(other, 5), " text");
}

TEST_F(Registration, ARecordThatIsUsedAgainNeedsNoMemory) {
  const OopType file = openWith("abc");
  fault("UtlMalloc:1+:nomem");
  fault("KciOopMapEntryAdd:1+:12");
  EXPECT_EQ(call("KvfOpen", {file, str("data.bin"), str("r"), OOP_FALSE}), smallInt(2));
  EXPECT_EQ(seam::faultsFired(), 0);
  seam::clearFaults();  // neither was to come to pass
}

TEST_F(Registration, WithoutAFileObjectNothingIsClosed) {
  const auto plain = callsDuring([&] {
    EXPECT_EQ(call("KvfOpen", {OOP_NIL, str("leaked"), str("w"), OOP_FALSE}), OOP_NIL);
  });
  EXPECT_EQ(countOf(plain, "fclose"), 0);
  const int leaked = descriptorOn("leaked");
  ASSERT_GE(leaked, 0);
  close(leaked);
  EXPECT_EQ(inChild([this] {
              const auto calls = callsDuring([&] {
                call("KvfOpen", {OOP_NIL, str("leaked.gz"), str("w"), OOP_TRUE});
              });
              return std::to_string(countOf(calls, "gzclose")) +
                     (descriptorOn("leaked.gz") >= 0 ? " open" : " closed");
            }),
            "0 open");
}

TEST_F(Registration, WithoutASessionNothingIsClosed) {
  const OopType file = kvhost::newKvFile();
  const OopType path = str("leaked");
  const OopType mode = str("w");
  kvhost::sessionSelect(0);
  expectRaise(4100, {smallInt(0)}, "KvfOpen", {file, path, mode, OOP_FALSE});
  kvhost::sessionSelect(session_);
  const int leaked = descriptorOn("leaked");
  ASSERT_GE(leaked, 0);
  close(leaked);
}

TEST_F(Registration, WithoutAMapNothingIsClosed) {
  EXPECT_EQ(inChild([this] {
              KvfShutdown(session_);
              const kvhost::Outcome outcome =
                  attempt("KvfOpen", {kvhost::newKvFile(), str("leaked.gz"), str("w"), OOP_TRUE});
              return std::to_string(outcome.error.number) +
                     (descriptorOn("leaked.gz") >= 0 ? " open" : " closed");
            }),
            "4100 open");
}

}  // namespace
}  // namespace kvtest
