// What the locking actions say about their arguments, in the order in which they look.
#include "openfile/lock_helpers.h"

namespace kvtest {
namespace {

constexpr const char* bad_kind = "'invalid lock kind'";
constexpr const char* offset_class = "'The offset argument is not a SmallInteger'";
constexpr const char* offset_range = "'offset must be greater than or equal to zero'";
constexpr const char* bytes_class = "'The bytes argument is not a SmallInteger'";
constexpr const char* bytes_range = "'bytes must be greater than or equal to zero'";
constexpr const char* millisecs_class = "'The millisecnds argument is not a SmallInteger'";
constexpr const char* millisecs_range = "'millisecnds must be greater than or equal to zero'";
constexpr const char* no_standard_lock = "'locking is not supported on stdin, stdout, or stderr'";
constexpr const char* no_standard_unlock =
    "'unlocking is not supported on stdin, stdout, or stderr'";

class LockArguments : public Locking {
 protected:
  // `body` must make no lock call.
  template <typename Body>
  void withoutHost(Body body) {
    for (const std::string& name : namesOf(callsDuring(body)))
      EXPECT_THAT(name, ::testing::Not(::testing::AnyOf("HostLockFile", "HostUnlockFile",
                                                        "HostLockFileQuery", "fileno")));
  }
};

TEST_F(LockArguments, StandardFilesAreRefusedBeforeAnythingElse) {
  for (int64 id = 0; id < 3; ++id) {
    const OopType file = kvhost::newKvFile();
    ASSERT_EQ(show(call("KvfCreateStdFile", {file, smallInt(id)})), "1");
    withoutHost([&] {
      EXPECT_EQ(lock(file, OOP_NIL, OOP_NIL, OOP_NIL, OOP_NIL), no_standard_lock);
      EXPECT_EQ(query(file, OOP_NIL, OOP_NIL, OOP_NIL), no_standard_lock);
      EXPECT_EQ(unlockWith(file, OOP_NIL, OOP_NIL), no_standard_unlock);
      EXPECT_EQ(lock(file, "writeLock", 0, 0), no_standard_lock);
    });
  }
}

TEST_F(LockArguments, AClosedFileIsToldBeforeItsKind) {
  const OopType closed = openForLocks();
  call("KvfClose", {closed});
  const OopType closedStandard = kvhost::newKvFile();
  call("KvfCreateStdFile", {closedStandard, smallInt(0)});
  call("KvfClose", {closedStandard});
  withoutHost([&] {
    for (const OopType file : {OOP_NIL, closed, closedStandard}) {
      EXPECT_EQ(lock(file, OOP_NIL, OOP_NIL, OOP_NIL, OOP_NIL), "'file is not open'");
      EXPECT_EQ(query(file, OOP_NIL, OOP_NIL, OOP_NIL), "'file is not open'");
      EXPECT_EQ(unlockWith(file, OOP_NIL, OOP_NIL), "'file is not open'");
    }
  });
}

TEST_F(LockArguments, TheKindIsComparedExactly) {
  const OopType file = openForLocks();
  withoutHost([&] {
    for (const char* kind : {"", "readlock", "ReadLock", "READLOCK", "readLoc", "readLocks", "read",
                             "writelock", "writeLock ", " writeLock", "lock", "123456789012345"}) {
      EXPECT_EQ(lock(file, kind, 0, 0), bad_kind) << kind;
      EXPECT_EQ(query(file, kind, 0, 0), bad_kind) << kind;
    }
  });
  EXPECT_EQ(lock(file, "readLock", 0, 0), "true");
  EXPECT_EQ(lock(file, "writeLock", 0, 0), "true");
  EXPECT_EQ(
      lock(file, str(std::string_view("readLock\0x", 10)), smallInt(0), smallInt(0), smallInt(0)),
      "true");
}

TEST_F(LockArguments, AKindThatCannotBeFetchedIsRaised) {
  const OopType file = openForLocks();
  const OopType tooLong = str("1234567890123456");
  const OopType array = kvhost::newArray({OOP_NIL});
  expectRaise(2061, {tooLong}, "KvfLock", {file, tooLong, OOP_NIL, OOP_NIL, OOP_NIL});
  expectRaise(2061, {tooLong}, "KvfLockQuery", {file, tooLong, OOP_NIL, OOP_NIL});
  expectRaise(2094, {array, OOP_CLASS_STRING}, "KvfLock", {file, array, OOP_NIL, OOP_NIL, OOP_NIL});
  expectRaise(2094, {array, OOP_CLASS_STRING}, "KvfLockQuery", {file, array, OOP_NIL, OOP_NIL});
  letRaisesReturn(2);
  EXPECT_EQ(lock(file, tooLong, smallInt(0), smallInt(0), smallInt(0)), "nil");
  EXPECT_EQ(query(file, array, smallInt(0), smallInt(0)), "nil");
  EXPECT_EQ(raisesThatWillReturn(), 0);
}

TEST_F(LockArguments, EachArgumentIsToldInItsTurn) {
  const OopType file = openForLocks();
  const OopType kind = str("writeLock");
  const OopType zero = smallInt(0);
  const OopType minus = smallInt(-1);
  const OopType large = kvhost::newInteger(int64{1} << 60);
  withoutHost([&] {
    EXPECT_EQ(lock(file, str("?"), OOP_NIL, OOP_NIL, OOP_NIL), bad_kind);
    for (const OopType bad : {OOP_NIL, large, str("0"), oopFromCharacter(0)}) {
      EXPECT_EQ(lock(file, kind, bad, OOP_NIL, OOP_NIL), offset_class);
      EXPECT_EQ(lock(file, kind, zero, bad, OOP_NIL), bytes_class);
      EXPECT_EQ(lock(file, kind, zero, zero, bad), millisecs_class);
      EXPECT_EQ(query(file, kind, bad, OOP_NIL), offset_class);
      EXPECT_EQ(query(file, kind, zero, bad), bytes_class);
      EXPECT_EQ(unlockWith(file, bad, OOP_NIL), offset_class);
      EXPECT_EQ(unlockWith(file, zero, bad), bytes_class);
    }
    EXPECT_EQ(lock(file, kind, minus, OOP_NIL, OOP_NIL), offset_range);
    EXPECT_EQ(lock(file, kind, zero, minus, OOP_NIL), bytes_range);
    EXPECT_EQ(query(file, str("?"), OOP_NIL, OOP_NIL), bad_kind);
    EXPECT_EQ(query(file, kind, minus, OOP_NIL), offset_range);
    EXPECT_EQ(query(file, kind, zero, minus), bytes_range);
    EXPECT_EQ(unlockWith(file, minus, OOP_NIL), offset_range);
    EXPECT_EQ(unlockWith(file, zero, minus), bytes_range);
  });
}

TEST_F(LockArguments, WaitsAreWithinThirtyOneBits) {
  const OopType file = openForLocks();
  for (const int64 wait :
       {int64{-1}, int64{2147483648}, int64{1} << 32, int64{1} << 59, -(int64{1} << 60)}) {
    withoutHost([&] { EXPECT_EQ(lock(file, "writeLock", 0, 0, wait), millisecs_range) << wait; });
  }
  EXPECT_EQ(lock(file, "writeLock", 0, 0, 2147483647), "true");
}

TEST_F(LockArguments, TheLargestOffsetsReachTheHost) {
  const OopType file = openForLocks();
  const int64 largest = (int64{1} << 60) - 1;
  EXPECT_EQ(lock(file, "writeLock", largest, 1), "true");
  EXPECT_EQ(lockSeenByOthers("data.bin", 0, 0), "write " + std::to_string(largest) + " 1");
  EXPECT_EQ(unlock(file, 0, largest), "true");
}

}  // namespace
}  // namespace kvtest
