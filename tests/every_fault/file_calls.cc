// The host's files, and the C library's calls on descriptors and streams.
#include <kvfile/platform/lrsupreadline.h>
#include <kvfile/platform/unixio.h>
#include <kvfile/platform/utl.h>

#include "every_fault/world.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>

using namespace every_fault;

namespace {

constexpr int LOCK_FAILED = 2;
constexpr int LINE_FAILED = 1;
constexpr int CLAIMED = 7;

bool is(const Fault* fault, What what) { return fault != nullptr && fault->what == what; }

// Answers `failure` with the fault's errno.
template <class R>
R fail(const Fault* fault, R failure) {
  errno = fault->what == What::NoMemory ? ENOMEM : fault->value;
  return done(failure);
}

// The end of a call on a path: `number` is its errno value, 0 for success.
BoolType endPathCall(HostErrSType* err, int number) {
  err->theErrno = number;
  return done(number == 0 ? TRUE : FALSE);
}

int pathError(const Fault* fault, const char* path) {
  if (fault != nullptr) return fault->value;
  const int file = fileNamed(path);
  return file >= 0 && w.files[file].exists ? 0 : ENOENT;
}

void fillSysError(const Fault* fault, SysErrorSType* err, int number) {
  err->initialize();
  err->categ = SYS_ERROR_CATEG_ERRNO;
  err->errCode = static_cast<SysErrorCodeEType>(fault != nullptr ? fault->value : number);
  describeErrno(err->errCode, err->errMsg, sizeof err->errMsg);
  err->errMsgFinished = TRUE;
}

// A line of at most `room` bytes from the descriptor. 0, or -1 at the end.
int fetchLine(const Fault* fault, int fd, char* buf, int64 room) {
  Descriptor& from = w.descriptors[fd];
  const std::string& bytes = w.files[from.file].bytes;
  const auto start = static_cast<size_t>(from.position);
  if (!from.open || !from.reads) {
    errno = EBADF;
    return LINE_FAILED;
  }
  if (start >= bytes.size()) return -1;
  const size_t newline = std::min(bytes.find('\n', start), bytes.size() - 1);
  int64 n = std::min<int64>(static_cast<int64>(newline + 1 - start), room);
  n = cutShort(fault, n);
  memcpy(buf, bytes.data() + start, static_cast<size_t>(n));
  buf[n] = '\0';
  from.position += n;
  return 0;
}

int lineFrom(const Fault* fault, FILE* stream, char* buf, size_t size) {
  if (is(fault, What::End)) return done(-1);
  if (is(fault, What::Interrupt)) {
    errno = EINTR;
    return done(-2);
  }
  if (is(fault, What::Errno)) return fail(fault, LINE_FAILED);
  return done(fetchLine(fault, descriptorOf(stream), buf, static_cast<int64>(size) - 1));
}

bool flushOut() {
  std::string& pending = w.outBuffer;
  const int64 n = writeDescriptor(1, pending.data(), static_cast<int64>(pending.size()));
  pending.clear();
  return n >= 0;
}

}  // namespace

extern "C" {

// ---- texts ----

void seam_HostStrerror(int errNum, char* buf, size_t size) {
  call(FN_HostStrerror, int64{errNum});
  describeErrno(errNum, buf, size);
  doneVoid();
}

void seam_HostGetErrMsg(const HostErrSType* err, char* buf, size_t size) {
  call(FN_HostGetErrMsg, int64{err->theErrno});
  describeErrno(err->theErrno, buf, size);
  doneVoid();
}

void seam_SysErrorFinishMsg(SysErrorSType* err) {
  call(FN_SysErrorFinishMsg);
  if (!err->errMsgFinished) describeErrno(err->errCode, err->errMsg, sizeof err->errMsg);
  err->errMsgFinished = TRUE;
  doneVoid();
}

// ---- descriptors ----

ssize_t seam_HostReadFile_(int fd, void* buf, size_t count) {
  const Fault* fault = call(FN_HostReadFile_, int64{fd}, static_cast<int64>(count));
  if (is(fault, What::End)) return done(ssize_t{0});
  if (is(fault, What::Interrupt)) {
    errno = EINTR;
    return done(ssize_t{-2});
  }
  if (is(fault, What::Errno)) return fail(fault, ssize_t{-1});
  const int64 n =
      readDescriptor(fd, buf, cutShort(fault, std::min(static_cast<int64>(count), unreadIn(fd))));
  // At the end there is nothing to lie about: a host that goes on for ever is one that does not end.
  if (is(fault, What::Lie) && n == 0) takeBack(fault);
  if (is(fault, What::Lie) && n > 0) {
    memset(static_cast<char*>(buf) + n, 'L', count - static_cast<size_t>(n));
    return done(static_cast<ssize_t>(count) + CLAIMED);
  }
  return done(static_cast<ssize_t>(n));
}

ssize_t seam_HostWriteFile_(int fd, const void* buf, size_t count) {
  const Fault* fault = call(FN_HostWriteFile_, int64{fd}, BytesArg{buf, static_cast<int64>(count)});
  if (is(fault, What::End)) return done(ssize_t{0});
  if (is(fault, What::Partial)) writeDescriptor(fd, buf, static_cast<int64>(count / 2));
  if (is(fault, What::Errno) || is(fault, What::Partial)) return fail(fault, ssize_t{-1});
  const int64 n = writeDescriptor(fd, buf, cutShort(fault, static_cast<int64>(count)));
  return done(static_cast<ssize_t>(n));
}

int seam_fileno(FILE* stream) {
  const Fault* fault = call(FN_fileno, StreamArg{stream});
  return fault != nullptr ? fail(fault, -1) : done(descriptorOf(stream));
}

off_t seam_lseek(int fd, off_t offset, int whence) {
  const Fault* fault = call(FN_lseek, int64{fd}, int64{offset}, int64{whence});
  return fault != nullptr ? fail(fault, off_t{-1})
                          : done(off_t{seekDescriptor(fd, offset, whence)});
}

int seam_fsync(int fd) {
  const Fault* fault = call(FN_fsync, int64{fd});
  return fault != nullptr ? fail(fault, -1) : done(0);
}

int seam_isatty(int fd) {
  const Fault* fault = call(FN_isatty, int64{fd});
  if (fault != nullptr) return fail(fault, 0);
  const bool known = fd >= 0 && fd < DESCRIPTORS && w.descriptors[fd].open;
  return done(known && w.files[w.descriptors[fd].file].kind == Kind::Terminal ? 1 : 0);
}

// ---- streams ----

FILE* seam_HostOpenFile(const char* path, const char* mode, HostErrSType* err, int flag) {
  const Fault* fault = call(FN_HostOpenFile, TextArg{path}, TextArg{mode}, int64{flag});
  const bool plus = strchr(mode, '+') != nullptr;
  int number = fault != nullptr ? fault->value : 0;
  int fd = -1;
  if (fault == nullptr) {
    fd = openFile(path, mode[0] == 'r' || plus, mode[0] != 'r' || plus, mode[0] == 'a',
                  mode[0] != 'r', mode[0] == 'w', &number);
  }
  err->theErrno = number;
  if (fd < 0) return donePointer<FILE>(nullptr);
  // As a stream does that appends: it begins at the end.
  if (mode[0] == 'a') seekDescriptor(fd, 0, SEEK_END);
  w.streams[fd] = {true, fd};
  return donePointer(reinterpret_cast<FILE*>(&w.streams[fd]));
}

int seam_fclose(FILE* stream) {
  const Fault* fault = call(FN_fclose, StreamArg{stream});
  const int fd = descriptorOf(stream);
  if (fd >= FIRST_FREE_FD) w.streams[fd].open = false;
  const int status = closeDescriptor(fd);
  return fault != nullptr ? fail(fault, EOF) : done(status);
}

int seam_fflush(FILE* stream) {
  const Fault* fault = call(FN_fflush, StreamArg{stream});
  if (fault != nullptr) {
    if (stream == stdout) w.outBuffer.clear();
    return fail(fault, EOF);
  }
  return done(stream != stdout || flushOut() ? 0 : EOF);
}

size_t seam_fwrite(const void* bytes, size_t size, size_t count, FILE* stream) {
  const Fault* fault =
      call(FN_fwrite, BytesArg{bytes, static_cast<int64>(size * count)}, StreamArg{stream});
  if (fault != nullptr) return fail(fault, size_t{0});
  w.outBuffer.append(static_cast<const char*>(bytes), size * count);
  return done(count);
}

void seam_clearerr_unlocked(FILE* stream) {
  call(FN_clearerr_unlocked, StreamArg{stream});
  doneVoid();
}

int seam_printf(const char* format, ...) {
  char text[2048];
  va_list arguments;
  va_start(arguments, format);
  const int length = vsnprintf(text, sizeof text, format, arguments);
  va_end(arguments);
  const Fault* fault = call(FN_printf, TextArg{text});
  if (fault != nullptr) return fail(fault, -1);
  w.outBuffer += text;
  return done(length);
}

// ---- lines ----

int seam_UnixIoFgets_(char* buf, size_t size, FILE* stream) {
  return lineFrom(call(FN_UnixIoFgets_, static_cast<int64>(size), StreamArg{stream}), stream, buf,
                  size);
}

int seam_LrSupReadLine(LineReaderStateType* state, FILE* stream, char* buf, size_t size,
                       const char* prompt, BoolType flag) {
  const Fault* fault = call(FN_LrSupReadLine, StreamArg{stream}, static_cast<int64>(size),
                            TextArg{prompt}, int64{flag});
  if (reinterpret_cast<int*>(state) != &w.lineReader) abort();
  return lineFrom(fault, stream, buf, size);
}

void seam_LineReadShutdown(LineReaderStateType* state) {
  call(FN_LineReadShutdown);
  if (reinterpret_cast<int*>(state) != &w.lineReader) abort();
  doneVoid();
}

// ---- names ----

BoolType seam_HostExpandFileName(const char* in, char* out, size_t outSize, int noWildcards,
                                 int expandLast) {
  const Fault* fault = call(FN_HostExpandFileName, TextArg{in}, static_cast<int64>(outSize),
                            int64{noWildcards}, int64{expandLast});
  if (fault != nullptr || strlen(in) >= outSize) return done(FALSE);
  snprintf(out, outSize, "%s", strcmp(in, "$A") == 0 ? "a.txt" : in);
  return done(TRUE);
}

BoolType seam_HostRemoveSingleFile(const char* path, int flag, HostErrSType* err) {
  const int number = pathError(call(FN_HostRemoveSingleFile, TextArg{path}, int64{flag}), path);
  if (number == 0) w.files[fileNamed(path)].exists = false;
  return endPathCall(err, number);
}

BoolType seam_HostRemoveDirectory(const char* path, HostErrSType* err) {
  int number = pathError(call(FN_HostRemoveDirectory, TextArg{path}), path);
  if (number == 0 && w.files[fileNamed(path)].kind != Kind::Directory) number = ENOTDIR;
  if (number == 0) w.files[fileNamed(path)].exists = false;
  return endPathCall(err, number);
}

BoolType seam_HostCreateDirectory(const char* path, HostErrSType* err, int mode) {
  const Fault* fault = call(FN_HostCreateDirectory, TextArg{path}, int64{mode});
  if (fault != nullptr) return endPathCall(err, fault->value);
  const int file = fileNamed(path);
  if (file >= 0 && w.files[file].exists) return endPathCall(err, EEXIST);
  for (MemFile& made : w.files) {
    if (!made.name.empty() && made.name != path) continue;
    made.name = path;
    made.kind = Kind::Directory;
    made.exists = true;
    return endPathCall(err, 0);
  }
  return endPathCall(err, ENOSPC);
}

HostFileKindEType seam_HostFileType(const char* path, HostErrSType* err) {
  err->theErrno = pathError(call(FN_HostFileType, TextArg{path}), path);
  if (err->theErrno != 0) return done(HOST_FILE_KIND_ERROR);
  const Kind kind = w.files[fileNamed(path)].kind;
  return done(kind == Kind::Directory ? HOST_FILE_KIND_DIR : HOST_FILE_KIND_FILE);
}

BoolType seam_HostFileExistSize(const char* path, int64* size, int* exists, HostErrSType* err,
                                char*, size_t) {
  const Fault* fault = call(FN_HostFileExistSize, TextArg{path});
  err->theErrno = is(fault, What::Refuse) ? 0 : pathError(fault, path);
  *exists = err->theErrno != ENOENT;
  if (fault != nullptr || err->theErrno != 0) return done(FALSE);
  *size = static_cast<int64>(w.files[fileNamed(path)].bytes.size());
  return done(TRUE);
}

BoolType seam_UtlGetFileModTime(const char* path, int64* time, SysErrorSType* err) {
  const Fault* fault = call(FN_UtlGetFileModTime, TextArg{path});
  const int number = pathError(fault, path);
  if (number == 0) {
    *time = 1000;
    return done(TRUE);
  }
  fillSysError(fault, err, number);
  err->errMsgFinished = FALSE;
  err->errMsg[0] = '\0';
  return done(FALSE);
}

int seam_rename(const char* oldPath, const char* newPath) {
  const Fault* fault = call(FN_rename, TextArg{oldPath}, TextArg{newPath});
  const int number = pathError(fault, oldPath);
  if (number != 0) {
    errno = number;
    return done(-1);
  }
  const int replaced = fileNamed(newPath);
  const int file = fileNamed(oldPath);
  if (replaced >= 0 && replaced != file) w.files[replaced] = MemFile{};
  w.files[file].name = newPath;
  return done(0);
}

BoolType seam_HostDirectory(const char* path, HostDirCallbackType callback,
                            HostDirClientDataType* clientData, int flag) {
  const Fault* fault = call(FN_HostDirectory, TextArg{path}, int64{flag});
  const int file = fileNamed(path);
  const bool walks = file >= 0 && w.files[file].exists && w.files[file].kind == Kind::Directory;
  if (is(fault, What::Errno) || !walks) {
    clientData->errNum = fault != nullptr ? fault->value : ENOTDIR;
    return done(FALSE);
  }
  doneVoid();
  static const char* const entries[] = {"one", "two", "dr\xC3\xBC"};
  for (const char* entry : entries) {
    if (!callback(path, entry, "/", clientData)) return FALSE;
    if (is(fault, What::Partial)) {
      clientData->errNum = fault->value;
      return FALSE;
    }
  }
  return TRUE;
}

// ---- locks ----

int seam_HostLockFile(FILE* f, int isWriteLock, long offset, long bytes, int millisecs,
                      SysErrorSType* err) {
  const Fault* fault = call(FN_HostLockFile, StreamArg{f}, int64{isWriteLock}, int64{offset},
                            int64{bytes}, int64{millisecs});
  if (is(fault, What::Refuse) || w.conflict >= 0) return done(0);
  if (fault == nullptr && f != nullptr) return done(1);
  fillSysError(fault, err, EBADF);
  return done(LOCK_FAILED);
}

int seam_HostUnlockFile(FILE* f, long offset, long bytes, SysErrorSType* err) {
  const Fault* fault = call(FN_HostUnlockFile, StreamArg{f}, int64{offset}, int64{bytes});
  if (is(fault, What::Refuse)) return done(0);
  if (fault == nullptr && f != nullptr) return done(1);
  fillSysError(fault, err, EBADF);
  return done(LOCK_FAILED);
}

int seam_HostLockFileQuery(FILE* f, int isWriteLock, long offset, long bytes, struct flock64* info,
                           char* errMsg, size_t errMsgSize) {
  const Fault* fault =
      call(FN_HostLockFileQuery, StreamArg{f}, int64{isWriteLock}, int64{offset}, int64{bytes});
  if (fault != nullptr || f == nullptr) {
    describeErrno(fault != nullptr ? fault->value : EBADF, errMsg, errMsgSize);
    return done(LOCK_FAILED);
  }
  info->l_type = w.conflict >= 0 ? (w.conflict & 1) : 2;
  info->l_whence = static_cast<short>(w.conflict < 0 ? 0 : w.conflict);
  info->l_start = 5;
  info->l_len = 10;
  info->l_pid = 77;
  return done(1);
}

BoolType seam_UnixIoFstat(int fd, struct stat64* buf, char* errMsg, size_t errMsgSize) {
  const Fault* fault = call(FN_UnixIoFstat, int64{fd});
  const bool known = fd >= 0 && fd < DESCRIPTORS && w.descriptors[fd].open;
  if (fault != nullptr || !known) {
    describeErrno(fault != nullptr ? fault->value : EBADF, errMsg, errMsgSize);
    return done(FALSE);
  }
  buf->st_size = static_cast<off64_t>(w.files[w.descriptors[fd].file].bytes.size());
  return done(TRUE);
}

}  // extern "C"
