// Waiting for a record lock that another process holds.
#pragma once

#include <fcntl.h>

namespace kvhost {

// Takes the lock `range` of `fd` if no other process holds one in its way: 0, or the errno value.
int setLock(int fd, struct flock64* range);

// True for the errno values by which the system says that another process holds the lock.
bool meansHeldByAnother(int errNum);

// Waits at most `millisecs` milliseconds for the lock. 0, EAGAIN when the time is over, EINTR when
// the user interrupted the wait, EDEADLK (only with a signal, see kvhost::setLockWaitSignal) when the
// holder waits for this process, or the errno value of another failure.
int waitForLock(int fd, struct flock64* range, int millisecs);

}  // namespace kvhost
