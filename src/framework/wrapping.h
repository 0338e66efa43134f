// Arithmetic on positions, counts and indexes that come from outside. It wraps instead of
// overflowing, and a result that wrapped to a negative number fails as any negative number does.
#pragma once

#include <kvfile/platform/oop.h>

namespace kvf {

inline int64 wrappingAdd(int64 a, int64 b) {
  return static_cast<int64>(static_cast<uint64_t>(a) + static_cast<uint64_t>(b));
}

inline int64 wrappingSubtract(int64 a, int64 b) {
  return static_cast<int64>(static_cast<uint64_t>(a) - static_cast<uint64_t>(b));
}

inline int64 wrappingMultiply(int64 a, int64 b) {
  return static_cast<int64>(static_cast<uint64_t>(a) * static_cast<uint64_t>(b));
}

}  // namespace kvf
