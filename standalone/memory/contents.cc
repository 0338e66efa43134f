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

int64_t newCapacity(const Slot& slot, int64_t needed, Growth growth) {
  if (growth == Growth::Exact) return needed;
  return std::min(MAX_CONTENT_BYTES, std::max(needed, capacityOf(slot) * 2));
}

bool moveToBlock(Slot& slot, int64_t capacity) {
  const auto bytes = static_cast<size_t>(capacity);
  void* block = nullptr;
  if ((slot.flags & SLOT_EXTERNAL) != 0) {
    block = std::realloc(slot.external.block, bytes);
    if (block == nullptr) return false;
  } else {
    block = std::malloc(bytes);
    if (block == nullptr) return false;
    std::memcpy(block, slot.inlined, SLOT_INLINE_BYTES);
    slot.flags |= SLOT_EXTERNAL;
  }
  slot.external = {block, capacity};
  return true;
}

// A gap as large as this is not filled byte by byte: calloc's fresh pages are zero and untouched,
// so that a store far behind the end costs no memory for what lies between.
constexpr int64_t LARGE_GAP = int64_t{1} << 20;

bool growAcrossGap(Slot& slot, int64_t size) {
  void* block = std::calloc(static_cast<size_t>(size), 1);
  if (block == nullptr) return false;
  std::memcpy(block, contentsOf(slot), static_cast<size_t>(slot.size));
  dropContents(slot);
  slot.flags |= SLOT_EXTERNAL;
  slot.external = {block, size};
  return true;
}

void fillNewUnits(Slot& slot, int64_t from, int64_t to) {
  if ((slot.flags & SLOT_POINTERS) != 0) {
    std::fill(elementsIn(slot) + from, elementsIn(slot) + to, OOP_NIL);
  } else {
    std::memset(contentsOf(slot) + from, 0, static_cast<size_t>(to - from));
  }
}

bool grow(Slot& slot, int64_t size, Growth growth) {
  const int64_t unit = unitSize(slot);
  if (size > MAX_CONTENT_BYTES / unit) return false;
  const int64_t needed = size * unit;
  const bool mustMove = needed > capacityOf(slot);
  if (mustMove && unit == 1 && size - slot.size >= LARGE_GAP) return growAcrossGap(slot, size);
  if (mustMove && !moveToBlock(slot, newCapacity(slot, needed, growth))) return false;
  fillNewUnits(slot, slot.size, size);
  return true;
}

}  // namespace

bool resize(Slot& slot, int64_t size, Growth growth) {
  if (size > slot.size) {
    if (!grow(slot, size, growth)) return false;
    threadMemory().countGrowth((size - slot.size) * unitSize(slot));
  }
  slot.size = size;
  return true;
}

void copyBytes(void* to, const void* from, size_t count) {
  // Larger pieces meet a copying routine that is many times slower for some pairs of addresses.
  constexpr size_t PIECE = 2048;
  auto* target = static_cast<unsigned char*>(to);
  const auto* source = static_cast<const unsigned char*>(from);
  for (; count > PIECE; count -= PIECE, target += PIECE, source += PIECE) {
    std::memcpy(target, source, PIECE);
  }
  if (count > 0) std::memcpy(target, source, count);
}

}  // namespace kvhost::memory
