// Mark and sweep over the objects of one thread, in separate steps, so that the caller can deal
// with dead objects before they are freed.
#pragma once

#include "memory/object_memory.h"

#include <cstdint>
#include <vector>

namespace kvhost::memory {

class Collector {
 public:
  explicit Collector(ObjectMemory& memory) : memory_(memory) {}

  // Forgets the marks, also those of a collection that ended by an exception.
  ~Collector();
  Collector(const Collector&) = delete;
  Collector& operator=(const Collector&) = delete;

  // Marks everything that the roots and the permanent objects refer to. Throws std::bad_alloc.
  void markFromRoots();

  // Marks `oop` with all that it refers to. Throws std::bad_alloc.
  void mark(OopType oop);

  // True for an object of this memory that is live and was not marked.
  bool isDead(OopType oop) const;

  // Frees the dead objects, and chunks that hold none else, and forgets the marks. Answers the
  // number freed.
  int64_t sweep();

 private:
  struct Survivors {
    int64_t objects = 0;
    int64_t bytes = 0;
  };

  void visit(OopType oop);
  bool sweepChunk(uint64_t chunk, Survivors* survivors);
  uint64_t usedSlots(uint64_t chunk) const;

  ObjectMemory& memory_;
  std::vector<Slot*> pending_;  // marked, with elements that are still to be visited
  bool hasMarks_ = false;
};

}  // namespace kvhost::memory
