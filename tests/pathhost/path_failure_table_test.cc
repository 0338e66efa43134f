// What each path action answers and leaves in the class-level error when it fails.
#include "pathhost/path_fixture.h"

#include <climits>
#include <functional>
#include <optional>
#include <ostream>

namespace kvtest {
namespace {

using Args = std::function<std::vector<OopType>()>;

struct FailureRow {
  const char* label;
  std::string action;
  Args args;
  std::vector<std::string> faults;
  OopType answer;
  std::optional<int> code;          // none: the earlier code stays
  std::optional<std::string> text;  // none: the earlier text stays
};

std::ostream& operator<<(std::ostream& out, const FailureRow& row) {
  return out << row.action << ": " << row.label;
}

OopType string(std::string_view text) { return kvhost::newString(text); }

Args onPath(std::string path) {
  return [path] { return std::vector<OopType>{KV_FILE, string(path)}; };
}

Args mkdirWith(std::function<OopType()> mode) {
  return [mode] { return std::vector<OopType>{KV_FILE, string("made"), mode()}; };
}

std::string textForm(int errorNumber, const std::string& path) {
  return hostText(errorNumber) + " : " + path;
}

class PathFailure : public PathTest, public ::testing::WithParamInterface<FailureRow> {};

TEST_P(PathFailure, AnswersAndLeavesExactly) {
  const FailureRow& row = GetParam();
  std::filesystem::create_directories("full/inner");
  writeFile("plain", "12345");
  const ClassError earlier = seedSlot();
  for (const std::string& text : row.faults) fault(text);

  EXPECT_EQ(act(row.action, row.args()), row.answer);

  if (!row.faults.empty()) {
    EXPECT_EQ(seam::faultsFired(), static_cast<int64_t>(row.faults.size()));
  }
  clearFaults();
  EXPECT_EQ(takeSlot(),
            (ClassError{row.code.value_or(earlier.code), row.text.value_or(earlier.text)}));
  EXPECT_EQ(readFile("plain"), "12345");
  EXPECT_TRUE(exists("full/inner"));
}

constexpr const char* MODE_TEXT = "oMode out of range of int32 in KvfMkdir";

std::vector<FailureRow> standardFileRows() {
  std::vector<FailureRow> rows;
  for (const char* name : {"stdin", "stdout", "stderr"}) {
    rows.push_back(
        {name, "KvfUnlink", onPath(name), {}, OOP_NIL, {}, "Can not remove standard file"});
    rows.push_back(
        {name, "KvfSize", onPath(name), {}, OOP_NIL, {}, "Cannot get size of standard file"});
    rows.push_back(
        {name, "KvfModTime", onPath(name), {}, OOP_NIL, {}, "Can not get time of standard file"});
  }
  return rows;
}
INSTANTIATE_TEST_SUITE_P(StandardFile, PathFailure, ::testing::ValuesIn(standardFileRows()));

INSTANTIATE_TEST_SUITE_P(
    RealHostFailure, PathFailure,
    ::testing::Values(
        FailureRow{
            "missing", "KvfUnlink", onPath("gone"), {}, OOP_NIL, ENOENT, textForm(ENOENT, "gone")},
        FailureRow{"below a plain file",
                   "KvfUnlink",
                   onPath("plain/x"),
                   {},
                   OOP_NIL,
                   ENOTDIR,
                   textForm(ENOTDIR, "plain/x")},
        FailureRow{
            "missing", "KvfRmdir", onPath("gone"), {}, OOP_NIL, ENOENT, textForm(ENOENT, "gone")},
        FailureRow{"not empty",
                   "KvfRmdir",
                   onPath("full"),
                   {},
                   OOP_NIL,
                   ENOTEMPTY,
                   textForm(ENOTEMPTY, "full")},
        FailureRow{"plain file",
                   "KvfRmdir",
                   onPath("plain"),
                   {},
                   OOP_NIL,
                   ENOTDIR,
                   textForm(ENOTDIR, "plain")},
        FailureRow{"standard name is an ordinary one",
                   "KvfRmdir",
                   onPath("stdin"),
                   {},
                   OOP_NIL,
                   ENOENT,
                   textForm(ENOENT, "stdin")},
        FailureRow{"there already",
                   "KvfMkdir",
                   [] {
                     return std::vector<OopType>{KV_FILE, string("full"), OOP_NIL};
                   },
                   {},
                   OOP_NIL,
                   EEXIST,
                   textForm(EEXIST, "full")},
        FailureRow{"parent missing",
                   "KvfMkdir",
                   [] {
                     return std::vector<OopType>{KV_FILE, string("a/b"), smallInt(0755)};
                   },
                   {},
                   OOP_NIL,
                   ENOENT,
                   textForm(ENOENT, "a/b")},
        FailureRow{
            "missing", "KvfIsDir", onPath("gone"), {}, OOP_NIL, ENOENT, textForm(ENOENT, "gone")},
        FailureRow{"standard name is an ordinary one",
                   "KvfIsDir",
                   onPath("stdout"),
                   {},
                   OOP_NIL,
                   ENOENT,
                   textForm(ENOENT, "stdout")},
        FailureRow{"missing",
                   "KvfFileKind",
                   onPath("gone"),
                   {},
                   OOP_NIL,
                   ENOENT,
                   textForm(ENOENT, "gone")},
        FailureRow{"name begins like a standard one",
                   "KvfFileKind",
                   onPath("stdinx"),
                   {},
                   OOP_NIL,
                   ENOENT,
                   textForm(ENOENT, "stdinx")},
        FailureRow{"letter case differs",
                   "KvfFileKind",
                   onPath("STDERR"),
                   {},
                   OOP_NIL,
                   ENOENT,
                   textForm(ENOENT, "STDERR")},
        FailureRow{"missing", "KvfSize", onPath("gone"), {}, smallInt(-1), {}, {}},
        FailureRow{"letter case differs", "KvfSize", onPath("Stdin"), {}, smallInt(-1), {}, {}},
        FailureRow{"missing source",
                   "KvfRename",
                   [] {
                     return std::vector<OopType>{KV_FILE, string("gone"), string("b")};
                   },
                   {},
                   smallInt(ENOENT),
                   {},
                   {}},
        FailureRow{"file over a directory",
                   "KvfRename",
                   [] {
                     return std::vector<OopType>{KV_FILE, string("plain"), string("full")};
                   },
                   {},
                   smallInt(EISDIR),
                   {},
                   {}},
        FailureRow{"directory over a file",
                   "KvfRename",
                   [] {
                     return std::vector<OopType>{KV_FILE, string("full"), string("plain")};
                   },
                   {},
                   smallInt(ENOTDIR),
                   {},
                   {}},
        FailureRow{"directory into itself",
                   "KvfRename",
                   [] {
                     return std::vector<OopType>{KV_FILE, string("full"), string("full/x")};
                   },
                   {},
                   smallInt(EINVAL),
                   {},
                   {}}));

INSTANTIATE_TEST_SUITE_P(
    InjectedHostFailure, PathFailure,
    ::testing::Values(
        FailureRow{"refused",
                   "KvfUnlink",
                   onPath("plain"),
                   {"HostRemoveSingleFile:1:EACCES"},
                   OOP_NIL,
                   EACCES,
                   textForm(EACCES, "plain")},
        FailureRow{"busy",
                   "KvfRmdir",
                   onPath("full/inner"),
                   {"HostRemoveDirectory:1:EBUSY"},
                   OOP_NIL,
                   EBUSY,
                   textForm(EBUSY, "full/inner")},
        FailureRow{"disk full",
                   "KvfMkdir",
                   mkdirWith([] { return OOP_NIL; }),
                   {"HostCreateDirectory:1:ENOSPC"},
                   OOP_NIL,
                   ENOSPC,
                   textForm(ENOSPC, "made")},
        FailureRow{"refused",
                   "KvfIsDir",
                   onPath("full"),
                   {"HostFileType:1:EACCES"},
                   OOP_NIL,
                   EACCES,
                   textForm(EACCES, "full")},
        FailureRow{"loop of links",
                   "KvfFileKind",
                   onPath("plain"),
                   {"HostFileType:1:ELOOP"},
                   OOP_NIL,
                   ELOOP,
                   textForm(ELOOP, "plain")},
        FailureRow{"input error",
                   "KvfSize",
                   onPath("plain"),
                   {"HostFileExistSize:1:EIO"},
                   OOP_NIL,
                   EIO,
                   textForm(EIO, "plain")},
        FailureRow{"refused",
                   "KvfRename",
                   [] {
                     return std::vector<OopType>{KV_FILE, string("plain"), string("b")};
                   },
                   {"rename:1:EACCES"},
                   smallInt(EACCES),
                   {},
                   {}},
        FailureRow{"other device",
                   "KvfRename",
                   [] {
                     return std::vector<OopType>{KV_FILE, string("plain"), string("b")};
                   },
                   {"rename:1:EXDEV"},
                   smallInt(EXDEV),
                   {},
                   {}}));

INSTANTIATE_TEST_SUITE_P(
    BadMode, PathFailure,
    ::testing::Values(FailureRow{"past 32 bits",
                                 "KvfMkdir",
                                 mkdirWith([] { return smallInt(1LL << 31); }),
                                 {},
                                 OOP_NIL,
                                 EINVAL,
                                 MODE_TEXT},
                      FailureRow{"below 32 bits",
                                 "KvfMkdir",
                                 mkdirWith([] { return smallInt(-(1LL << 31) - 1); }),
                                 {},
                                 OOP_NIL,
                                 EINVAL,
                                 MODE_TEXT},
                      FailureRow{"a large integer",
                                 "KvfMkdir",
                                 mkdirWith([] { return kvhost::newInteger(INT64_MAX); }),
                                 {},
                                 OOP_NIL,
                                 EINVAL,
                                 MODE_TEXT},
                      FailureRow{"a string",
                                 "KvfMkdir",
                                 mkdirWith([] { return string("0755"); }),
                                 {},
                                 OOP_NIL,
                                 EINVAL,
                                 MODE_TEXT},
                      FailureRow{"a Character",
                                 "KvfMkdir",
                                 mkdirWith([] { return oopFromCharacter('7'); }),
                                 {},
                                 OOP_NIL,
                                 EINVAL,
                                 MODE_TEXT},
                      FailureRow{"a Boolean",
                                 "KvfMkdir",
                                 mkdirWith([] { return OOP_FALSE; }),
                                 {},
                                 OOP_NIL,
                                 EINVAL,
                                 MODE_TEXT}));

INSTANTIATE_TEST_SUITE_P(NilPath, PathFailure,
                         ::testing::Values(FailureRow{
                             "nil",
                             "KvfSize",
                             [] {
                               return std::vector<OopType>{KV_FILE, OOP_NIL};
                             },
                             {},
                             OOP_NIL,
                             {},
                             {}}));

using PathFailureText = PathTest;

TEST_F(PathFailureText, IsCutTo2047Bytes) {
  std::string path;
  while (path.size() < 3000) path += "directory-that-is-not-there/";
  ASSERT_EQ(call("KvfUnlink", {KV_FILE, str(path)}), OOP_NIL);
  const std::string whole = textForm(ENOENT, path);
  EXPECT_EQ(takeSlot(), (ClassError{ENOENT, whole.substr(0, 2047)}));
}

TEST_F(PathFailureText, OfTheModificationTimeIsTheSystemErrorsOwn) {
  const ClassError earlier = seedSlot();
  ASSERT_EQ(call("KvfModTime", {KV_FILE, str("gone")}), OOP_NIL);

  SysErrorSType expected;
  expected.initialize();
  int64 time = 0;
  ASSERT_EQ(UtlGetFileModTime("gone", &time, &expected), FALSE);
  expected.finishMsg();
  ASSERT_NE(expected.errMsg[0], '\0');
  EXPECT_EQ(takeSlot(), (ClassError{earlier.code, expected.errMsg}));
}

TEST_F(PathFailureText, KeepsTheCodeOfAnEarlierFailureBesideARefusal) {
  fault("HostRemoveSingleFile:1:EPERM");
  writeFile("plain", "");
  ASSERT_EQ(call("KvfUnlink", {KV_FILE, str("plain")}), OOP_NIL);
  ASSERT_EQ(call("KvfUnlink", {KV_FILE, str("stdout")}), OOP_NIL);
  EXPECT_EQ(takeSlot(), (ClassError{EPERM, "Can not remove standard file"}));
}

TEST_F(PathFailureText, StaysAfterASuccess) {
  const ClassError earlier = seedSlot();
  writeFile("plain", "123");
  EXPECT_EQ(call("KvfSize", {KV_FILE, str("plain")}), smallInt(3));
  EXPECT_EQ(call("KvfIsDir", {KV_FILE, str("plain")}), OOP_FALSE);
  EXPECT_EQ(call("KvfUnlink", {KV_FILE, str("plain")}), KV_FILE);
  EXPECT_EQ(takeSlot(), earlier);
}

TEST_F(PathFailureText, MakesNoHostCallForABadMode) {
  const auto calls = callsDuring([&] {
    EXPECT_EQ(call("KvfMkdir", {KV_FILE, str("made"), smallInt(1LL << 40)}), OOP_NIL);
  });
  EXPECT_TRUE(callsOf(calls, "HostCreateDirectory").empty());
  EXPECT_FALSE(exists("made"));
}

// No fault in words is without a reason.
TEST_F(PathTest, ASizeThatFailsWithoutAReasonIsNilAndLeavesTheSlot) {
  writeFile("plain", "12345");
  const ClassError earlier = seedSlot();
  const seam::Fault withoutReason = {"HostFileExistSize", 1, false, seam::Fault::Kind::Error, 0};
  seam::addFault(withoutReason);
  EXPECT_EQ(call("KvfSize", {KV_FILE, str("plain")}), OOP_NIL);
  EXPECT_EQ(seam::faultsFired(), 1);
  EXPECT_EQ(takeSlot(), earlier);
}

}  // namespace
}  // namespace kvtest
