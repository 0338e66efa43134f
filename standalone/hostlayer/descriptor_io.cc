// Reading and writing by descriptor: transfers that signals do not cut short, lines, and the status of
// an open file.
#include <kvfile/kvhost.h>
#include <kvfile/platform/host.h>
#include <kvfile/platform/unixio.h>

#include "hostlayer/error_text.h"
#include "hostlayer/held_input.h"
#include "hostlayer/interrupt.h"

#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

namespace {

constexpr ssize_t INTERRUPTED = -2;

// Another process may have made a shared descriptor non-blocking; here reads and writes block all
// the same.
bool wouldBlock(int errNum) { return errNum == EAGAIN || errNum == EWOULDBLOCK; }

// False, with errno, when the wait failed or a signal came.
bool waitUntilReady(int fd, short events) {
  struct pollfd waiting = {fd, events, 0};
  return poll(&waiting, 1, -1) >= 0;
}

// What to do after a read of `fd` failed with errno: 0 to read again, else the answer of the read.
ssize_t afterFailedRead(int fd) {
  if (wouldBlock(errno) && waitUntilReady(fd, POLLIN)) return 0;
  if (errno != EINTR) return -1;
  return kvhost::takeInterrupt() ? INTERRUPTED : 0;
}

// Appends to the `length` bytes at `buf` up to `limit` of them, up to the end of the line, of the
// input, or a failure with errno. Answers the new length.
size_t extendLine(char* buf, size_t length, size_t limit, FILE* stream) {
  while (length < limit) {
    const int c = getc_unlocked(stream);
    if (c == EOF) break;
    buf[length++] = static_cast<char>(c);
    if (c == '\n') break;
  }
  return length;
}

// True when reading `stream` failed with errno for a reason that has passed, so that it is worth
// another try. A noted user interrupt is none.
bool mayReadOn(FILE* stream) {
  if (wouldBlock(errno) && waitUntilReady(fileno(stream), POLLIN)) return true;
  return errno == EINTR && !kvhost::interruptIsNoted();
}

// Fetches a line of up to `limit` bytes, at least 1, from the locked `stream`; the status is that
// of UnixIoFgets_.
int fetchLine(char* buf, size_t limit, FILE* stream, size_t* length) {
  for (;;) {
    *length = extendLine(buf, *length, limit, stream);
    if (*length == limit || (*length > 0 && buf[*length - 1] == '\n')) return 0;
    if (feof_unlocked(stream) != 0) return *length > 0 ? 0 : -1;
    if (!mayReadOn(stream)) break;
    clearerr_unlocked(stream);
  }
  if (*length > 0) return 0;
  return errno == EINTR && kvhost::takeInterrupt() ? -2 : 1;
}

}  // namespace

extern "C" {

// An interrupt that was noted before the call is answered at once, with errno EINTR as for one that
// ends the read: it was meant for this thread of work and must not wait for input first.
ssize_t HostReadFile_(int fd, void* buf, size_t count) {
  ssize_t result = kvhost::takeInterrupt() ? INTERRUPTED : 0;
  while (result == 0) {
    const ssize_t got = read(fd, buf, count);
    if (got >= 0) return got;
    result = afterFailedRead(fd);
  }
  if (result == INTERRUPTED) errno = EINTR;
  return result;
}

// A count of 0 makes one write of no bytes, so that a descriptor that cannot be written is told.
// The system moves at most 0x7ffff000 bytes a call; the loop takes care of the rest. A user
// interrupt does not end a write: it stays noted for the next read.
ssize_t HostWriteFile_(int fd, const void* buf, size_t count) {
  const char* next = static_cast<const char*>(buf);
  size_t left = count;
  do {
    const ssize_t written = write(fd, next, left);
    if (written > 0) {
      next += written;
      left -= static_cast<size_t>(written);
    } else if (written == 0) {
      if (left == 0) return 0;
      errno = EIO;  // a device that takes nothing and gives no reason
      return -1;
    } else if (wouldBlock(errno)) {
      if (!waitUntilReady(fd, POLLOUT) && errno != EINTR) return -1;
    } else if (errno != EINTR) {
      return -1;
    }
  } while (left > 0);
  return static_cast<ssize_t>(count);
}

BoolType UnixIoFstat(int fd, struct stat64* buf, char* errMsg, size_t errMsgSize) {
  if (fstat64(fd, buf) == 0) return TRUE;
  kvhost::formatErrno(errno, nullptr, errMsg, errMsgSize);
  return FALSE;
}

// NUL bytes of the line are stored like any other. A line that a user interrupt or a failure cuts
// is delivered as far as it came; the interrupt stays noted, and the next call answers it. A `size`
// of 1 leaves room for no byte: the empty text is answered without a read. What the line reader holds
// of a long line comes first.
int UnixIoFgets_(char* buf, size_t size, FILE* stream) {
  if (size == 0 || stream == nullptr) {
    errno = EINVAL;
    return 1;
  }
  size_t length = 0;
  int status = 0;
  if (size > 1 && kvhost::takeInterrupt()) {
    errno = EINTR;
    status = -2;
  } else if (size > 1 && !kvhost::takeHeldInput(stream, buf, size - 1, &length)) {
    flockfile(stream);
    status = fetchLine(buf, size - 1, stream, &length);
    funlockfile(stream);
  }
  buf[length] = '\0';
  return status;
}

}  // extern "C"
