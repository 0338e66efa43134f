#include "memory/slot_directory.h"

#include <cstdlib>
#include <mutex>

namespace kvhost::memory {

constinit ChunkEntry chunkDirectory[MAX_CHUNKS];  // in pages that are untouched until they serve
constinit thread_local OwnerType thisThreadsOwner = OWNER_NO_THREAD;

namespace {

constinit std::mutex directoryMutex;
uint64_t nextUnusedChunk = 1;

// Released chunks, oldest first, so that an identifier of an ended thread names nothing for as long
// as possible; 0: none.
uint64_t firstReleased = 0;
uint64_t lastReleased = 0;

uint64_t chooseChunk() {
  if (firstReleased == 0) return nextUnusedChunk < MAX_CHUNKS ? nextUnusedChunk++ : 0;
  const uint64_t chunk = firstReleased;
  firstReleased = chunkDirectory[chunk].nextReleased;
  return chunk;
}

void appendReleased(uint64_t chunk) {
  chunkDirectory[chunk].nextReleased = 0;
  (firstReleased == 0 ? firstReleased : chunkDirectory[lastReleased].nextReleased) = chunk;
  lastReleased = chunk;
}

}  // namespace

OwnerType newOwner() {
  static constinit std::atomic<OwnerType> last = OWNER_NONE;
  return last.fetch_add(1, std::memory_order_relaxed) + 1;
}

uint64_t claimChunk(OwnerType owner) {
  // Zeroed memory is a chunk of free slots, and calloc leaves its pages untouched until they serve.
  auto* slots = static_cast<Slot*>(std::calloc(SLOTS_PER_CHUNK, sizeof(Slot)));
  if (slots == nullptr) return 0;
  const std::lock_guard lock(directoryMutex);
  const uint64_t chunk = chooseChunk();
  if (chunk == 0) {
    std::free(slots);
    return 0;
  }
  chunkDirectory[chunk].slots = slots;
  chunkDirectory[chunk].owner.store(owner, std::memory_order_relaxed);
  return chunk;
}

void releaseChunk(uint64_t chunk) {
  KVHOST_ASSERT(chunkDirectory[chunk].owner.load(std::memory_order_relaxed) != OWNER_NONE);
  const std::lock_guard lock(directoryMutex);
  ChunkEntry& entry = chunkDirectory[chunk];
  entry.owner.store(OWNER_NONE, std::memory_order_relaxed);
  std::free(entry.slots);
  appendReleased(chunk);
}

void lockDirectory() { directoryMutex.lock(); }

void unlockDirectory() { directoryMutex.unlock(); }

}  // namespace kvhost::memory
