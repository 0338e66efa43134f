#include "hostlayer/lock_wait_timer.h"

#include <pthread.h>
#include <unistd.h>

#include <cerrno>
#include <mutex>

#ifndef sigev_notify_thread_id  // glibc gives the field no name before 2.38
#define sigev_notify_thread_id _sigev_un._tid
#endif

namespace kvhost {

namespace {

constexpr std::int64_t NANOS_PER_SECOND = 1'000'000'000;
constexpr std::int64_t NANOS_PER_MILLI = 1'000'000;
constexpr std::int64_t REPEAT_NANOS = 5 * NANOS_PER_MILLI;

int wakeSignal() { return SIGRTMIN + 6; }

void doNothing(int) {}

std::int64_t monotonicNanos() {
  struct timespec now = {};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return now.tv_sec * NANOS_PER_SECOND + now.tv_nsec;
}

struct timespec toTimespec(std::int64_t nanos) {
  return {nanos / NANOS_PER_SECOND, nanos % NANOS_PER_SECOND};
}

std::mutex handlerMutex;
int handlerUsers = 0;
struct sigaction formerHandler;

void acquireHandler() {
  const std::lock_guard<std::mutex> guard(handlerMutex);
  if (handlerUsers++ > 0) return;
  struct sigaction action = {};
  action.sa_handler = doNothing;  // and no SA_RESTART: the interruption is the purpose
  sigemptyset(&action.sa_mask);
  sigaction(wakeSignal(), &action, &formerHandler);
}

void releaseHandler() {
  const std::lock_guard<std::mutex> guard(handlerMutex);
  if (--handlerUsers == 0) sigaction(wakeSignal(), &formerHandler, nullptr);
}

int makeTimer(timer_t* timer) {
  struct sigevent event = {};
  event.sigev_notify = SIGEV_THREAD_ID;
  event.sigev_signo = wakeSignal();
  event.sigev_notify_thread_id = gettid();
  return timer_create(CLOCK_MONOTONIC, &event, timer) == 0 ? 0 : errno;
}

}  // namespace

LockWaitTimer::LockWaitTimer(int millisecs)
    : deadline_(monotonicNanos() + millisecs * NANOS_PER_MILLI) {
  acquireHandler();
  sigset_t wake;
  sigemptyset(&wake);
  sigaddset(&wake, wakeSignal());
  pthread_sigmask(SIG_UNBLOCK, &wake, &formerMask_);
  errNum_ = makeTimer(&timer_);
  if (errNum_ != 0) return;
  const struct itimerspec times = {toTimespec(REPEAT_NANOS), toTimespec(deadline_)};
  timer_settime(timer_, TIMER_ABSTIME, &times, nullptr);
}

// A signal that the timer sent before it was deleted is delivered when that call returns, while the
// signal is still unblocked and the handler in place.
LockWaitTimer::~LockWaitTimer() {
  if (errNum_ == 0) timer_delete(timer_);
  pthread_sigmask(SIG_SETMASK, &formerMask_, nullptr);
  releaseHandler();
}

bool LockWaitTimer::expired() const { return monotonicNanos() >= deadline_; }

}  // namespace kvhost
