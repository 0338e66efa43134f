// Record locks: POSIX locks of the process on byte ranges of a file. They belong to the process,
// not to the descriptor: closing any descriptor of the file gives up all locks that the process has
// on it, and a second lock of the same process is never refused.

#include <kvfile/kvhost.h>
#include <kvfile/platform/host.h>

#include "hostlayer/error_text.h"
#include "hostlayer/lock_wait.h"
#include "hostlayer/retry.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

namespace {

constexpr int FAILED = -1;
constexpr int NOT_OBTAINED = 0;
constexpr int DONE = 1;

constexpr char NO_STREAM[] =
    "record locks need a plain file; a compressed file has no stream to lock";

struct flock64 rangeLock(short type, long offset, long bytes) {
  struct flock64 range = {};
  range.l_type = type;
  range.l_whence = SEEK_SET;
  range.l_start = offset;
  range.l_len = bytes;
  return range;
}

short lockType(int isWriteLock) { return isWriteLock != 0 ? F_WRLCK : F_RDLCK; }

// What to tell beside the bare text of the error.
const char* adviceFor(int errNum, int isWriteLock) {
  switch (errNum) {
    case EBADF:
      return isWriteLock != 0 ? "a write lock needs a file that is open for writing"
                              : "a read lock needs a file that is open for reading";
    case EDEADLK:
      return "the holder of the lock waits for a lock of this process";
    case EINTR:
      return "the user interrupted the wait for the lock";
    case EINVAL:
    case EOVERFLOW:
      return "the range or the kind of file cannot be locked";
    default:
      return "";
  }
}

int fail(SysErrorSType* err, int errNum, const char* advice) {
  kvhost::recordErrno(err, errNum, advice);
  SysErrorFinishMsg(err);
  return FAILED;
}

}  // namespace

extern "C" {

// A user interrupt (see kvhost::enableInterrupts) that is noted before or during the wait ends it
// as a failure with EINTR; a lock that is free is taken all the same.
int HostLockFile(FILE* f, int isWriteLock, long offset, long bytes, int millisecs,
                 SysErrorSType* err) {
  if (f == nullptr) return fail(err, EBADF, NO_STREAM);
  const int fd = fileno(f);
  struct flock64 range = rangeLock(lockType(isWriteLock), offset, bytes);
  int errNum = kvhost::setLock(fd, &range);
  if (kvhost::meansHeldByAnother(errNum) && millisecs > 0) {
    errNum = kvhost::takeInterrupt() ? EINTR : kvhost::waitForLock(fd, &range, millisecs);
  }
  if (errNum == 0) return DONE;
  if (kvhost::meansHeldByAnother(errNum)) return NOT_OBTAINED;
  return fail(err, errNum, adviceFor(errNum, isWriteLock));
}

// Answers 1 also where nothing was locked; never 0.
int HostUnlockFile(FILE* f, long offset, long bytes, SysErrorSType* err) {
  if (f == nullptr) return fail(err, EBADF, NO_STREAM);
  struct flock64 range = rangeLock(F_UNLCK, offset, bytes);
  const int errNum = kvhost::setLock(fileno(f), &range);
  return errNum == 0 ? DONE : fail(err, errNum, "");
}

int HostLockFileQuery(FILE* f, int isWriteLock, long offset, long bytes, struct flock64* info,
                      char* errMsg, size_t errMsgSize) {
  static_assert(F_RDLCK == 0 && F_WRLCK == 1 && F_UNLCK == 2, "the numbers of the contract");
  if (f == nullptr) {
    kvhost::formatErrno(EBADF, NO_STREAM, errMsg, errMsgSize);
    return FAILED;
  }
  *info = rangeLock(lockType(isWriteLock), offset, bytes);
  if (kvhost::retryInterrupted([&] { return fcntl(fileno(f), F_GETLK64, info); }) == 0) return DONE;
  kvhost::formatErrno(errno, adviceFor(errno, isWriteLock), errMsg, errMsgSize);
  return FAILED;
}

}  // extern "C"
