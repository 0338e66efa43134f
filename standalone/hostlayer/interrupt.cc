#include "hostlayer/interrupt.h"

#include <kvfile/kvhost.h>

#include "hostlayer/fork.h"

#include <atomic>
#include <csignal>
#include <mutex>

namespace kvhost {

namespace {

std::atomic<bool> interruptNoted{false};
static_assert(std::atomic<bool>::is_always_lock_free, "a signal handler stores into it");

constinit std::mutex handlerMutex;
bool handlerIsOurs = false;
struct sigaction formerHandler;

void noteInterrupt(int) { interruptNoted.store(true, std::memory_order_relaxed); }

bool isInstalled() {
  struct sigaction now = {};
  sigaction(SIGINT, nullptr, &now);
  return (now.sa_flags & SA_SIGINFO) == 0 && now.sa_handler == noteInterrupt;
}

}  // namespace

// Without SA_RESTART, so that a read that blocks comes back. A program with several threads blocks
// SIGINT in all but the one that reads the terminal, or the system may deliver it to another.
void enableInterrupts() {
  const std::lock_guard lock(handlerMutex);
  if (isInstalled()) return;
  struct sigaction action = {};
  action.sa_handler = noteInterrupt;
  sigemptyset(&action.sa_mask);
  handlerIsOurs = sigaction(SIGINT, &action, &formerHandler) == 0;
}

void disableInterrupts() {
  const std::lock_guard lock(handlerMutex);
  // Who has put a handler of his own in place of this one since then keeps it.
  if (handlerIsOurs && isInstalled()) sigaction(SIGINT, &formerHandler, nullptr);
  handlerIsOurs = false;
  interruptNoted.store(false, std::memory_order_relaxed);
}

void lockInterruptHandler() { handlerMutex.lock(); }

void unlockInterruptHandler() { handlerMutex.unlock(); }

bool interruptIsNoted() { return interruptNoted.load(std::memory_order_relaxed); }

// The plain load first keeps the ordinary read free of a locked instruction.
bool takeInterrupt() {
  return interruptIsNoted() && interruptNoted.exchange(false, std::memory_order_relaxed);
}

}  // namespace kvhost
