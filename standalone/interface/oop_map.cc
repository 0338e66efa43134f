#include "interface/oop_map.h"

#include <absl/container/flat_hash_set.h>

#include <new>

// An entry lies in its map's table, so that finding it follows no pointer; it therefore moves when
// the map grows. It knows its map because it is deleted without naming it.
struct KciOopMapEntryType {
  OopType key;
  void* value;
  KciOopMapType* map;
};

namespace {

// Identifiers differ in their upper bits only and count up, so they are spread by a multiplication
// whose upper half is folded down.
struct KeyHash {
  using is_transparent = void;
  size_t operator()(OopType key) const {
    const uint64_t product = key * 0x9E3779B97F4A7C15ULL;
    return static_cast<size_t>(product ^ (product >> 32));
  }
  size_t operator()(const KciOopMapEntryType& entry) const { return (*this)(entry.key); }
};

struct KeyEqual {
  using is_transparent = void;
  static OopType keyOf(OopType key) { return key; }
  static OopType keyOf(const KciOopMapEntryType& entry) { return entry.key; }
  template <typename A, typename B>
  bool operator()(const A& a, const B& b) const {
    return keyOf(a) == keyOf(b);
  }
};

}  // namespace

struct KciOopMapType {
  absl::flat_hash_set<KciOopMapEntryType, KeyHash, KeyEqual> entries;
};

namespace kvhost::interface {

std::vector<OopType> keysOf(const KciOopMapType& map) {
  std::vector<OopType> keys;
  keys.reserve(map.entries.size());
  for (const KciOopMapEntryType& entry : map.entries) keys.push_back(entry.key);
  return keys;
}

}  // namespace kvhost::interface

extern "C" {

KciOopMapType* KciOopMapCreate(void) { return new (std::nothrow) KciOopMapType; }

void KciOopMapDestroy(KciOopMapType* map) { delete map; }

void KciOopMapEntryAdd(KciOopMapType* map, OopType key, void* value, int* status) {
  try {
    if (!map->entries.insert(KciOopMapEntryType{key, value, map}).second) *status = 1;
  } catch (const std::bad_alloc&) {
    *status = 1;
  }
}

KciOopMapEntryType* KciOopMapEntryFind(KciOopMapType* map, OopType key) {
  const auto found = map->entries.find(key);
  return found != map->entries.end() ? const_cast<KciOopMapEntryType*>(&*found) : nullptr;
}

void* KciOopMapEntryGetValue(KciOopMapEntryType* entry) { return entry->value; }

void KciOopMapEntryDelete(KciOopMapEntryType* entry) { entry->map->entries.erase(*entry); }

void KciOopMapForeach(KciOopMapType* map, KciOopMapCallbackType callback, int64* arg1,
                      int64* arg2) {
  auto next = map->entries.begin();
  while (next != map->entries.end()) {
    const auto visited = next++;  // the callback may delete the visited entry
    if (callback(const_cast<KciOopMapEntryType*>(&*visited), arg1, arg2) == FALSE) return;
  }
}

}  // extern "C"
