// The objects of one thread: making them, and the book-keeping that the collector needs. Nothing
// here takes a lock but for a new chunk, once in 4096 objects.
#pragma once

#include "memory/class_table.h"
#include "memory/slot_directory.h"

#include <absl/container/flat_hash_set.h>

#include <cstdint>
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
  explicit ObjectMemory(OwnerType owner) : owner_(owner) {}
  ~ObjectMemory();
  ObjectMemory(const ObjectMemory&) = delete;
  ObjectMemory& operator=(const ObjectMemory&) = delete;

  // A live instance of `cls` with `size` bytes or elements. Elements are nil, bytes are unset.
  NewObject make(const ClassInfo& cls, int64_t size);

  // The same, but not live yet: the caller fills it and calls `publish`.
  NewObject makeUnpublished(const ClassInfo& cls, int64_t size);
  static void publish(Slot& slot) { slot.state.store(SlotState::Live, std::memory_order_release); }

  // The collector never frees the object.
  void makePermanent(Slot& slot);

  // Counts bytes by which an object grew.
  void countGrowth(int64_t bytes) { bytesSinceCollection += bytes; }

  OwnerType owner() const { return owner_; }

  absl::flat_hash_set<const OopType*> roots;
  int64_t objectsSinceCollection = 0;
  int64_t bytesSinceCollection = 0;
  int64_t liveObjects = 0;

 private:
  friend class Collector;

  bool takeSlot(NewObject* object);
  bool takeFreshSlot(NewObject* object);
  void give(OopType oop, Slot& slot);

  const OwnerType owner_;
  uint64_t firstFree_ = 0;    // slot numbers of freed slots, linked; 0: none
  uint64_t freshNumber_ = 0;  // the next slot that never served ...
  uint64_t freshEnd_ = 0;     // ... and the end of its chunk
  std::vector<uint64_t> chunks_;
  std::vector<Slot*> permanent_;
};

// The calling thread's memory, made when it is first asked for. It goes away with the thread.
ObjectMemory& threadMemory();

// The largest object: enough for any file that one reads whole, small enough that a wild index is
// refused instead of filling the machine.
inline constexpr int64_t MAX_CONTENT_BYTES = int64_t{1} << 32;

// Frees the block of a slot that has one.
void dropContents(Slot& slot);

}  // namespace kvhost::memory
