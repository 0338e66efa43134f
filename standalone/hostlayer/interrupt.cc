#include "hostlayer/interrupt.h"

#include <kvfile/kvhost.h>

#include <atomic>
#include <csignal>

namespace kvhost {

namespace {

std::atomic<bool> interruptNoted{false};
static_assert(std::atomic<bool>::is_always_lock_free, "a signal handler stores into it");

void noteInterrupt(int) { interruptNoted.store(true, std::memory_order_relaxed); }

}  // namespace

// Without SA_RESTART, so that a read that blocks comes back. A program with several threads blocks
// SIGINT in all but the one that reads the terminal, or the system may deliver it to another.
void enableInterrupts() {
  struct sigaction action = {};
  action.sa_handler = noteInterrupt;
  sigemptyset(&action.sa_mask);
  sigaction(SIGINT, &action, nullptr);
}

bool interruptIsNoted() { return interruptNoted.load(std::memory_order_relaxed); }

// The plain load first keeps the ordinary read free of a locked instruction.
bool takeInterrupt() {
  return interruptIsNoted() && interruptNoted.exchange(false, std::memory_order_relaxed);
}

}  // namespace kvhost
