#include "hostlayer/lock_wait.h"

#include <kvfile/kvhost.h>

#include "hostlayer/lock_wait_timer.h"
#include "hostlayer/retry.h"
#include "memory/assertions.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdint>
#include <ctime>

namespace kvhost {

namespace {

constexpr int64_t NANOS_PER_SECOND = 1'000'000'000;
constexpr int64_t NANOS_PER_MILLI = 1'000'000;
constexpr int64_t LONGEST_PAUSE = 10 * NANOS_PER_MILLI;

constinit std::atomic<int> waitSignal = 0;

int64_t monotonicNanos() {
  struct timespec now = {};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return now.tv_sec * NANOS_PER_SECOND + now.tv_nsec;
}

struct timespec toTimespec(int64_t nanos) {
  return {nanos / NANOS_PER_SECOND, nanos % NANOS_PER_SECOND};
}

// The system wakes the thread as soon as the lock is free, and the timer when the time is over.
int waitInSystem(int fd, struct flock64* range, int64_t deadline) {
  for (;;) {
    if (fcntl(fd, F_SETLKW64, range) == 0) return 0;
    if (errno != EINTR) return errno;
    const bool isOver = monotonicNanos() >= deadline;
    if (takeInterrupt()) return EINTR;
    if (isOver) return setLock(fd, range);
  }
}

// Asks again and again, after pauses that grow from one millisecond to ten.
int waitByAsking(int fd, struct flock64* range, int64_t deadline) {
  for (int64_t pause = NANOS_PER_MILLI;; pause = std::min(pause * 2, LONGEST_PAUSE)) {
    const int64_t left = deadline - monotonicNanos();
    const struct timespec time = toTimespec(std::clamp<int64_t>(left, 0, pause));
    clock_nanosleep(CLOCK_MONOTONIC, 0, &time, nullptr);
    const int errNum = setLock(fd, range);
    if (!meansHeldByAnother(errNum)) return errNum;
    if (takeInterrupt()) return EINTR;
    if (left <= 0) return errNum;
  }
}

}  // namespace

void setLockWaitSignal(int signal) { waitSignal.store(signal, std::memory_order_relaxed); }

int setLock(int fd, struct flock64* range) {
  const int status = retryInterrupted([&] { return fcntl(fd, F_SETLK64, range); });
  return status == 0 ? 0 : errno;
}

bool meansHeldByAnother(int errNum) { return errNum == EAGAIN || errNum == EACCES; }

int waitForLock(int fd, struct flock64* range, int millisecs) {
  KVHOST_ASSERT(fd >= 0 && millisecs > 0 && range->l_type != F_UNLCK);
  const int64_t deadline = monotonicNanos() + millisecs * NANOS_PER_MILLI;
  const int signal = waitSignal.load(std::memory_order_relaxed);
  if (signal != 0) {
    const LockWaitTimer timer(signal, toTimespec(deadline));
    if (timer.works()) return waitInSystem(fd, range, deadline);
  }
  return waitByAsking(fd, range, deadline);
}

}  // namespace kvhost
