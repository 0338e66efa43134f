// The session's map from file objects to records. Records are owned by the map: made when an object
// is first opened, freed when it is finalised or the session ends.
#pragma once

#include <kvfile/platform/kcisup.h>

#include "record/file_record.h"

namespace kvf {

// The record of `oFile` in session `sessIdArg` (below 1: the current session), and its entry
// through `entryPtr`. Null, nothing raised, for nil. Null after raising 4100 without a session or
// map, and after raising 2364 without an entry unless `okIfNoEntry`. The answer may be null for an
// entry that has no record.
KvFileDataSType* fetchKvFileAndEntry(OopType oFile, KciOopMapEntryType** entryPtr,
                                     BoolType okIfNoEntry, int sessIdArg);

// The record of `oFile` if it is open, else null; raises as above.
KvFileDataSType* fetchKvFile(OopType oFile, int sessId);

// The record of `oFile`, open or closed, or null without raising when it has none; a missing
// session or map is raised.
KvFileDataSType* fetchKvFileIfKnown(OopType oFile, int sessId);

// Registers a freshly opened stream or handle under `oFile` in the current session: SmallInteger 1
// for a new record, 2 for a reused one whose earlier file is closed; nil for nil, or after raising
// 4100 or 2208.
OopType newKvFile(OopType oFile, FILE* f, gzFile zf, BoolType isStd, const char* mode);

// Closes and frees the record of `oFile` and deletes its entry. True when it could not.
BoolType doFinalize(OopType oFile);

}  // namespace kvf
