#include "memory/object_memory.h"

#include <cstdlib>
#include <memory>
#include <new>

namespace kvhost::memory {

constinit thread_local ObjectMemory* currentMemory = nullptr;

namespace {

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

}  // namespace

ObjectMemory& makeThreadMemory() {
  thread_local MemoryHolder holder;
  return *holder.memory;
}

ObjectMemory::~ObjectMemory() {
  for (const uint64_t chunk : chunks_) {
    Slot* slots = chunkDirectory[chunk].slots;
    for (uint64_t i = 0; i < SLOTS_PER_CHUNK; ++i) {
      if ((slots[i].flags & SLOT_LIVE) != 0) dropContents(slots[i]);
    }
    releaseChunk(chunk);
  }
}

bool ObjectMemory::addFreshChunk() {
  const uint64_t chunk = claimChunk(owner_);
  if (chunk == 0) return false;
  try {
    chunks_.push_back(chunk);
  } catch (const std::bad_alloc&) {
    releaseChunk(chunk);
    return false;
  }
  fresh_ = {chunkDirectory[chunk].slots, chunk * SLOTS_PER_CHUNK};
  freshEnd_ = fresh_.number + SLOTS_PER_CHUNK;
  return true;
}

bool ObjectMemory::takeBlock(Slot& slot, int64_t bytes) {
  void* block = std::malloc(static_cast<size_t>(bytes));
  if (block == nullptr) return false;
  slot.flags |= SLOT_EXTERNAL;
  slot.external = {block, bytes};
  blockBytesSince_ += bytes;
  return true;
}

void ObjectMemory::give(uint64_t number, Slot& slot) {
  KVHOST_ASSERT(&slot == chunkDirectory[number / SLOTS_PER_CHUNK].slots + number % SLOTS_PER_CHUNK);
  slot.flags = 0;
  slot.nextFree = firstFree_;
  firstFree_ = {&slot, number};
}

bool ObjectMemory::makePermanent(Slot& slot) {
  KVHOST_ASSERT((slot.flags & SLOT_LIVE) != 0);
  if ((slot.flags & SLOT_PERMANENT) != 0) return true;
  try {
    permanent_.push_back(&slot);
  } catch (const std::bad_alloc&) {
    return false;
  }
  slot.flags |= SLOT_PERMANENT;
  return true;
}

}  // namespace kvhost::memory
