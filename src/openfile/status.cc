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
/// Host calls: the look-up.
/// Blocks: never.
OopType KvfIsOpen(OopType oFile) { return oopFromBool(fetchKvFile(oFile, 0) != nullptr); }

/// Asks whether the file was opened as compressed and its data is really gzip data. A plain file
/// read through gzip is not; a closed file is answered as it was opened.
///
/// Arguments: oFile, a KvFile.
/// Answers: true or false; nil for nil and for an object that is not registered.
/// Raises: 4100.
/// Stores: nothing.
/// Host calls: the look-up; gzdirect for a compressed file that is open, which may read its first
///   bytes.
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
/// Host calls: the look-up; fileno for a plain file that is open; KciI32ToOop.
/// Blocks: never.
OopType KvfGetFileDesc(OopType oFile) {
  const KvFileDataSType* p = fetchKvFileIfKnown(oFile, 0);
  return KciI32ToOop(p == nullptr ? -1 : p->kvfFileDesc());
}

/// Takes the pending error text of a file object; for nil or an object that is not registered, that
/// of the class. Text and code are cleared; zlib's code of the file stays.
///
/// A file object gets one text in its life: that of its first failure, and reading past the end of
/// the file counts as one. Whatever fails later, this answers nil, also after the file was opened
/// again: then KvfErrorCode tells of an error of the system, and of one of zlib, or of the end of
/// the file, only the answer of the action that failed. Where the text matters, use a new KvFile
/// for each file. The class has no such limit.
///
/// Arguments: oFile, a KvFile, open or closed, or nil.
/// Answers: a new String, or nil when no text is pending.
/// Raises: 4100.
/// Stores: code 0 and an empty text.
/// Host calls: the look-up; KciNewString for the text of a file object, KciNewCharObj for that of
///   the class.
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
/// The code is set at every failure of the system, where the text of KvfErrorString is set only at
/// the first of the file object: after that the code alone tells what went wrong. Most operations
/// clear it before they begin.
///
/// Arguments: oFile, a KvFile, open or closed, or nil.
/// Answers: a SmallInteger: an errno value or an interface error number, 0 for none. Errors of
///   zlib, damaged data for instance, and the end of the file have no code here. Standard input
///   that is a pipe or terminal has 29 (ESPIPE) after every read that asked the host, successful or
///   not, since its position was asked.
/// Raises: 4100.
/// Stores: nothing.
/// Host calls: the look-up, KciI32ToOop.
/// Blocks: never.
OopType KvfErrorCode(OopType oFile) {
  const KvFileDataSType* p = fetchKvFileIfKnown(oFile, 0);
  return KciI32ToOop(p == nullptr ? classErrorCode : p->errCode);
}
