// What the machine does for sessions and the process: file maps, the log, socket sizes, the
// environment, versions, and the product's allocator.
#include <kvfile/platform/kcisup.h>
#include <kvfile/platform/utl.h>
#include <kvfile/platform/version.h>

#include "every_fault/world.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>

using namespace every_fault;

namespace {

// In front of every block, so that its size is known; keeps 16 bytes of alignment.
struct alignas(16) BlockHeader {
  size_t size;
};

constexpr int STALE = 0xA5;  // what fresh memory holds

void logText(const char* text) {
  call(FN_KciLogger, TextArg{text});
  w.logged += text;
  doneVoid();
}

int mapNumber(const KciOopMapType* map) {
  return map == nullptr ? -1 : static_cast<int>(map - w.maps);
}

OopType testObject = oopFromSmallInteger(4711);

}  // namespace

extern "C" {

// ---- maps ----

KciOopMapType* seam_KciOopMapCreate() {
  if (call(FN_KciOopMapCreate) != nullptr) return donePointer<KciOopMapType>(nullptr);
  for (KciOopMapType& map : w.maps) {
    if (map.used) continue;
    memset(&map, 0, sizeof map);
    map.used = true;
    return donePointer(&map);
  }
  abort();
}

void seam_KciOopMapDestroy(KciOopMapType* map) {
  call(FN_KciOopMapDestroy);
  map->used = false;
  doneVoid();
}

void seam_KciOopMapEntryAdd(KciOopMapType* map, OopType key, void* value, int* status) {
  const Fault* fault = call(FN_KciOopMapEntryAdd, OopArg{key});
  if (fault != nullptr) {
    *status = ENOMEM;
    return doneVoid();
  }
  for (KciOopMapEntryType& entry : map->entries) {
    if (entry.used) continue;
    entry = {true, key, value};
    return doneVoid();
  }
  abort();
}

KciOopMapEntryType* seam_KciOopMapEntryFind(KciOopMapType* map, OopType key) {
  call(FN_KciOopMapEntryFind, OopArg{key});
  for (KciOopMapEntryType& entry : map->entries) {
    if (entry.used && entry.key == key) return donePointer(&entry);
  }
  return donePointer<KciOopMapEntryType>(nullptr);
}

void* seam_KciOopMapEntryGetValue(KciOopMapEntryType* entry) {
  call(FN_KciOopMapEntryGetValue);
  return donePointer(entry->value);
}

void seam_KciOopMapEntryDelete(KciOopMapEntryType* entry) {
  call(FN_KciOopMapEntryDelete);
  *entry = {};
  doneVoid();
}

void seam_KciOopMapForeach(KciOopMapType* map, KciOopMapCallbackType callback, int64* arg1,
                           int64* arg2) {
  call(FN_KciOopMapForeach);
  doneVoid();
  for (KciOopMapEntryType& entry : map->entries) {
    if (entry.used && !callback(&entry, arg1, arg2)) return;
  }
}

KciOopMapType* seam_KciSupGetKvfileOopMap(int sessionId) {
  const Fault* fault = call(FN_KciSupGetKvfileOopMap, int64{sessionId});
  const bool known = sessionId > 0 && sessionId < SESSIONS;
  // Where sessions begin and end a host that hides the map has taken it: nobody else can free it.
  if (w.ownsMap) takeBack(fault);
  return donePointer((fault != nullptr && !w.ownsMap) || !known ? nullptr : w.slots[sessionId]);
}

void seam_KciSupStoreKvfileOopMap(int sessionId, KciOopMapType* map) {
  call(FN_KciSupStoreKvfileOopMap, int64{sessionId}, int64{mapNumber(map) >= 0});
  if (sessionId > 0 && sessionId < SESSIONS) w.slots[sessionId] = map;
  doneVoid();
}

// ---- the log and the sockets ----

KciLoggerType seam_KciGetLogger() {
  call(FN_KciGetLogger);
  doneVoid();
  return &logText;
}

int seam_KciGetLoggerFlush() {
  call(FN_KciGetLoggerFlush);
  return done(w.loggerFlush);
}

void seam_KciSetLoggerFlush(int flush) {
  call(FN_KciSetLoggerFlush, int64{flush});
  w.loggerFlush = flush;
  doneVoid();
}

int seam_KciSupFetchKciSocketBufSize(const char* name, char* errBuf, size_t errBufSize) {
  const Fault* fault = call(FN_KciSupFetchKciSocketBufSize, TextArg{name});
  if (fault == nullptr && strcmp(name, "SO_SNDBUF") == 0) return done(8192);
  snprintf(errBuf, errBufSize, "no size of '%s'", name);
  return done(-1);
}

BoolType seam_KciSupSetKciSocketBufSize(const char* name, int size, char* errBuf,
                                        size_t errBufSize) {
  const Fault* fault = call(FN_KciSupSetKciSocketBufSize, TextArg{name}, int64{size});
  if (fault == nullptr && strcmp(name, "SO_SNDBUF") == 0) return done(TRUE);
  snprintf(errBuf, errBufSize, "cannot set '%s'", name);
  return done(FALSE);
}

// ---- the environment and versions ----

BoolType seam_HostGetEnv(const char* name, char* out, size_t outSize) {
  const Fault* fault = call(FN_HostGetEnv, TextArg{name}, static_cast<int64>(outSize));
  if (fault == nullptr) {
    for (const auto& [known, value] : w.environment) {
      if (known != name) continue;
      snprintf(out, outSize, "%s", value.c_str());
      return done(TRUE);
    }
  }
  return done(FALSE);
}

BoolType seam_HostSetEnv(const char* name, const char* value) {
  const Fault* fault = call(FN_HostSetEnv, TextArg{name}, TextArg{value});
  if (fault != nullptr) return done(FALSE);
  for (size_t i = 0; i < w.environment.size(); ++i) {
    if (w.environment[i].first != name) continue;
    w.environment.erase(w.environment.begin() + static_cast<std::ptrdiff_t>(i));
    break;
  }
  if (value != nullptr) w.environment.emplace_back(name, value);
  return done(TRUE);
}

void seam_HostSetOopPtr(OopType** where) {
  call(FN_HostSetOopPtr);
  *where = &testObject;
  doneVoid();
}

BoolType seam_VerGetVersionParam(VerParamEType id, VerParamResultSType* result) {
  const Fault* fault = call(FN_VerGetVersionParam, static_cast<int64>(id));
  if (fault != nullptr || id > VER_INFO_KV_BUILD_TYPE) return done(FALSE);
  result->kind = id == VER_INFO_PROCESSOR_COUNT ? VER_INT_KIND : VER_STRING_KIND;
  if (result->kind == VER_INT_KIND) {
    result->intVal = 2;
  } else {
    snprintf(result->stringVal, sizeof result->stringVal, "parameter %d", static_cast<int>(id));
  }
  return done(TRUE);
}

// ---- memory ----

void* seam_UtlMalloc(size_t size, int siteTag) {
  const Fault* fault = call(FN_UtlMalloc, int64{siteTag});
  if (fault != nullptr) {
    errno = ENOMEM;
    return donePointer<void>(nullptr);
  }
  auto* header = static_cast<BlockHeader*>(malloc(sizeof(BlockHeader) + size));
  if (header == nullptr) abort();
  header->size = size;
  void* block = header + 1;
  memset(block, STALE, size);
  ++w.blocks;
  w.lastBlock = block;
  w.lastBlockSize = size;
  return donePointer(block);
}

void seam_UtlFree(void* p) {
  call(FN_UtlFree);
  if (p != nullptr) {
    --w.blocks;
    BlockHeader* header = static_cast<BlockHeader*>(p) - 1;
    memset(p, STALE, header->size);
    free(header);
  }
  doneVoid();
}

}  // extern "C"
