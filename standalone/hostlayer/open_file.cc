// Opening a host file as a stream that programs started by this process do not inherit.
#include <kvfile/kvhost.h>
#include <kvfile/platform/host.h>

#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>

namespace {

// `mode` with the letter that has the stream closed on exec, directly after the first, since the C
// library looks at no more than the first seven; cut where it is longer than any mode.
std::array<char, 16> closedOnExec(const char* mode) {
  std::array<char, 16> result{};
  if (mode[0] == '\0') return result;
  result[0] = mode[0];
  result[1] = 'e';
  std::memcpy(&result[2], mode + 1, strnlen(mode + 1, result.size() - 3));
  return result;
}

// The system itself refuses to open a directory for writing; only reading has to be asked about.
bool opensForReadingOnly(const char* mode) {
  return mode[0] == 'r' && std::strchr(mode, '+') == nullptr;
}

// Reading no bytes at a position costs half of what fstat does, and reaches no driver that could
// wait or act on it: devices that cannot seek refuse it themselves. A directory refuses it as well;
// only then fstat is asked.
bool isDirectory(int fd) {
  char nothing = 0;
  if (pread(fd, &nothing, 0, 0) == 0) return false;
  struct stat status = {};
  return fstat(fd, &status) == 0 && S_ISDIR(status.st_mode);
}

}  // namespace

extern "C" {

// `flag` is 1 for "as a user names the file"; this host knows no other kind of opening and looks at
// the name as it stands in either case. A user interrupt (see kvhost::enableInterrupts) ends the wait
// for the other end of a FIFO as a failure with EINTR.
FILE* HostOpenFile(const char* path, const char* mode, HostErrSType* err, int /*flag*/) {
  const std::array<char, 16> hostMode = closedOnExec(mode);
  FILE* stream = nullptr;
  do {
    stream = std::fopen(path, hostMode.data());
  } while (stream == nullptr && errno == EINTR && !kvhost::takeInterrupt());
  if (stream == nullptr) {
    err->theErrno = errno;
    return nullptr;
  }
  if (opensForReadingOnly(mode) && isDirectory(fileno(stream))) {
    std::fclose(stream);
    err->theErrno = EISDIR;
    return nullptr;
  }
  return stream;
}

}  // extern "C"
