// The session's map of records, and the actions on all of its files.
//
// The module keeps no map of its own: the interface holds one for each session in a slot, and every
// look-up goes by the session that asks. A record is made when its object is first opened; it stays
// when the file is closed, so that the object can be asked for its error or opened again, and is
// used again then, its text buffer included. It goes together with its entry, in one step: when the
// object has died, or the session ends. The slot is emptied before the map is taken apart, so that
// no look-up can find half of it.
#include "record/registry.h"

#include <kvfile/kvfile.h>
#include <kvfile/platform/kci.h>

#include "framework/assertions.h"
#include "framework/raise.h"

#include <algorithm>

namespace kvf {

KciOopMapType* raiseNoSession(int sessionId) {
  raiseErrorI(KVF_ERR_NO_SESSION, sessionId);
  return nullptr;
}

KvFileDataSType* raiseFileNotRegistered(OopType oFile) {
  raiseError(KVF_ERR_FILE_NOT_REGISTERED, oFile);
  return nullptr;
}

static KvFileDataSType* recordOf(KciOopMapEntryType* entry) {
  return static_cast<KvFileDataSType*>(KciOopMapEntryGetValue(entry));
}

static void closeRecord(KvFileDataSType* record) {
  record->clearErrorCode();
  record->kvfClose();
}

// Adds a new record. FALSE, with nothing added, for want of memory.
static BoolType addRecord(KciOopMapType* map, OopType oFile, FILE* f, gzFile zf, BoolType isStd,
                          const char* mode) {
  KvFileDataSType* record = KvFileDataSType::allocate();
  if (record == nullptr) return FALSE;
  record->initialize(f, zf, TRUE, oFile, isStd, mode);
  int status = 0;
  KciOopMapEntryAdd(map, oFile, record, &status);
  if (status == 0) return TRUE;
  KvFileDataSType::deallocate(record);
  return FALSE;
}

// Nobody could close the file later: it has no record.
static void closeUnregistered(FILE* f, gzFile zf, BoolType isStd) {
  if (zf != nullptr) gzclose(zf);
  if (f != nullptr && !isStd) fclose(f);
}

OopType newKvFile(OopType oFile, FILE* f, gzFile zf, BoolType isStd, const char* mode) {
  KVF_ASSERT((f == nullptr) != (zf == nullptr));
  if (oFile == OOP_NIL) return OOP_NIL;
  KciOopMapType* map = sessionMap(KciGetSessionId());
  if (map == nullptr) return OOP_NIL;
  KciOopMapEntryType* entry = KciOopMapEntryFind(map, oFile);
  if (entry != nullptr) {
    KvFileDataSType* known = recordOf(entry);
    closeRecord(known);
    known->reinitialize(f, zf, TRUE, oFile, isStd, mode);
    return oopFromSmallInteger(2);
  }
  if (addRecord(map, oFile, f, zf, isStd, mode)) return oopFromSmallInteger(1);
  closeUnregistered(f, zf, isStd);
  raiseError(KVF_ERR_NO_MEMORY);
  return OOP_NIL;
}

BoolType doFinalize(OopType oFile) {
  KciOopMapEntryType* entry = nullptr;
  KvFileDataSType* record = fetchKvFileAndEntry(oFile, &entry, FALSE, 0);
  if (record == nullptr) return TRUE;
  closeRecord(record);
  KvFileDataSType::deallocate(record);
  KciOopMapEntryDelete(entry);
  return FALSE;
}

static BoolType shutdownCallback(KciOopMapEntryType* entry, int64* /*arg1*/, int64* /*arg2*/) {
  KvFileDataSType* record = recordOf(entry);
  if (record != nullptr) {
    closeRecord(record);
    KvFileDataSType::deallocate(record);
  }
  KciOopMapEntryDelete(entry);
  return TRUE;
}

static BoolType closeCallback(KciOopMapEntryType* entry, int64* /*arg1*/, int64* /*arg2*/) {
  closeRecord(recordOf(entry));
  return TRUE;
}

static BoolType finalizeCallback(KciOopMapEntryType* /*entry*/, int64* count, int64* /*arg2*/) {
  ++*count;
  return TRUE;
}

// Walks the map of the current session, if it has one. FALSE after raising without a session.
static BoolType walkCurrentSession(KciOopMapCallbackType callback, int64* arg1) {
  const int sessionId = KciGetSessionId();
  if (sessionId == 0) {
    raiseErrorI(KVF_ERR_NO_SESSION, sessionId);
    return FALSE;
  }
  KciOopMapType* map = KciSupGetKvfileOopMap(sessionId);
  int64 arg2 = 0;
  if (map != nullptr) KciOopMapForeach(map, callback, arg1, &arg2);
  return TRUE;
}

// True when one of the objects could not be finalised.
static bool finalizeBatch(const OopType* ids, int count) {
  bool failed = false;
  for (int i = 0; i < count; ++i) {
    int conversionFailed = 0;
    const int64 objId = KciOopToI64_(ids[i], &conversionFailed);
    if (conversionFailed != 0 || doFinalize(static_cast<OopType>(objId))) failed = true;
  }
  return failed;
}

}  // namespace kvf

using namespace kvf;

void KvfStartup(int sessionId) {
  if (sessionId == 0) return;
  KvfShutdown(sessionId);
  KciSupStoreKvfileOopMap(sessionId, KciOopMapCreate());
}

void KvfShutdown(int sessionId) {
  if (sessionId == 0) return;
  KciOopMapType* map = KciSupGetKvfileOopMap(sessionId);
  if (map == nullptr) return;
  // Out of the slot first, so that nothing finds the map while it is taken apart.
  KciSupStoreKvfileOopMap(sessionId, nullptr);
  int64 arg1 = 0;
  int64 arg2 = 0;
  KciOopMapForeach(map, shutdownCallback, &arg1, &arg2);
  KciOopMapDestroy(map);
}

/// Closes every file of the current session. The file objects stay registered: they can be opened
/// again, or asked for their error.
///
/// Arguments: oClass, the receiver.
/// Answers: oClass.
/// Raises: 4100 without a session.
/// Stores: a failed close in the record of its file.
/// Host calls: KciGetSessionId, KciSupGetKvfileOopMap, KciOopMapForeach; per file
///   KciOopMapEntryGetValue and the closing.
/// Blocks: as closing does.
OopType KvfCloseAll(OopType oClass) {
  int64 unused = 0;
  return walkCurrentSession(closeCallback, &unused) ? oClass : OOP_NIL;
}

/// Counts the files registered in the current session, open or closed. Nothing is closed or freed.
///
/// Arguments: oClass, the receiver.
/// Answers: a SmallInteger; 0 for a session without a map.
/// Raises: 4100 without a session.
/// Stores: nothing.
/// Host calls: KciGetSessionId, KciSupGetKvfileOopMap, KciOopMapForeach, KciI64ToOop.
/// Blocks: never.
OopType KvfFinalizeAll(OopType /*oClass*/) {
  int64 count = 0;
  return walkCurrentSession(finalizeCallback, &count) ? KciI64ToOop(count) : OOP_NIL;
}

/// Releases the records of file objects that are dead on the client's side, closing their files.
///
/// Arguments: deadIdsArr, an Array of integers, each the identifier of a dead file object.
/// Answers: true when every one was released; false when an element is no integer, is the
///   identifier of nil, or names a file object that has no record.
/// Raises: 4100 without a session or map; 2364 for an object that is not registered.
/// Stores: nothing.
/// Host calls: KciFetchOops per 500 elements, and once more at their end; per element KciOopToI64_,
///   the look-up, the closing, UtlFree for the record and for its text, KciOopMapEntryDelete.
/// Blocks: as closing does.
OopType KvfClientFinalize(OopType deadIdsArr) {
  constexpr int BATCH_SIZE = 500;
  OopType ids[BATCH_SIZE];
  bool failed = false;
  int64 start = 1;
  for (;;) {
    const int count = std::min(KciFetchOops(deadIdsArr, start, ids, BATCH_SIZE), BATCH_SIZE);
    if (count < 1) break;
    if (finalizeBatch(ids, count)) failed = true;
    start += count;
  }
  return oopFromBool(!failed);
}
