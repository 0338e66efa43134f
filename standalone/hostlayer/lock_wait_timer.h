// A time-out for a system call that blocks: it has the call come back with EINTR.
#pragma once

#include <csignal>
#include <ctime>

namespace kvhost {

// While one of these lives, and from the point in time `deadline` of the monotonic clock on, the
// thread that made it is interrupted again and again, so that a blocking call that began just after
// an interruption is ended too. Made and destroyed by the same thread; one at a time per thread.
//
// It uses `signal` with a handler that does nothing. The handler is there while any thread of the
// process waits, the one that was there before is put back afterwards.
class LockWaitTimer {
 public:
  LockWaitTimer(int signal, const timespec& deadline);
  ~LockWaitTimer();
  LockWaitTimer(const LockWaitTimer&) = delete;
  LockWaitTimer& operator=(const LockWaitTimer&) = delete;

  // False when the system has no timer to give, or the signal cannot be had: then nothing is ever
  // interrupted.
  bool works() const { return works_; }

 private:
  bool start(const timespec& deadline);

  const int signal_;
  bool hasHandler_;
  bool works_ = false;
  timer_t timer_{};
  sigset_t formerMask_{};
};

}  // namespace kvhost
