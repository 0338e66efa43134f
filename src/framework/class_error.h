// The class-level error: the code and text of the last failure of an operation that had no file
// record. One for the process and without a lock: sessions that share a process overwrite each
// other's, as its readers know.
#pragma once

#include <kvfile/platform/host.h>
#include <kvfile/platform/oop.h>

namespace kvf {

extern int classErrorCode;              // an errno value or an interface error number, 0 for none
extern ErrMsgStrType classErrorString;  // NUL-terminated, empty for none

// Empties both.
void KvfInit();

// Replaces the text, cut to fit; the code stays.
void storeClassErrorString(const char* text);

// A new String with the pending text, which is then emptied; nil when there is none.
OopType takeClassErrorString();

}  // namespace kvf
