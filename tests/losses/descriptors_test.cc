// What a program that the process starts sees of the module's open files: nothing.
#include "losses/gzip_files.h"

#include <spawn.h>

extern char** environ;

namespace kvtest {
namespace {

class Descriptors : public OpenFileTest {
 protected:
  void SetUp() override {
    keepToOurselves();
    OpenFileTest::SetUp();
  }

  // What the test itself was started with is not the module's affair.
  static void keepToOurselves() {
    for (int fd = 3; fd < 1024; ++fd) {
      const int flags = fcntl(fd, F_GETFD);
      if (flags >= 0) fcntl(fd, F_SETFD, flags | FD_CLOEXEC);
    }
  }

  // The descriptors that a program started now is born with, as it tells them itself.
  static std::string seenByAnotherProgram() {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) return "no pipe";
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
    std::string script =
        "d=0; while [ $d -lt 256 ]; do if [ -e /proc/$$/fd/$d ]; then printf '%s ' $d; fi;"
        " d=$((d+1)); done";
    std::string shell = "sh";
    std::string option = "-c";
    char* arguments[] = {shell.data(), option.data(), script.data(), nullptr};
    pid_t child = 0;
    const int failed = posix_spawn(&child, "/bin/sh", &actions, nullptr, arguments, environ);
    posix_spawn_file_actions_destroy(&actions);
    close(ends[1]);
    std::string seen = failed != 0 ? "not started" : "";
    char piece[256];
    for (ssize_t n; (n = ::read(ends[0], piece, sizeof piece)) > 0;)
      seen.append(piece, static_cast<std::size_t>(n));
    close(ends[0]);
    if (failed == 0) waitpid(child, nullptr, 0);
    return seen;
  }
};

TEST_F(Descriptors, ThatAreInheritedWouldBeSeen) {
  ASSERT_EQ(seenByAnotherProgram(), "0 1 2 ");
  const int inherited = open("/dev/null", O_RDONLY);
  EXPECT_EQ(seenByAnotherProgram(), "0 1 2 " + std::to_string(inherited) + " ");
  close(inherited);
}

TEST_F(Descriptors, OfThreePlainAndThreeGzipFilesAreNotInherited) {
  writeFile("plain", "some text");
  writeGzip("packed", "some text");
  const std::vector<OopType> files = {
      openFile("plain", "r"),         openFile("plain", "r+"),
      openFile("other", "ab+"),       openFile("packed", "r", true),
      openFile("packed2", "w", true), openFile("packed3", "ab9", true)};
  EXPECT_EQ(seenByAnotherProgram(), "0 1 2 ");
  EXPECT_EQ(readBytes(files[0], 4), "some");
  EXPECT_EQ(readBytes(files[3], 4), "some");
  EXPECT_EQ(show(write(files[4], "x")), "1");
  EXPECT_EQ(seenByAnotherProgram(), "0 1 2 ") << "after use";
}

TEST_F(Descriptors, OfEveryModeAreNotInherited) {
  writeFile("plain", "some text");
  writeGzip("packed", "some text");
  for (const bool compressed : {false, true}) {
    const OopType modes = call("KvfAllValidFileModes", {OOP_NIL, oopFromBool(compressed)});
    for (const OopType mode : kvhost::elementsOf(modes)) {
      const OopType file = openFile(compressed ? "packed" : "plain", bytes(mode), compressed);
      EXPECT_EQ(seenByAnotherProgram(), "0 1 2 ") << bytes(mode);
      call("KvfClose", {file});
    }
  }
}

// A host may keep the directory open while it hands out the entries, or may have read them all before.
TEST_F(Descriptors, OfADirectoryThatIsWalkedAreNotInherited) {
  for (int i = 0; i < 300; ++i) writeFile("entry" + std::string(200, 'n') + std::to_string(i), "");
  std::vector<std::string> seen;
  int entries = 0;
  // Each entry's name becomes an object while the walk is under way.
  seam::setListener([&](const seam::Call& made) {
    if (made.name == "KciNewString" && entries++ % 50 == 0) seen.push_back(seenByAnotherProgram());
  });
  const OopType names = call("KvfDirectory", {kvhost::CLASS_KV_FILE, str("."), OOP_FALSE});
  seam::setListener(nullptr);
  EXPECT_EQ(kvhost::elementsOf(names).size(), 300U);
  EXPECT_EQ(entries, 300);
  EXPECT_THAT(seen, ::testing::AllOf(::testing::SizeIs(6), ::testing::Each("0 1 2 ")));
}

TEST_F(Descriptors, OfGzipFilesAreAskedForWithTheModeAndAnE) {
  writeGzip("packed.gz", "abc");
  for (const char* mode : {"r", "rb", "r1", "r9", "w", "a", "wb", "ab", "w1", "a1", "wb1", "ab1",
                           "w9", "a9", "wb9", "ab9"}) {
    const OopType file = kvhost::newKvFile();
    const auto calls = callsNamed("gzopen", [&] {
      EXPECT_EQ(call("KvfOpen", {file, str("packed.gz"), str(mode), OOP_TRUE}), smallInt(1));
    });
    ASSERT_EQ(calls.size(), 1U) << mode;
    EXPECT_EQ(argumentOf(calls[0], 0), "\"packed.gz\"");
    EXPECT_EQ(argumentOf(calls[0], 1), "\"" + std::string(mode) + "e\"");
    call("KvfClose", {file});
  }
}

// An "e" of one's own is no mode, as before.
TEST_F(Descriptors, AnEInTheModeIsRefused) {
  for (const char* mode : {"re", "we", "wbe", "ae", "w1e"}) {
    const OopType file = kvhost::newKvFile();
    EXPECT_EQ(call("KvfOpen", {file, str("packed.gz"), str(mode), OOP_TRUE}), OOP_NIL) << mode;
    EXPECT_EQ(takeClassError(), "errno=22,EINVAL, Invalid argument (programmer error)") << mode;
  }
  EXPECT_FALSE(std::filesystem::exists("packed.gz"));
}

// Whether a file is written decides whether it is always at its end.
TEST_F(Descriptors, TheFlagsOfTheRecordComeFromTheValidatedMode) {
  writeGzip("packed.gz", "abc");
  for (const char* mode : {"r", "rb", "r1", "r9"}) {
    const OopType file = openFile("packed.gz", mode, true);
    EXPECT_EQ(atEnd(file), "false") << mode;
    EXPECT_EQ(getC(file), "$97") << mode;
    EXPECT_EQ(position(file), "1") << mode << ": the rest is kept, since the file is readable";
    call("KvfClose", {file});
  }
  for (const char* mode : {"w", "a", "wb", "ab", "w1", "ab9"}) {
    const OopType file = openFile("packed.gz", mode, true);
    EXPECT_EQ(atEnd(file), "true") << mode;
    call("KvfClose", {file});
  }
}

}  // namespace
}  // namespace kvtest
