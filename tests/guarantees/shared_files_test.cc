// Files that more than one file object, thread or process has open: what writes, appends and locks keep,
// and what they do not.
#include "openfile/lock_helpers.h"

#include <thread>

namespace kvtest {
namespace {

class SharedFiles : public Locking {
 protected:
  static std::string recordOf(int writer, int number) {
    std::string record = std::to_string(writer) + ":" + std::to_string(number) + " ";
    record.resize(1000, static_cast<char>('a' + writer));
    return record + "\n";
  }
};

TEST_F(SharedFiles, AppendingProcessesLoseNoRecordOfUpTo4096Bytes) {
  constexpr int WRITERS = 3;
  constexpr int RECORDS = 300;
  std::vector<pid_t> children;
  for (int writer = 0; writer < WRITERS; ++writer) {
    const pid_t child = fork();
    if (child == 0) {
      const OopType file = openFile("log", "a");
      bool sound = true;
      for (int i = 0; i < RECORDS; ++i)
        sound = sound && write(file, recordOf(writer, i)) == smallInt(1001);
      _exit(sound ? 0 : 1);
    }
    children.push_back(child);
  }
  for (const pid_t child : children) {
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
  }
  std::istringstream text(readFile("log"));
  std::vector<int> next(WRITERS);
  for (std::string line; std::getline(text, line);) {
    const int writer = line.empty() ? -1 : line[0] - '0';
    ASSERT_TRUE(writer >= 0 && writer < WRITERS) << line.substr(0, 20);
    ASSERT_EQ(line + "\n", recordOf(writer, next[static_cast<std::size_t>(writer)]++));
  }
  EXPECT_EQ(next, std::vector<int>(WRITERS, RECORDS));
}

TEST_F(SharedFiles, AnAppendOfMoreThan4096BytesMayBeCutByAnother) {
  const std::string text = patternBytes(5000);
  const OopType file = openFile("log", "a");
  bool added = false;
  seam::setListener([&](const seam::Call& made) {
    if (made.name != "HostWriteFile_" || added) return;
    added = true;
    std::ofstream("log", std::ios::app) << "|another|";
  });
  const OopType answer = write(file, text);
  seam::setListener(nullptr);
  EXPECT_EQ(show(answer), "5000");
  EXPECT_EQ(readFile("log"), text.substr(0, 4096) + "|another|" + text.substr(4096));
}

// Each number is a write of its own.
TEST_F(SharedFiles, PrintedBytesMayBeCutByAnotherBehindEveryNumber) {
  const OopType file = openFile("log", "a");
  seam::setListener([&](const seam::Call& made) {
    if (made.name == "HostWriteFile_") std::ofstream("log", std::ios::app) << "|";
  });
  call("KvfPrintBytes", {file, str("abc")});
  seam::setListener(nullptr);
  EXPECT_EQ(readFile("log"), "97 |98 |99 |");
}

TEST_F(SharedFiles, WritersThatDoNotAppendWriteOverEachOther) {
  const OopType first = openFile("out", "w");
  const OopType second = openFile("out", "r+");
  EXPECT_EQ(show(write(first, "from the first")), "14");
  EXPECT_EQ(show(write(second, "THE SECOND")), "10");
  EXPECT_EQ(readFile("out"), "THE SECONDirst");
}

TEST_F(SharedFiles, AnOpenForWritingEmptiesTheFileUnderItsReaders) {
  const OopType reader = openWith(patternBytes(10000));
  EXPECT_EQ(readBytes(reader, 10), patternBytes(10000).substr(0, 10));
  call("KvfClose", {openFile("data.bin", "w")});
  EXPECT_EQ(readBytes(reader, 9990), patternBytes(4096).substr(10)) << "what was read ahead is old";
  EXPECT_EQ(readBytes(reader, 10), "");
}

// ---- locks ----

TEST_F(SharedFiles, LocksGoWhenAnyDescriptorOfTheFileInTheProcessIsClosed) {
  for (const bool compressed : {false, true}) {
    const OopType locked = openForLocks();
    EXPECT_EQ(lock(locked, "writeLock", 0, 10), "true");
    const OopType other = openFile("data.bin", "r", compressed);
    EXPECT_EQ(lockSeenByOthers("data.bin", 0, 10), "write 0 10");
    call("KvfClose", {other});
    EXPECT_EQ(lockSeenByOthers("data.bin", 0, 10), "free");
    call("KvfClose", {locked});
  }
}

// Not even by one action: the host makes no descriptor for these.
TEST_F(SharedFiles, LocksStayWhenThePathIsOnlyAskedAbout) {
  const OopType locked = openForLocks();
  EXPECT_EQ(lock(locked, "writeLock", 0, 10), "true");
  const OopType path = str("data.bin");
  for (const char* action : {"KvfSize", "KvfModTime", "KvfFileKind", "KvfIsDir"})
    call(action, {kvhost::CLASS_KV_FILE, path});
  EXPECT_EQ(lockSeenByOthers("data.bin", 0, 10), "write 0 10");
}

TEST_F(SharedFiles, LocksDoNotKeepTheProcessOrItsThreadsFromLockingAgain) {
  const OopType first = openForLocks();
  const OopType second = openFile("data.bin", "r+");
  EXPECT_EQ(lock(first, "writeLock", 0, 10), "true");
  EXPECT_EQ(lock(second, "writeLock", 0, 10), "true");
  std::string answer;
  std::thread([&] {
    const int session = kvhost::sessionBegin();
    KvfStartup(session);
    answer = lock(openFile("data.bin", "r+"), "writeLock", 0, 10);
    KvfShutdown(session);
    kvhost::sessionEnd(session);
  }).join();
  EXPECT_EQ(answer, "true");
  EXPECT_EQ(lockSeenByOthers("data.bin", 0, 10), "free")
      << "and the end of the other session has closed its descriptor";
}

TEST_F(SharedFiles, LocksKeepNobodyFromWriting) {
  const OopType locked = openForLocks();
  EXPECT_EQ(lock(locked, "writeLock", 0, 100), "true");
  EXPECT_EQ(inChild([&] { return show(write(openFile("data.bin", "r+"), "written")); }), "7");
  EXPECT_EQ(readFile("data.bin").substr(0, 8), "writtenx");
}

TEST_F(SharedFiles, LocksAreNotInheritedAndEndWithTheProcess) {
  const OopType locked = openForLocks();
  EXPECT_EQ(inChild([&] {
              return show(call("KvfLock",
                               {locked, str("writeLock"), smallInt(0), smallInt(10), smallInt(0)}));
            }),
            "true");
  EXPECT_EQ(lockSeenByOthers("data.bin", 0, 10), "free") << "the child that held it has ended";
  EXPECT_EQ(lock(locked, "writeLock", 0, 10), "true");
  EXPECT_EQ(inChild([&] {
              return show(call("KvfLock",
                               {locked, str("writeLock"), smallInt(0), smallInt(10), smallInt(0)}));
            }),
            "false");
  EXPECT_EQ(lockSeenByOthers("data.bin", 0, 10), "write 0 10") << "no child takes it along";
}

// ---- the class-level error ----

TEST_F(SharedFiles, TheClassLevelErrorIsOneForAllThreads) {
  const auto failOn = [&](const char* path) {
    EXPECT_EQ(call("KvfUnlink", {kvhost::CLASS_KV_FILE, str(path)}), OOP_NIL);
  };
  failOn("mine");
  std::thread([&] {
    const int session = kvhost::sessionBegin();
    KvfStartup(session);
    failOn("of the other");
    KvfShutdown(session);
    kvhost::sessionEnd(session);
  }).join();
  EXPECT_EQ(takeClassError(), hostText(ENOENT) + " : of the other");
  failOn("mine");
  std::thread([&] {
    const int session = kvhost::sessionBegin();
    KvfStartup(session);
    EXPECT_EQ(takeClassError(), hostText(ENOENT) + " : mine");
    KvfShutdown(session);
    kvhost::sessionEnd(session);
  }).join();
  EXPECT_EQ(takeClassError(), "") << "the other thread has taken it";
}

}  // namespace
}  // namespace kvtest
