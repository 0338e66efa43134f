#include "memory/object_memory.h"

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <new>

namespace kvhost::memory {

namespace {

constinit thread_local ObjectMemory* currentMemory = nullptr;

// Ends the thread's memory with the thread.
struct MemoryHolder {
  std::unique_ptr<ObjectMemory> memory = std::make_unique<ObjectMemory>();

  MemoryHolder() {
    currentMemory = memory.get();
    thisThreadsOwner = memory->owner();
  }
  ~MemoryHolder() {
    thisThreadsOwner = OWNER_NO_THREAD;
    currentMemory = nullptr;
  }
};

ObjectMemory& makeThreadMemory() {
  thread_local MemoryHolder holder;
  return *holder.memory;
}

bool hasRoomFor(const ClassInfo& cls, int64_t size) {
  const int64_t unit = cls.format == Format::Pointers ? 8 : 1;
  return size <= MAX_CONTENT_BYTES / unit;
}

// Gives an empty slot contents of `size` units.
bool prepareContents(Slot& slot, int64_t size) {
  const int64_t bytes = size * unitSize(slot);
  if (bytes > static_cast<int64_t>(SLOT_INLINE_BYTES)) {
    void* block = std::malloc(static_cast<size_t>(bytes));
    if (block == nullptr) return false;
    slot.flags |= SLOT_EXTERNAL;
    slot.external = {block, bytes};
  }
  slot.size = size;
  if ((slot.flags & SLOT_POINTERS) != 0) std::fill_n(elementsIn(slot), size, OOP_NIL);
  return true;
}

}  // namespace

ObjectMemory& threadMemory() {
  return currentMemory != nullptr ? *currentMemory : makeThreadMemory();
}

void dropContents(Slot& slot) {
  if ((slot.flags & SLOT_EXTERNAL) != 0) std::free(slot.external.block);
}

ObjectMemory::~ObjectMemory() {
  for (const uint64_t chunk : chunks_) {
    Slot* slots = chunkDirectory[chunk].slots;
    for (uint64_t i = 0; i < SLOTS_PER_CHUNK; ++i) {
      if (slots[i].state.load(std::memory_order_relaxed) == SlotState::Live) dropContents(slots[i]);
    }
    releaseChunk(chunk);
  }
}

bool ObjectMemory::takeFreshSlot(NewObject* object) {
  if (freshNumber_ == freshEnd_) {
    const uint64_t chunk = claimChunk(owner_);
    if (chunk == 0) return false;
    try {
      chunks_.push_back(chunk);
    } catch (const std::bad_alloc&) {
      releaseChunk(chunk);
      return false;
    }
    freshNumber_ = chunk * SLOTS_PER_CHUNK;
    freshEnd_ = freshNumber_ + SLOTS_PER_CHUNK;
  }
  const uint64_t number = freshNumber_++;
  object->slot = &chunkDirectory[number / SLOTS_PER_CHUNK].slots[number % SLOTS_PER_CHUNK];
  object->oop = oopOfSlot(number);
  return true;
}

bool ObjectMemory::takeSlot(NewObject* object) {
  if (firstFree_ == 0) return takeFreshSlot(object);
  const uint64_t number = firstFree_;
  object->slot = &chunkDirectory[number / SLOTS_PER_CHUNK].slots[number % SLOTS_PER_CHUNK];
  object->oop = oopOfSlot(number);
  firstFree_ = static_cast<uint64_t>(object->slot->size);
  return true;
}

void ObjectMemory::give(OopType oop, Slot& slot) {
  slot.state.store(SlotState::Free, std::memory_order_relaxed);
  slot.flags = 0;
  slot.size = static_cast<int64_t>(firstFree_);
  firstFree_ = slotNumberOf(oop);
}

NewObject ObjectMemory::makeUnpublished(const ClassInfo& cls, int64_t size) {
  NewObject object;
  if (!hasRoomFor(cls, size) || !takeSlot(&object)) return {};
  Slot& slot = *object.slot;
  slot.classNumber = static_cast<uint32_t>(slotNumberOf(cls.id));
  slot.flags = cls.format == Format::Pointers ? SLOT_POINTERS : 0;
  if (!prepareContents(slot, size)) {
    give(object.oop, slot);
    return {};
  }
  ++objectsSinceCollection;
  ++liveObjects;
  bytesSinceCollection += static_cast<int64_t>(sizeof(Slot)) + size * unitSize(slot);
  return object;
}

NewObject ObjectMemory::make(const ClassInfo& cls, int64_t size) {
  const NewObject object = makeUnpublished(cls, size);
  if (object.slot != nullptr) publish(*object.slot);
  return object;
}

void ObjectMemory::makePermanent(Slot& slot) {
  if ((slot.flags & SLOT_PERMANENT) != 0) return;
  slot.flags |= SLOT_PERMANENT;
  permanent_.push_back(&slot);
}

}  // namespace kvhost::memory
