#include "memory/collector.h"

namespace kvhost::memory {

namespace {

bool isKept(const Slot& slot) { return (slot.flags & (SLOT_MARKED | SLOT_PERMANENT)) != 0; }

void unmark(Slot& slot) { slot.flags = static_cast<uint8_t>(slot.flags & ~SLOT_MARKED); }

int64_t bytesOf(const Slot& slot) {
  const int64_t block = (slot.flags & SLOT_EXTERNAL) != 0 ? slot.external.capacity : 0;
  return static_cast<int64_t>(sizeof(Slot)) + block;
}

}  // namespace

Collector::~Collector() {
  if (!hasMarks_) return;
  for (const uint64_t chunk : memory_.chunks_) {
    for (uint64_t i = 0; i < usedSlots(chunk); ++i) unmark(chunkDirectory[chunk].slots[i]);
  }
}

void Collector::visit(OopType oop) {
  Slot* slot = findSlot(oop);
  // Classes and Symbols are permanent and refer to nothing.
  if (slot == nullptr || isKept(*slot)) return;
  slot->flags |= SLOT_MARKED;
  if ((slot->flags & SLOT_POINTERS) != 0 && slot->size > 0) pending_.push_back(slot);
}

void Collector::mark(OopType oop) {
  hasMarks_ = true;
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
  return slot != nullptr && !isKept(*slot);
}

// The chunk that fresh slots are taken from is the only one with slots that never served.
uint64_t Collector::usedSlots(uint64_t chunk) const {
  const uint64_t first = chunk * SLOTS_PER_CHUNK;
  const bool hasFresh =
      memory_.fresh_.number >= first && memory_.freshEnd_ == first + SLOTS_PER_CHUNK;
  return hasFresh ? memory_.fresh_.number - first : SLOTS_PER_CHUNK;
}

// Goes from the end to the start, so that the free list begins at the lowest numbers. False when the
// chunk holds nothing any more.
bool Collector::sweepChunk(uint64_t chunk, Survivors* survivors) {
  Slot* slots = chunkDirectory[chunk].slots;
  FreeSlot firstFree = memory_.firstFree_;
  const uint64_t used = usedSlots(chunk);
  const int64_t before = survivors->objects;
  for (uint64_t i = used; i-- > 0;) {
    Slot& slot = slots[i];
    const bool isLive = (slot.flags & SLOT_LIVE) != 0;
    if (isLive && isKept(slot)) {
      unmark(slot);
      survivors->objects += 1;
      survivors->bytes += bytesOf(slot);
      continue;
    }
    if (isLive) dropContents(slot);
    slot.flags = 0;
    slot.nextFree = firstFree;
    firstFree = {&slot, chunk * SLOTS_PER_CHUNK + i};
  }
  const bool keep = survivors->objects > before || used < SLOTS_PER_CHUNK;
  if (keep) memory_.firstFree_ = firstFree;
  return keep;
}

int64_t Collector::sweep() {
  const int64_t liveBefore = memory_.liveObjects();
  memory_.firstFree_ = {nullptr, 0};
  Survivors survivors;
  std::vector<uint64_t>& chunks = memory_.chunks_;
  for (size_t i = chunks.size(); i-- > 0;) {
    if (sweepChunk(chunks[i], &survivors)) continue;
    releaseChunk(chunks[i]);
    chunks[i] = 0;
  }
  std::erase(chunks, uint64_t{0});
  memory_.objectsKept_ = survivors.objects;
  memory_.bytesKept_ = survivors.bytes;
  memory_.objectsSince_ = 0;
  memory_.blockBytesSince_ = 0;
  hasMarks_ = false;
  return liveBefore - survivors.objects;
}

}  // namespace kvhost::memory
