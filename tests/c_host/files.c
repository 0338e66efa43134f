/* Open files: descriptors, streams and record locks. */
#define _GNU_SOURCE
#include <kvfile/platform/host.h>
#include <kvfile/platform/unixio.h>

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

/* ---- descriptors ---- */

ssize_t HostReadFile_(int fd, void* buf, size_t count) {
  ssize_t got = read(fd, buf, count);
  return got < 0 && errno == EINTR ? -2 : got;
}

ssize_t HostWriteFile_(int fd, const void* buf, size_t count) {
  size_t done = 0;
  while (done < count) {
    ssize_t put = write(fd, (const char*)buf + done, count - done);
    if (put < 0 && errno != EINTR) return -1;
    if (put > 0) done += (size_t)put;
  }
  return (ssize_t)count;
}

BoolType UnixIoFstat(int fd, struct stat64* buf, char* errMsg, size_t errMsgSize) {
  if (fstat64(fd, buf) == 0) return TRUE;
  HostStrerror(errno, errMsg, errMsgSize);
  return FALSE;
}

/* ---- streams ---- */

FILE* HostOpenFile(const char* path, const char* mode, HostErrSType* err, int flag) {
  (void)flag;
  char closedOnExec[16];
  snprintf(closedOnExec, sizeof closedOnExec, "%se", mode);
  FILE* f = fopen(path, closedOnExec);
  if (!f) {
    err->theErrno = errno;
    return NULL;
  }
  struct stat64 status;
  if (fstat64(fileno(f), &status) == 0 && S_ISDIR(status.st_mode)) {
    fclose(f);
    err->theErrno = EISDIR;
    return NULL;
  }
  return f;
}

int UnixIoFgets_(char* buf, size_t size, FILE* stream) {
  if (fgets(buf, (int)size, stream)) return 0;
  if (!ferror(stream)) return -1;
  BoolType interrupted = errno == EINTR;
  clearerr(stream);
  return interrupted ? -2 : -3;
}

/* ---- record locks ---- */

enum { POLL_NANOSECONDS = 1000000 };

static struct flock64 describeLock(int type, long offset, long bytes) {
  struct flock64 lock = {0};
  lock.l_type = (short)type;
  lock.l_whence = SEEK_SET;
  lock.l_start = offset;
  lock.l_len = bytes;
  return lock;
}

/* One attempt: 1, 0 when another process has the range, or -1 with errno. */
static int tryLock(FILE* f, int type, long offset, long bytes) {
  struct flock64 lock = describeLock(type, offset, bytes);
  if (!f) {
    errno = EBADF;
    return -1;
  }
  if (fcntl(fileno(f), F_SETLK64, &lock) == 0) return 1;
  return errno == EACCES || errno == EAGAIN ? 0 : -1;
}

static int64 milliseconds(void) {
  struct timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  return (int64)now.tv_sec * 1000 + now.tv_nsec / 1000000;
}

int HostLockFile(FILE* f, int isWriteLock, long offset, long bytes, int millisecs,
                 SysErrorSType* err) {
  int64 deadline = milliseconds() + millisecs;
  int result = tryLock(f, isWriteLock ? F_WRLCK : F_RDLCK, offset, bytes);
  while (result == 0 && milliseconds() < deadline) {
    nanosleep(&(struct timespec){0, POLL_NANOSECONDS}, NULL);
    result = tryLock(f, isWriteLock ? F_WRLCK : F_RDLCK, offset, bytes);
  }
  if (result < 0) HostStrerror(errno, err->errMsg, sizeof err->errMsg);
  return result;
}

int HostUnlockFile(FILE* f, long offset, long bytes, SysErrorSType* err) {
  int result = tryLock(f, F_UNLCK, offset, bytes);
  if (result < 0) HostStrerror(errno, err->errMsg, sizeof err->errMsg);
  return result;
}

int HostLockFileQuery(FILE* f, int isWriteLock, long offset, long bytes, struct flock64* info,
                      char* errMsg, size_t errMsgSize) {
  *info = describeLock(isWriteLock ? F_WRLCK : F_RDLCK, offset, bytes);
  if (f && fcntl(fileno(f), F_GETLK64, info) == 0) return 1;
  HostStrerror(f ? errno : EBADF, errMsg, errMsgSize);
  return -1;
}
