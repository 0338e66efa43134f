// The search for an end-of-line sequence, by which reading lines is fast or slow.
#pragma once

#include <kvfile/platform/oop.h>

#include <cstddef>
#include <cstdint>

namespace kvf {

struct EolScan {
  intptr_t nextIdx;  // behind the bytes that belong to the line so far
  int found;         // 1 when they end with the whole sequence
};

// Scans buffer[idx..size) for the `eolSize` bytes at `eolBuf`. A sequence that the end of the
// buffer cuts is not found, and its bytes are left for the next scan. After a failed comparison the
// scan goes on behind the whole length of the sequence, so that one beginning in between is missed:
// callers who read records that way depend on where their lines end.
EolScan scanForEol(const ByteType* buffer, intptr_t idx, intptr_t size, const ByteType* eolBuf,
                   int eolSize);

}  // namespace kvf
