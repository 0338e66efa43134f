#include "programs/costless_platform.h"

#include <kvfile/platform/host.h>
#include <kvfile/platform/kci.h>
#include <kvfile/platform/kcistring.h>
#include <kvfile/platform/kcisup.h>
#include <kvfile/platform/utl.h>

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <cstring>

struct KciOopMapEntryType {
  OopType key;
  void* value;
};
struct KciOopMapType {
  KciOopMapEntryType only;
};

namespace costless {

namespace {

constexpr int only_session = 1;

struct Platform {
  KciOopMapType* map;
  KciOopMapType only_map;
  const char* content;
  size_t content_size;
  size_t read;  // of the content, in this repetition
  int64 repetitions_left;
  const char* eol;
  size_t eol_size;
  int64 size;
  bool keeps;
};
Platform platform = {};

std::string& kept() {
  static std::string bytes;
  return bytes;
}

}  // namespace

void setContent(const std::string& content, int64 repetitions, const std::string& eol) {
  platform.content = content.data();
  platform.content_size = content.size();
  platform.read = 0;
  platform.repetitions_left = repetitions;
  platform.eol = eol.data();
  platform.eol_size = eol.size();
}

void keepStoredBytes() { platform.keeps = true; }
const std::string& storedBytes() { return kept(); }
void setSize(int64 size) { platform.size = size; }

}  // namespace costless

using costless::platform;

extern "C" {

// ---- the session and its map ----

int KciGetSessionId(void) { return costless::only_session; }
KciOopMapType* KciSupGetKvfileOopMap(int /*sessionId*/) { return platform.map; }
void KciSupStoreKvfileOopMap(int /*sessionId*/, KciOopMapType* map) { platform.map = map; }
KciOopMapType* KciOopMapCreate(void) { return &platform.only_map; }
void KciOopMapDestroy(KciOopMapType* /*map*/) {}
void KciOopMapEntryAdd(KciOopMapType* map, OopType key, void* value, int* /*status*/) {
  map->only = {key, value};
}
KciOopMapEntryType* KciOopMapEntryFind(KciOopMapType* map, OopType key) {
  return map->only.key == key ? &map->only : nullptr;
}
void* KciOopMapEntryGetValue(KciOopMapEntryType* entry) { return entry->value; }

// ---- objects ----

BoolType KciErr(KciErrSType* /*err*/) { return FALSE; }
BoolType KciIsKindOfClass(OopType obj, OopType cls) {
  return cls == OOP_CLASS_STRING && (obj == costless::eol_object || obj == costless::path_object);
}
int64 KciOopToI64_(OopType obj, int* err) {
  if (oopIsSmallInteger(obj)) return oopSmallIntegerValue(obj);
  *err = 1;
  return 0;
}
int KciOopToI32_(OopType obj, int* err) { return static_cast<int>(KciOopToI64_(obj, err)); }
OopType KciI64ToOop(int64 value) { return oopFromSmallInteger(value); }
OopType KciI32ToOop(int value) { return oopFromSmallInteger(value); }
int64 KciFetchSize_(OopType /*obj*/) { return platform.size; }
int64 KciFetchBytes_(OopType obj, int64 /*startIndex*/, ByteType* buf, int64 count) {
  if (obj != costless::eol_object) return count;
  std::memcpy(buf, platform.eol, platform.eol_size);
  return static_cast<int64>(platform.eol_size);
}
OopType KciCreateByteObj(OopType /*cls*/, OopType /*objId*/, const ByteType* /*bytes*/, int64 size,
                         int /*clusterId*/, BoolType /*makePermanent*/) {
  platform.size = size;
  return costless::bytes_object;
}
void KciStoreBytesInstanceOf(OopType /*cls*/, OopType /*obj*/, int64 startIndex,
                             const ByteType* bytes, int64 count) {
  platform.size = startIndex - 1 + count;
  if (!platform.keeps) return;
  std::string& kept = costless::kept();
  kept.resize(static_cast<size_t>(startIndex - 1));
  const void* stored = bytes;
  kept.append(static_cast<const char*>(stored), static_cast<size_t>(count));
}
void KciSetVaryingSize(OopType /*obj*/, int64 size) { platform.size = size; }

// ---- texts: the path and the modes ----

int64 KciFetchUtf8Bytes_(OopType /*str*/, int64 startIndex, ByteType* buf, int64 /*maxBytes*/,
                         OopType* /*utf8String*/, int /*flags*/) {
  if (startIndex > 1) return 0;
  buf[0] = 'f';
  return 1;
}
BoolType KciFetchObjInfo(OopType obj, int64 /*startIndex*/, int64 /*bufSize*/,
                         KciObjInfoSType* info, ByteType* buf, int64* numRet) {
  buf[0] = obj == costless::mode_w_object ? 'w' : 'r';
  *numRet = 1;
  *info = {1, KCI_FORMAT_BYTES, OOP_CLASS_STRING};
  return TRUE;
}

// ---- memory and the file ----

void* UtlMalloc(size_t size, int /*siteTag*/) { return std::malloc(size); }
void UtlFree(void* p) { std::free(p); }

FILE* HostOpenFile(const char* /*path*/, const char* mode, HostErrSType* /*err*/, int /*flag*/) {
  return std::fopen("/dev/null", mode);
}

ssize_t HostReadFile_(int /*fd*/, void* buf, size_t count) {
  if (platform.read == platform.content_size) {
    if (--platform.repetitions_left <= 0) return 0;
    platform.read = 0;
  }
  const size_t given = std::min(count, platform.content_size - platform.read);
  std::memcpy(buf, platform.content + platform.read, given);
  platform.read += given;
  return static_cast<ssize_t>(given);
}

ssize_t HostWriteFile_(int /*fd*/, const void* /*buf*/, size_t count) {
  return static_cast<ssize_t>(count);
}

// The position is the system's to tell, and a system call is no part of the module's own time.
off_t lseek(int /*fd*/, off_t offset, int /*whence*/) noexcept { return offset; }
off64_t lseek64(int /*fd*/, off64_t offset, int /*whence*/) noexcept { return offset; }

}  // extern "C"
