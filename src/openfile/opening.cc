// Binding file objects to host files and releasing them.
#include <kvfile/kvfile.h>
#include <kvfile/platform/host.h>
#include <kvfile/platform/kci.h>
#include <kvfile/platform/kcistring.h>

#include "framework/arguments.h"
#include "framework/std_file_names.h"
#include "framework/texts.h"
#include "openfile/file_modes.h"
#include "record/error_routing.h"
#include "record/registry.h"

#include <cerrno>
#include <cstdio>

namespace kvf {

namespace {

constexpr size_t MODE_BUF_SIZE = 8;

// No program that the process starts inherits the file: "e" closes its descriptor on exec.
gzFile openGzFile(const char* path, const char* mode) {
  char zlibMode[MODE_BUF_SIZE + 1];
  snprintf(zlibMode, sizeof zlibMode, "%se", mode);
  const gzFile zf = gzopen(path, zlibMode);
  // zlib fills the gap that a seek leaves before the first write from the buffer that this call
  // makes it allocate. Without it the gap is filled from whatever memory the process had used.
  if (zf != nullptr && mode[0] != 'r') gzprintf(zf, "%s", "");
  return zf;
}

gzFile openCompressed(const KvfPath& aPath, const char* mode, HostErrSType* err) {
  HostFnameStrType expanded;
  expanded[0] = '\0';
  HostExpandFileName(aPath.path, expanded, sizeof expanded, 0, 1);
  expanded[sizeof expanded - 1] = '\0';
  errno = 0;
  const gzFile zf = openGzFile(expanded, mode);
  // zlib reports its own want of memory without an errno.
  if (zf == nullptr) err->theErrno = errno != 0 ? errno : ENOMEM;
  return zf;
}

// Opens the file; one of `*f` and `*zf` is set on success. FALSE with the class-level error posted.
BoolType openHostFile(const KvfPath& aPath, OopType oPath, const char* mode, BoolType isGz,
                      FILE** f, gzFile* zf) {
  HostErrSType err;
  err.initialize();
  if (aPath.isUtf16 && isGz) {
    storeErrorString(nullptr, TEXT_GZOPEN_UTF16);
    return FALSE;
  }
  if (isGz) {
    *zf = openCompressed(aPath, mode, &err);
  } else if (!aPath.isUtf16) {
    *f = HostOpenFile(aPath.path, mode, &err, 1);
  }
  if (*f != nullptr || *zf != nullptr) return TRUE;
  postError(nullptr, &err, &aPath, oPath);
  return FALSE;
}

}  // namespace

}  // namespace kvf

using namespace kvf;

/// Opens a host file and registers it under a file object. A file that the object has open is
/// closed first, but only once the new one is open. The path of a plain file is passed to the host
/// as it is; that of a compressed one is expanded first. No program that the process starts
/// inherits the file.
///
/// A compressed file whose descriptor failed in a read or write (a signal that was handled on a
/// FIFO, a full disk) has lost its place in the data: it fails from then on, until it is opened
/// again.
///
/// Arguments: oFile, a KvFile. oPath, a String of at most 4095 bytes. oMode, a String: one of those
///   that KvfAllValidFileModes lists. oIsCompressed, true for gzip; anything else means plain.
/// Answers: SmallInteger 1 when a record was made, 2 when the object's record was reused. nil when
///   the open failed; nil also for a nil oFile, whose host file then stays open unregistered.
/// Raises: 2718 for an empty or UTF-16 path, 2061 for a longer path or mode, 2094 for a mode that
///   is no byte object; 4100 without a session or map; 2208 without memory for the record, where
///   the file is closed again.
/// Stores: at class level {TEXT_OPEN_STD_FILE} for "stdin", "stdout" and "stderr" and
///   {TEXT_INVALID_MODE} for a mode, both beside the code that was there; the host's text and the
///   path, with the host's code, where the host refuses.
/// Host calls: the path fetch, the string fetch; HostOpenFile, or HostExpandFileName and gzopen,
///   and gzprintf of an empty text to a file for writing; HostGetErrMsg after a failure; the
///   registration.
/// Blocks: as opening does, on a FIFO for instance.
OopType KvfOpen(OopType oFile, OopType oPath, OopType oMode, OopType oIsCompressed) {
  KvfPath aPath;
  if (!fetchPath(oPath, &aPath)) return OOP_NIL;
  if (isStdFile(&aPath)) {
    storeErrorString(nullptr, TEXT_OPEN_STD_FILE);
    return OOP_NIL;
  }
  char mode[MODE_BUF_SIZE];
  if (!fetchString(oMode, sizeof mode, mode)) return OOP_NIL;
  const BoolType isGz = oIsCompressed == OOP_TRUE;
  if (!validateMode(mode, isGz)) {
    storeErrorString(nullptr, TEXT_INVALID_MODE);
    return OOP_NIL;
  }
  FILE* f = nullptr;
  gzFile zf = nullptr;
  if (!openHostFile(aPath, oPath, mode, isGz, &f, &zf)) return OOP_NIL;
  return newKvFile(oFile, f, zf, FALSE, mode);
}

/// Lists the mode strings that files can be opened with.
///
/// Arguments: onClientNotUsed, ignored. withCompression, false for plain files, true for
///   compressed.
/// Answers: a new Array of new Strings, 15 or 14; nil when withCompression is no Boolean.
/// Raises: nothing.
/// Stores: nothing.
/// Host calls: KciNewString per mode, KciNewOop, KciAppendOops.
/// Blocks: never.
OopType KvfAllValidFileModes(OopType /*onClientNotUsed*/, OopType withCompression) {
  if (withCompression != OOP_TRUE && withCompression != OOP_FALSE) return OOP_NIL;
  const bool gz = withCompression == OOP_TRUE;
  const char* const* modes = gz ? validGzModes : validModes;
  const int count = gz ? NUM_GZ_MODES : NUM_MODES;
  OopType strings[NUM_MODES];
  for (int i = 0; i < count; ++i) strings[i] = KciNewString(modes[i]);
  const OopType array = KciNewOop(OOP_CLASS_ARRAY);
  KciAppendOops(array, count, strings);
  return array;
}

/// Binds a file object to a standard file of the process.
///
/// Arguments: oFile, a KvFile. oStdFileId, SmallInteger 0 for standard input (mode "r"), 1 for
///   standard output, 2 for standard error (both mode "a": seeks are refused).
/// Answers: SmallInteger 1 or 2 as KvfOpen; nil for another id or a nil oFile.
/// Raises: 4100 without a session or map; 2208 without memory for the record.
/// Stores: nothing.
/// Host calls: KciOopToI32_; the registration.
/// Blocks: never, but for closing a file that the object had open.
OopType KvfCreateStdFile(OopType oFile, OopType oStdFileId) {
  if (!oopIsSmallInteger(oStdFileId)) return OOP_NIL;
  int conversionFailed = 0;
  const int id = KciOopToI32_(oStdFileId, &conversionFailed);
  if (conversionFailed != 0) return OOP_NIL;
  switch (id) {
    case 0:
      return newKvFile(oFile, stdin, nullptr, TRUE, "r");
    case 1:
      return newKvFile(oFile, stdout, nullptr, TRUE, "a");
    case 2:
      return newKvFile(oFile, stderr, nullptr, TRUE, "a");
    default:
      return OOP_NIL;
  }
}

/// Closes the host file. The file object keeps its record: it can be asked for its error, or opened
/// again. Standard files are left open; standard output that ends within a line gets a newline.
///
/// Arguments: oFile, a KvFile.
/// Answers: oFile, also when it is nil or closed already, and always for a compressed file. nil
///   when closing failed, and nil when the newline of standard output was written.
/// Raises: 4100, 2364.
/// Stores: a failed fclose in the record, code and text; a failed gzclose is seen nowhere.
/// Host calls: the look-up, the closing.
/// Blocks: as closing does.
OopType KvfClose(OopType oFile) {
  KvFileDataSType* p = fetchKvFile(oFile, 0);
  if (p == nullptr) return oFile;
  p->clearReadBuf();
  p->clearErrorCode();
  return p->kvfClose() == 0 ? oFile : OOP_NIL;
}
