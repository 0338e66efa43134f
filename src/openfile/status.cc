// Questions about a file object and its last failure.
#include <kvfile/kvfile.h>
#include <kvfile/platform/kci.h>
#include <kvfile/platform/kcistring.h>

#include "framework/class_error.h"
#include "record/registry.h"

using namespace kvf;

/// Asks whether the file object has an open host file.
///
/// Arguments: oFile, a KvFile.
/// Answers: true or false; false for nil.
/// Raises: 4100, 2364.
/// Stores: nothing.
/// Host calls: KciGetSessionId, KciSupGetKvfileOopMap, KciOopMapEntryFind, KciOopMapEntryGetValue.
/// Blocks: never.
OopType KvfIsOpen(OopType oFile) { return oopFromBool(fetchKvFile(oFile, 0) != nullptr); }

/// Asks whether the file was opened as compressed and its data is really gzip data. A plain file
/// read through gzip is not; a closed file is answered as it was opened.
///
/// Arguments: oFile, a KvFile.
/// Answers: true or false; nil for nil and for an object that is not registered.
/// Raises: 4100.
/// Stores: nothing.
/// Host calls: as KvfIsOpen, and gzdirect, which may read the file's first bytes.
/// Blocks: as a read does.
OopType KvfIsCompressed(OopType oFile) {
  const KvFileDataSType* p = fetchKvFileIfKnown(oFile, 0);
  return p == nullptr ? OOP_NIL : oopFromBool(p->usingCompression());
}

/// Asks the descriptor of a plain open file.
///
/// Arguments: oFile, a KvFile.
/// Answers: a SmallInteger; -1 for nil, a compressed or closed file, or one that is not registered.
/// Raises: 4100.
/// Stores: nothing.
/// Host calls: as KvfIsOpen, and fileno, KciI32ToOop.
/// Blocks: never.
OopType KvfGetFileDesc(OopType oFile) {
  const KvFileDataSType* p = fetchKvFileIfKnown(oFile, 0);
  return KciI32ToOop(p == nullptr ? -1 : p->kvfFileDesc());
}

/// Takes the pending error text of a file object; for nil or an object that is not registered, that
/// of the class. Text and code are cleared; zlib's code of the file stays.
///
/// Arguments: oFile, a KvFile, open or closed, or nil.
/// Answers: a new String, or nil when no text is pending. A record keeps a text of its first
///   failure only: later failures change the code alone.
/// Raises: 4100.
/// Stores: code 0 and an empty text.
/// Host calls: as KvfIsOpen, and KciNewString or KciNewCharObj.
/// Blocks: never.
OopType KvfErrorString(OopType oFile) {
  KvFileDataSType* p = fetchKvFileIfKnown(oFile, 0);
  if (p == nullptr) {
    classErrorCode = 0;
    return takeClassErrorString();
  }
  p->errCode = 0;
  if (p->errString == nullptr || p->errString->msg[0] == '\0') return OOP_NIL;
  const OopType text = KciNewString(p->errString->msg);
  p->errString->msg[0] = '\0';
  return text;
}

/// Asks the pending error code of a file object; for nil or an object that is not registered, that
/// of the class. Nothing is cleared.
///
/// Arguments: oFile, a KvFile, open or closed, or nil.
/// Answers: a SmallInteger: an errno value or an interface error number, 0 for none. Errors of zlib
///   have no code here.
/// Raises: 4100.
/// Stores: nothing.
/// Host calls: as KvfIsOpen, and KciI32ToOop.
/// Blocks: never.
OopType KvfErrorCode(OopType oFile) {
  const KvFileDataSType* p = fetchKvFileIfKnown(oFile, 0);
  return KciI32ToOop(p == nullptr ? classErrorCode : p->errCode);
}
