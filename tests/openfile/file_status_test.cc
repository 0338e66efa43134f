// Closing, and what a file object tells about itself: open, compressed, descriptor, error.
#include "openfile/openfile_fixture.h"

namespace kvtest {
namespace {

class FileStatus : public OpenFileTest {
 protected:
  std::string isOpen(OopType file) { return show(call("KvfIsOpen", {file})); }
  std::string isCompressed(OopType file) { return show(call("KvfIsCompressed", {file})); }
  std::string descriptor(OopType file) { return show(call("KvfGetFileDesc", {file})); }
};

TEST_F(FileStatus, OpenAndClosedAreTold) {
  const OopType plain = openWith("abc");
  const OopType gzip = openGzipWith("abc");
  EXPECT_EQ(isOpen(plain), "true");
  EXPECT_EQ(isOpen(gzip), "true");
  EXPECT_EQ(call("KvfClose", {plain}), plain);
  EXPECT_EQ(call("KvfClose", {gzip}), gzip);
  EXPECT_EQ(isOpen(plain), "false");
  EXPECT_EQ(isOpen(gzip), "false");
  EXPECT_EQ(isOpen(OOP_NIL), "false");
}

TEST_F(FileStatus, ClosingAClosedFileMakesNoHostCallAndKeepsTheText) {
  const OopType file = openWith("abc");
  fault("fclose:1:ENOSPC");
  EXPECT_EQ(call("KvfClose", {file}), OOP_NIL);
  EXPECT_EQ(isOpen(file), "false");
  EXPECT_EQ(errorCode(file), "28");
  EXPECT_TRUE(fileCallsDuring([&] { EXPECT_EQ(call("KvfClose", {file}), file); }).empty());
  EXPECT_EQ(errorCode(file), "28");
  EXPECT_EQ(takeError(file), "'errno=28,ENOSPC, No space left on device'");
}

TEST_F(FileStatus, ClosingClearsAnEarlierError) {
  const OopType file = openWith("abc");
  fault("HostReadFile_:1:EIO");
  EXPECT_EQ(readBytes(file, 1), "nil");
  EXPECT_EQ(errorCode(file), "5");
  EXPECT_EQ(call("KvfClose", {file}), file);
  EXPECT_EQ(errorCode(file), "0");
  EXPECT_EQ(takeError(file), "nil");
}

TEST_F(FileStatus, AFailedGzipCloseAnswersTheFileAndShowsNothing) {
  EXPECT_EQ(inChild([this] {
              const OopType file = openGzipWith("abc");
              fault("gzclose:1:result=" + std::to_string(Z_ERRNO));
              return Transcript() << show(call("KvfClose", {file})) << errorCode(file)
                                  << takeError(file) << isOpen(file);
            }),
            "aKvFile 0 nil false");
}

TEST_F(FileStatus, TheRecordStaysRegisteredAfterTheClose) {
  const OopType file = openWith("abc");
  call("KvfClose", {file});
  EXPECT_EQ(show(call("KvfFinalizeAll", {kvhost::CLASS_KV_FILE})), "1");
  EXPECT_EQ(show(call("KvfOpen", {file, str("data.bin"), str("r"), OOP_NIL})), "2");
  EXPECT_EQ(readBytes(file, 9), "abc");
}

TEST_F(FileStatus, CompressedMeansThatTheDataReallyIs) {
  EXPECT_EQ(isCompressed(openGzipWith("abc")), "true");
  writeFile("plain", "no gzip data here");
  EXPECT_EQ(isCompressed(openFile("plain", "r", true)), "false");
  EXPECT_EQ(isCompressed(openFile("plain", "r", false)), "false");
  EXPECT_EQ(isCompressed(openFile("new.gz", "w9", true)), "true");
  EXPECT_EQ(isCompressed(OOP_NIL), "nil");
  EXPECT_EQ(isCompressed(kvhost::newKvFile()), "nil");
}

TEST_F(FileStatus, AClosedCompressedFileAlwaysCountsAsCompressed) {
  writeFile("plain", "no gzip data here");
  const OopType file = openFile("plain", "r", true);
  EXPECT_EQ(isCompressed(file), "false");
  call("KvfClose", {file});
  EXPECT_EQ(isCompressed(file), "true");
  const OopType plain = openWith("abc");
  call("KvfClose", {plain});
  EXPECT_EQ(isCompressed(plain), "false");
}

TEST_F(FileStatus, PlainDataReadsThroughGzipAsItIs) {
  writeFile("plain", "no gzip data here");
  EXPECT_EQ(readBytes(openFile("plain", "r", true), 99), "no gzip data here");
}

TEST_F(FileStatus, TheDescriptorIsThatOfThePlainStream) {
  const OopType file = openWith("abc");
  const std::string number = descriptor(file);
  EXPECT_EQ(std::filesystem::read_symlink("/proc/self/fd/" + number), directory_ / "data.bin");
  EXPECT_EQ(descriptor(openGzipWith("abc")), "-1");
  EXPECT_EQ(descriptor(OOP_NIL), "-1");
  EXPECT_EQ(descriptor(kvhost::newKvFile()), "-1");
  call("KvfClose", {file});
  EXPECT_EQ(descriptor(file), "-1");
}

TEST_F(FileStatus, TheErrorTextIsAnsweredOnceAndTakesTheCodeAlong) {
  const OopType file = openWith("abc", "w");
  EXPECT_EQ(readBytes(file, 1), "nil");
  EXPECT_EQ(errorCode(file), "9");
  EXPECT_EQ(errorCode(file), "9");
  EXPECT_EQ(takeError(file), "'errno=9,EBADF, Bad file descriptor'");
  EXPECT_EQ(errorCode(file), "0");
  EXPECT_EQ(takeError(file), "nil");
}

TEST_F(FileStatus, ARecordHasOneTextInItsLifeAndLaterFailuresHaveCodesAlone) {
  const OopType file = openWith("abc", "w");
  EXPECT_EQ(readBytes(file, 1), "nil");
  EXPECT_NE(takeError(file), "nil");
  fault("HostWriteFile_:1:ENOSPC");
  EXPECT_EQ(write(file, "x"), OOP_NIL);
  EXPECT_EQ(errorCode(file), "28");
  EXPECT_EQ(takeError(file), "nil");
  EXPECT_EQ(errorCode(file), "0");
  EXPECT_EQ(show(call("KvfOpen", {file, str("data.bin"), str("w"), OOP_FALSE})), "2");
  EXPECT_EQ(readBytes(file, 1), "nil");
  EXPECT_EQ(errorCode(file), "9");
  EXPECT_EQ(takeError(file), "nil");
}

TEST_F(FileStatus, AnUnknownFileTellsTheClassLevelError) {
  const OopType file = kvhost::newKvFile();
  ASSERT_EQ(call("KvfOpen", {file, str("missing"), str("r"), OOP_FALSE}), OOP_NIL);
  EXPECT_EQ(errorCode(file), "2");
  EXPECT_EQ(takeError(file), "'errno=2,ENOENT, No such file or directory : missing'");
  EXPECT_EQ(errorCode(OOP_NIL), "0");
  EXPECT_EQ(takeError(OOP_NIL), "nil");
}

TEST_F(FileStatus, AnUnknownFileResetsTheClassCodeEvenWithoutAText) {
  ASSERT_EQ(call("KvfClassError", {kvhost::CLASS_KV_FILE, str("")}), kvhost::CLASS_KV_FILE);
  EXPECT_EQ(errorCode(OOP_NIL), "22");
  EXPECT_EQ(takeClassError(), "");
  EXPECT_EQ(errorCode(OOP_NIL), "22");
  EXPECT_EQ(takeError(kvhost::newKvFile()), "nil");
  EXPECT_EQ(errorCode(OOP_NIL), "0");
}

// How each action answers for a file object that is nil, unknown, or closed.
struct LookUp {
  const char* action;
  std::vector<OopType> arguments;
  const char* forNil;
  bool raisesUnknown;
  const char* forUnknown;  // where it is not raised
  const char* forClosed;
};

class FileLookUp : public OpenFileTest {
 protected:
  static std::vector<LookUp> lookUps() {
    const OopType text = str("abc");
    const OopType one = smallInt(1);
    const OopType eol = smallInt(10);
    const OopType kind = str("readLock");
    return {
        {"KvfClose", {}, "nil", true, "", "aKvFile"},
        {"KvfIsOpen", {}, "false", true, "", "false"},
        {"KvfIsCompressed", {}, "nil", false, "nil", "false"},
        {"KvfGetFileDesc", {}, "-1", false, "-1", "-1"},
        {"KvfErrorString", {}, "nil", false, "nil", "nil"},
        {"KvfErrorCode", {}, "0", false, "0", "0"},
        {"KvfAtEnd", {}, "nil", true, "", "nil"},
        {"KvfFlush", {}, "nil", true, "", "nil"},
        {"KvfSync", {}, "nil", true, "", "nil"},
        {"KvfPosition", {}, "nil", true, "", "nil"},
        {"KvfGetC", {}, "nil", true, "", "nil"},
        {"KvfPutC", {one}, "nil", true, "", "nil"},
        {"KvfPrintBytes", {text}, "nil", true, "", "nil"},
        {"KvfGetLine", {OOP_NIL, one, eol, OOP_NIL}, "nil", true, "", "nil"},
        {"KvfRead", {text, one, one}, "nil", true, "", "nil"},
        {"KvfWrite", {text, one, one}, "nil", true, "", "nil"},
        {"KvfSeek", {one, smallInt(0)}, "nil", true, "", "nil"},
        {"KvfLock", {kind, one, one, one}, "'file is not open'", true, "", "'file is not open'"},
        {"KvfUnlock", {one, one}, "'file is not open'", true, "", "'file is not open'"},
        {"KvfLockQuery", {kind, one, one}, "'file is not open'", true, "", "'file is not open'"},
    };
  }

  kvhost::Outcome callOn(OopType file, const LookUp& row) {
    std::vector<OopType> all = {file};
    all.insert(all.end(), row.arguments.begin(), row.arguments.end());
    const auto outcome = kvhost::callAction(row.action, all.data(), static_cast<int>(all.size()));
    EXPECT_EQ(kvhost::forgottenErrorJumps(), forgottenBefore_) << row.action;
    return outcome;
  }

  void expectAnswer(const char* expected, OopType file, const LookUp& row) {
    const kvhost::Outcome outcome = callOn(file, row);
    ASSERT_EQ(outcome.status, kvhost::CallStatus::Answered) << row.action;
    EXPECT_EQ(show(outcome.value), expected) << row.action;
  }

  // Where nothing is found the answer is that for nil, but KvfClose answers its argument.
  void expectNoFile(OopType file, const LookUp& row) {
    const bool closes = std::string_view(row.action) == "KvfClose";
    expectAnswer(closes ? "aKvFile" : row.forNil, file, row);
  }

  void expectRaised(int number, OopType argument, OopType file, const LookUp& row) {
    const kvhost::Outcome outcome = callOn(file, row);
    ASSERT_EQ(outcome.status, kvhost::CallStatus::Raised) << row.action;
    EXPECT_EQ(outcome.error.number, number) << row.action;
    EXPECT_EQ(outcome.error.fatal != 0, number == 4100) << row.action;
    ASSERT_EQ(outcome.error.argCount, 1) << row.action;
    EXPECT_EQ(outcome.error.args[0], argument) << row.action;
  }
};

TEST_F(FileLookUp, NilIsAnsweredWithoutARaiseEvenWithoutASession) {
  for (const LookUp& row : lookUps()) expectAnswer(row.forNil, OOP_NIL, row);
  kvhost::sessionSelect(0);
  for (const LookUp& row : lookUps()) {
    if (std::string_view(row.forNil).front() == '\'') continue;  // a String needs a session
    expectAnswer(row.forNil, OOP_NIL, row);
  }
}

TEST_F(FileLookUp, AnUnknownFileIsRaisedOrTolerated) {
  const OopType file = kvhost::newKvFile();
  for (const LookUp& row : lookUps()) {
    if (row.raisesUnknown) {
      expectRaised(2364, file, file, row);
    } else {
      expectAnswer(row.forUnknown, file, row);
    }
  }
}

TEST_F(FileLookUp, AClosedFileAnswersAndKeepsNothing) {
  const OopType file = openWith("abc", "r+");
  call("KvfClose", {file});
  for (const LookUp& row : lookUps()) {
    EXPECT_TRUE(fileCallsDuring([&] { expectAnswer(row.forClosed, file, row); }).empty());
    EXPECT_EQ(errorCode(file), "0") << row.action;
    EXPECT_EQ(takeError(file), "nil") << row.action;
  }
  EXPECT_EQ(readFile("data.bin"), "abc");
}

TEST_F(FileLookUp, WithoutASessionZeroIsRaised) {
  const OopType file = openWith("abc");
  const std::vector<LookUp> rows = lookUps();
  kvhost::sessionSelect(0);
  for (const LookUp& row : rows) expectRaised(4100, smallInt(0), file, row);
}

TEST_F(FileLookUp, WithoutAMapTheSessionIsRaised) {
  const OopType file = openWith("abc");
  const std::vector<LookUp> rows = lookUps();
  KvfShutdown(session_);
  for (const LookUp& row : rows) expectRaised(4100, smallInt(session_), file, row);
}

TEST_F(FileLookUp, AnEntryWithoutARecordCountsAsNoFile) {
  const OopType file = kvhost::newKvFile();
  int status = 0;
  KciOopMapEntryAdd(KciSupGetKvfileOopMap(session_), file, nullptr, &status);
  for (const LookUp& row : lookUps()) expectNoFile(file, row);
}

TEST_F(FileLookUp, ARaiseThatComesBackIsFollowedByTheAnswerOfNoFile) {
  const OopType file = kvhost::newKvFile();
  letRaisesReturn(100);
  for (const LookUp& row : lookUps()) expectNoFile(file, row);
}

}  // namespace
}  // namespace kvtest
