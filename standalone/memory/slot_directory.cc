#include "memory/slot_directory.h"

#include <cstdlib>
#include <deque>
#include <mutex>

namespace kvhost::memory {

constinit ChunkEntry chunkDirectory[MAX_CHUNKS];  // in pages that are untouched until they serve
constinit thread_local OwnerType thisThreadsOwner = OWNER_NO_THREAD;

namespace {

std::mutex directoryMutex;
uint64_t nextUnusedChunk = 1;

// Oldest first, so that an identifier of an ended thread names nothing for as long as possible.
std::deque<uint64_t>& releasedChunks() {
  static auto* chunks = new std::deque<uint64_t>;  // outlives every thread
  return *chunks;
}

uint64_t chooseChunk() {
  std::deque<uint64_t>& released = releasedChunks();
  if (released.empty()) return nextUnusedChunk < MAX_CHUNKS ? nextUnusedChunk++ : 0;
  const uint64_t chunk = released.front();
  released.pop_front();
  return chunk;
}

}  // namespace

OwnerType newOwner() {
  static std::atomic<OwnerType> last = OWNER_EVERYONE;
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
  chunkDirectory[chunk].owner.store(owner, std::memory_order_release);
  return chunk;
}

void releaseChunk(uint64_t chunk) {
  const std::lock_guard lock(directoryMutex);
  ChunkEntry& entry = chunkDirectory[chunk];
  entry.owner.store(OWNER_NONE, std::memory_order_release);
  std::free(entry.slots);
  entry.slots = nullptr;
  releasedChunks().push_back(chunk);
}

}  // namespace kvhost::memory
