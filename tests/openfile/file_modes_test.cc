// Which mode strings open a file, plain or through gzip.
#include "openfile/openfile_fixture.h"

#include <rapidcheck/gtest.h>

#include <set>

namespace kvtest {
namespace {

const std::vector<std::string> plain_modes = {"r",  "w",   "a",   "r+",  "w+",  "a+",  "rb", "wb",
                                              "ab", "r+b", "w+b", "a+b", "rb+", "wb+", "ab+"};
const std::vector<std::string> listed_gzip_modes = {"r",  "w",   "a",   "rb", "wb", "ab",  "w1",
                                                    "a1", "wb1", "ab1", "w9", "a9", "wb9", "ab9"};
const std::set<std::string> accepted_plain(plain_modes.begin(), plain_modes.end());
// The read modes with a level work although nobody lists them.
const std::set<std::string> accepted_gzip = [] {
  std::set<std::string> all(listed_gzip_modes.begin(), listed_gzip_modes.end());
  all.insert({"r1", "r9"});
  return all;
}();
constexpr const char* invalid_mode = "errno=22,EINVAL, Invalid argument (programmer error)";

class FileModes : public OpenFileTest {
 protected:
  // "open", or the class-level text of the refusal.
  std::string tryMode(const std::string& mode, bool compressed) {
    takeClassError();
    const OopType file = kvhost::newKvFile();
    const OopType answer =
        call("KvfOpen", {file, str("modes.dat"), str(mode), oopFromBool(compressed)});
    if (answer == OOP_NIL) return takeClassError();
    EXPECT_EQ(show(answer), "1");
    EXPECT_EQ(show(call("KvfIsOpen", {file})), "true");
    EXPECT_EQ(call("KvfClose", {file}), file);
    return "open";
  }
};

TEST_F(FileModes, EveryListedPlainModeOpens) {
  for (const std::string& mode : plain_modes) {
    writeFile("modes.dat", "");
    EXPECT_EQ(tryMode(mode, false), "open") << mode;
  }
}

TEST_F(FileModes, EveryListedGzipModeAndTheTwoUnlistedOnesOpen) {
  for (const std::string& mode : accepted_gzip) {
    writeGzip("modes.dat", "x");
    EXPECT_EQ(tryMode(mode, true), "open") << mode;
  }
}

TEST_F(FileModes, OtherPlainModesAreRefusedWithATextAndNoCode) {
  writeFile("modes.dat", "");
  for (const char* mode : {"",  "b",  "+",  "rw", "r+b+", "rb+b", "rr", "r++", "rbb", "r+ ",
                           "R", "w1", "a9", "wx", "r+x",  "rbx",  " r", "r ",  "x",   "rwrwrwr"}) {
    EXPECT_EQ(tryMode(mode, false), invalid_mode) << mode;
    EXPECT_EQ(errorCode(OOP_NIL), "0") << mode;
  }
}

TEST_F(FileModes, OtherGzipModesAreRefusedWithATextAndNoCode) {
  writeFile("modes.dat", "");
  for (const char* mode :
       {"",   "b",  "rb1", "rb9",  "r+",  "w+",  "a+",  "wb+", "w19", "w11", "r19", "wb19", "wb1x",
        "w2", "w0", "wb2", "wb+1", "w1b", "ab+", "rbb", "W9",  "9",   "a1 ", "rx",  "w9+"}) {
    EXPECT_EQ(tryMode(mode, true), invalid_mode) << mode;
    EXPECT_EQ(errorCode(OOP_NIL), "0") << mode;
  }
}

TEST_F(FileModes, ARefusedModeLeavesAnEarlierClassLevelCode) {
  ASSERT_EQ(call("KvfOpen", {kvhost::newKvFile(), str("missing"), str("r"), OOP_FALSE}), OOP_NIL);
  ASSERT_EQ(call("KvfOpen", {kvhost::newKvFile(), str("missing"), str("q"), OOP_FALSE}), OOP_NIL);
  EXPECT_EQ(errorCode(OOP_NIL), "2");
  EXPECT_EQ(takeError(OOP_NIL), std::string("'") + invalid_mode + "'");
}

TEST_F(FileModes, NoFileIsOpenedForARefusedMode) {
  const std::vector<std::string> names = namesOf(callsDuring([this] {
    tryMode("rw", false);
    tryMode("w+", true);
  }));
  EXPECT_THAT(names, ::testing::Not(::testing::Contains("HostOpenFile")));
  EXPECT_THAT(names, ::testing::Not(::testing::Contains("gzopen")));
}

TEST_F(FileModes, OnlyTheObjectTrueAsksForCompression) {
  for (const OopType asked :
       {OOP_NIL, OOP_FALSE, smallInt(1), str("true"), oopFromCharacter('t')}) {
    const OopType file = kvhost::newKvFile();
    const auto names = namesOf(callsDuring([&] {
      EXPECT_EQ(show(call("KvfOpen", {file, str("p"), str("w"), asked})), "1");
    }));
    EXPECT_THAT(names, ::testing::Contains("HostOpenFile"));
    EXPECT_THAT(names, ::testing::Not(::testing::Contains("gzopen")));
  }
  const auto names = namesOf(callsDuring([this] { openFile("z", "w", true); }));
  EXPECT_THAT(names, ::testing::Contains("gzopen"));
  EXPECT_THAT(names, ::testing::Not(::testing::Contains("HostOpenFile")));
}

TEST_F(FileModes, AModeIsASymbolOrAStringUpToItsFirstNul) {
  writeFile("modes.dat", "abc");
  const OopType file = kvhost::newKvFile();
  EXPECT_EQ(show(call("KvfOpen", {file, str("modes.dat"), kvhost::newSymbol("rb"), OOP_FALSE})),
            "1");
  EXPECT_EQ(tryMode(std::string("r\0q+", 4), false), "open");
}

TEST_F(FileModes, ALongModeAndAnObjectWithoutBytesAreRaised) {
  writeFile("modes.dat", "abc");
  const OopType file = kvhost::newKvFile();
  const OopType eight = str("rwrwrwrw");
  expectRaise(2061, {eight}, "KvfOpen", {file, str("modes.dat"), eight, OOP_FALSE});
  const OopType array = kvhost::newArray({OOP_NIL});
  expectRaise(2094, {array, OOP_CLASS_STRING}, "KvfOpen",
              {file, str("modes.dat"), array, OOP_FALSE});
  EXPECT_EQ(takeClassError(), "");
}

TEST_F(FileModes, TheListAnswersFreshStringsInOrder) {
  const auto expectList = [this](OopType compressed, const std::vector<std::string>& expected) {
    const OopType list = call("KvfAllValidFileModes", {OOP_NIL, compressed});
    ASSERT_EQ(kvhost::classOf(list), OOP_CLASS_ARRAY);
    std::vector<std::string> listed;
    for (const OopType mode : kvhost::elementsOf(list)) {
      EXPECT_EQ(kvhost::classOf(mode), OOP_CLASS_STRING);
      listed.push_back(bytes(mode));
    }
    EXPECT_EQ(listed, expected);
  };
  expectList(OOP_FALSE, plain_modes);
  expectList(OOP_TRUE, listed_gzip_modes);
  const OopType first = call("KvfAllValidFileModes", {OOP_NIL, OOP_FALSE});
  const OopType second = call("KvfAllValidFileModes", {smallInt(3), OOP_FALSE});
  EXPECT_NE(first, second);
  EXPECT_NE(kvhost::elementsOf(first)[0], kvhost::elementsOf(second)[0]);
}

TEST_F(FileModes, TheListAnswersNilUnlessAskedWithABoolean) {
  for (const OopType asked : {OOP_NIL, smallInt(0), smallInt(1), str("true")})
    EXPECT_EQ(call("KvfAllValidFileModes", {OOP_NIL, asked}), OOP_NIL);
  EXPECT_EQ(takeClassError(), "");
}

RC_GTEST_FIXTURE_PROP(FileModes, AModeOpensExactlyWhenTheTableHasIt, ()) {
  const auto letters = rc::gen::element('r', 'w', 'a', 'b', '+', '1', '9', 'x');
  const auto mode = *rc::gen::resize(5, rc::gen::container<std::string>(letters));
  const bool compressed = *rc::gen::arbitrary<bool>();
  if (mode.size() > 7) return;
  const bool accepted = (compressed ? accepted_gzip : accepted_plain).count(mode) != 0;
  // A level or a gzip file is no matter of a plain file, so each starts as an empty one.
  std::filesystem::remove("modes.dat");
  writeFile("modes.dat", "");
  RC_ASSERT(tryMode(mode, compressed) == (accepted ? "open" : invalid_mode));
}

}  // namespace
}  // namespace kvtest
