// The slot: the fixed-size cell that an object of the standalone host lives in, and the identifier
// that names it. One slot is one cache line; small contents lie within it.
#pragma once

#include <kvfile/platform/oop.h>

#include <cstddef>
#include <cstdint>

namespace kvhost::memory {

enum SlotFlag : uint8_t {
  SLOT_LIVE = 1,        // an object lives here
  SLOT_POINTERS = 2,    // elements of 8 bytes each; else bytes
  SLOT_EXTERNAL = 4,    // the contents lie in a block of their own
  SLOT_INVARIANT = 8,   // stores fail
  SLOT_PERMANENT = 16,  // never collected
  SLOT_MARKED = 32,     // reached by the collection that runs
  SLOT_UNSET = 64       // the bytes hold what the memory held before; nobody may see them
};

inline constexpr size_t SLOT_INLINE_BYTES = 48;

struct ExternalContents {
  void* block;       // from malloc
  int64_t capacity;  // bytes
};

// A free slot, its number, and what it leads to; the last one leads to no slot.
struct FreeSlot {
  struct Slot* slot;
  uint64_t number;
};

struct Slot {
  uint32_t classNumber;  // slot number of the class
  uint8_t flags;
  uint8_t unused[3];
  int64_t size;  // bytes or elements
  union {
    alignas(8) unsigned char inlined[SLOT_INLINE_BYTES];
    ExternalContents external;
    FreeSlot nextFree;  // of a slot without an object
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
