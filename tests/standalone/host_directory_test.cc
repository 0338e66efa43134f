// The walk over a directory: every entry once, and nothing kept when it is left.
#include <kvfile/platform/host.h>

#include "standalone/host_fixture.h"

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <ucontext.h>

#include <algorithm>
#include <cerrno>
#include <csetjmp>
#include <functional>
#include <string>
#include <vector>

namespace {

struct Seen {
  std::vector<std::string> names;
  std::string directory;
  std::string separator;
  size_t stopAfter = SIZE_MAX;
  jmp_buf jump;
};

HostDirClientDataType clientDataFor(Seen* seen) {
  HostDirClientDataType clientData(nullptr, nullptr, OOP_NIL, FALSE, TRUE, FALSE);
  clientData.clientData = seen;
  return clientData;
}

BoolType collect(const char* dirName, const char* fileName, const char* seperator,
                 HostDirClientDataType* clData) {
  auto* seen = static_cast<Seen*>(clData->clientData);
  seen->names.emplace_back(fileName);
  seen->directory = dirName;
  seen->separator = seperator;
  return seen->names.size() < seen->stopAfter ? TRUE : FALSE;
}

BoolType jumpAway(const char*, const char*, const char*, HostDirClientDataType* clData) {
  std::longjmp(static_cast<Seen*>(clData->clientData)->jump, 1);
}

void walkAndJumpAway(const std::string& path, Seen* seen) {
  HostDirClientDataType clientData = clientDataFor(seen);
  if (setjmp(seen->jump) == 0) HostDirectory(path.c_str(), jumpAway, &clientData, 0);
}

int openDescriptors() {
  int count = 0;
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
    count += entry.path().empty() ? 0 : 1;
  }
  return count;
}

class DirectoryWalk : public hosttest::InDirectory {
 protected:
  BoolType walk(const std::string& path, Seen* seen) {
    HostDirClientDataType clientData = clientDataFor(seen);
    const BoolType result = HostDirectory(path.c_str(), collect, &clientData, 0);
    errNum = clientData.errNum;
    std::sort(seen->names.begin(), seen->names.end());
    return result;
  }
  void make(const std::string& name) {
    ASSERT_EQ(mknod(in(name).c_str(), S_IFREG | 0600, 0), 0) << name;
  }

  int errNum = 0;
};

TEST_F(DirectoryWalk, deliversEveryEntryButSelfAndParent) {
  make("a");
  make(".hidden");
  make("...");
  ASSERT_EQ(mkdir(in("sub").c_str(), 0700), 0);
  Seen seen;
  EXPECT_TRUE(walk(directory, &seen));
  EXPECT_EQ(seen.names, (std::vector<std::string>{"...", ".hidden", "a", "sub"}));
  EXPECT_EQ(seen.directory, directory);
  EXPECT_EQ(seen.separator, "/");
  EXPECT_EQ(errNum, 0);
}

TEST_F(DirectoryWalk, passesNoSeparatorAfterOne) {
  make("a");
  Seen seen;
  EXPECT_TRUE(walk(directory + "/", &seen));
  EXPECT_EQ(seen.directory, directory + "/");
  EXPECT_EQ(seen.separator, "");
}

TEST_F(DirectoryWalk, ofAnEmptyDirectoryDeliversNothing) {
  Seen seen;
  EXPECT_TRUE(walk(directory, &seen));
  EXPECT_TRUE(seen.names.empty());
}

TEST_F(DirectoryWalk, deliversNamesAsTheyAre) {
  const std::vector<std::string> names = {"\x01\n\x7f", "caf\xc3\xa9", "\xff\xfe invalid",
                                          std::string(255, '\xe9')};
  for (const std::string& name : names) make(name);
  Seen seen;
  EXPECT_TRUE(walk(directory, &seen));
  std::vector<std::string> expected = names;
  std::sort(expected.begin(), expected.end());
  EXPECT_EQ(seen.names, expected);
}

TEST_F(DirectoryWalk, tellsWhyItFailed) {
  make("f");
  ASSERT_EQ(symlink("loop", in("loop").c_str()), 0);
  Seen seen;
  EXPECT_FALSE(walk(in("missing"), &seen));
  EXPECT_EQ(errNum, ENOENT);
  EXPECT_FALSE(walk(in("f"), &seen));
  EXPECT_EQ(errNum, ENOTDIR);
  EXPECT_FALSE(walk(in("loop"), &seen));
  EXPECT_EQ(errNum, ELOOP);
  EXPECT_FALSE(walk("", &seen));
  EXPECT_EQ(errNum, ENOENT);
  EXPECT_TRUE(seen.names.empty());
}

TEST_F(DirectoryWalk, isEndedByItsCallback) {
  make("a");
  make("b");
  Seen seen;
  seen.stopAfter = 1;
  EXPECT_FALSE(walk(directory, &seen));
  EXPECT_EQ(seen.names.size(), 1U);
  EXPECT_EQ(errNum, ECANCELED);
}

TEST_F(DirectoryWalk, isCompleteForManyEntries) {
  constexpr int COUNT = 3000;
  for (int i = 0; i < COUNT; ++i) make(std::to_string(i));
  Seen seen;
  EXPECT_TRUE(walk(directory, &seen));
  ASSERT_EQ(seen.names.size(), static_cast<size_t>(COUNT));
  std::sort(seen.names.begin(), seen.names.end());
  EXPECT_EQ(std::unique(seen.names.begin(), seen.names.end()), seen.names.end());
}

TEST_F(DirectoryWalk, leavesNoDescriptorWhenItsCallbackJumpsAway) {
  make("a");
  const int before = openDescriptors();
  Seen seen;
  for (int i = 0; i < 100; ++i) walkAndJumpAway(directory, &seen);
  EXPECT_EQ(openDescriptors(), before);
  Seen after;
  EXPECT_TRUE(walk(directory, &after));
  EXPECT_EQ(after.names, std::vector<std::string>{"a"});
}

BoolType walkWithin(const char* dirName, const char* fileName, const char* seperator,
                    HostDirClientDataType* clData) {
  Seen inner;
  HostDirClientDataType innerData = clientDataFor(&inner);
  EXPECT_TRUE(HostDirectory((std::string(dirName) + "/sub").c_str(), collect, &innerData, 0));
  EXPECT_EQ(inner.names, std::vector<std::string>{"below"});
  return collect(dirName, fileName, seperator, clData);
}

// Two walks of one thread, each on a stack of its own: neither lies within the other.
class Stacks {
 public:
  // Runs `body` on a second stack; it comes back here whenever it calls `leave`.
  explicit Stacks(std::function<void()> body) : memory_(size_t{256} << 10), body_(std::move(body)) {
    current = this;
    getcontext(&second_);
    second_.uc_stack.ss_sp = memory_.data();
    second_.uc_stack.ss_size = memory_.size();
    second_.uc_link = &first_;
    makecontext(
        &second_, [] { current->body_(); }, 0);
  }
  void enter() { swapcontext(&first_, &second_); }
  void leave() { swapcontext(&second_, &first_); }

  static inline Stacks* current = nullptr;

 private:
  std::vector<char> memory_;
  std::function<void()> body_;
  ucontext_t first_{};
  ucontext_t second_{};
};

BoolType enterAtEachName(const char* dirName, const char* fileName, const char* seperator,
                         HostDirClientDataType* clData) {
  Stacks::current->enter();
  return collect(dirName, fileName, seperator, clData);
}

BoolType leaveAtEachName(const char* dirName, const char* fileName, const char* seperator,
                         HostDirClientDataType* clData) {
  Stacks::current->leave();
  return collect(dirName, fileName, seperator, clData);
}

TEST_F(DirectoryWalk, goesOnWhileOthersAreMadeOnAnotherStack) {
  constexpr int COUNT = 100;
  for (int i = 0; i < COUNT; ++i) make("name" + std::to_string(i));
  Seen inner;
  Seen outer;
  Seen small;
  ASSERT_EQ(mkdir(in("sub").c_str(), 0700), 0);
  Stacks stacks([&] {
    HostDirClientDataType data = clientDataFor(&inner);
    EXPECT_TRUE(HostDirectory(directory.c_str(), leaveAtEachName, &data, 0));
    for (;;) {
      walk(in("sub"), &small);
      Stacks::current->leave();
    }
  });
  stacks.enter();  // the walk of the second stack has begun, and waits
  HostDirClientDataType data = clientDataFor(&outer);
  EXPECT_TRUE(HostDirectory(directory.c_str(), enterAtEachName, &data, 0));
  stacks.enter();
  std::sort(inner.names.begin(), inner.names.end());
  std::sort(outer.names.begin(), outer.names.end());
  EXPECT_EQ(outer.names.size(), COUNT + 1U);
  EXPECT_EQ(inner.names, outer.names);
}

TEST_F(DirectoryWalk, mayBeMadeWithinAnother) {
  ASSERT_EQ(mkdir(in("sub").c_str(), 0700), 0);
  make("sub/below");
  make("a");
  make("b");
  Seen seen;
  HostDirClientDataType clientData = clientDataFor(&seen);
  EXPECT_TRUE(HostDirectory(directory.c_str(), walkWithin, &clientData, 0));
  std::sort(seen.names.begin(), seen.names.end());
  EXPECT_EQ(seen.names, (std::vector<std::string>{"a", "b", "sub"}));
}

}  // namespace
