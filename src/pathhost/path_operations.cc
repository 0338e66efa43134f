// Actions on a path that need no open file. Failures of the host go to the class-level error.
#include <kvfile/kvfile.h>
#include <kvfile/platform/host.h>
#include <kvfile/platform/kci.h>
#include <kvfile/platform/utl.h>

#include "framework/arguments.h"
#include "framework/std_file_names.h"
#include "framework/texts.h"
#include "record/error_routing.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace kvf {

namespace {

// Expands the name into `expanded`, which stays empty where the host cannot.
void expandPath(const KvfPath& aPath, HostFnameStrType expanded) {
  expanded[0] = '\0';
  HostExpandFileName(aPath.path, expanded, HOST_FNAME_MAX_SIZE, 0, 1);
  expanded[HOST_FNAME_MAX_SIZE - 1] = '\0';
}

// The receiver, or nil with the host's error posted.
OopType answerDone(BoolType done, OopType oClass, const HostErrSType& err, const KvfPath& aPath,
                   OopType oPath) {
  if (done) return oClass;
  postError(nullptr, &err, &aPath, oPath);
  return OOP_NIL;
}

OopType refuseStdFile(const char* text) {
  storeErrorString(nullptr, text);
  return OOP_NIL;
}

// The kind of the expanded path; HOST_FILE_KIND_ERROR with the host's error posted.
HostFileKindEType fetchKind(const KvfPath& aPath, OopType oPath) {
  HostErrSType err;
  err.initialize();
  HostFileKindEType kind = HOST_FILE_KIND_ERROR;
  if (!aPath.isUtf16) {
    HostFnameStrType expanded;
    expandPath(aPath, expanded);
    kind = HostFileType(expanded, &err);
  }
  if (kind == HOST_FILE_KIND_ERROR) postError(nullptr, &err, &aPath, oPath);
  return kind;
}

// Standard error is answered as a file also on a terminal: nobody prompts on it.
int stdFileKind(const char* name) {
  const bool onTerminal = (strcmp(name, "stdin") == 0 && isatty(fileno(stdin))) ||
                          (strcmp(name, "stdout") == 0 && isatty(fileno(stdout)));
  return onTerminal ? HOST_FILE_KIND_STD_TERMINAL : HOST_FILE_KIND_STDFILE;
}

// The host's modification time of the path. FALSE with its text stored.
BoolType fetchModTime(const KvfPath& aPath, int64* time) {
  SysErrorSType sysError;
  sysError.initialize();
  BoolType known = FALSE;
  if (!aPath.isUtf16) {
    HostFnameStrType expanded;
    expandPath(aPath, expanded);
    known = UtlGetFileModTime(expanded, time, &sysError);
  }
  if (known) return TRUE;
  sysError.finishMsg();
  sysError.errMsg[sizeof sysError.errMsg - 1] = '\0';
  storeErrorString(nullptr, sysError.errMsg);
  return FALSE;
}

}  // namespace

}  // namespace kvf

using namespace kvf;

/// Removes one file. The path is not expanded.
///
/// Arguments: oClass, the receiver. oPath, a String of at most 4095 bytes.
/// Answers: oClass, or nil on failure.
/// Raises: 2718 for an empty or UTF-16 path, 2061 for a longer one.
/// Stores: at class level {TEXT_REMOVE_STD_FILE} for the name of a standard file, beside the code
///   that was there; the host's code, and its text with the path.
/// Host calls: the path fetch, HostRemoveSingleFile; HostGetErrMsg after a failure.
/// Blocks: as the file system does.
OopType KvfUnlink(OopType oClass, OopType oPath) {
  KvfPath aPath;
  if (!fetchPath(oPath, &aPath)) return OOP_NIL;
  if (isStdFile(&aPath)) return refuseStdFile(TEXT_REMOVE_STD_FILE);
  HostErrSType err;
  err.initialize();
  const BoolType done = aPath.isUtf16 ? FALSE : HostRemoveSingleFile(aPath.path, 1, &err);
  return answerDone(done, oClass, err, aPath, oPath);
}

/// Removes an empty directory. The path is not expanded.
///
/// Arguments: oClass, the receiver. oPath, a String of at most 4095 bytes.
/// Answers: oClass, or nil on failure.
/// Raises: 2718 for an empty or UTF-16 path, 2061 for a longer one.
/// Stores: at class level the host's code, and its text with the path.
/// Host calls: the path fetch, HostRemoveDirectory; HostGetErrMsg after a failure.
/// Blocks: as the file system does.
OopType KvfRmdir(OopType oClass, OopType oPath) {
  KvfPath aPath;
  if (!fetchPath(oPath, &aPath)) return OOP_NIL;
  HostErrSType err;
  err.initialize();
  const BoolType done = aPath.isUtf16 ? FALSE : HostRemoveDirectory(aPath.path, &err);
  return answerDone(done, oClass, err, aPath, oPath);
}

/// Creates a directory. The path is not expanded.
///
/// Arguments: oClass, the receiver. oPath, a String of at most 4095 bytes. oMode, the permission
///   bits as an integer of 32 bits, or nil for the host's default.
/// Answers: oClass, or nil on failure.
/// Raises: 2718 for an empty or UTF-16 path, 2061 for a longer one.
/// Stores: at class level code 22 and {TEXT_MKDIR_MODE} for another mode; the host's code, and its
///   text with the path.
/// Host calls: the path fetch, KciOopToI32_ for a mode, HostCreateDirectory; HostGetErrMsg after a
///   failure.
/// Blocks: as the file system does.
OopType KvfMkdir(OopType oClass, OopType oPath, OopType oMode) {
  KvfPath aPath;
  if (!fetchPath(oPath, &aPath)) return OOP_NIL;
  int mode = -1;
  if (oMode != OOP_NIL) {
    int conversionFailed = 0;
    mode = KciOopToI32_(oMode, &conversionFailed);
    if (conversionFailed != 0) {
      storeError(nullptr, EINVAL, TEXT_MKDIR_MODE);
      return OOP_NIL;
    }
  }
  HostErrSType err;
  err.initialize();
  const BoolType done = aPath.isUtf16 ? FALSE : HostCreateDirectory(aPath.path, &err, mode);
  return answerDone(done, oClass, err, aPath, oPath);
}

/// Asks whether a path, once expanded, is a directory.
///
/// Arguments: oClass, the receiver. oPath, a String of at most 4095 bytes.
/// Answers: true; false for anything else that exists, a symbolic link included; nil on failure, a
///   missing file included.
/// Raises: 2718 for an empty or UTF-16 path, 2061 for a longer one.
/// Stores: at class level the host's code, and its text with the path before expansion.
/// Host calls: the path fetch, HostExpandFileName, HostFileType; HostGetErrMsg after a failure.
/// Blocks: as the file system does.
OopType KvfIsDir(OopType /*oClass*/, OopType oPath) {
  KvfPath aPath;
  if (!fetchPath(oPath, &aPath)) return OOP_NIL;
  const HostFileKindEType kind = fetchKind(aPath, oPath);
  return kind == HOST_FILE_KIND_ERROR ? OOP_NIL : oopFromBool(kind == HOST_FILE_KIND_DIR);
}

/// Asks the kind of a path, once expanded.
///
/// Arguments: oClass, the receiver. oPath, a String of at most 4095 bytes.
/// Answers: SmallInteger: 0 file, 1 directory, 2 character device, 3 block device, 4 symbolic link,
///   5 other, 7 FIFO; 8 for "stdin", "stdout" and "stderr", or 9 where the first two are a
///   terminal. nil on failure, a missing file included.
/// Raises: 2718 for an empty or UTF-16 path, 2061 for a longer one.
/// Stores: at class level the host's code, and its text with the path before expansion.
/// Host calls: the path fetch; for "stdin" and "stdout" fileno and isatty; for names of no standard
///   file HostExpandFileName and HostFileType, and HostGetErrMsg after a failure; KciI32ToOop.
/// Blocks: as the file system does.
OopType KvfFileKind(OopType /*oClass*/, OopType oPath) {
  KvfPath aPath;
  if (!fetchPath(oPath, &aPath)) return OOP_NIL;
  if (isStdFile(&aPath)) return KciI32ToOop(stdFileKind(aPath.path));
  const HostFileKindEType kind = fetchKind(aPath, oPath);
  return kind == HOST_FILE_KIND_ERROR ? OOP_NIL : KciI32ToOop(kind);
}

/// Asks the size of a file. The path is not expanded.
///
/// Arguments: oClass, the receiver. oPath, a String of at most 4095 bytes, or nil.
/// Answers: an Integer, bytes; SmallInteger -1 for a file that does not exist; nil for nil and on
///   failure.
/// Raises: 2718 for an empty or UTF-16 path, 2061 for a longer one.
/// Stores: at class level {TEXT_SIZE_STD_FILE} for the name of a standard file, beside the code
///   that was there; the host's code, and its text with the path, where the file exists and the
///   host gives a code.
/// Host calls: the path fetch, HostFileExistSize; KciI64ToOop, or KciI32ToOop for a file that does
///   not exist; HostGetErrMsg after a failure.
/// Blocks: as the file system does.
OopType KvfSize(OopType /*oClass*/, OopType oPath) {
  if (oPath == OOP_NIL) return OOP_NIL;
  KvfPath aPath;
  if (!fetchPath(oPath, &aPath)) return OOP_NIL;
  if (isStdFile(&aPath)) return refuseStdFile(TEXT_SIZE_STD_FILE);
  if (aPath.isUtf16) return KciI32ToOop(-1);
  int64 size = 0;
  int exists = 0;
  HostErrSType err;
  err.initialize();
  if (HostFileExistSize(aPath.path, &size, &exists, &err, nullptr, 0)) return KciI64ToOop(size);
  if (!exists) return KciI32ToOop(-1);
  if (err.theErrno != 0) postError(nullptr, &err, &aPath, oPath);
  return OOP_NIL;
}

/// Asks when the file at a path, once expanded, was last modified.
///
/// Arguments: oClass, the receiver. oPath, a String of at most 4095 bytes.
/// Answers: a new DateTime, or nil on failure.
/// Raises: 2718 for an empty or UTF-16 path, 2061 for a longer one.
/// Stores: at class level {TEXT_TIME_STD_FILE} for the name of a standard file, and the host's
///   text, each beside the code that was there; an interface error as {TEXT_KCI_ERROR} with its
///   number.
/// Host calls: the path fetch, HostExpandFileName, UtlGetFileModTime, KciCTimeToDateTime, KciErr,
///   KciNewDateTime, KciErr; SysErrorFinishMsg after a failure.
/// Blocks: as the file system does.
OopType KvfModTime(OopType /*oClass*/, OopType oPath) {
  KvfPath aPath;
  if (!fetchPath(oPath, &aPath)) return OOP_NIL;
  if (isStdFile(&aPath)) return refuseStdFile(TEXT_TIME_STD_FILE);
  int64 time = 0;
  if (!fetchModTime(aPath, &time)) return OOP_NIL;
  KciDateTimeSType fields = {0, 0, 0, OOP_NIL};
  KciCTimeToDateTime(time, &fields);
  if (postPendingKciErr(nullptr)) return OOP_NIL;
  const OopType dateTime = KciNewDateTime(OOP_CLASS_DATE_TIME, &fields);
  return postPendingKciErr(nullptr) ? OOP_NIL : dateTime;
}

/// Renames a file or directory. The paths are not expanded.
///
/// Arguments: oClass, the receiver. oOldFile and oNewFile, Strings of at most 4095 bytes.
/// Answers: SmallInteger 0, or the errno value of the failure. nil where a path could not be
///   fetched.
/// Raises: 2718 for an empty or UTF-16 path, 2061 for a longer one.
/// Stores: nothing.
/// Host calls: the path fetch, of both paths; rename, KciI32ToOop.
/// Blocks: as the file system does.
OopType KvfRename(OopType /*oClass*/, OopType oOldFile, OopType oNewFile) {
  KvfPath oldPath;
  KvfPath newPath;
  if (!fetchPath(oOldFile, &oldPath) || !fetchPath(oNewFile, &newPath)) return OOP_NIL;
  return KciI32ToOop(rename(oldPath.path, newPath.path) == 0 ? 0 : errno);
}
