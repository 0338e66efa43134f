// The position arithmetic of lock queries.
#pragma once

#include <kvfile/platform/oop.h>

#include <fcntl.h>

namespace kvf {

// The absolute position at which the lock that `info` describes begins, in the open file `fd`, or
// -1 with a NUL-terminated text of at most `errMsgSize` - 1 bytes in `errMsg`. A start relative to
// the current position moves the descriptor to the start of the file and counts from there.
int64 computeFilePosition(int fd, const struct flock64* info, char* errMsg, size_t errMsgSize);

}  // namespace kvf
