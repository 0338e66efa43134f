// Changing the size and the bytes of an object that is known to allow it.
#pragma once

#include "memory/object_memory.h"

#include <cstdint>

namespace kvhost::memory {

// How much room an object takes that must move.
enum class Growth : uint8_t {
  Exact,     // a size that was asked for
  Geometric  // stores behind the end, so that appending stays linear
};

// Makes the object hold `size` bytes or elements; new ones are 0 or nil. False, with the object
// unchanged, when memory runs out.
bool resize(Slot& slot, int64_t size, Growth growth);

// Copies bytes between areas that do not overlap.
void copyBytes(void* to, const void* from, size_t count);

}  // namespace kvhost::memory
