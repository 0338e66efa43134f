// A string copy that never overruns its buffer.
#pragma once

#include <cstddef>

namespace kvf {

// Copies `src` to the `size` bytes at `dst`, cut to `size` - 1 bytes and always terminated; nothing
// is written when `size` is 0. Answers the length of `src`, so that a caller can see that it was
// cut. Called as kvf::strlcpy, because newer C libraries have a function of that name.
size_t strlcpy(char* dst, const char* src, size_t size);

}  // namespace kvf
