// Opening host files: answers, the order of the checks, the class-level texts, registration.
#include "openfile/openfile_fixture.h"

#include <fcntl.h>

namespace kvtest {
namespace {

class Opening : public OpenFileTest {
 protected:
  OopType open(OopType file, std::string_view path, std::string_view mode,
               bool compressed = false) {
    return call("KvfOpen", {file, str(path), str(mode), oopFromBool(compressed)});
  }

  static OopType bigPath(std::size_t size) {
    std::string path;
    while (path.size() < size) path += "./";
    path.resize(size, 'f');
    path.back() = 'f';
    return str(path);
  }

  // The descriptor of this process that is open on `path`, or -1.
  static int descriptorOn(const std::filesystem::path& path) {
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
      std::error_code gone;
      if (std::filesystem::read_symlink(entry.path(), gone) == path)
        return std::stoi(entry.path().filename().string());
    }
    return -1;
  }
};

TEST_F(Opening, AnswersOneForANewRecordAndTwoForAReusedOne) {
  writeFile("a", "aaa");
  const OopType file = kvhost::newKvFile();
  EXPECT_EQ(show(open(file, "a", "r")), "1");
  EXPECT_EQ(show(open(file, "a", "r")), "2");
  EXPECT_EQ(call("KvfClose", {file}), file);
  EXPECT_EQ(show(open(file, "z.gz", "w", true)), "2");
  EXPECT_EQ(show(call("KvfFinalizeAll", {kvhost::CLASS_KV_FILE})), "1");
}

TEST_F(Opening, ReopeningClosesTheEarlierFileAfterTheNewOneIsOpen) {
  writeFile("a", "aaa");
  writeFile("b", "bbb");
  const OopType file = openFile("a", "r");
  EXPECT_EQ(readBytes(file, 1), "a");
  const auto names = namesOf(callsDuring([&] { open(file, "b", "r"); }));
  const auto opened = std::find(names.begin(), names.end(), "HostOpenFile");
  EXPECT_NE(std::find(opened, names.end(), "fclose"), names.end());
  EXPECT_EQ(position(file), "0");
  EXPECT_EQ(readBytes(file, 9), "bbb");
}

TEST_F(Opening, ReopeningForgetsTheErrorAndTheEndOfFile) {
  const OopType file = openWith("");
  EXPECT_EQ(show(read(file, str(""), 1, 1)), "0");
  writeFile("b", "b");
  ASSERT_EQ(show(open(file, "b", "r")), "2");
  EXPECT_EQ(takeError(file), "nil");
  EXPECT_EQ(errorCode(file), "0");
  EXPECT_EQ(atEnd(file), "false");
}

TEST_F(Opening, AFailedCloseOfTheEarlierFileLeavesItsTextAndNoCode) {
  const OopType file = openWith("abc");
  fault("fclose:1:EIO");
  ASSERT_EQ(show(open(file, "data.bin", "r")), "2");
  EXPECT_EQ(errorCode(file), "0");
  EXPECT_EQ(takeError(file), "'errno=5,EIO, Input/output error'");
  EXPECT_EQ(readBytes(file, 9), "abc");
}

TEST_F(Opening, AFailedOpenLeavesTheEarlierFileOpenWhereItWas) {
  const OopType file = openWith("0123456789");
  EXPECT_EQ(readBytes(file, 4), "0123");
  EXPECT_EQ(open(file, "missing", "r"), OOP_NIL);
  EXPECT_EQ(open(file, "stdin", "r"), OOP_NIL);
  EXPECT_EQ(open(file, "data.bin", "q"), OOP_NIL);
  EXPECT_EQ(show(call("KvfIsOpen", {file})), "true");
  EXPECT_EQ(errorCode(file), "0");
  EXPECT_EQ(position(file), "4");
  EXPECT_EQ(readBytes(file, 9), "456789");
}

TEST_F(Opening, AMissingPlainFileLeavesCodeAndTextInTheClassSlot) {
  EXPECT_EQ(open(kvhost::newKvFile(), "missing.txt", "r"), OOP_NIL);
  EXPECT_EQ(errorCode(OOP_NIL), "2");
  EXPECT_EQ(takeError(OOP_NIL), "'errno=2,ENOENT, No such file or directory : missing.txt'");
  EXPECT_EQ(errorCode(OOP_NIL), "0");
  EXPECT_EQ(takeError(OOP_NIL), "nil");
}

TEST_F(Opening, AMissingGzipFileIsToldByThePathAsItWasGiven) {
  ASSERT_NE(HostSetEnv("KVF_TEST_DIR", directory_.c_str()), 0);
  EXPECT_EQ(open(kvhost::newKvFile(), "$KVF_TEST_DIR/missing.gz", "r", true), OOP_NIL);
  EXPECT_EQ(errorCode(OOP_NIL), "2");
  EXPECT_EQ(takeError(OOP_NIL),
            "'errno=2,ENOENT, No such file or directory : $KVF_TEST_DIR/missing.gz'");
}

TEST_F(Opening, ADirectoryFailsAtTheOpen) {
  EXPECT_EQ(open(kvhost::newKvFile(), ".", "r"), OOP_NIL);
  EXPECT_EQ(errorCode(OOP_NIL), "21");
  EXPECT_EQ(takeError(OOP_NIL), "'errno=21,EISDIR, Is a directory : .'");
}

TEST_F(Opening, HostFailuresGiveTheHostsNumber) {
  fault("HostOpenFile:1:EMFILE");
  EXPECT_EQ(open(kvhost::newKvFile(), "any", "w"), OOP_NIL);
  EXPECT_EQ(errorCode(OOP_NIL), "24");
  EXPECT_EQ(takeError(OOP_NIL), "'errno=24,EMFILE, Too many open files : any'");
  fault("gzopen:1:EACCES");
  EXPECT_EQ(open(kvhost::newKvFile(), "any", "w", true), OOP_NIL);
  EXPECT_EQ(errorCode(OOP_NIL), "13");
  EXPECT_EQ(takeError(OOP_NIL), "'errno=13,EACCES, Permission denied : any'");
}

TEST_F(Opening, AGzipFailureWithoutAnErrnoCountsAsWantOfMemory) {
  fault("gzopen:1:result=0");
  errno = EIO;  // left by something earlier, and no business of this open
  EXPECT_EQ(open(kvhost::newKvFile(), "any", "w", true), OOP_NIL);
  EXPECT_EQ(errorCode(OOP_NIL), "12");
  EXPECT_EQ(takeError(OOP_NIL), "'errno=12,ENOMEM, Cannot allocate memory : any'");
}

TEST_F(Opening, GzipNamesAreExpandedAndPlainOnesGoToTheHostAsTheyAre) {
  ASSERT_NE(HostSetEnv("KVF_TEST_DIR", directory_.c_str()), 0);
  OopType file = openFile("$KVF_TEST_DIR/a.gz", "w", true);
  EXPECT_TRUE(std::filesystem::exists(directory_ / "a.gz"));
  file = kvhost::newKvFile();
  const auto calls =
      callsNamed("HostOpenFile", [&] { EXPECT_EQ(show(open(file, "x$HOME", "w")), "1"); });
  ASSERT_EQ(calls.size(), 1U);
  EXPECT_THAT(argumentOf(calls[0], 0), ::testing::HasSubstr("x$HOME"));
  EXPECT_THAT(namesOf(callsDuring([&] { open(file, "y", "w"); })),
              ::testing::Not(::testing::Contains("HostExpandFileName")));
}

TEST_F(Opening, ANameThatDoesNotExpandOpensNothing) {
  EXPECT_EQ(open(kvhost::newKvFile(), "$KVF_NO_SUCH_VARIABLE/x", "w", true), OOP_NIL);
  EXPECT_EQ(errorCode(OOP_NIL), "2");
  EXPECT_EQ(takeError(OOP_NIL),
            "'errno=2,ENOENT, No such file or directory : $KVF_NO_SUCH_VARIABLE/x'");
}

TEST_F(Opening, StandardFileNamesAreRefusedAndKeepTheCode) {
  ASSERT_EQ(open(kvhost::newKvFile(), "missing", "r"), OOP_NIL);
  for (const char* name : {"stdin", "stdout", "stderr"}) {
    EXPECT_EQ(open(kvhost::newKvFile(), name, "r"), OOP_NIL);
    EXPECT_EQ(open(kvhost::newKvFile(), name, "w", true), OOP_NIL);
    EXPECT_EQ(errorCode(OOP_NIL), "2");
    EXPECT_EQ(takeClassError(), "Can not open standard file");
    ASSERT_EQ(open(kvhost::newKvFile(), "missing", "r"), OOP_NIL);
  }
}

TEST_F(Opening, NamesThatOnlyResembleStandardFilesAreOrdinary) {
  for (const char* name :
       {"./stdout", "STDOUT", "stdout ", "stdouts", "Stdin", "stdin.txt", "stder"})
    EXPECT_EQ(show(open(kvhost::newKvFile(), name, "w")), "1") << name;
}

TEST_F(Opening, AStandardFileNameIsRefusedBeforeTheModeIsLookedAt) {
  const auto names = namesOf(callsDuring([this] {
    EXPECT_EQ(call("KvfOpen", {kvhost::newKvFile(), str("stdin"), smallInt(7), OOP_FALSE}),
              OOP_NIL);
  }));
  EXPECT_THAT(names, ::testing::Not(::testing::Contains("KciFetchObjInfo")));
  EXPECT_EQ(takeClassError(), "Can not open standard file");
}

TEST_F(Opening, ABadPathIsRaisedBeforeTheModeIsLookedAt) {
  const OopType file = kvhost::newKvFile();
  const OopType empty = str("");
  expectRaise(2718, {empty}, "KvfOpen", {file, empty, smallInt(7), OOP_FALSE});
  const OopType wide = kvhost::newUtf16(u"name");
  expectRaise(2718, {wide}, "KvfOpen", {file, wide, smallInt(7), OOP_FALSE});
  const OopType tooLong = bigPath(4096);
  expectRaise(2061, {tooLong}, "KvfOpen", {file, tooLong, smallInt(7), OOP_FALSE});
  EXPECT_EQ(takeClassError(), "");
}

TEST_F(Opening, APathOf4095BytesReachesTheHost) {
  const OopType longest = bigPath(4095);
  EXPECT_EQ(show(call("KvfOpen", {kvhost::newKvFile(), longest, str("w"), OOP_FALSE})), "1");
}

TEST_F(Opening, ATextLongerThanTheSlotIsCut) {
  const std::string name(3000, 'n');
  EXPECT_EQ(open(kvhost::newKvFile(), name, "r"), OOP_NIL);
  EXPECT_EQ(errorCode(OOP_NIL), "36");
  const std::string whole = hostText(ENAMETOOLONG) + " : " + name;
  EXPECT_EQ(takeError(OOP_NIL), "'" + whole.substr(0, 2047) + "'");
}

TEST_F(Opening, WithoutAFileObjectTheHostFileStaysOpenAndUnregistered) {
  EXPECT_EQ(open(OOP_NIL, "leaked", "w"), OOP_NIL);
  EXPECT_EQ(takeClassError(), "");
  EXPECT_EQ(show(call("KvfFinalizeAll", {kvhost::CLASS_KV_FILE})), "0");
  const int leaked = descriptorOn(directory_ / "leaked");
  ASSERT_GE(leaked, 0);
  close(leaked);
}

TEST_F(Opening, WithoutAFileObjectTheGzipFileStaysOpenToo) {
  EXPECT_EQ(inChild([this] {
              const std::string answer = show(open(OOP_NIL, "leaked.gz", "w", true));
              return answer + (descriptorOn(directory_ / "leaked.gz") >= 0 ? " open" : " closed");
            }),
            "nil open");
}

TEST_F(Opening, WithoutAFileObjectAMissingFileStillLeavesItsText) {
  EXPECT_EQ(open(OOP_NIL, "missing", "r"), OOP_NIL);
  EXPECT_EQ(takeClassError(), "errno=2,ENOENT, No such file or directory : missing");
}

TEST_F(Opening, WithoutASessionTheHostFileIsOpenedBeforeTheRaise) {
  writeFile("truncated", "old content");
  const OopType file = kvhost::newKvFile();
  const OopType path = str("truncated");
  const OopType mode = str("w");
  kvhost::sessionSelect(0);
  expectRaise(4100, {smallInt(0)}, "KvfOpen", {file, path, mode, OOP_FALSE});
  kvhost::sessionSelect(session_);
  EXPECT_EQ(readFile("truncated"), "");
  const int leaked = descriptorOn(directory_ / "truncated");
  ASSERT_GE(leaked, 0);
  close(leaked);
}

TEST_F(Opening, WithoutAMapTheSessionIsRaised) {
  const OopType file = kvhost::newKvFile();
  KvfShutdown(session_);
  expectRaise(4100, {smallInt(session_)}, "KvfOpen", {file, str("f"), str("w"), OOP_FALSE});
  const int leaked = descriptorOn(directory_ / "f");
  ASSERT_GE(leaked, 0);
  close(leaked);
}

TEST_F(Opening, WithoutMemoryForTheRecordNothingIsRegistered) {
  const OopType file = kvhost::newKvFile();
  fault("UtlMalloc:1:nomem");
  expectRaise(2208, {}, "KvfOpen", {file, str("f"), str("w"), OOP_FALSE});
  EXPECT_EQ(show(call("KvfFinalizeAll", {kvhost::CLASS_KV_FILE})), "0");
  EXPECT_EQ(descriptorOn(directory_ / "f"), -1) << "the file is closed again";
}

// A host in which a raise comes back reaches what lies behind the refusal of UTF-16 paths.
class Utf16Opening : public Opening {
 protected:
  void SetUp() override {
    Opening::SetUp();
    letRaisesReturn(1);
  }
};

TEST_F(Utf16Opening, CompressedFilesTellThatTheyCannot) {
  EXPECT_EQ(call("KvfOpen", {kvhost::newKvFile(), kvhost::newUtf16(u"name"), str("r"), OOP_TRUE}),
            OOP_NIL);
  EXPECT_EQ(errorCode(OOP_NIL), "0");
  EXPECT_EQ(takeClassError(), "gzopen not supported with Utf16 filename");
}

TEST_F(Utf16Opening, PlainFilesTellTheIdentifierOfThePath) {
  const OopType path = kvhost::newUtf16(u"name");
  const auto names = namesOf(callsDuring([&] {
    EXPECT_EQ(call("KvfOpen", {kvhost::newKvFile(), path, str("r"), OOP_FALSE}), OOP_NIL);
  }));
  EXPECT_THAT(names, ::testing::Not(::testing::Contains("HostOpenFile")));
  EXPECT_EQ(errorCode(OOP_NIL), "0");
  EXPECT_EQ(takeClassError(), hostText(0) + " : pathOop " + std::to_string(path));
}

TEST_F(Utf16Opening, AnInvalidModeIsToldFirst) {
  EXPECT_EQ(call("KvfOpen", {kvhost::newKvFile(), kvhost::newUtf16(u"name"), str("rb1"), OOP_TRUE}),
            OOP_NIL);
  EXPECT_EQ(takeClassError(), "errno=22,EINVAL, Invalid argument (programmer error)");
}

}  // namespace
}  // namespace kvtest
