// The objects of one thread: making them, and the book-keeping that the collector needs. Nothing
// here takes a lock but for a new chunk, once in 4096 objects.
#pragma once

#include "memory/class_table.h"
#include "memory/slot_directory.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <vector>

namespace kvhost::memory {

// A new object and its identifier; `slot` is null when memory ran out.
struct NewObject {
  Slot* slot = nullptr;
  OopType oop = OOP_NIL;
};

class ObjectMemory {
 public:
  ObjectMemory() : owner_(newOwner()) {}
  ~ObjectMemory();
  ObjectMemory(const ObjectMemory&) = delete;
  ObjectMemory& operator=(const ObjectMemory&) = delete;

  // An instance of `cls` with `size` bytes or elements, 0 or more. Elements are nil; bytes are what
  // the memory held before, so that the caller sets them all or marks the slot SLOT_UNSET.
  NewObject make(const ClassInfo& cls, int64_t size);

  // Has the collector never free the object; false when memory runs out.
  bool makePermanent(Slot& slot);

  // Counts bytes by which the block of an object grew.
  void countBlock(int64_t bytes) { blockBytesSince_ += bytes; }

  // Objects and bytes made since the last collection, and those that live now. An object counts for
  // its slot and for the block that it may have beside it.
  int64_t objectsSinceCollection() const { return objectsSince_; }
  int64_t bytesSinceCollection() const { return objectsSince_ * SLOT_BYTES + blockBytesSince_; }
  int64_t liveObjects() const { return objectsKept_ + objectsSince_; }
  int64_t objectsKept() const { return objectsKept_; }  // by the last collection
  int64_t bytesKept() const { return bytesKept_; }

  OwnerType owner() const { return owner_; }

  std::unordered_set<const OopType*> roots;
  std::unordered_map<std::string_view, OopType> symbols;  // the texts lie in the Symbols

 private:
  friend class Collector;
  static constexpr int64_t SLOT_BYTES = sizeof(Slot);

  FreeSlot takeSlot();
  bool addFreshChunk();
  bool takeBlock(Slot& slot, int64_t bytes);
  void give(uint64_t number, Slot& slot);

  const OwnerType owner_;
  FreeSlot firstFree_ = {nullptr, 0};
  FreeSlot fresh_ = {nullptr, 0};  // the next slot that never served ...
  uint64_t freshEnd_ = 0;          // ... and the number behind its chunk
  int64_t objectsSince_ = 0;
  int64_t blockBytesSince_ = 0;
  int64_t objectsKept_ = 0;
  int64_t bytesKept_ = 0;
  std::vector<uint64_t> chunks_;
  std::vector<Slot*> permanent_;
};

extern constinit thread_local ObjectMemory* currentMemory;

// Makes the calling thread's memory, which goes away with the thread.
ObjectMemory& makeThreadMemory();

// The calling thread's memory, made when it is first asked for.
inline ObjectMemory& threadMemory() {
  return currentMemory != nullptr ? *currentMemory : makeThreadMemory();
}

// The largest object: enough for any file that one reads whole, small enough that a wild index is
// refused instead of filling the machine.
inline constexpr int64_t MAX_CONTENT_BYTES = int64_t{1} << 32;

// Frees the block of a slot that has one.
inline void dropContents(Slot& slot) {
  if ((slot.flags & SLOT_EXTERNAL) != 0) std::free(slot.external.block);
}

// ---- making an object, inline from end to end ----

[[gnu::always_inline]] inline FreeSlot ObjectMemory::takeSlot() {
  const FreeSlot taken = firstFree_;
  if (taken.slot != nullptr) {
    firstFree_ = taken.slot->nextFree;
    return taken;
  }
  if (fresh_.number == freshEnd_ && !addFreshChunk()) return {nullptr, 0};
  return {fresh_.slot++, fresh_.number++};
}

[[gnu::always_inline]] inline NewObject ObjectMemory::make(const ClassInfo& cls, int64_t size) {
  KVHOST_ASSERT(size >= 0);
  const bool pointers = cls.format == Format::Pointers;
  const int64_t unit = pointers ? 8 : 1;
  if (size > MAX_CONTENT_BYTES / unit) return {};
  const FreeSlot taken = takeSlot();
  if (taken.slot == nullptr) return {};
  Slot& slot = *taken.slot;
  KVHOST_ASSERT((slot.flags & SLOT_LIVE) == 0);
  slot.classNumber = static_cast<uint32_t>(slotNumberOf(cls.id));
  slot.flags = pointers ? SLOT_LIVE | SLOT_POINTERS : SLOT_LIVE;
  slot.size = size;
  const bool isLarge = size * unit > static_cast<int64_t>(SLOT_INLINE_BYTES);
  if (isLarge && !takeBlock(slot, size * unit)) {
    give(taken.number, slot);
    return {};
  }
  if (pointers) std::fill_n(elementsIn(slot), size, OOP_NIL);
  ++objectsSince_;
  return {&slot, oopOfSlot(taken.number)};
}

}  // namespace kvhost::memory
