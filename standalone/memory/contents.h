// Changing the size and the bytes of an object that is known to allow it.
#pragma once

#include "memory/object_memory.h"

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace kvhost::memory {

// Makes the object hold `size` bytes or elements; new ones are 0 or nil. False, with the object
// unchanged, when memory runs out.
bool resize(Slot& slot, int64_t size);

// Makes the object reach up to `offset` + `count` at least, for a caller that stores those `count`
// bytes or elements at once: they are left as the memory held them, and what lies between the old
// end and `offset` is 0 or nil. False, with the object unchanged, when memory runs out.
bool extendForStore(Slot& slot, int64_t offset, int64_t count);

// The same without the mark, where the store leaves some bytes.
[[gnu::cold]] void setUnsetBytesAround(Slot& slot, int64_t offset, int64_t count);

// Sets the bytes of an object marked SLOT_UNSET to 0, but for the `count` from `offset` on, which the
// caller stores at once; most often these are all.
inline void setUnsetBytes(Slot& slot, int64_t offset = 0, int64_t count = 0) {
  if ((slot.flags & SLOT_UNSET) == 0) return;
  slot.flags = static_cast<uint8_t>(slot.flags & ~SLOT_UNSET);
  if (offset != 0 || count < slot.size) setUnsetBytesAround(slot, offset, count);
}

// Larger pieces meet a copying routine that is many times slower for some pairs of addresses.
inline constexpr size_t COPY_PIECE = 2048;

void copyInPieces(void* to, const void* from, size_t count);

// Copies bytes between areas that do not overlap.
inline void copyBytes(void* to, const void* from, size_t count) {
  if (count > COPY_PIECE) return copyInPieces(to, from, count);
  if (count > 0) std::memcpy(to, from, count);
}

}  // namespace kvhost::memory
