// The plainest fast map from identifiers to pointers: one table, linear probing, half full at most.
#pragma once

#include <kvfile/platform/oop.h>

#include <cstdint>
#include <vector>

namespace bench {

class ProbingMap {
 public:
  // Room for `count` entries; it does not grow.
  explicit ProbingMap(size_t count) {
    size_t size = 16;
    while (size < 2 * count) size *= 2;
    entries_.resize(size, Entry{OOP_NIL, nullptr});
    mask_ = size - 1;
  }

  void add(OopType key, void* value) {
    size_t at = homeOf(key);
    while (entries_[at].key != OOP_NIL) at = (at + 1) & mask_;
    entries_[at] = {key, value};
  }

  void* find(OopType key) const {
    for (size_t at = homeOf(key);; at = (at + 1) & mask_) {
      if (entries_[at].key == key) return entries_[at].value;
      if (entries_[at].key == OOP_NIL) return nullptr;
    }
  }

 private:
  struct Entry {
    OopType key;
    void* value;
  };

  // Identifiers differ in their upper bits only.
  size_t homeOf(OopType key) const {
    const uint64_t product = key * 0x9E3779B97F4A7C15ULL;
    return static_cast<size_t>(product ^ (product >> 32)) & mask_;
  }

  std::vector<Entry> entries_;
  size_t mask_ = 0;
};

}  // namespace bench
