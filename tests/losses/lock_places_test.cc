// Where a lock begins that the host describes from the position or from the end, as no Linux host does.
#include "losses/lying_host.h"
#include "openfile/lock_helpers.h"

namespace kvtest {
namespace {

class LockPlaces : public Locking {
 protected:
  // A file of 26 bytes that stands at 5, and what it answers about the lock that the host describes.
  std::string described(short whence, int64 start, int* position = nullptr) {
    const OopType file = openWith("abcdefghijklmnopqrstuvwxyz", "r+");
    EXPECT_EQ(readBytes(file, 5), "abcde");
    const LyingHost host(
        {.lock = {.l_type = 1, .l_whence = whence, .l_start = start, .l_len = 3, .l_pid = 77},
         .describesLock = true});
    const std::string answer = query(file, "readLock", 0, 0);
    if (position != nullptr) *position = static_cast<int>(lseek(descriptorOf(file), 0, SEEK_CUR));
    call("KvfClose", {file});
    return answer;
  }

  int descriptorOf(OopType file) {
    return static_cast<int>(oopSmallIntegerValue(call("KvfGetFileDesc", {file})));
  }
};

TEST_F(LockPlaces, FromTheStartItIsToldAsItIs) {
  EXPECT_EQ(described(0, 7), "#(false #writeLock 7 3 77)");
  EXPECT_EQ(described(0, 0), "#(false #writeLock 0 3 77)");
}

TEST_F(LockPlaces, FromThePositionItCountsFromTheStartToWhichTheFileIsRewound) {
  int position = -1;
  EXPECT_EQ(described(1, 7, &position), "#(false #writeLock 7 3 77)");
  EXPECT_EQ(position, 0);
}

TEST_F(LockPlaces, FromTheEndItCountsFromTheSize) {
  EXPECT_EQ(described(2, -6), "#(false #writeLock 20 3 77)");
}

TEST_F(LockPlaces, APlaceThatCannotBeReckonedIsToldByAText) {
  EXPECT_EQ(described(9, 0), "'invalid l_whence: 9'");
  EXPECT_EQ(described(0, -1), "''") << "a place of -1 counts as none, and has no text";
  fault("UnixIoFstat:1:EIO");
  EXPECT_NE(described(2, 0), "''");
}

TEST_F(LockPlaces, AFileThatCannotBeSoughtIsToldByItsDescriptor) {
  const OopType file = openWith("abc", "r+");
  const std::string descriptor = std::to_string(descriptorOf(file));
  const LyingHost host({.lock = {.l_type = 1, .l_whence = 1, .l_start = 0, .l_len = 1, .l_pid = 77},
                        .describesLock = true});
  fault("lseek:1:ESPIPE");
  EXPECT_EQ(query(file, "readLock", 0, 0), "'lseek(" + descriptor + ") failure: errno=29'");
}

}  // namespace
}  // namespace kvtest
