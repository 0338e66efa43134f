// The map is one array of entries, searched from the place that the key hashes to up to the next
// empty entry. A deleted entry is only marked as one: so it is deleted without a way to its map, no
// other entry moves, and a walk goes on behind it.
#include "interface/oop_map.h"

#include "interface/dropped_files.h"
#include "memory/assertions.h"

#include <sys/mman.h>

#include <bit>
#include <cstdlib>
#include <new>

struct KciOopMapEntryType {
  OopType key;
  void* value;
};

struct KciOopMapType {
  KciOopMapEntryType* entries = nullptr;
  size_t mask = 0;    // the number of entries, a power of two, less one
  int hashShift = 0;  // leaves as many bits of a hash as an index has
  size_t used = 0;    // entries that are not empty, deleted ones included
};

namespace {

using Entry = KciOopMapEntryType;

constexpr size_t SMALLEST = 16;

// Any key and any pointer can be in an entry, so what is none is told by a pointer that nobody else
// has, together with the key 0.
char emptyMark;
char deletedMark;

bool isEmpty(const Entry& entry) { return entry.key == 0 && entry.value == &emptyMark; }

bool isDeleted(const Entry& entry) { return entry.key == 0 && entry.value == &deletedMark; }

bool isLive(const Entry& entry) { return !isEmpty(entry) && !isDeleted(entry); }

// Identifiers count up from bit 8 on. Multiplied by the golden ratio, as the factor is for a number
// at that place, neighbours come to lie far apart and evenly.
size_t homeOf(const KciOopMapType& map, OopType key) {
  return static_cast<size_t>((key * 0x009E3779B97F4A7DULL) >> map.hashShift);
}

// The entry of `key`, or the empty one that ends the search for it.
Entry& search(const KciOopMapType& map, OopType key) {
  size_t index = homeOf(map, key);
  for (;; index = (index + 1) & map.mask) {
    Entry& entry = map.entries[index];
    if (entry.key == key && !isDeleted(entry)) return entry;
    if (isEmpty(entry)) return entry;
  }
}

// Where the first place holds another key. Out of line, because most keys are found in their first.
[[gnu::noinline]] Entry* findFurther(const KciOopMapType& map, OopType key) {
  Entry& entry = search(map, key);
  return isEmpty(entry) ? nullptr : &entry;
}

// Searches in a large array meet another page each time, which takes as long as the search itself
// unless the pages are large.
void* allocateBytes(size_t bytes) {
  constexpr size_t LARGE_PAGE = size_t{1} << 21;
  if (bytes < LARGE_PAGE) return std::malloc(bytes);
  void* memory = std::aligned_alloc(LARGE_PAGE, bytes);
  if (memory != nullptr) madvise(memory, bytes, MADV_HUGEPAGE);
  return memory;
}

bool allocate(KciOopMapType& map, size_t capacity) {
  void* memory = allocateBytes(capacity * sizeof(Entry));
  if (memory == nullptr) return false;
  map.entries = static_cast<Entry*>(memory);
  for (size_t i = 0; i < capacity; ++i) map.entries[i] = {0, &emptyMark};
  map.mask = capacity - 1;
  map.hashShift = 64 - std::countr_zero(capacity);
  map.used = 0;
  return true;
}

size_t countLive(const KciOopMapType& map) {
  size_t count = 0;
  for (size_t i = 0; i <= map.mask; ++i) count += isLive(map.entries[i]) ? 1 : 0;
  return count;
}

// At most half of a new array is taken, so that it can grow by half again before the next one.
size_t capacityFor(size_t live) { return std::bit_ceil(live * 2 < SMALLEST ? SMALLEST : live * 2); }

bool moveTo(KciOopMapType& map, size_t capacity) {
  KciOopMapType larger;
  if (!allocate(larger, capacity)) return false;
  for (size_t i = 0; i <= map.mask; ++i) {
    const Entry& entry = map.entries[i];
    if (!isLive(entry)) continue;
    search(larger, entry.key) = entry;
    ++larger.used;
  }
  std::free(map.entries);
  map = larger;
  return true;
}

// A quarter stays empty, so that searches end soon.
bool isFull(const KciOopMapType& map) { return map.used >= (map.mask + 1) / 4 * 3; }

}  // namespace

namespace kvhost::interface {

std::vector<OopType> keysOf(const KciOopMapType& map) {
  std::vector<OopType> keys;
  keys.reserve(map.used);
  for (size_t i = 0; i <= map.mask; ++i) {
    if (isLive(map.entries[i])) keys.push_back(map.entries[i].key);
  }
  return keys;
}

bool isEmpty(const KciOopMapType& map) { return map.used == 0; }

void shrink(KciOopMapType& map) {
  const size_t capacity = capacityFor(countLive(map));
  if (capacity <= (map.mask + 1) / 4) moveTo(map, capacity);
}

}  // namespace kvhost::interface

extern "C" {

KciOopMapType* KciOopMapCreate(void) {
  auto* map = new (std::nothrow) KciOopMapType;
  if (map == nullptr || allocate(*map, SMALLEST)) return map;
  delete map;
  return nullptr;
}

void KciOopMapDestroy(KciOopMapType* map) {
  if (map == nullptr) return;
  std::free(map->entries);
  delete map;
}

void KciOopMapEntryAdd(KciOopMapType* map, OopType key, void* value, int* status) {
  KVHOST_ASSERT(map != nullptr && value != &emptyMark && value != &deletedMark);
  if (isFull(*map) && !moveTo(*map, capacityFor(countLive(*map) + 1))) {
    *status = 1;
    return;
  }
  Entry& entry = search(*map, key);
  if (!isEmpty(entry)) {
    *status = 1;
    return;
  }
  entry = {key, value};
  ++map->used;
  kvhost::interface::countRegisteredFile();
}

KciOopMapEntryType* KciOopMapEntryFind(KciOopMapType* map, OopType key) {
  KVHOST_ASSERT(map != nullptr);
  Entry& home = map->entries[homeOf(*map, key)];
  return home.key == key && key != 0 ? &home : findFurther(*map, key);
}

void* KciOopMapEntryGetValue(KciOopMapEntryType* entry) {
  KVHOST_ASSERT(entry != nullptr && isLive(*entry));
  return entry->value;
}

void KciOopMapEntryDelete(KciOopMapEntryType* entry) {
  KVHOST_ASSERT(entry != nullptr && isLive(*entry));
  *entry = {0, &deletedMark};
}

void KciOopMapForeach(KciOopMapType* map, KciOopMapCallbackType callback, int64* arg1,
                      int64* arg2) {
  KVHOST_ASSERT(map != nullptr);
  for (size_t i = 0; i <= map->mask; ++i) {
    if (isLive(map->entries[i]) && callback(&map->entries[i], arg1, arg2) == FALSE) return;
  }
}

}  // extern "C"
