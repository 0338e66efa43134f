// The directory of all slots of the process. It maps a slot number to its slot without a lock, and
// knows any number that is none of this thread's.
//
// Slots come in chunks, and a chunk belongs to one thread. The owner is tested before anything of
// the chunk is touched, so that an identifier of another thread, whose memory may go away at any
// moment, is refused like any other that names nothing here.
#pragma once

#include "memory/assertions.h"
#include "memory/class_table.h"
#include "memory/slot.h"

#include <atomic>
#include <cstdint>

namespace kvhost::memory {

inline constexpr uint64_t SLOTS_PER_CHUNK = 4096;
inline constexpr uint64_t MAX_CHUNKS = uint64_t{1} << 18;  // 64 GiB of slots

// Whose a chunk is: a number given to a thread when it makes its first object.
using OwnerType = uint64_t;
inline constexpr OwnerType OWNER_NONE = 0;
inline constexpr OwnerType OWNER_NO_THREAD = ~OwnerType{0};  // a thread without objects

// A thread that reads its own number in `owner` has written it itself, and `slots` before it; so no
// order between the two has to be kept for others.
struct ChunkEntry {
  std::atomic<OwnerType> owner;
  union {
    Slot* slots = nullptr;
    uint64_t nextReleased;  // of a chunk without an owner; 0: none
  };
};

extern ChunkEntry chunkDirectory[MAX_CHUNKS];
extern constinit thread_local OwnerType thisThreadsOwner;

// A number for a thread that becomes an owner; never given twice.
OwnerType newOwner();

// Takes a chunk of free slots and enters it. Answers its index, or 0 when memory runs out (chunk 0
// is the classes').
uint64_t claimChunk(OwnerType owner);

// Frees the slots of a chunk; its identifiers name nothing from now on.
void releaseChunk(uint64_t chunk);

// Hold the directory as it is while the process forks.
void lockDirectory();
void unlockDirectory();

// The slot of a live object that this thread has made, or null: enough for the short way of what is
// called often, whose long way then asks findSlot.
[[gnu::always_inline]] inline Slot* findMadeSlot(OopType oop) {
  if (!hasSlotTag(oop)) return nullptr;
  const uint64_t number = slotNumberOf(oop);
  const uint64_t chunk = number / SLOTS_PER_CHUNK;
  if (chunk >= MAX_CHUNKS) return nullptr;
  const ChunkEntry& entry = chunkDirectory[chunk];  // the classes' chunk, 0, is nobody's
  if (entry.owner.load(std::memory_order_relaxed) != thisThreadsOwner) return nullptr;
  Slot& slot = entry.slots[number % SLOTS_PER_CHUNK];
  return (slot.flags & SLOT_LIVE) != 0 ? &slot : nullptr;
}

// The slot of a live object of this thread, or of one that every thread has, or null.
inline Slot* findSlot(OopType oop) {
  Slot* made = findMadeSlot(oop);
  const bool isFixed = hasSlotTag(oop) && slotNumberOf(oop) < SLOTS_PER_CHUNK;
  return made == nullptr && isFixed ? fixedSlot(slotNumberOf(oop)) : made;
}

}  // namespace kvhost::memory
