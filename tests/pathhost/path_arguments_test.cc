// Which objects are accepted as paths, and what is raised for the others.
#include "pathhost/path_fixture.h"

#include <functional>
#include <optional>

namespace kvtest {
namespace {

struct PathAction {
  const char* name;
  // The whole argument list around one path.
  std::function<std::vector<OopType>(OopType path)> args;
  bool nilIsAnswered = false;  // a nil path is answered and not raised
};

std::ostream& operator<<(std::ostream& out, const PathAction& action) { return out << action.name; }

std::vector<OopType> alone(OopType path) { return {KV_FILE, path}; }

const PathAction PATH_ACTIONS[] = {
    {"KvfUnlink", alone},
    {"KvfRmdir", alone},
    {"KvfMkdir",
     [](OopType path) {
       return std::vector<OopType>{KV_FILE, path, OOP_NIL};
     }},
    {"KvfIsDir", alone},
    {"KvfFileKind", alone},
    {"KvfSize", alone, true},
    {"KvfModTime", alone},
    {"KvfRename",
     [](OopType path) {
       return std::vector<OopType>{KV_FILE, path, kvhost::newString("b")};
     }},
    {"KvfRename",
     [](OopType path) {
       return std::vector<OopType>{KV_FILE, kvhost::newString("a"), path};
     }},
    {"KvfDirectory",
     [](OopType path) {
       return std::vector<OopType>{KV_FILE, path, OOP_FALSE};
     }},
    {"KvfExpandEnvVar",
     [](OopType path) {
       return std::vector<OopType>{KV_FILE, path, smallInt(0)};
     }},
    {"KvfSetEnvVar",
     [](OopType path) {
       return std::vector<OopType>{KV_FILE, path, kvhost::newString("v")};
     }},
    {"KvfSetEnvVar",
     [](OopType path) {
       return std::vector<OopType>{KV_FILE, kvhost::newString("KVF_TEST_UNSET"), path};
     },
     true},
};

class PathArgument : public PathTest, public ::testing::WithParamInterface<PathAction> {
 protected:
  void expectRaised(int number, const std::vector<OopType>& errorArgs, OopType path) {
    const ClassError earlier = seedSlot();
    const kvhost::Outcome outcome = tryAct(GetParam().name, GetParam().args(path));
    ASSERT_EQ(outcome.status, kvhost::CallStatus::Raised);
    EXPECT_EQ(outcome.error.number, number);
    EXPECT_EQ(outcome.error.fatal, 0);
    const std::vector<OopType> raised(outcome.error.args,
                                      outcome.error.args + outcome.error.argCount);
    EXPECT_EQ(raised, errorArgs);
    EXPECT_EQ(takeSlot(), earlier);
  }
};

INSTANTIATE_TEST_SUITE_P(Every, PathArgument, ::testing::ValuesIn(PATH_ACTIONS));

TEST_P(PathArgument, RefusesUtf16) {
  const OopType path = kvhost::newUtf16(u"name");
  expectRaised(2718, {path}, path);
}

TEST_P(PathArgument, RefusesTheEmptyString) {
  const OopType path = str("");
  expectRaised(2718, {path}, path);
}

TEST_P(PathArgument, RefusesNil) {
  if (GetParam().nilIsAnswered) {
    EXPECT_EQ(tryAct(GetParam().name, GetParam().args(OOP_NIL)).status,
              kvhost::CallStatus::Answered);
    return;
  }
  expectRaised(2718, {OOP_NIL}, OOP_NIL);
}

TEST_P(PathArgument, RefusesASmallIntegerLikeAnEmptyString) {
  expectRaised(2718, {smallInt(7)}, smallInt(7));
}

TEST_P(PathArgument, Refuses4096Bytes) {
  const OopType path = str(std::string(4096, 'p'));
  expectRaised(2061, {path}, path);
}

TEST_P(PathArgument, RefusesMuchMore) {
  const OopType path = str(std::string(100000, 'p'));
  expectRaised(2061, {path}, path);
}

TEST_P(PathArgument, PassesTheInterfacesErrorOnForAnObjectWithoutText) {
  const OopType path = kvhost::newArray({OOP_NIL, OOP_NIL});
  ByteType buffer[16];
  OopType converted = OOP_NIL;
  ASSERT_EQ(KciFetchUtf8Bytes_(path, 1, buffer, sizeof buffer, &converted, 0), 0);
  KciErrSType expected;
  expected.initialize();
  ASSERT_TRUE(KciErr(&expected));

  const kvhost::Outcome outcome = tryAct(GetParam().name, GetParam().args(path));
  ASSERT_EQ(outcome.status, kvhost::CallStatus::Raised);
  EXPECT_EQ(outcome.error.number, expected.number);
  EXPECT_STREQ(outcome.error.message, expected.message);
  KciErrSType pending;
  EXPECT_FALSE(KciErr(&pending)) << "the interface's error was left pending";
}

TEST_P(PathArgument, RaisesAFreshRecordWhenTheInterfaceReportsNothing) {
  fault("KciFetchUtf8Bytes_:1:result=0");
  const kvhost::Outcome outcome = tryAct(GetParam().name, GetParam().args(str("name")));
  // Where the path is the second one, the fault meets the first: either ends the action.
  ASSERT_EQ(outcome.status, kvhost::CallStatus::Raised);
  EXPECT_EQ(outcome.error.number, 0);
  EXPECT_EQ(outcome.error.argCount, 0);
}

TEST_P(PathArgument, ReadsASymbolLikeAString) {
  const kvhost::Outcome outcome =
      tryAct(GetParam().name, GetParam().args(kvhost::newSymbol("KVF_TEST_SYMBOL")));
  EXPECT_EQ(outcome.status, kvhost::CallStatus::Answered);
  unsetenv("KVF_TEST_SYMBOL");
}

TEST_P(PathArgument, Accepts4095Bytes) {
  const OopType path = str(std::string(4095, 'p'));
  EXPECT_EQ(tryAct(GetParam().name, GetParam().args(path)).status, kvhost::CallStatus::Answered);
  unsetenv(std::string(4095, 'p').c_str());
  unsetenv("KVF_TEST_UNSET");
}

using LongPath = PathTest;

TEST_F(LongPath, Of4095BytesReachesTheHostWhole) {
  // Relative components keep the path valid however long it is.
  std::string path;
  while (path.size() < 4095 - 6) path += "./";
  path += std::string(4095 - path.size() - 5, '/') + "plain";
  ASSERT_EQ(path.size(), 4095U);
  writeFile("plain", "12345");
  EXPECT_EQ(call("KvfSize", {KV_FILE, str(path)}), smallInt(5));
  EXPECT_EQ(call("KvfUnlink", {KV_FILE, str(path)}), KV_FILE);
  EXPECT_FALSE(exists("plain"));
}

TEST_F(LongPath, EndsAtItsFirstNul) {
  writeFile("plain", "12345");
  EXPECT_EQ(call("KvfSize", {KV_FILE, str(std::string_view("plain\0rest", 10))}), smallInt(5));
}

TEST_F(LongPath, KeepsItsBytesAbove127) {
  const std::string name = "caf\xC3\xA9-\xFF";
  writeFile(name, "1234567");
  EXPECT_EQ(call("KvfSize", {KV_FILE, str(name)}), smallInt(7));
  EXPECT_EQ(call("KvfFileKind", {KV_FILE, str(name)}), smallInt(0));
  EXPECT_EQ(call("KvfRename", {KV_FILE, str(name), str("\xFE")}), smallInt(0));
  EXPECT_TRUE(exists("\xFE"));
}

// A raise that comes back meets the branch of UTF-16 paths, which reaches no host call.
using ReturningRaise = PathTest;

TEST_F(ReturningRaise, PostsTheObjectFormForAUtf16Path) {
  for (const auto& row :
       std::vector<std::pair<std::string, std::string>>{{"KvfUnlink", "HostRemoveSingleFile"},
                                                        {"KvfRmdir", "HostRemoveDirectory"},
                                                        {"KvfMkdir", "HostCreateDirectory"},
                                                        {"KvfIsDir", "HostFileType"},
                                                        {"KvfFileKind", "HostFileType"}}) {
    SCOPED_TRACE(row.first);
    seedSlot();
    const OopType path = kvhost::newUtf16(u"name");
    std::vector<OopType> args{KV_FILE, path};
    if (row.first == "KvfMkdir") args.push_back(OOP_NIL);
    raisesComeBack();
    const auto calls = callsDuring([&] { EXPECT_EQ(act(row.first, args), OOP_NIL); });
    clearFaults();
    EXPECT_TRUE(callsOf(calls, row.second).empty());
    EXPECT_TRUE(callsOf(calls, "HostExpandFileName").empty());
    EXPECT_EQ(takeSlot(), (ClassError{0, hostText(0) + " : pathOop " + std::to_string(path)}));
  }
}

TEST_F(ReturningRaise, SizeOfAUtf16PathIsThatOfAMissingFile) {
  const ClassError earlier = seedSlot();
  raisesComeBack();
  const auto calls = callsDuring([&] {
    EXPECT_EQ(call("KvfSize", {KV_FILE, kvhost::newUtf16(u"name")}), smallInt(-1));
  });
  EXPECT_TRUE(callsOf(calls, "HostFileExistSize").empty());
  EXPECT_EQ(takeSlot(), earlier);
}

TEST_F(ReturningRaise, ModTimeOfAUtf16PathFailsWithoutAHostCall) {
  const ClassError earlier = seedSlot();
  SysErrorSType none;
  none.initialize();
  none.finishMsg();
  raisesComeBack();
  const auto calls = callsDuring([&] {
    EXPECT_EQ(call("KvfModTime", {KV_FILE, kvhost::newUtf16(u"name")}), OOP_NIL);
  });
  EXPECT_TRUE(callsOf(calls, "UtlGetFileModTime").empty());
  EXPECT_TRUE(callsOf(calls, "HostExpandFileName").empty());
  EXPECT_EQ(takeSlot(), (ClassError{earlier.code, none.errMsg}));
}

TEST_F(ReturningRaise, RenameTakesTheBytesOfUtf16PathsAsTheyStand) {
  // The second byte of the little-endian form is 0 and ends the name.
  writeFile("a", "content");
  raisesComeBack(2);
  EXPECT_EQ(call("KvfRename", {KV_FILE, kvhost::newUtf16(u"ab"), kvhost::newUtf16(u"cd")}),
            smallInt(0));
  EXPECT_EQ(readFile("c"), "content");
  EXPECT_FALSE(exists("a"));
}

TEST_F(ReturningRaise, DirectoryAndEnvironmentAnswerNilForUtf16) {
  const ClassError earlier = seedSlot();
  const std::vector<std::pair<std::string, std::vector<OopType>>> rows = {
      {"KvfDirectory", {KV_FILE, kvhost::newUtf16(u"./"), OOP_FALSE}},
      {"KvfExpandEnvVar", {KV_FILE, kvhost::newUtf16(u"HO"), smallInt(0)}},
      {"KvfSetEnvVar", {KV_FILE, kvhost::newUtf16(u"HO"), str("v")}},
      {"KvfSetEnvVar", {KV_FILE, str("HO"), kvhost::newUtf16(u"vv")}}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.first);
    raisesComeBack();
    const auto calls = callsDuring([&] { EXPECT_EQ(act(row.first, row.second), OOP_NIL); });
    clearFaults();
    for (const char* host : {"HostDirectory", "HostGetEnv", "HostSetEnv", "HostExpandFileName"})
      EXPECT_TRUE(callsOf(calls, host).empty()) << host;
  }
  EXPECT_EQ(takeSlot(), earlier);
}

TEST_F(ReturningRaise, Utf16PathsOf4094BytesOrOfOddSizeRaiseAgain) {
  const OopType longest = kvhost::newUtf16(std::u16string(2046, u'x'));
  raisesComeBack();
  EXPECT_EQ(call("KvfRmdir", {KV_FILE, longest}), OOP_NIL) << "4092 bytes fit";
  const OopType tooLong = kvhost::newUtf16(std::u16string(2047, u'x'));
  const OopType odd = KciNewByteObj(OOP_CLASS_UTF16_STRING, "abc", 3);
  for (const OopType path : {tooLong, odd}) {
    clearFaults();
    raisesComeBack();
    expectRaise(2061, {path}, "KvfRmdir", {KV_FILE, path});
  }
}

TEST_F(ReturningRaise, ANegativeCountOfUtf16BytesRaisesLikeAnOddOne) {
  const OopType path = kvhost::newUtf16(u"name");
  raisesComeBack();
  fault("KciFetchBytes_:1:result=-2");
  expectRaise(2061, {path}, "KvfRmdir", {KV_FILE, path});
}

TEST_F(ReturningRaise, EveryActionAnswersNilWhenThePathFetchFailed) {
  const ClassError earlier = seedSlot();
  for (const PathAction& action : PATH_ACTIONS) {
    SCOPED_TRACE(action.name);
    raisesComeBack();
    EXPECT_EQ(act(action.name, action.args(str(""))), OOP_NIL);
    clearFaults();
  }
  EXPECT_EQ(takeSlot(), earlier);
}

}  // namespace
}  // namespace kvtest
