// The linker hands each call of the functions below to its lie, which asks the real one first.
#include "losses/lying_host.h"

#include <kvfile/platform/host.h>
#include <kvfile/platform/kci.h>
#include <kvfile/platform/kcistring.h>
#include <kvfile/platform/kcisup.h>
#include <kvfile/platform/unixio.h>
#include <kvfile/platform/version.h>

#include <sys/types.h>

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <limits>

namespace kvtest {

thread_local Lies lies;
thread_local int endlessTextsPrinted = 0;

namespace {

// `given` with the surplus on top, held within its type.
template <class Count>
Count claim(Count given, int64 asked, int64 surplus) {
  if (surplus == 0 || given <= 0) return given;
  if (!lies.claimsWhenShort && static_cast<int64>(given) != asked) return given;
  const Count most = std::numeric_limits<Count>::max();
  if (surplus > static_cast<int64>(most) - asked) return most;
  return static_cast<Count>(asked + surplus);
}

}  // namespace
}  // namespace kvtest

using kvtest::claim;
using kvtest::endlessTextsPrinted;
using kvtest::lies;

// The names are the linker's.
// NOLINTBEGIN(bugprone-reserved-identifier)
extern "C" {

int __real_KciFetchOops(OopType obj, int64 startIndex, OopType* buf, int count);
int __wrap_KciFetchOops(OopType obj, int64 startIndex, OopType* buf, int count) {
  return claim(__real_KciFetchOops(obj, startIndex, buf, count), count, lies.surplusOops);
}

int64 __real_KciFetchBytes_(OopType obj, int64 startIndex, ByteType* buf, int64 count);
int64 __wrap_KciFetchBytes_(OopType obj, int64 startIndex, ByteType* buf, int64 count) {
  return claim(__real_KciFetchBytes_(obj, startIndex, buf, count), count, lies.surplusBytes);
}

int64 __real_KciFetchUtf8Bytes_(OopType str, int64 startIndex, ByteType* buf, int64 maxBytes,
                                OopType* utf8String, int flags);
int64 __wrap_KciFetchUtf8Bytes_(OopType str, int64 startIndex, ByteType* buf, int64 maxBytes,
                                OopType* utf8String, int flags) {
  return claim(__real_KciFetchUtf8Bytes_(str, startIndex, buf, maxBytes, utf8String, flags),
               maxBytes, lies.surplusUtf8);
}

ssize_t __real_HostReadFile_(int fd, void* buf, size_t count);
ssize_t __wrap_HostReadFile_(int fd, void* buf, size_t count) {
  return claim(__real_HostReadFile_(fd, buf, count), static_cast<int64>(count), lies.surplusRead);
}

BoolType __real_VerGetVersionParam(VerParamEType id, VerParamResultSType* result);
BoolType __wrap_VerGetVersionParam(VerParamEType id, VerParamResultSType* result) {
  if (lies.version == 0) return __real_VerGetVersionParam(id, result);
  result->kind = VER_STRING_KIND;
  std::memset(result->stringVal, lies.version, sizeof result->stringVal);
  return TRUE;
}

BoolType __real_HostExpandFileName(const char* in, char* out, size_t outSize, int noWildcards,
                                   int expandLast);
BoolType __wrap_HostExpandFileName(const char* in, char* out, size_t outSize, int noWildcards,
                                   int expandLast) {
  if (lies.expandedName == 0)
    return __real_HostExpandFileName(in, out, outSize, noWildcards, expandLast);
  std::memset(out, lies.expandedName, outSize);
  return TRUE;
}

BoolType __real_HostGetEnv(const char* name, char* out, size_t outSize);
BoolType __wrap_HostGetEnv(const char* name, char* out, size_t outSize) {
  if (lies.variable == 0) return __real_HostGetEnv(name, out, outSize);
  std::memset(out, lies.variable, outSize);
  return TRUE;
}

int __real_KciSupFetchKciSocketBufSize(const char* name, char* errBuf, size_t errBufSize);
int __wrap_KciSupFetchKciSocketBufSize(const char* name, char* errBuf, size_t errBufSize) {
  if (lies.socketText == 0) return __real_KciSupFetchKciSocketBufSize(name, errBuf, errBufSize);
  std::memset(errBuf, lies.socketText, errBufSize);
  return -1;
}

BoolType __real_KciSupSetKciSocketBufSize(const char* name, int size, char* errBuf,
                                          size_t errBufSize);
BoolType __wrap_KciSupSetKciSocketBufSize(const char* name, int size, char* errBuf,
                                          size_t errBufSize) {
  if (lies.socketText == 0) return __real_KciSupSetKciSocketBufSize(name, size, errBuf, errBufSize);
  std::memset(errBuf, lies.socketText, errBufSize);
  return FALSE;
}

int __real_UnixIoFgets_(char* buf, size_t size, FILE* stream);
int __wrap_UnixIoFgets_(char* buf, size_t size, FILE* stream) {
  if (lies.line == 0) return __real_UnixIoFgets_(buf, size, stream);
  std::memset(buf, lies.line, size);
  return 0;
}

int __real_HostLockFileQuery(FILE* f, int isWriteLock, long offset, long bytes,
                             struct flock64* info, char* errMsg, size_t errMsgSize);
int __wrap_HostLockFileQuery(FILE* f, int isWriteLock, long offset, long bytes,
                             struct flock64* info, char* errMsg, size_t errMsgSize) {
  if (!lies.describesLock)
    return __real_HostLockFileQuery(f, isWriteLock, offset, bytes, info, errMsg, errMsgSize);
  *info = lies.lock;
  return 1;
}

BoolType __real_KciErr(KciErrSType* err);
BoolType __wrap_KciErr(KciErrSType* err) {
  const BoolType pending = __real_KciErr(err);
  if (pending != 0 && lies.error != 0) {
    std::memset(err->message, lies.error, sizeof err->message);
    std::memset(err->reason, lies.error, sizeof err->reason);
  }
  return pending;
}

int __wrap_snprintf(char* buf, size_t size, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  if (std::strncmp(format, "Kestrova KCI error %d", 21) == 0) {
    va_list copy;
    va_copy(copy, arguments);
    va_arg(copy, int);
    const char* const message = va_arg(copy, const char*);
    if (std::memchr(message, 0, sizeof KciErrSType::message) == nullptr) ++endlessTextsPrinted;
    va_end(copy);
  }
  const int length = vsnprintf(buf, size, format, arguments);
  va_end(arguments);
  return length;
}
}
// NOLINTEND(bugprone-reserved-identifier)
