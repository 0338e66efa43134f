// The slot: the fixed-size cell that an object of the standalone host lives in, and the identifier
// that names it. One slot is one cache line; small contents lie within it.
#pragma once

#include <kvfile/platform/oop.h>

#include <atomic>
#include <cstddef>
#include <cstdint>

namespace kvhost::memory {

enum class SlotState : uint8_t { Free = 0, Live = 1 };

enum SlotFlag : uint8_t {
  SLOT_POINTERS = 1,   // elements of 8 bytes each; else bytes
  SLOT_EXTERNAL = 2,   // the contents lie in a block of their own
  SLOT_INVARIANT = 4,  // stores fail
  SLOT_PERMANENT = 8,  // never collected
  SLOT_MARKED = 16     // reached by the collection that runs
};

inline constexpr size_t SLOT_INLINE_BYTES = 48;

struct ExternalContents {
  void* block;       // from malloc
  int64_t capacity;  // bytes
};

struct Slot {
  uint32_t classNumber;          // slot number of the class
  std::atomic<SlotState> state;  // set last, so that a Symbol is seen whole by other threads
  uint8_t flags;
  uint16_t unused;
  int64_t size;  // bytes or elements; of a free slot, the number of the next free one
  union {
    alignas(8) unsigned char inlined[SLOT_INLINE_BYTES];
    ExternalContents external;
  };
};

static_assert(sizeof(Slot) == 64, "a slot fills one cache line");

inline constexpr unsigned SLOT_TAG_BITS = 8;
inline constexpr OopType SLOT_TAG = 0x01;

// The identifier of the object in slot `number`.
constexpr OopType oopOfSlot(uint64_t number) { return (number << SLOT_TAG_BITS) | SLOT_TAG; }

// True when `oop` has the form of a heap identifier; there need be no such object.
constexpr bool hasSlotTag(OopType oop) { return (oop & 0xFF) == SLOT_TAG; }

constexpr uint64_t slotNumberOf(OopType oop) { return oop >> SLOT_TAG_BITS; }

// Bytes of one byte or element of the object.
inline int64_t unitSize(const Slot& slot) { return (slot.flags & SLOT_POINTERS) != 0 ? 8 : 1; }

// The contents, wherever they lie.
inline unsigned char* contentsOf(Slot& slot) {
  if ((slot.flags & SLOT_EXTERNAL) == 0) return slot.inlined;
  return static_cast<unsigned char*>(slot.external.block);
}

inline OopType* elementsIn(Slot& slot) {
  return static_cast<OopType*>(static_cast<void*>(contentsOf(slot)));
}

}  // namespace kvhost::memory
