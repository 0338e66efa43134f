#include "memory/contents.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

namespace kvhost::memory {

namespace {

int64_t capacityOf(const Slot& slot) {
  if ((slot.flags & SLOT_EXTERNAL) != 0) return slot.external.capacity;
  return static_cast<int64_t>(SLOT_INLINE_BYTES);
}

void useBlock(Slot& slot, void* block, int64_t capacity) {
  const bool hadBlock = (slot.flags & SLOT_EXTERNAL) != 0;
  threadMemory().countBlock(capacity - (hadBlock ? slot.external.capacity : 0));
  slot.flags |= SLOT_EXTERNAL;
  slot.external = {block, capacity};
}

bool moveToBlock(Slot& slot, int64_t capacity) {
  const bool hasBlock = (slot.flags & SLOT_EXTERNAL) != 0;
  void* block =
      std::realloc(hasBlock ? slot.external.block : nullptr, static_cast<size_t>(capacity));
  if (block == nullptr) return false;
  if (!hasBlock) std::memcpy(block, slot.inlined, SLOT_INLINE_BYTES);
  useBlock(slot, block, capacity);
  return true;
}

// Stores behind the end double the room, so that appending stays linear; where there is no memory
// for that, what is needed will do.
bool moveToGrow(Slot& slot, int64_t needed) {
  const int64_t generous = std::min(MAX_CONTENT_BYTES, std::max(needed, capacityOf(slot) * 2));
  return moveToBlock(slot, generous) || moveToBlock(slot, needed);
}

// A gap as large as this is not filled byte by byte: calloc's fresh pages are zero and untouched,
// so that a store far behind the end costs no memory for what lies between.
constexpr int64_t LARGE_GAP = int64_t{1} << 20;

bool growAcrossGap(Slot& slot, int64_t size) {
  void* block = std::calloc(static_cast<size_t>(size), 1);
  if (block == nullptr) return false;
  std::memcpy(block, contentsOf(slot), static_cast<size_t>(slot.size));
  dropContents(slot);
  useBlock(slot, block, size);
  return true;
}

void fillUnits(Slot& slot, int64_t from, int64_t to) {
  if (from >= to) return;
  if ((slot.flags & SLOT_POINTERS) != 0) {
    std::fill(elementsIn(slot) + from, elementsIn(slot) + to, OOP_NIL);
  } else {
    std::memset(contentsOf(slot) + from, 0, static_cast<size_t>(to - from));
  }
}

// Makes room for `size` units, of which those before `filledEnd` are 0 or nil.
bool grow(Slot& slot, int64_t size, int64_t filledEnd, bool (*move)(Slot&, int64_t)) {
  const int64_t unit = unitSize(slot);
  if (size > MAX_CONTENT_BYTES / unit) return false;
  const bool mustMove = size * unit > capacityOf(slot);
  if (mustMove && unit == 1 && filledEnd - slot.size >= LARGE_GAP) {
    if (!growAcrossGap(slot, size)) return false;
  } else {
    if (mustMove && !move(slot, size * unit)) return false;
    fillUnits(slot, slot.size, filledEnd);
  }
  slot.size = size;
  return true;
}

}  // namespace

bool resize(Slot& slot, int64_t size) {
  KVHOST_ASSERT(size >= 0 && (slot.flags & SLOT_INVARIANT) == 0);
  setUnsetBytes(slot);
  if (size > slot.size) return grow(slot, size, size, moveToBlock);
  slot.size = size;
  return true;
}

bool extendForStore(Slot& slot, int64_t offset, int64_t count) {
  KVHOST_ASSERT(offset >= 0 && count >= 0 && (slot.flags & SLOT_UNSET) == 0);
  const int64_t end = offset + count;
  return end <= slot.size || grow(slot, end, std::max(offset, slot.size), moveToGrow);
}

void setUnsetBytesAround(Slot& slot, int64_t offset, int64_t count) {
  fillUnits(slot, 0, std::min(offset, slot.size));
  fillUnits(slot, std::min(offset + count, slot.size), slot.size);
}

void copyInPieces(void* to, const void* from, size_t count) {
  auto* target = static_cast<unsigned char*>(to);
  const auto* source = static_cast<const unsigned char*>(from);
  KVHOST_ASSERT(target + count <= source || source + count <= target);
  for (; count > COPY_PIECE; count -= COPY_PIECE, target += COPY_PIECE, source += COPY_PIECE) {
    std::memcpy(target, source, COPY_PIECE);
  }
  std::memcpy(target, source, count);
}

}  // namespace kvhost::memory
