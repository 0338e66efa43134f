// Forking. A child has only the thread that forked; a lock that another one held at that moment would
// never be given back there. So all are taken before, in the order in which they nest, and given back
// behind it on both sides.
#include "hostlayer/fork.h"

#include <kvfile/kvhost.h>

#include "interface/error_state.h"
#include "interface/sessions.h"
#include "memory/slot_directory.h"

#include <pthread.h>

#include <mutex>

namespace kvhost {

namespace {

void beforeFork() {
  lockActions();
  interface::lockSessions();
  memory::lockDirectory();
  lockEnvironment();
  lockInterruptHandler();
  lockWaitHandler();
}

void afterFork() {
  unlockWaitHandler();
  unlockInterruptHandler();
  unlockEnvironment();
  memory::unlockDirectory();
  interface::unlockSessions();
  unlockActions();
}

void afterForkInChild() {
  forgetWaitingThreads();
  afterFork();
}

}  // namespace

void makeForkSafe() {
  static std::once_flag once;
  std::call_once(once, [] { pthread_atfork(beforeFork, afterFork, afterForkInChild); });
}

void initialize() { makeForkSafe(); }

void dropInherited() {
  interface::forgetInheritedSessions();
  interface::errorState().isPending = false;
}

}  // namespace kvhost
