// Record locks against other processes: ranges, waiting, time limits, queries.
#include <kvfile/kvhost.h>
#include <kvfile/platform/host.h>

#include "standalone/host_fixture.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <pthread.h>
#include <sys/resource.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <ctime>
#include <future>
#include <string>
#include <thread>
#include <vector>

namespace {

using hosttest::Clock;
using hosttest::Helper;
using hosttest::millisSince;
using hosttest::PATIENCE_MILLIS;
using hosttest::Pipe;

constexpr int READ_LOCK = 0;
constexpr int WRITE_LOCK = 1;

// A process that holds a lock until told to end, or for some time.
class Holder {
 public:
  Holder(const std::string& path, short type, off_t start, off_t length, int holdMillis = -1)
      : helper_([=, this] { return hold(path, type, start, length, holdMillis); }) {
    char locked = 0;
    EXPECT_EQ(read(locked_.readEnd(), &locked, 1), 1);
    EXPECT_EQ(locked, 'L');
  }
  pid_t pid() const { return helper_.pid(); }
  void end() const { kill(helper_.pid(), SIGKILL); }

  // Milliseconds between the release of the lock and now; for a holder with a time.
  double millisSinceRelease() {
    struct timespec released = {};
    EXPECT_EQ(read(locked_.readEnd(), &released, sizeof released),
              static_cast<ssize_t>(sizeof released));
    struct timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<double>(now.tv_sec - released.tv_sec) * 1e3 +
           static_cast<double>(now.tv_nsec - released.tv_nsec) / 1e6;
  }

 private:
  int hold(const std::string& path, short type, off_t start, off_t length, int holdMillis) {
    const int fd = open(path.c_str(), O_RDWR | O_CLOEXEC);
    struct flock range = {type, SEEK_SET, start, length, 0};
    const bool locked = fcntl(fd, F_SETLKW, &range) == 0;
    if (write(locked_.writeEnd(), locked ? "L" : "F", 1) != 1) return 1;
    if (holdMillis < 0) pause();
    usleep(static_cast<useconds_t>(holdMillis) * 1000);
    struct timespec released = {};
    clock_gettime(CLOCK_MONOTONIC, &released);
    range.l_type = F_UNLCK;
    fcntl(fd, F_SETLK, &range);
    if (write(locked_.writeEnd(), &released, sizeof released) < 0) return 1;
    return 0;
  }

  Pipe locked_;
  Helper helper_;
};

// The two ways of waiting for a lock.
constexpr int NO_SIGNAL = 0;
int waitSignal() { return SIGRTMIN + 5; }

class RecordLock : public hosttest::InDirectory {
 protected:
  void SetUp() override {
    InDirectory::SetUp();
    hosttest::writeFile(in("f"), std::string(1000, '.'));
    stream = std::fopen(in("f").c_str(), "r+");
    ASSERT_NE(stream, nullptr);
    err.initialize();
  }
  void TearDown() override {
    kvhost::setLockWaitSignal(NO_SIGNAL);
    std::fclose(stream);
    InDirectory::TearDown();
  }

  int lock(int isWriteLock, long offset, long bytes, int millisecs) {
    err.initialize();
    return HostLockFile(stream, isWriteLock, offset, bytes, millisecs, &err);
  }
  int unlock(long offset, long bytes) { return HostUnlockFile(stream, offset, bytes, &err); }

  // What another process finds: the type of the lock in its way, F_UNLCK for none.
  int foundByAnother(int type, off_t start, off_t length) {
    Helper other([&] {
      const int fd = open(in("f").c_str(), O_RDWR | O_CLOEXEC);
      struct flock range = {static_cast<short>(type), SEEK_SET, start, length, 0};
      return fcntl(fd, F_GETLK, &range) == 0 ? range.l_type : 99;
    });
    return other.exitCode();
  }

  FILE* stream = nullptr;
  SysErrorSType err{};
};

class RecordLockWait : public RecordLock, public testing::WithParamInterface<bool> {
 protected:
  void SetUp() override {
    RecordLock::SetUp();
    kvhost::setLockWaitSignal(GetParam() ? waitSignal() : NO_SIGNAL);
  }
};
INSTANTIATE_TEST_SUITE_P(, RecordLockWait, testing::Bool(),
                         [](const auto& way) { return way.param ? "BySignal" : "ByAsking"; });

TEST_F(RecordLock, isSeenByOthersOnItsRangeOnly) {
  ASSERT_EQ(lock(WRITE_LOCK, 100, 50, 0), 1);
  EXPECT_EQ(foundByAnother(F_RDLCK, 100, 1), F_WRLCK);
  EXPECT_EQ(foundByAnother(F_RDLCK, 149, 1), F_WRLCK);
  EXPECT_EQ(foundByAnother(F_WRLCK, 0, 100), F_UNLCK);
  EXPECT_EQ(foundByAnother(F_WRLCK, 150, 0), F_UNLCK);
  ASSERT_EQ(unlock(100, 50), 1);
  EXPECT_EQ(foundByAnother(F_WRLCK, 0, 0), F_UNLCK);
}

TEST_F(RecordLock, ofLengthZeroReachesPastAnyEnd) {
  ASSERT_EQ(lock(READ_LOCK, 500, 0, 0), 1);
  EXPECT_EQ(foundByAnother(F_WRLCK, 1L << 60, 1), F_RDLCK);
  EXPECT_EQ(foundByAnother(F_RDLCK, 1L << 60, 1), F_UNLCK);
  EXPECT_EQ(foundByAnother(F_WRLCK, 499, 1), F_UNLCK);
  ASSERT_EQ(unlock(0, 0), 1);
  EXPECT_EQ(foundByAnother(F_WRLCK, 0, 0), F_UNLCK);
}

TEST_F(RecordLock, canBeUnlockedInItsMiddle) {
  ASSERT_EQ(lock(WRITE_LOCK, 0, 30, 0), 1);
  ASSERT_EQ(unlock(10, 10), 1);
  EXPECT_EQ(foundByAnother(F_WRLCK, 10, 10), F_UNLCK);
  EXPECT_EQ(foundByAnother(F_WRLCK, 9, 1), F_WRLCK);
  EXPECT_EQ(foundByAnother(F_WRLCK, 20, 1), F_WRLCK);
  EXPECT_EQ(unlock(300, 10), 1) << "nothing is locked there";
}

TEST_F(RecordLock, isRefusedAtOnceWithoutTime) {
  const Holder holder(in("f"), F_WRLCK, 0, 10);
  EXPECT_EQ(lock(READ_LOCK, 0, 1, 0), 0) << "and it came back, though the other never lets go";
  EXPECT_EQ(lock(READ_LOCK, 10, 5, 0), 1) << "beside the other's range";
}

TEST_F(RecordLock, isSharedAmongReaders) {
  const Holder holder(in("f"), F_RDLCK, 0, 10);
  EXPECT_EQ(lock(READ_LOCK, 0, 10, 0), 1);
  EXPECT_EQ(lock(WRITE_LOCK, 0, 10, 0), 0);
}

TEST_P(RecordLockWait, givesUpWhenTheTimeIsOverAndNotBefore) {
  const Holder holder(in("f"), F_WRLCK, 0, 10);
  for (const int millis : {1, 20, 150}) {
    const Clock::time_point start = Clock::now();
    EXPECT_EQ(lock(WRITE_LOCK, 5, 1, millis), 0);
    EXPECT_GE(millisSince(start), millis);
  }
}

// The best of some rounds: in any of them the machine may have had other things to do.
TEST_P(RecordLockWait, isObtainedAsSoonAsItIsReleased) {
  double best = PATIENCE_MILLIS;
  for (int round = 0; round < 50 && best >= 50; ++round) {
    Holder holder(in("f"), F_WRLCK, 0, 10, 60);
    ASSERT_EQ(lock(WRITE_LOCK, 0, 10, PATIENCE_MILLIS), 1);
    best = std::min(best, holder.millisSinceRelease());
    ASSERT_EQ(unlock(0, 0), 1);
  }
  EXPECT_LT(best, 50);
}

TEST_P(RecordLockWait, waitsWithoutUsingTheProcessor) {
  const Holder holder(in("f"), F_WRLCK, 0, 10);
  struct timespec before = {};
  struct timespec after = {};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &before);
  EXPECT_EQ(lock(WRITE_LOCK, 0, 10, 300), 0);
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &after);
  EXPECT_LT((after.tv_sec - before.tv_sec) * 1000000000L + after.tv_nsec - before.tv_nsec,
            20000000);
}

TEST_P(RecordLockWait, waitIsNotEndedByOtherSignals) {
  const Holder holder(in("f"), F_WRLCK, 0, 10);
  const hosttest::AlarmStorm storm(3000);
  std::thread releasing = hosttest::threadWithoutAlarms([&, waiting = gettid()] {
    hosttest::waitUntilAsleep(waiting);
    const auto before = hosttest::AlarmStorm::count;
    while (hosttest::AlarmStorm::count <= before + 3) usleep(1000);
    holder.end();
  });
  EXPECT_EQ(lock(WRITE_LOCK, 0, 10, PATIENCE_MILLIS), 1);
  releasing.join();
}

TEST_P(RecordLockWait, waitTakesTheLongestTimeThatCanBeGiven) {
  Holder holder(in("f"), F_WRLCK, 0, 10, 50);
  EXPECT_EQ(lock(WRITE_LOCK, 0, 10, 2147483647), 1);
}

TEST_F(RecordLock, waitTakesNoSignalUnlessOneIsGiven) {
  static std::atomic<int> seen;
  std::array<struct sigaction, 65> former{};
  for (int signal = SIGRTMIN; signal <= SIGRTMAX; ++signal) {
    struct sigaction own = {};
    own.sa_handler = [](int) { ++seen; };
    own.sa_flags = SA_RESTART;
    sigaction(signal, &own, &former[static_cast<size_t>(signal)]);
  }
  const Holder holder(in("f"), F_WRLCK, 0, 10);
  std::promise<pid_t> waiter;
  std::thread waiting([&] {
    waiter.set_value(gettid());
    EXPECT_EQ(lock(WRITE_LOCK, 0, 10, PATIENCE_MILLIS), 1);
  });
  hosttest::waitUntilAsleep(waiter.get_future().get());
  seen = 0;
  for (int signal = SIGRTMIN; signal <= SIGRTMAX; ++signal) kill(getpid(), signal);
  holder.end();
  waiting.join();
  EXPECT_EQ(seen, SIGRTMAX - SIGRTMIN + 1) << "each reached the handler of the program";
  for (int signal = SIGRTMIN; signal <= SIGRTMAX; ++signal) {
    sigaction(signal, &former[static_cast<size_t>(signal)], nullptr);
  }
}

// Where the user has as many signals queued as he may have, the system refuses timers.
TEST_F(RecordLock, waitWorksWhereNoTimerCanBeHad) {
  for (const int signal : {NO_SIGNAL, waitSignal()}) {
    Holder longHolder(in("f"), F_WRLCK, 0, 10);
    Holder shortHolder(in("f"), F_WRLCK, 20, 10, 60);
    Helper limited([&] {
      const struct rlimit none = {0, 0};
      if (setrlimit(RLIMIT_SIGPENDING, &none) != 0) return 99;
      timer_t timer{};
      if (timer_create(CLOCK_MONOTONIC, nullptr, &timer) == 0) return 98;
      kvhost::setLockWaitSignal(signal);
      const Clock::time_point start = Clock::now();
      if (lock(WRITE_LOCK, 0, 10, 80) != 0 || millisSince(start) < 80) return 1;
      return lock(WRITE_LOCK, 20, 10, PATIENCE_MILLIS) == 1 ? 0 : 2;
    });
    EXPECT_EQ(limited.exitCode(), 0) << signal;
  }
}

TEST_F(RecordLock, waitWorksWhereItsSignalIsBlockedAndLeavesSignalsAsTheyWere) {
  const int signal = waitSignal();
  kvhost::setLockWaitSignal(signal);
  sigset_t blocked;
  sigset_t former;
  sigemptyset(&blocked);
  sigaddset(&blocked, signal);
  pthread_sigmask(SIG_BLOCK, &blocked, &former);
  const Holder holder(in("f"), F_WRLCK, 0, 10);
  EXPECT_EQ(lock(WRITE_LOCK, 0, 10, 30), 0);
  sigset_t now;
  pthread_sigmask(SIG_SETMASK, &former, &now);
  EXPECT_EQ(sigismember(&now, signal), 1);
  struct sigaction action = {};
  sigaction(signal, nullptr, &action);
  EXPECT_EQ(action.sa_handler, SIG_DFL);
}

TEST_P(RecordLockWait, waitsOfSeveralThreadsEachEndInTime) {
  const Holder holder(in("f"), F_WRLCK, 0, 100);
  std::vector<std::thread> threads;
  for (int i = 0; i < 8; ++i) {
    threads.emplace_back([&, i] {
      const int millis = 20 + 15 * i;
      SysErrorSType own;
      own.initialize();
      const Clock::time_point start = Clock::now();
      EXPECT_EQ(HostLockFile(stream, WRITE_LOCK, i, 1, millis, &own), 0);
      EXPECT_GE(millisSince(start), millis);
    });
  }
  for (std::thread& thread : threads) thread.join();
}

TEST_P(RecordLockWait, waitIsEndedByAUserInterruptAsAFailure) {
  struct sigaction former = {};
  sigaction(SIGINT, nullptr, &former);
  kvhost::enableInterrupts();
  const Holder holder(in("f"), F_WRLCK, 0, 10);
  const pthread_t target = pthread_self();
  std::thread sender([target, thread = gettid()] {
    hosttest::waitUntilAsleep(thread);
    pthread_kill(target, SIGINT);
  });
  EXPECT_EQ(lock(WRITE_LOCK, 0, 10, PATIENCE_MILLIS), -1);
  EXPECT_STREQ(err.errMsg,
               "errno=4,EINTR, Interrupted system call : the user interrupted the wait for the "
               "lock");
  EXPECT_FALSE(kvhost::takeInterrupt());
  sender.join();
  kvhost::disableInterrupts();
  sigaction(SIGINT, &former, nullptr);
}

// Only the system sees it, and only who waits in the system. This process holds byte 0 and waits for byte 1, whose holder waits for byte 0.
TEST_F(RecordLock, thatWouldWaitForItselfIsToldAsADeadlock) {
  kvhost::setLockWaitSignal(waitSignal());
  Pipe ready;
  ASSERT_EQ(lock(WRITE_LOCK, 0, 1, 0), 1);
  Helper other([&] {
    const int fd = open(in("f").c_str(), O_RDWR | O_CLOEXEC);
    struct flock second = {F_WRLCK, SEEK_SET, 1, 1, 0};
    struct flock first = {F_WRLCK, SEEK_SET, 0, 1, 0};
    if (fcntl(fd, F_SETLK, &second) != 0 || write(ready.writeEnd(), "R", 1) != 1) return 1;
    return fcntl(fd, F_SETLKW, &first) == 0 ? 0 : 2;
  });
  char byte = 0;
  ASSERT_EQ(read(ready.readEnd(), &byte, 1), 1);
  hosttest::waitUntilAsleep(other.pid());
  EXPECT_EQ(lock(WRITE_LOCK, 1, 1, PATIENCE_MILLIS), -1);
  EXPECT_EQ(err.errCode, EDEADLK);
  EXPECT_STREQ(err.errMsg,
               "errno=35,EDEADLK, Resource deadlock avoided : the holder of the lock waits for a "
               "lock of this process");
  ASSERT_EQ(unlock(0, 0), 1);
  EXPECT_EQ(other.exitCode(), 0);
}

TEST_F(RecordLock, needsAStreamOpenForIt) {
  FILE* readOnly = std::fopen(in("f").c_str(), "r");
  FILE* writeOnly = std::fopen(in("f").c_str(), "a");
  EXPECT_EQ(HostLockFile(readOnly, WRITE_LOCK, 0, 1, 0, &err), -1);
  EXPECT_STREQ(err.errMsg,
               "errno=9,EBADF, Bad file descriptor : a write lock needs a file that is open for "
               "writing");
  EXPECT_TRUE(err.errMsgFinished);
  EXPECT_EQ(HostLockFile(writeOnly, READ_LOCK, 0, 1, 0, &err), -1);
  EXPECT_STREQ(err.errMsg,
               "errno=9,EBADF, Bad file descriptor : a read lock needs a file that is open for "
               "reading");
  std::fclose(readOnly);
  std::fclose(writeOnly);
}

TEST_F(RecordLock, ofACompressedFileIsRefusedWithAText) {
  const char* expected =
      "errno=9,EBADF, Bad file descriptor : record locks need a plain file; a compressed file has "
      "no stream to lock";
  EXPECT_EQ(HostLockFile(nullptr, READ_LOCK, 0, 1, 0, &err), -1);
  EXPECT_STREQ(err.errMsg, expected);
  err.initialize();
  EXPECT_EQ(HostUnlockFile(nullptr, 0, 1, &err), -1);
  EXPECT_STREQ(err.errMsg, expected);
  struct flock64 info = {};
  char text[256] = "";
  EXPECT_EQ(HostLockFileQuery(nullptr, READ_LOCK, 0, 1, &info, text, sizeof text), -1);
  EXPECT_STREQ(text, expected);
}

TEST_F(RecordLock, ofARangePastTheLastPositionIsRefusedWithAText) {
  EXPECT_EQ(lock(WRITE_LOCK, 0x7fffffffffffffffL, 2, 0), -1);
  EXPECT_EQ(err.errCode, EOVERFLOW);
  EXPECT_STREQ(err.errMsg,
               "errno=75,EOVERFLOW, Value too large for defined data type : the range or the kind "
               "of file cannot be locked");
  EXPECT_EQ(lock(WRITE_LOCK, -1, 1, 0), -1);
  EXPECT_EQ(err.errCode, EINVAL);
}

// ---- query ----

TEST_F(RecordLock, queryDescribesTheLockInTheWay) {
  const Holder holder(in("f"), F_WRLCK, 100, 20);
  struct flock64 info = {};
  char text[256] = "";
  ASSERT_EQ(HostLockFileQuery(stream, READ_LOCK, 90, 50, &info, text, sizeof text), 1);
  EXPECT_EQ(info.l_type, 1);
  EXPECT_EQ(info.l_whence, 0);
  EXPECT_EQ(info.l_start, 100);
  EXPECT_EQ(info.l_len, 20);
  EXPECT_EQ(info.l_pid, holder.pid());
}

TEST_F(RecordLock, queryFindsAReadLockOnlyInTheWayOfAWriteLock) {
  const Holder holder(in("f"), F_RDLCK, 7, 0);
  struct flock64 info = {};
  char text[256] = "";
  ASSERT_EQ(HostLockFileQuery(stream, WRITE_LOCK, 0, 0, &info, text, sizeof text), 1);
  EXPECT_EQ(info.l_type, 0);
  EXPECT_EQ(info.l_start, 7);
  EXPECT_EQ(info.l_len, 0);
  ASSERT_EQ(HostLockFileQuery(stream, READ_LOCK, 0, 0, &info, text, sizeof text), 1);
  EXPECT_EQ(info.l_type, 2);
}

TEST_F(RecordLock, queryDoesNotCountTheOwnLocks) {
  ASSERT_EQ(lock(WRITE_LOCK, 0, 0, 0), 1);
  struct flock64 info = {};
  char text[256] = "";
  ASSERT_EQ(HostLockFileQuery(stream, WRITE_LOCK, 0, 0, &info, text, sizeof text), 1);
  EXPECT_EQ(info.l_type, 2);
}

TEST_F(RecordLock, queryTellsWhyItFailed) {
  struct flock64 info = {};
  char text[256] = "";
  EXPECT_EQ(HostLockFileQuery(stream, WRITE_LOCK, -5, 1, &info, text, sizeof text), -1);
  EXPECT_STREQ(text,
               "errno=22,EINVAL, Invalid argument : the range or the kind of file cannot be "
               "locked");
}

}  // namespace
