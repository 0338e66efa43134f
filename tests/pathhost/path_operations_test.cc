// What the path actions do to the file system and answer, and which names they hand to the host.
#include "pathhost/path_fixture.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <climits>
#include <cstring>

namespace kvtest {
namespace {

using PathOperations = PathTest;

mode_t modeOf(const char* path) {
  struct stat status {};
  EXPECT_EQ(lstat(path, &status), 0) << path;
  return status.st_mode & 07777;
}

// ---- removing ----

TEST_F(PathOperations, UnlinkRemovesAFileAndAnswersTheReceiver) {
  writeFile("a", "x");
  EXPECT_EQ(call("KvfUnlink", {KV_FILE, str("a")}), KV_FILE);
  EXPECT_FALSE(exists("a"));
  writeFile("b", "x");
  EXPECT_EQ(call("KvfUnlink", {smallInt(77), str("b")}), smallInt(77));
}

TEST_F(PathOperations, UnlinkRemovesALinkAndNotItsTarget) {
  writeFile("target", "x");
  ASSERT_EQ(symlink("target", "link"), 0);
  EXPECT_EQ(call("KvfUnlink", {KV_FILE, str("link")}), KV_FILE);
  EXPECT_FALSE(exists("link"));
  EXPECT_TRUE(exists("target"));
}

TEST_F(PathOperations, UnlinkLeavesADirectory) {
  std::filesystem::create_directory("d");
  EXPECT_EQ(call("KvfUnlink", {KV_FILE, str("d")}), OOP_NIL);
  EXPECT_TRUE(exists("d"));
}

TEST_F(PathOperations, UnlinkTakesNamesThatOnlyResembleStandardFiles) {
  for (const char* name : {"stdin2", "stdi", "std", "st", "s", "stop", "sdtin", "stdouts", "Stdin",
                           "STDERR", "./stdout", " stdin", "stdx"}) {
    writeFile(name, "x");
    EXPECT_EQ(call("KvfUnlink", {KV_FILE, str(name)}), KV_FILE) << name;
    EXPECT_FALSE(exists(name)) << name;
  }
}

TEST_F(PathOperations, UnlinkLeavesFilesWithStandardNames) {
  for (const char* name : {"stdin", "stdout", "stderr"}) {
    writeFile(name, "x");
    EXPECT_EQ(call("KvfUnlink", {KV_FILE, str(name)}), OOP_NIL);
    EXPECT_TRUE(exists(name));
    EXPECT_EQ(call("KvfSize", {KV_FILE, str(name)}), OOP_NIL);
    EXPECT_EQ(call("KvfModTime", {KV_FILE, str(name)}), OOP_NIL);
  }
}

TEST_F(PathOperations, RmdirRemovesAnEmptyDirectory) {
  std::filesystem::create_directory("d");
  EXPECT_EQ(call("KvfRmdir", {KV_FILE, str("d")}), KV_FILE);
  EXPECT_FALSE(exists("d"));
}

TEST_F(PathOperations, StandardNamesAreOrdinaryForDirectoriesAndRename) {
  EXPECT_EQ(call("KvfMkdir", {KV_FILE, str("stdin"), OOP_NIL}), KV_FILE);
  EXPECT_EQ(call("KvfIsDir", {KV_FILE, str("stdin")}), OOP_TRUE);
  EXPECT_EQ(call("KvfRename", {KV_FILE, str("stdin"), str("stdout")}), smallInt(0));
  EXPECT_EQ(call("KvfIsDir", {KV_FILE, str("stdout")}), OOP_TRUE);
  EXPECT_EQ(call("KvfRmdir", {KV_FILE, str("stdout")}), KV_FILE);
  EXPECT_FALSE(exists("stdin"));
  EXPECT_FALSE(exists("stdout"));
}

// ---- making directories ----

TEST_F(PathOperations, MkdirGivesTheModeLessTheUmask) {
  const mode_t before = umask(0027);
  EXPECT_EQ(call("KvfMkdir", {KV_FILE, str("a"), smallInt(0777)}), KV_FILE);
  EXPECT_EQ(call("KvfMkdir", {KV_FILE, str("b"), smallInt(0700)}), KV_FILE);
  EXPECT_EQ(call("KvfMkdir", {KV_FILE, str("c"), smallInt(0)}), KV_FILE);
  EXPECT_EQ(call("KvfMkdir", {KV_FILE, str("d"), OOP_NIL}), KV_FILE);
  umask(before);
  EXPECT_EQ(modeOf("a"), 0750U);
  EXPECT_EQ(modeOf("b"), 0700U);
  EXPECT_EQ(modeOf("c"), 0000U);
  EXPECT_EQ(modeOf("d"), 0750U) << "no mode asks for everything that the umask allows";
}

TEST_F(PathOperations, MkdirHandsTheModeOnAsItStands) {
  for (const auto& row :
       std::vector<std::pair<OopType, std::string>>{{OOP_NIL, "-1"},
                                                    {smallInt(0755), "0755"},
                                                    {smallInt(INT_MAX), "017777777777"},
                                                    {smallInt(INT_MIN), "-2147483648"},
                                                    {smallInt(-1), "-1"}}) {
    fault("HostCreateDirectory:1:EPERM");
    const auto calls = callsDuring([&] {
      EXPECT_EQ(call("KvfMkdir", {KV_FILE, str("d"), row.first}), OOP_NIL);
    });
    clearFaults();
    const auto made = callsOf(calls, "HostCreateDirectory");
    ASSERT_EQ(made.size(), 1U);
    EXPECT_EQ(made[0].arguments.front(), asText("d"));
    EXPECT_EQ(made[0].arguments.back(), row.second);
  }
}

// ---- kinds ----

class Kinds : public PathTest {
 protected:
  void SetUp() override {
    PathTest::SetUp();
    writeFile("file", "x");
    std::filesystem::create_directory("dir");
    ASSERT_EQ(symlink("file", "link"), 0);
    ASSERT_EQ(symlink("dir", "dirlink"), 0);
    ASSERT_EQ(symlink("gone", "dangling"), 0);
    ASSERT_EQ(mkfifo("fifo", 0600), 0);
    makeSocket("socket");
  }

  static void makeSocket(const char* path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path, sizeof address.sun_path - 1);
    const int descriptor = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    ASSERT_EQ(bind(descriptor, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    close(descriptor);
  }

  void expectKind(const char* path, HostFileKindEType kind) {
    EXPECT_EQ(call("KvfFileKind", {KV_FILE, str(path)}), smallInt(kind)) << path;
    EXPECT_EQ(call("KvfIsDir", {KV_FILE, str(path)}), oopFromBool(kind == HOST_FILE_KIND_DIR))
        << path;
  }
};

TEST_F(Kinds, AreToldApart) {
  expectKind("file", HOST_FILE_KIND_FILE);
  expectKind("dir", HOST_FILE_KIND_DIR);
  expectKind("dir/", HOST_FILE_KIND_DIR);
  expectKind(".", HOST_FILE_KIND_DIR);
  expectKind("/", HOST_FILE_KIND_DIR);
  expectKind("/dev/null", HOST_FILE_KIND_CHRDEVICE);
  expectKind("link", HOST_FILE_KIND_LNK);
  expectKind("dirlink", HOST_FILE_KIND_LNK);
  expectKind("dangling", HOST_FILE_KIND_LNK);
  expectKind("fifo", HOST_FILE_KIND_FIFO);
  expectKind("socket", HOST_FILE_KIND_OTHER);
}

TEST_F(Kinds, OfABlockDevice) {
  std::string device;
  for (const auto& entry : std::filesystem::directory_iterator("/dev"))
    if (std::filesystem::is_block_file(entry.symlink_status())) device = entry.path().string();
  if (device.empty() && mknod("block", S_IFBLK | 0600, static_cast<dev_t>(7) << 8) == 0)
    device = "block";
  if (device.empty()) GTEST_SKIP() << "no block device here, and none can be made";
  expectKind(device.c_str(), HOST_FILE_KIND_BLKDEVICE);
}

TEST_F(Kinds, ThatTheHostMayAnswerArePassedOn) {
  for (const int kind : {0, 1, 2, 3, 4, 5, 7, 8, 9}) {
    fault("HostFileType:1:result=" + std::to_string(kind));
    EXPECT_EQ(call("KvfFileKind", {KV_FILE, str("file")}), smallInt(kind));
    clearFaults();
    fault("HostFileType:1:result=" + std::to_string(kind));
    EXPECT_EQ(call("KvfIsDir", {KV_FILE, str("file")}), oopFromBool(kind == 1));
    clearFaults();
  }
}

// ---- expanded names ----

class Expansion : public PathTest {
 protected:
  void SetUp() override {
    PathTest::SetUp();
    setenv("KVF_TEST_DIR", "real", 1);
    std::filesystem::create_directory("real");
    writeFile("real/f", "123");
  }
  void TearDown() override {
    unsetenv("KVF_TEST_DIR");
    PathTest::TearDown();
  }

  // The path that the host function was given.
  std::string pathGiven(const std::string& action, const std::vector<OopType>& args,
                        const std::string& function, bool* expanded) {
    const auto calls = callsDuring([&] { act(action, args); });
    *expanded = !callsOf(calls, "HostExpandFileName").empty();
    const auto made = callsOf(calls, function);
    EXPECT_EQ(made.size(), 1U) << action;
    return made.empty() ? "" : made[0].arguments.front();
  }
};

TEST_F(Expansion, IsDoneForKindsAndTimes) {
  for (const auto& [action, function] :
       std::vector<std::pair<std::string, std::string>>{{"KvfIsDir", "HostFileType"},
                                                        {"KvfFileKind", "HostFileType"},
                                                        {"KvfModTime", "UtlGetFileModTime"}}) {
    bool expanded = false;
    EXPECT_EQ(pathGiven(action, {KV_FILE, str("$KVF_TEST_DIR/f")}, function, &expanded),
              asText("real/f"));
    EXPECT_TRUE(expanded) << action;
  }
  EXPECT_EQ(call("KvfIsDir", {KV_FILE, str("${KVF_TEST_DIR}")}), OOP_TRUE);
  EXPECT_EQ(call("KvfFileKind", {KV_FILE, str("$KVF_TEST_DIR/f")}), smallInt(0));
  EXPECT_EQ(kvhost::classOf(call("KvfModTime", {KV_FILE, str("$KVF_TEST_DIR/f")})),
            OOP_CLASS_DATE_TIME);
}

TEST_F(Expansion, IsAskedForWithTheWholeBuffer) {
  for (const char* action : {"KvfIsDir", "KvfFileKind", "KvfModTime"}) {
    const auto calls = callsDuring([&] { act(action, {KV_FILE, str("real")}); });
    const auto expansions = callsOf(calls, "HostExpandFileName");
    ASSERT_EQ(expansions.size(), 1U);
    const std::vector<std::string>& args = expansions[0].arguments;
    ASSERT_EQ(args.size(), 5U);
    EXPECT_EQ(args[0], asText("real"));
    EXPECT_EQ(args[2], "4097");
    EXPECT_EQ(args[3], "0");
    EXPECT_EQ(args[4], "1");
  }
}

TEST_F(Expansion, IsNotDoneForTheOtherActions) {
  const std::string literal = "$KVF_TEST_DIR";
  struct Row {
    std::string action;
    std::vector<OopType> args;
    std::string function;
  };
  for (const auto& [action, args, function] :
       std::vector<Row>{{"KvfMkdir", {KV_FILE, str(literal), OOP_NIL}, "HostCreateDirectory"},
                        {"KvfRmdir", {KV_FILE, str(literal)}, "HostRemoveDirectory"},
                        {"KvfSize", {KV_FILE, str(literal)}, "HostFileExistSize"},
                        {"KvfUnlink", {KV_FILE, str(literal)}, "HostRemoveSingleFile"},
                        {"KvfRename", {KV_FILE, str(literal), str("other")}, "rename"}}) {
    bool expanded = false;
    EXPECT_EQ(pathGiven(action, args, function, &expanded), asText(literal));
    EXPECT_FALSE(expanded) << action;
  }
  EXPECT_TRUE(exists("real/f"));
}

TEST_F(Expansion, FailureTextsShowTheNameAsItWasGiven) {
  EXPECT_EQ(call("KvfIsDir", {KV_FILE, str("$KVF_TEST_DIR/gone")}), OOP_NIL);
  EXPECT_EQ(takeSlot(), (ClassError{ENOENT, hostText(ENOENT) + " : $KVF_TEST_DIR/gone"}));
  EXPECT_EQ(call("KvfFileKind", {KV_FILE, str("$KVF_TEST_DIR/gone")}), OOP_NIL);
  EXPECT_EQ(takeSlot(), (ClassError{ENOENT, hostText(ENOENT) + " : $KVF_TEST_DIR/gone"}));
}

TEST_F(Expansion, OfAnUnknownVariableLeavesNoNameToAskFor) {
  EXPECT_EQ(call("KvfIsDir", {KV_FILE, str("$KVF_TEST_UNKNOWN")}), OOP_NIL);
  EXPECT_EQ(takeSlot(), (ClassError{ENOENT, hostText(ENOENT) + " : $KVF_TEST_UNKNOWN"}));
}

// ---- sizes ----

TEST_F(PathOperations, SizeIsInBytesAndFollowsLinks) {
  writeFile("empty", "");
  writeFile("file", std::string(70000, 'x'));
  ASSERT_EQ(symlink("file", "link"), 0);
  EXPECT_EQ(call("KvfSize", {KV_FILE, str("empty")}), smallInt(0));
  EXPECT_EQ(call("KvfSize", {KV_FILE, str("file")}), smallInt(70000));
  EXPECT_EQ(call("KvfSize", {KV_FILE, str("link")}), smallInt(70000));
}

TEST_F(PathOperations, SizePastFourGigabytes) {
  const int descriptor = open("sparse", O_CREAT | O_WRONLY | O_CLOEXEC, 0600);
  ASSERT_GE(descriptor, 0);
  const int64 size = (int64{1} << 33) + 7;
  ASSERT_EQ(ftruncate(descriptor, size), 0);
  close(descriptor);
  EXPECT_EQ(call("KvfSize", {KV_FILE, str("sparse")}), smallInt(size));
}

TEST_F(PathOperations, SizeOfAMissingFileIsMinusOne) {
  ASSERT_EQ(symlink("gone", "dangling"), 0);
  EXPECT_EQ(call("KvfSize", {KV_FILE, str("gone")}), smallInt(-1));
  EXPECT_EQ(call("KvfSize", {KV_FILE, str("dangling")}), smallInt(-1));
  EXPECT_EQ(takeSlot(), (ClassError{0, ""}));
}

TEST_F(PathOperations, SizeOfNilAsksNobody) {
  const auto calls = callsDuring([&] { EXPECT_EQ(call("KvfSize", {KV_FILE, OOP_NIL}), OOP_NIL); });
  EXPECT_TRUE(calls.empty()) << calls.front().name;
}

TEST_F(PathOperations, SizeHandsNoTextBuffer) {
  writeFile("file", "x");
  const auto calls = callsDuring([&] { call("KvfSize", {KV_FILE, str("file")}); });
  const auto made = callsOf(calls, "HostFileExistSize");
  ASSERT_EQ(made.size(), 1U);
  const std::vector<std::string>& args = made[0].arguments;
  ASSERT_EQ(args.size(), 6U);
  EXPECT_EQ(args[4], "null");
  EXPECT_EQ(args[5], "0");
}

// ---- renaming ----

TEST_F(PathOperations, RenameReplacesAnExistingFile) {
  writeFile("a", "new");
  writeFile("b", "old");
  EXPECT_EQ(call("KvfRename", {KV_FILE, str("a"), str("b")}), smallInt(0));
  EXPECT_FALSE(exists("a"));
  EXPECT_EQ(readFile("b"), "new");
}

TEST_F(PathOperations, RenameFetchesTheOldNameFirst) {
  const OopType old = str("");
  const OopType fresh = kvhost::newUtf16(u"b");
  expectRaise(2718, {old}, "KvfRename", {KV_FILE, old, fresh});
  expectRaise(2718, {fresh}, "KvfRename", {KV_FILE, str("a"), fresh});
}

// ---- order of the platform's calls ----

TEST_F(PathOperations, MakeTheHostCallOnceWithTheOneFlag) {
  writeFile("a", "x");
  const auto calls = callsDuring([&] { call("KvfUnlink", {KV_FILE, str("a")}); });
  const auto made = callsOf(calls, "HostRemoveSingleFile");
  ASSERT_EQ(made.size(), 1U);
  const std::vector<std::string>& args = made[0].arguments;
  ASSERT_EQ(args.size(), 3U);
  EXPECT_EQ(args[0], asText("a"));
  EXPECT_EQ(args[1], "1");
}

TEST_F(PathOperations, AskForTheHostsTextOnlyAfterAFailure) {
  const auto failing = callsDuring([&] { call("KvfRmdir", {KV_FILE, str("gone")}); });
  const auto texts = callsOf(failing, "HostGetErrMsg");
  ASSERT_EQ(texts.size(), 1U);
  EXPECT_EQ(texts[0].arguments.back(), "2048");
  writeFile("a", "x");
  const auto succeeding = callsDuring([&] {
    call("KvfSize", {KV_FILE, str("a")});
    call("KvfIsDir", {KV_FILE, str("a")});
    call("KvfUnlink", {KV_FILE, str("a")});
  });
  EXPECT_TRUE(callsOf(succeeding, "HostGetErrMsg").empty());
}

}  // namespace
}  // namespace kvtest
