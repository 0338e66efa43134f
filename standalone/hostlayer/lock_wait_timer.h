// A time-out for a system call that blocks: it has the call come back with EINTR.
#pragma once

#include <csignal>
#include <cstdint>
#include <ctime>

namespace kvhost {

// While one of these lives, and from `millisecs` milliseconds on, the thread that made it is
// interrupted again and again, so that a blocking call that began just after an interruption is
// ended too. Made and destroyed by the same thread; one at a time per thread.
//
// It uses the signal SIGRTMIN + 6 with a handler that does nothing. The handler is there while any
// thread of the process waits, the one that was there before is put back afterwards; a program that
// uses that signal itself must not have it mean anything during the wait.
class LockWaitTimer {
 public:
  explicit LockWaitTimer(int millisecs);
  ~LockWaitTimer();
  LockWaitTimer(const LockWaitTimer&) = delete;
  LockWaitTimer& operator=(const LockWaitTimer&) = delete;

  // 0, or the errno value with which the timer could not be made; it never interrupts then.
  int errNum() const { return errNum_; }

  // True when the time has passed.
  bool expired() const;

 private:
  std::int64_t deadline_;  // nanoseconds of the monotonic clock
  int errNum_ = 0;
  timer_t timer_{};
  sigset_t formerMask_{};
};

}  // namespace kvhost
