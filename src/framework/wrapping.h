// Arithmetic on positions, counts and indexes that come from outside. It wraps instead of
// overflowing, and a result that wrapped to a negative number fails as any negative number does.
#pragma once

#include <kvfile/platform/oop.h>

namespace kvf {

// The compiler's checked operations store the wrapped result; that it wrapped is of no interest.

inline int64 wrappingAdd(int64 a, int64 b) {
  int64 result = 0;
  static_cast<void>(__builtin_add_overflow(a, b, &result));
  return result;
}

inline int64 wrappingSubtract(int64 a, int64 b) {
  int64 result = 0;
  static_cast<void>(__builtin_sub_overflow(a, b, &result));
  return result;
}

inline int64 wrappingMultiply(int64 a, int64 b) {
  int64 result = 0;
  static_cast<void>(__builtin_mul_overflow(a, b, &result));
  return result;
}

}  // namespace kvf
