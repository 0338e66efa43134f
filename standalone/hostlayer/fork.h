// What the host does when the process forks.
#pragma once

namespace kvhost {

// Has every later fork find the host's locks free in the child. Calling it again does nothing.
void makeForkSafe();

// The parts of the host that have a lock, each with its own two functions: held from before the fork
// until behind it, in parent and child.
void lockActions();
void unlockActions();
void lockEnvironment();
void unlockEnvironment();
void lockInterruptHandler();
void unlockInterruptHandler();
void lockWaitHandler();
void unlockWaitHandler();

// In the child: no other thread is there that could still wait for a lock.
void forgetWaitingThreads();

}  // namespace kvhost
