#include "memory/collector.h"

#include <algorithm>

namespace kvhost::memory {

namespace {

bool isMarked(const Slot& slot) { return (slot.flags & SLOT_MARKED) != 0; }

bool isLive(const Slot& slot) {
  return slot.state.load(std::memory_order_relaxed) == SlotState::Live;
}

void unmark(Slot& slot) { slot.flags = static_cast<uint8_t>(slot.flags & ~SLOT_MARKED); }

}  // namespace

void Collector::visit(OopType oop) {
  Slot* slot = findSlot(oop);
  // Classes and Symbols are permanent and refer to nothing; they are not this thread's to mark.
  if (slot == nullptr || isMarked(*slot) || (slot->flags & SLOT_PERMANENT) != 0) return;
  slot->flags |= SLOT_MARKED;
  if ((slot->flags & SLOT_POINTERS) != 0) pending_.push_back(slot);
}

void Collector::mark(OopType oop) {
  visit(oop);
  while (!pending_.empty()) {
    Slot& slot = *pending_.back();
    pending_.pop_back();
    const OopType* elements = elementsIn(slot);
    for (int64_t i = 0; i < slot.size; ++i) visit(elements[i]);
  }
}

void Collector::markFromRoots() {
  for (Slot* slot : memory_.permanent_) {
    if ((slot->flags & SLOT_POINTERS) == 0) continue;
    const OopType* elements = elementsIn(*slot);
    for (int64_t i = 0; i < slot->size; ++i) mark(elements[i]);
  }
  for (const OopType* root : memory_.roots) mark(*root);
}

bool Collector::isDead(OopType oop) const {
  const Slot* slot = findSlot(oop);
  return slot != nullptr && !isMarked(*slot) && (slot->flags & SLOT_PERMANENT) == 0;
}

// Goes from the end to the start, so that the free list begins at the lowest numbers.
bool Collector::sweepChunk(uint64_t chunk, int64_t* freed) {
  Slot* slots = chunkDirectory[chunk].slots;
  const uint64_t first = chunk * SLOTS_PER_CHUNK;
  const bool hasFresh =
      memory_.freshNumber_ > first && memory_.freshEnd_ == first + SLOTS_PER_CHUNK;
  const uint64_t used = hasFresh ? memory_.freshNumber_ - first : SLOTS_PER_CHUNK;
  const uint64_t freeBefore = memory_.firstFree_;
  bool anyLive = false;
  for (uint64_t i = used; i-- > 0;) {
    Slot& slot = slots[i];
    if (isLive(slot) && (isMarked(slot) || (slot.flags & SLOT_PERMANENT) != 0)) {
      unmark(slot);
      anyLive = true;
      continue;
    }
    if (isLive(slot)) {
      dropContents(slot);
      ++*freed;
    }
    memory_.give(oopOfSlot(first + i), slot);
  }
  const bool keep = anyLive || hasFresh;
  if (!keep) {
    memory_.firstFree_ = freeBefore;
    releaseChunk(chunk);
  }
  return keep;
}

int64_t Collector::sweep() {
  int64_t freed = 0;
  memory_.firstFree_ = 0;
  std::vector<uint64_t> kept;
  for (auto chunk = memory_.chunks_.rbegin(); chunk != memory_.chunks_.rend(); ++chunk) {
    if (sweepChunk(*chunk, &freed)) kept.push_back(*chunk);
  }
  std::reverse(kept.begin(), kept.end());
  memory_.chunks_ = std::move(kept);
  memory_.liveObjects -= freed;
  memory_.objectsSinceCollection = 0;
  memory_.bytesSinceCollection = 0;
  return freed;
}

}  // namespace kvhost::memory
