// Where the text of a failure goes: to the file's record, or to the class-level error where there
// is no record.
#pragma once

#include <kvfile/platform/host.h>
#include <kvfile/platform/kcicmn.h>

#include "framework/arguments.h"
#include "record/file_record.h"

namespace kvf {

// A text alone. It replaces the class-level text, whose code stays; a record keeps its first text.
void storeErrorString(KvFileDataSType* p, const char* str);

// A code and a text.
void storeError(KvFileDataSType* p, int errNo, const char* msg);

// An error of the C interface: its number as the code, and a text that names it.
void postKciErr(KvFileDataSType* p, const KciErrSType* err);

// An error of the host layer about a path: its number as the code, and the host's text with the
// path as the caller gave it, or with the identifier of a path object that has no C string.
void postError(KvFileDataSType* p, const HostErrSType* hostErr, const char* path);
void postError(KvFileDataSType* p, const HostErrSType* hostErr, OopType pathObj);
void postError(KvFileDataSType* p, const HostErrSType* hostErr, const KvfPath* aPath,
               OopType pathObj);

// Fetches the C interface's pending error and posts it. False when there was none.
BoolType postPendingKciErr(KvFileDataSType* p);

}  // namespace kvf
