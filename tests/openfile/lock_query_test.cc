// Asking who would refuse a lock, and the position arithmetic behind the answer.
#include <kvfile/platform/unixio.h>

#include "openfile/lock_helpers.h"
#include "openfile/locking.h"

namespace kvtest {

using namespace kvf;
namespace {

TEST_F(Locking, AFreeRangeIsAnswered) {
  const OopType file = openForLocks();
  EXPECT_EQ(query(file, "writeLock", 0, 0), "#(true nil -1 -1 -1)");
  EXPECT_EQ(query(file, "readLock", 5, 5), "#(true nil -1 -1 -1)");
}

TEST_F(Locking, OnesOwnLockIsNotInTheWay) {
  const OopType file = openForLocks();
  EXPECT_EQ(lock(file, "writeLock", 0, 0), "true");
  EXPECT_EQ(query(file, "writeLock", 0, 0), "#(true nil -1 -1 -1)");
}

TEST_F(Locking, AWriteLockOfAnotherProcessIsDescribed) {
  const OopType file = openForLocks();
  const LockHolder holder("data.bin", F_WRLCK, 10, 5);
  const std::string described = "#(false #writeLock 10 5 " + std::to_string(holder.pid()) + ")";
  EXPECT_EQ(query(file, "writeLock", 0, 0), described);
  EXPECT_EQ(query(file, "readLock", 12, 1), described);
  EXPECT_EQ(query(file, "readLock", 15, 0), "#(true nil -1 -1 -1)");
}

TEST_F(Locking, AReadLockOfAnotherProcessRefusesOnlyWriting) {
  const OopType file = openForLocks();
  LockHolder holder("data.bin", F_RDLCK, 3, 0);
  EXPECT_EQ(query(file, "writeLock", 0, 0),
            "#(false #readLock 3 0 " + std::to_string(holder.pid()) + ")");
  EXPECT_EQ(query(file, "readLock", 0, 0), "#(true nil -1 -1 -1)");
  holder.release();
  EXPECT_EQ(query(file, "writeLock", 0, 0), "#(true nil -1 -1 -1)");
}

TEST_F(Locking, TheKindOfTheLockIsASymbol) {
  const OopType file = openForLocks();
  const LockHolder holder("data.bin", F_WRLCK, 0, 1);
  const OopType answer = call("KvfLockQuery", {file, str("writeLock"), smallInt(0), smallInt(1)});
  ASSERT_EQ(kvhost::classOf(answer), OOP_CLASS_ARRAY);
  ASSERT_EQ(kvhost::elementsOf(answer).size(), 5U);
  EXPECT_EQ(kvhost::elementsOf(answer)[1], kvhost::newSymbol("writeLock"));
}

TEST_F(Locking, ACompressedFileHasNoDescriptorToCountFrom) {
  const OopType file = openGzipWith("abc");
  fault("HostLockFileQuery:1:result=1");
  const auto names = namesOf(
      callsDuring([&] { EXPECT_EQ(query(file, "writeLock", 0, 0), "#(false #readLock 0 0 0)"); }));
  EXPECT_THAT(names, ::testing::Not(::testing::Contains("fileno")));
}

// The lock descriptions that a host may give, on a file of ten bytes whose position is 4.
class LockPosition : public ::testing::Test {
 protected:
  void SetUp() override {
    file_ = tmpfile();
    ASSERT_NE(file_, nullptr);
    fd_ = fileno(file_);
    ASSERT_EQ(::write(fd_, "0123456789", 10), 10);
    ASSERT_EQ(lseek(fd_, 4, SEEK_SET), 4);
  }
  void TearDown() override { fclose(file_); }

  int64 compute(int fd, int whence, int64 start, std::size_t room = 256) {
    struct flock64 info = {};
    info.l_whence = static_cast<short>(whence);
    info.l_start = start;
    text_.assign(256, '#');
    text_[0] = '\0';
    return computeFilePosition(fd, &info, text_.data(), room);
  }
  std::string text() const { return text_.c_str(); }
  off_t descriptorPosition() const { return lseek(fd_, 0, SEEK_CUR); }

  FILE* file_ = nullptr;
  int fd_ = -1;
  std::string text_;
};

TEST_F(LockPosition, AStartFromTheBeginningIsAbsolute) {
  EXPECT_EQ(compute(fd_, 0, 7), 7);
  EXPECT_EQ(compute(-1, 0, 0), 0);
  EXPECT_EQ(compute(fd_, 0, -1), -1);
  EXPECT_EQ(text(), "");
  EXPECT_EQ(descriptorPosition(), 4);
}

TEST_F(LockPosition, AStartFromThePositionGoesBackToTheBeginning) {
  EXPECT_EQ(compute(fd_, 1, 7), 7);
  EXPECT_EQ(descriptorPosition(), 0);
  EXPECT_EQ(text(), "");
}

TEST_F(LockPosition, ADescriptorThatCannotSeekIsTold) {
  EXPECT_EQ(compute(-1, 1, 7), -1);
  EXPECT_EQ(text(), "lseek(-1) failure: errno=9");
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  EXPECT_EQ(compute(ends[0], 1, 7), -1);
  EXPECT_EQ(text(), "lseek(" + std::to_string(ends[0]) + ") failure: errno=29");
  close(ends[0]);
  close(ends[1]);
}

TEST_F(LockPosition, AStartFromTheEndCountsFromTheSize) {
  EXPECT_EQ(compute(fd_, 2, 7), 17);
  EXPECT_EQ(compute(fd_, 2, -10), 0);
  EXPECT_EQ(compute(fd_, 2, -11), -1);
  EXPECT_EQ(text(), "");
  EXPECT_EQ(descriptorPosition(), 4);
}

TEST_F(LockPosition, ADescriptorWithoutASizeIsToldByTheHost) {
  struct stat64 info;
  char expected[256] = "";
  ASSERT_EQ(UnixIoFstat(-1, &info, expected, sizeof expected), 0);
  EXPECT_EQ(compute(-1, 2, 7), -1);
  EXPECT_EQ(text(), expected);
  EXPECT_NE(text(), "");
}

TEST_F(LockPosition, AnUnknownOriginIsTold) {
  EXPECT_EQ(compute(fd_, 3, 7), -1);
  EXPECT_EQ(text(), "invalid l_whence: 3");
  EXPECT_EQ(compute(fd_, -1, 7), -1);
  EXPECT_EQ(text(), "invalid l_whence: -1");
  EXPECT_EQ(compute(fd_, 32768, 7), -1);
  EXPECT_EQ(text(), "invalid l_whence: -32768");
  EXPECT_EQ(descriptorPosition(), 4);
}

TEST_F(LockPosition, TheTextIsCutToItsRoom) {
  EXPECT_EQ(compute(fd_, 3, 7, 8), -1);
  EXPECT_EQ(text(), "invalid");
  EXPECT_EQ(text_[8], '#');
  EXPECT_EQ(compute(-1, 1, 7, 6), -1);
  EXPECT_EQ(text(), "lseek");
}

TEST_F(LockPosition, WithoutRoomForATextNoneIsWritten) {
  for (const int whence : {1, 2, 3}) {
    EXPECT_EQ(compute(-1, whence, 7, 0), -1);
    EXPECT_EQ(text_, std::string(1, '\0') + std::string(255, '#')) << whence;
  }
}

TEST_F(LockPosition, TheSumWraps) {
  EXPECT_EQ(compute(fd_, 2, INT64_MAX), INT64_MIN + 9);
  EXPECT_EQ(compute(fd_, 1, INT64_MIN), INT64_MIN);
}

}  // namespace
}  // namespace kvtest
