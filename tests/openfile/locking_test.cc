// Record locks against those of another process.
#include "openfile/lock_helpers.h"

namespace kvtest {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;
using ::testing::_;
using ::testing::ElementsAre;

TEST_F(Locking, AWriteLockIsSeenByOthersUntilItIsReleased) {
  const OopType file = openForLocks();
  EXPECT_EQ(lock(file, "writeLock", 10, 5), "true");
  EXPECT_EQ(lockSeenByOthers("data.bin", 0, 0), "write 10 5");
  EXPECT_EQ(lockSeenByOthers("data.bin", 0, 10), "free");
  EXPECT_EQ(lockSeenByOthers("data.bin", 15, 0), "free");
  EXPECT_EQ(unlock(file, 10, 5), "true");
  EXPECT_EQ(lockSeenByOthers("data.bin", 0, 0), "free");
}

TEST_F(Locking, AReadLockIsOne) {
  const OopType file = openForLocks();
  EXPECT_EQ(lock(file, kvhost::newSymbol("readLock"), smallInt(3), smallInt(4), smallInt(0)),
            "true");
  EXPECT_EQ(lockSeenByOthers("data.bin", 0, 0), "read 3 4");
}

TEST_F(Locking, ALengthOfZeroReachesToTheEnd) {
  const OopType file = openForLocks();
  EXPECT_EQ(lock(file, "writeLock", 0, 0), "true");
  EXPECT_EQ(lockSeenByOthers("data.bin", 1000000, 1), "write 0 0");
  EXPECT_EQ(unlock(file, 50, 0), "true");
  EXPECT_EQ(lockSeenByOthers("data.bin", 0, 0), "write 0 50");
}

TEST_F(Locking, ALockOfAnotherProcessIsInTheWay) {
  const OopType file = openForLocks();
  const LockHolder holder("data.bin", F_WRLCK, 10, 5);
  EXPECT_EQ(lock(file, "writeLock", 14, 1), "false");
  EXPECT_EQ(lock(file, "readLock", 0, 0), "false");
  EXPECT_EQ(lock(file, "writeLock", 0, 10), "true");
  EXPECT_EQ(lock(file, "writeLock", 15, 0), "true");
}

TEST_F(Locking, ReadLocksShare) {
  const OopType file = openForLocks();
  const LockHolder holder("data.bin", F_RDLCK, 0, 0);
  EXPECT_EQ(lock(file, "readLock", 0, 0), "true");
  EXPECT_EQ(lock(file, "writeLock", 0, 1), "false");
}

TEST_F(Locking, TheWaitEndsWithItsTime) {
  const OopType file = openForLocks();
  const LockHolder holder("data.bin", F_WRLCK, 0, 0);
  const auto begin = steady_clock::now();
  EXPECT_EQ(lock(file, "writeLock", 0, 1, 150), "false");
  const auto waited = steady_clock::now() - begin;
  EXPECT_GE(waited, milliseconds(145));
}

TEST_F(Locking, ALockIsWonWhileWaiting) {
  const OopType file = openForLocks();
  LockHolder holder("data.bin", F_WRLCK, 0, 0, 200);
  EXPECT_EQ(lock(file, "writeLock", 0, 1, 600000), "true");
  EXPECT_EQ(lockSeenByOthers("data.bin", 0, 0), "write 0 1");
}

TEST_F(Locking, TheLongestWaitIsAccepted) {
  const OopType file = openForLocks();
  EXPECT_EQ(lock(file, "writeLock", 0, 1, 2147483647), "true");
  LockHolder holder("data.bin", F_WRLCK, 50, 1, 200);
  EXPECT_EQ(lock(file, "writeLock", 50, 1, 2147483647), "true");
}

TEST_F(Locking, ALockTheModeDoesNotAllowAnswersTheHostsText) {
  const OopType reading = openWith("abc");
  FILE* same = fopen("data.bin", "r");
  ASSERT_NE(same, nullptr);
  SysErrorSType error;
  error.initialize();
  const int answer = HostLockFile(same, 1, 0, 1, 0, &error);
  fclose(same);
  ASSERT_NE(answer, 0);
  ASSERT_NE(answer, 1);
  EXPECT_THAT(error.errMsg, ::testing::HasSubstr("EBADF"));
  EXPECT_EQ(lock(reading, "writeLock", 0, 1), "'" + std::string(error.errMsg) + "'");
  EXPECT_EQ(lock(reading, "readLock", 0, 1), "true");
}

TEST_F(Locking, TheHostIsGivenTheArgumentsAsTheyAre) {
  const OopType file = openForLocks();
  auto calls = callsNamed("HostLockFile", [&] { lock(file, "writeLock", 7, 9, 11); });
  ASSERT_EQ(calls.size(), 1U);
  EXPECT_THAT(calls[0].arguments, ElementsAre(_, "1", "7", "9", "11", "ptr"));
  calls = callsNamed("HostLockFile", [&] { lock(file, "readLock", 0, 0, 0); });
  ASSERT_EQ(calls.size(), 1U);
  EXPECT_THAT(calls[0].arguments, ElementsAre(_, "0", "0", "0", "0", "ptr"));
  calls = callsNamed("HostUnlockFile", [&] { unlock(file, 3, 4); });
  ASSERT_EQ(calls.size(), 1U);
  EXPECT_THAT(calls[0].arguments, ElementsAre(_, "3", "4", "ptr"));
  calls = callsNamed("HostLockFileQuery", [&] { query(file, "writeLock", 5, 6); });
  ASSERT_EQ(calls.size(), 1U);
  EXPECT_THAT(calls[0].arguments, ElementsAre(_, "1", "5", "6", "ptr", "ptr", "256"));
}

TEST_F(Locking, AnUnlockThatDidNotHappenIsFalse) {
  const OopType file = openForLocks();
  fault("HostUnlockFile:1:result=0");
  EXPECT_EQ(unlock(file, 0, 1), "false");
}

TEST_F(Locking, HostFailuresAnswerTheHostsText) {
  const OopType file = openForLocks();
  fault("HostLockFile:1:ENOLCK");
  fault("HostUnlockFile:1:ENOLCK");
  fault("HostLockFileQuery:1:ENOLCK");
  EXPECT_THAT(lock(file, "writeLock", 0, 1), ::testing::HasSubstr("ENOLCK"));
  EXPECT_THAT(unlock(file, 0, 1), ::testing::HasSubstr("ENOLCK"));
  EXPECT_THAT(query(file, "writeLock", 0, 1), ::testing::HasSubstr("ENOLCK"));
}

TEST_F(Locking, CompressedFilesAnswerTheHostsText) {
  const OopType file = openGzipWith("abc");
  SysErrorSType error;
  error.initialize();
  ASSERT_NE(HostLockFile(nullptr, 1, 0, 1, 0, &error), 1);
  ASSERT_NE(error.errMsg[0], '\0');
  EXPECT_EQ(lock(file, "writeLock", 0, 1), "'" + std::string(error.errMsg) + "'");
  error.initialize();
  ASSERT_NE(HostUnlockFile(nullptr, 0, 1, &error), 1);
  EXPECT_EQ(unlock(file, 0, 1), "'" + std::string(error.errMsg) + "'");
  char text[256] = "";
  struct flock64 info = {};
  ASSERT_NE(HostLockFileQuery(nullptr, 1, 0, 1, &info, text, sizeof text), 1);
  ASSERT_NE(text[0], '\0');
  EXPECT_EQ(query(file, "writeLock", 0, 1), "'" + std::string(text) + "'");
}

TEST_F(Locking, TheRecordsErrorIsNotTouched) {
  const OopType file = openForLocks();
  fault("HostReadFile_:1:EIO");
  EXPECT_EQ(readBytes(file, 1), "nil");
  lock(file, "writeLock", 0, 1);
  query(file, "writeLock", 0, 1);
  unlock(file, 0, 1);
  lock(file, "nonsense", 0, 1);
  EXPECT_EQ(errorCode(file), "5");
  EXPECT_EQ(takeError(file), "'errno=5,EIO, Input/output error'");
}

TEST_F(Locking, LocksLeaveThePositionAndTheBuffer) {
  const OopType file = openForLocks();
  readBytes(file, 3);
  EXPECT_EQ(lock(file, "writeLock", 0, 0), "true");
  EXPECT_EQ(query(file, "writeLock", 0, 0), "#(true nil -1 -1 -1)");
  EXPECT_TRUE(fileCallsDuring([&] { EXPECT_EQ(position(file), "3"); }).empty());
}

}  // namespace
}  // namespace kvtest
