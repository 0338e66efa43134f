#include "hostlayer/lock_wait_timer.h"

#include "hostlayer/fork.h"

#include <pthread.h>
#include <unistd.h>

#include <mutex>

#ifndef sigev_notify_thread_id  // glibc gives the field no name before 2.38
#define sigev_notify_thread_id _sigev_un._tid
#endif

namespace kvhost {

namespace {

constexpr timespec REPEAT = {0, 5'000'000};

void doNothing(int) {}

constinit std::mutex handlerMutex;
int handlerUsers = 0;
int handlerSignal = 0;
struct sigaction formerHandler;

// False while other threads wait by another signal, and for a number that is no signal.
bool acquireHandler(int signal) {
  const std::lock_guard<std::mutex> guard(handlerMutex);
  if (handlerUsers == 0) {
    struct sigaction action = {};
    action.sa_handler = doNothing;  // and no SA_RESTART: the interruption is the purpose
    sigemptyset(&action.sa_mask);
    if (sigaction(signal, &action, &formerHandler) != 0) return false;
    handlerSignal = signal;
  }
  if (handlerSignal != signal) return false;
  ++handlerUsers;
  return true;
}

void releaseHandler() {
  const std::lock_guard<std::mutex> guard(handlerMutex);
  if (--handlerUsers == 0) sigaction(handlerSignal, &formerHandler, nullptr);
}

}  // namespace

void lockWaitHandler() { handlerMutex.lock(); }

void unlockWaitHandler() { handlerMutex.unlock(); }

void forgetWaitingThreads() {
  if (handlerUsers > 0) sigaction(handlerSignal, &formerHandler, nullptr);
  handlerUsers = 0;
}

LockWaitTimer::LockWaitTimer(int signal, const timespec& deadline)
    : signal_(signal), hasHandler_(acquireHandler(signal)) {
  if (!hasHandler_) return;
  sigset_t wake;
  sigemptyset(&wake);
  sigaddset(&wake, signal_);
  pthread_sigmask(SIG_UNBLOCK, &wake, &formerMask_);
  works_ = start(deadline);
}

bool LockWaitTimer::start(const timespec& deadline) {
  struct sigevent event = {};
  event.sigev_notify = SIGEV_THREAD_ID;
  event.sigev_signo = signal_;
  event.sigev_notify_thread_id = gettid();
  if (timer_create(CLOCK_MONOTONIC, &event, &timer_) != 0) return false;
  const struct itimerspec times = {REPEAT, deadline};
  if (timer_settime(timer_, TIMER_ABSTIME, &times, nullptr) == 0) return true;
  timer_delete(timer_);
  return false;
}

// A signal that the timer sent before it was deleted is delivered when that call returns, while the
// signal is still unblocked and the handler in place.
LockWaitTimer::~LockWaitTimer() {
  if (!hasHandler_) return;
  if (works_) timer_delete(timer_);
  pthread_sigmask(SIG_SETMASK, &formerMask_, nullptr);
  releaseHandler();
}

}  // namespace kvhost
