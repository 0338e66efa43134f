// The session's map from file objects to records. Records are owned by the map: made when an object
// is first opened, freed when it is finalised or the session ends.
#pragma once

#include <kvfile/platform/kci.h>
#include <kvfile/platform/kcisup.h>

#include "record/file_record.h"

namespace kvf {

// ---- the look-up, by which every action on a file begins ----
//
// It is inline, because it is most of what a small action does; the ways that end in a raise are out
// of line and cold. A session id below 1 means the current session.

// Each raises its error and answers null.
[[gnu::cold]] KciOopMapType* raiseNoSession(int sessionId);            // 4100
[[gnu::cold]] KvFileDataSType* raiseFileNotRegistered(OopType oFile);  // 2364

// The map of a session, or null after raising 4100.
inline KciOopMapType* sessionMap(int sessionId) {
  KciOopMapType* map = sessionId == 0 ? nullptr : KciSupGetKvfileOopMap(sessionId);
  return map != nullptr ? map : raiseNoSession(sessionId);
}

/// Host calls of the look-up: KciGetSessionId, KciSupGetKvfileOopMap, KciOopMapEntryFind and
///   KciOopMapEntryGetValue; none for nil.
//
// The record of `oFile` and its entry through `entryPtr`. Null, nothing raised, for nil. Null after
// raising 4100 without a session or map, and after raising 2364 without an entry unless
// `okIfNoEntry`. The answer may be null for an entry that has no record.
inline KvFileDataSType* fetchKvFileAndEntry(OopType oFile, KciOopMapEntryType** entryPtr,
                                            BoolType okIfNoEntry, int sessIdArg) {
  if (oFile == OOP_NIL) return nullptr;
  KciOopMapType* map = sessionMap(sessIdArg > 0 ? sessIdArg : KciGetSessionId());
  if (map == nullptr) return nullptr;
  KciOopMapEntryType* entry = KciOopMapEntryFind(map, oFile);
  if (entry == nullptr) return okIfNoEntry ? nullptr : raiseFileNotRegistered(oFile);
  *entryPtr = entry;
  return static_cast<KvFileDataSType*>(KciOopMapEntryGetValue(entry));
}

// The record of `oFile` if it is open, else null; raises as above.
inline KvFileDataSType* fetchKvFile(OopType oFile, int sessId) {
  KciOopMapEntryType* entry = nullptr;
  KvFileDataSType* record = fetchKvFileAndEntry(oFile, &entry, FALSE, sessId);
  return record != nullptr && record->isOpen() ? record : nullptr;
}

// The record of `oFile`, open or closed, or null without raising when it has none; a missing
// session or map is raised.
inline KvFileDataSType* fetchKvFileIfKnown(OopType oFile, int sessId) {
  KciOopMapEntryType* entry = nullptr;
  return fetchKvFileAndEntry(oFile, &entry, TRUE, sessId);
}

// ---- the life of a record ----

/// Host calls of the registration: KciGetSessionId, KciSupGetKvfileOopMap and KciOopMapEntryFind;
///   for an object that has a record KciOopMapEntryGetValue and the closing of the file that it had
///   open; else UtlMalloc and KciOopMapEntryAdd, and where one of these has no memory UtlFree, and
///   fclose or gzclose for the file that is not registered.
//
// Registers a freshly opened stream or handle under `oFile` in the current session: SmallInteger 1
// for a new record, 2 for a reused one whose earlier file is closed; nil for nil, or after raising
// 4100 or 2208.
OopType newKvFile(OopType oFile, FILE* f, gzFile zf, BoolType isStd, const char* mode);

// Closes and frees the record of `oFile` and deletes its entry. True when it could not.
BoolType doFinalize(OopType oFile);

}  // namespace kvf
