// What is asked of and done to files by their paths: kinds, sizes, times, removal, directories.
#include <kvfile/platform/host.h>
#include <kvfile/platform/utl.h>

#include "hostlayer/error_text.h"
#include "hostlayer/retry.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

namespace {

constexpr int MODE_NOT_GIVEN = -1;

// Turns the result of a system call on a path into the answer of a host call.
BoolType answer(int status, HostErrSType* err) {
  if (status == 0) return TRUE;
  err->theErrno = errno;
  return FALSE;
}

HostFileKindEType kindOf(mode_t mode) {
  switch (mode & S_IFMT) {
    case S_IFREG:
      return HOST_FILE_KIND_FILE;
    case S_IFDIR:
      return HOST_FILE_KIND_DIR;
    case S_IFCHR:
      return HOST_FILE_KIND_CHRDEVICE;
    case S_IFBLK:
      return HOST_FILE_KIND_BLKDEVICE;
    case S_IFLNK:
      return HOST_FILE_KIND_LNK;
    case S_IFIFO:
      return HOST_FILE_KIND_FIFO;
    default:
      return HOST_FILE_KIND_OTHER;
  }
}

// The errors that mean that nothing has that name. After any other (no permission on the way, a
// loop of links) a file may well be there, and the reason is what the user must learn.
bool meansMissing(int errNum) { return errNum == ENOENT || errNum == ENOTDIR; }

}  // namespace

extern "C" {

// `flag` is 1 for "now"; this host knows no deferred removal. A symbolic link is removed itself.
BoolType HostRemoveSingleFile(const char* path, int /*flag*/, HostErrSType* err) {
  return answer(kvhost::retryInterrupted([path] { return unlink(path); }), err);
}

BoolType HostRemoveDirectory(const char* path, HostErrSType* err) {
  return answer(kvhost::retryInterrupted([path] { return rmdir(path); }), err);
}

BoolType HostCreateDirectory(const char* path, HostErrSType* err, int mode) {
  const mode_t bits = mode == MODE_NOT_GIVEN ? 0777U : static_cast<mode_t>(mode) & 07777U;
  return answer(kvhost::retryInterrupted([path, bits] { return mkdir(path, bits); }), err);
}

HostFileKindEType HostFileType(const char* path, HostErrSType* err) {
  struct stat status = {};
  if (kvhost::retryInterrupted([&] { return lstat(path, &status); }) == 0) {
    return kindOf(status.st_mode);
  }
  err->theErrno = errno;
  return HOST_FILE_KIND_ERROR;
}

// A directory, a device or a FIFO answers what the system says of its size.
BoolType HostFileExistSize(const char* path, int64* size, int* exists, HostErrSType* err, char* buf,
                           size_t bufSize) {
  struct stat status = {};
  if (kvhost::retryInterrupted([&] { return stat(path, &status); }) == 0) {
    *size = status.st_size;
    *exists = TRUE;
    return TRUE;
  }
  err->theErrno = errno;
  *exists = meansMissing(errno) ? FALSE : TRUE;
  if (buf != nullptr) kvhost::formatErrno(err->theErrno, path, buf, bufSize);
  return FALSE;
}

// The path is part of the text, because the text is all that the user is shown.
BoolType UtlGetFileModTime(const char* path, int64* time, SysErrorSType* err) {
  struct stat status = {};
  if (kvhost::retryInterrupted([&] { return stat(path, &status); }) == 0) {
    *time = status.st_mtime;
    return TRUE;
  }
  const int errNum = errno;
  const bool isEmpty = *path == '\0';
  kvhost::recordErrno(err, errNum, isEmpty ? "the path is empty or names something unknown" : path);
  return FALSE;
}

}  // extern "C"
