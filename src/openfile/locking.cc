// Record locks. Unlike most actions these answer mistakes in their arguments as Strings.
#include "openfile/locking.h"

#include <kvfile/kvfile.h>
#include <kvfile/platform/host.h>
#include <kvfile/platform/kci.h>
#include <kvfile/platform/kcistring.h>
#include <kvfile/platform/syserror.h>
#include <kvfile/platform/unixio.h>

#include "framework/arguments.h"
#include "framework/texts.h"
#include "framework/wrapping.h"
#include "record/registry.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>

namespace kvf {

namespace {

constexpr size_t QUERY_TEXT_SIZE = 256;

// A range to lock, and how; what an action does not take stays 0.
struct LockRequest {
  KvFileDataSType* record;
  int isWriteLock;
  int64 offset;
  int64 bytes;
};

// The open file that may be locked, through `*record`. The text of the problem, or null.
const char* fetchLockable(OopType oFile, const char* stdFileText, KvFileDataSType** record) {
  *record = fetchKvFile(oFile, 0);
  if (*record == nullptr) return TEXT_NOT_OPEN;
  return (*record)->isStdFile ? stdFileText : nullptr;
}

// FALSE after raising; `*isWriteLock` is 0, 1, or -1 for a kind that is none.
BoolType fetchLockKind(OopType oKind, int* isWriteLock) {
  char kind[16];
  if (!fetchString(oKind, sizeof kind, kind)) return FALSE;
  *isWriteLock = strcmp(kind, "readLock") == 0 ? 0 : strcmp(kind, "writeLock") == 0 ? 1 : -1;
  return TRUE;
}

const char* fetchNatural(OopType oop, const char* classText, const char* rangeText, int64* value) {
  if (!oopIsSmallInteger(oop)) return classText;
  *value = oopSmallIntegerValue(oop);
  return *value < 0 ? rangeText : nullptr;
}

const char* fetchRange(OopType oOffset, OopType oBytes, LockRequest* request) {
  const char* problem =
      fetchNatural(oOffset, TEXT_OFFSET_CLASS, TEXT_OFFSET_RANGE, &request->offset);
  if (problem != nullptr) return problem;
  return fetchNatural(oBytes, TEXT_BYTES_CLASS, TEXT_BYTES_RANGE, &request->bytes);
}

// One test for a negative time-out and for one that is too long, and so one text.
const char* fetchMillisecs(OopType oMillisecs, int* millisecs) {
  if (!oopIsSmallInteger(oMillisecs)) return TEXT_MILLISECS_CLASS;
  const int64 value = oopSmallIntegerValue(oMillisecs);
  if (static_cast<uint64_t>(value) > INT_MAX) return TEXT_MILLISECS_RANGE;
  *millisecs = static_cast<int>(value);
  return nullptr;
}

OopType answerOutcome(int status, SysErrorSType* err) {
  if (status == 1) return OOP_TRUE;
  if (status == 0) return OOP_FALSE;
  err->errMsg[sizeof err->errMsg - 1] = '\0';
  return KciNewString(err->errMsg);
}

OopType answerFreeRange(OopType array) {
  const OopType none = KciI32ToOop(-1);
  const OopType rest[] = {OOP_NIL, none, none, none};
  KciStoreOop(array, 1, OOP_TRUE);
  KciStoreOops(array, 2, rest, 4);
  return array;
}

OopType answerConflict(OopType array, const KvFileDataSType* p, const struct flock64& info,
                       char* errMsg) {
  KciStoreOop(array, 1, OOP_FALSE);
  KciStoreOop(array, 2, KciNewSymbol(info.l_type == 1 ? "writeLock" : "readLock"));
  const int fd = p->fPtr == nullptr ? -1 : fileno(p->fPtr);
  const int64 start = computeFilePosition(fd, &info, errMsg, QUERY_TEXT_SIZE);
  if (start == -1) return KciNewString(errMsg);
  KciStoreOop(array, 3, KciI64ToOop(start));
  KciStoreOop(array, 4, KciI64ToOop(info.l_len));
  KciStoreOop(array, 5, KciI64ToOop(info.l_pid));
  return array;
}

OopType queryLock(const LockRequest& request) {
  constexpr short UNLOCKED = 2;
  char errMsg[QUERY_TEXT_SIZE];
  errMsg[0] = '\0';
  struct flock64 info;
  memset(&info, 0, sizeof info);
  const int status = HostLockFileQuery(request.record->fPtr, request.isWriteLock, request.offset,
                                       request.bytes, &info, errMsg, sizeof errMsg);
  errMsg[sizeof errMsg - 1] = '\0';
  if (status != 1) return KciNewString(errMsg);
  const OopType array = KciNewOop(OOP_CLASS_ARRAY);
  if (info.l_type == UNLOCKED) return answerFreeRange(array);
  return answerConflict(array, request.record, info, errMsg);
}

}  // namespace

int64 computeFilePosition(int fd, const struct flock64* info, char* errMsg, size_t errMsgSize) {
  switch (info->l_whence) {
    case SEEK_SET:
      return info->l_start;
    case SEEK_CUR: {
      errno = 0;
      // From the start, although the position would be the one asked for: callers know that a query
      // rewinds the descriptor here.
      const int64 position = lseek(fd, 0, SEEK_SET);
      if (position == -1) {
        snprintf(errMsg, errMsgSize, TEXT_LSEEK_FAILED, fd, errno);
        return -1;
      }
      return wrappingAdd(position, info->l_start);
    }
    case SEEK_END: {
      errno = 0;
      struct stat64 st;
      memset(&st, 0, sizeof st);
      const BoolType known = UnixIoFstat(fd, &st, errMsg, errMsgSize);
      if (errMsgSize > 0) errMsg[errMsgSize - 1] = '\0';
      return known ? wrappingAdd(st.st_size, info->l_start) : -1;
    }
    default:
      snprintf(errMsg, errMsgSize, TEXT_INVALID_WHENCE, info->l_whence);
      return -1;
  }
}

}  // namespace kvf

using namespace kvf;

/// Locks a byte range of an open plain file against other processes. The lock is advisory, belongs
/// to the process, and is lost when the process closes any descriptor of that file.
///
/// Arguments: oFile, an open file. oKind, the String or Symbol readLock or writeLock. oOffset, a
///   SmallInteger of 0 or more, bytes from the start. oBytes, a SmallInteger of 0 or more; 0 means
///   the rest of the file, however far it grows. oMillisecs, a SmallInteger 0 to 2147483647: how
///   long to wait for it.
/// Answers: true when locked, false when others kept it locked all that time, nil when the kind
///   could not be fetched. A String for a problem, checked in this order: {TEXT_NOT_OPEN},
///   {TEXT_LOCK_STD_FILE}, {TEXT_LOCK_KIND}, {TEXT_OFFSET_CLASS}, {TEXT_OFFSET_RANGE},
///   {TEXT_BYTES_CLASS}, {TEXT_BYTES_RANGE}, {TEXT_MILLISECS_CLASS}, {TEXT_MILLISECS_RANGE}; or the
///   host's text.
/// Raises: 4100, 2364; 2094 and 2061 for oKind.
/// Stores: nothing.
/// Host calls: the look-up, the string fetch, HostLockFile; KciNewString for a problem.
/// Blocks: for at most oMillisecs.
OopType KvfLock(OopType oFile, OopType oKind, OopType oOffset, OopType oBytes, OopType oMillisecs) {
  LockRequest request = {nullptr, 0, 0, 0};
  const char* problem = fetchLockable(oFile, TEXT_LOCK_STD_FILE, &request.record);
  if (problem != nullptr) return KciNewString(problem);
  if (!fetchLockKind(oKind, &request.isWriteLock)) return OOP_NIL;
  if (request.isWriteLock < 0) return KciNewString(TEXT_LOCK_KIND);
  problem = fetchRange(oOffset, oBytes, &request);
  int millisecs = 0;
  if (problem == nullptr) problem = fetchMillisecs(oMillisecs, &millisecs);
  if (problem != nullptr) return KciNewString(problem);
  SysErrorSType err;
  err.initialize();
  const int status = HostLockFile(request.record->fPtr, request.isWriteLock, request.offset,
                                  request.bytes, millisecs, &err);
  return answerOutcome(status, &err);
}

/// Unlocks a byte range of an open plain file.
///
/// Arguments: oFile, oOffset and oBytes as KvfLock.
/// Answers: true, or false when the host did not unlock. A String for a problem, in this order:
///   {TEXT_NOT_OPEN}, {TEXT_UNLOCK_STD_FILE}, {TEXT_OFFSET_CLASS}, {TEXT_OFFSET_RANGE},
///   {TEXT_BYTES_CLASS}, {TEXT_BYTES_RANGE}; or the host's text.
/// Raises: 4100, 2364.
/// Stores: nothing.
/// Host calls: the look-up, HostUnlockFile; KciNewString for a problem.
/// Blocks: never.
OopType KvfUnlock(OopType oFile, OopType oOffset, OopType oBytes) {
  LockRequest request = {nullptr, 0, 0, 0};
  const char* problem = fetchLockable(oFile, TEXT_UNLOCK_STD_FILE, &request.record);
  if (problem == nullptr) problem = fetchRange(oOffset, oBytes, &request);
  if (problem != nullptr) return KciNewString(problem);
  SysErrorSType err;
  err.initialize();
  const int status = HostUnlockFile(request.record->fPtr, request.offset, request.bytes, &err);
  return answerOutcome(status, &err);
}

/// Asks which lock of another process would refuse this one.
///
/// Arguments: oFile, oKind, oOffset and oBytes as KvfLock.
/// Answers: an Array of five: true, nil, -1, -1, -1 when the range is free; else false, the Symbol
///   readLock or writeLock, the lock's absolute start in bytes, its length in bytes (0: to the end
///   of the file), and the process id of its holder. nil when the kind could not be fetched. A
///   String for a problem, in the order of KvfLock, without the time-out; or the host's text.
/// Raises: 4100, 2364; 2094 and 2061 for oKind.
/// Stores: nothing.
/// Host calls: the look-up, the string fetch, HostLockFileQuery, KciNewOop, KciStoreOop; for a free
///   range KciI32ToOop and KciStoreOops; for a conflict KciNewSymbol, fileno and KciI64ToOop, and
///   where the host tells its start relative to the position lseek, relative to the end
///   UnixIoFstat; KciNewString for a problem.
/// Blocks: never.
OopType KvfLockQuery(OopType oFile, OopType oKind, OopType oOffset, OopType oBytes) {
  LockRequest request = {nullptr, 0, 0, 0};
  const char* problem = fetchLockable(oFile, TEXT_LOCK_STD_FILE, &request.record);
  if (problem != nullptr) return KciNewString(problem);
  if (!fetchLockKind(oKind, &request.isWriteLock)) return OOP_NIL;
  if (request.isWriteLock < 0) return KciNewString(TEXT_LOCK_KIND);
  problem = fetchRange(oOffset, oBytes, &request);
  if (problem != nullptr) return KciNewString(problem);
  return queryLock(request);
}
