// Arguments become C buffers here, and nowhere else; what cannot is raised.
#include "framework/arguments.h"

#include <kvfile/platform/kci.h>
#include <kvfile/platform/kcistring.h>

#include "framework/assertions.h"
#include "framework/raise.h"

#include <algorithm>

namespace kvf {

BoolType isUtf16(OopType oPath) { return KciIsKindOfClass(oPath, OOP_CLASS_UTF16_STRING); }

// Reached only where a raise comes back: the refusal of UTF-16 paths has been raised before.
static BoolType fetchUtf16Path(OopType oPath, KvfPath* dest) {
  constexpr int64 MAX_BYTES = 4094;
  dest->isUtf16 = TRUE;
  const int64 count = KciFetchBytes_(oPath, 1, reinterpret_cast<ByteType*>(dest->path), MAX_BYTES);
  if (count < 0 || count >= MAX_BYTES || (count & 1) != 0) {
    raiseError(KVF_ERR_ARGUMENT_RANGE, oPath);
    return FALSE;
  }
  dest->path[count] = '\0';
  dest->path[count + 1] = '\0';
  dest->sizeBytes = static_cast<int>(count);
  return TRUE;
}

static void raiseNoPathText(OopType oPath) {
  if (KciFetchSize_(oPath) != 0) {
    raisePendingError();
  } else {
    raiseError(KVF_ERR_PATH, oPath);
  }
}

BoolType fetchPath(OopType oPath, KvfPath* dest) {
  if (isUtf16(oPath)) {
    raiseError(KVF_ERR_PATH, oPath);
    return fetchUtf16Path(oPath, dest);
  }
  OopType converted = OOP_NIL;
  const int64 count = KciFetchUtf8Bytes_(oPath, 1, reinterpret_cast<ByteType*>(dest->path),
                                         KvfPath::MAX_UTF8_BYTES + 1, &converted, 0);
  if (count <= 0) {
    raiseNoPathText(oPath);
    return FALSE;
  }
  if (converted != OOP_NIL) KciReleaseOops(&converted, 1);
  if (count > KvfPath::MAX_UTF8_BYTES) {
    raiseError(KVF_ERR_ARGUMENT_RANGE, oPath);
    return FALSE;
  }
  dest->path[count] = '\0';
  dest->sizeBytes = static_cast<int>(count);
  dest->isUtf16 = FALSE;
  return TRUE;
}

BoolType fetchString(OopType oStr, size_t bufSize, char* buf) {
  KVF_ASSERT(bufSize >= 1);
  const int64 capacity = static_cast<int64>(bufSize) - 1;
  KciObjInfoSType info = {0, 0, OOP_NIL};
  int64 count = 0;
  if (!KciFetchObjInfo(oStr, 1, capacity, &info, reinterpret_cast<ByteType*>(buf), &count)) {
    raisePendingError();
    return FALSE;
  }
  if ((info.format & KCI_FORMAT_IMPLEMENTATION_MASK) != KCI_FORMAT_BYTES) {
    raiseError(KVF_ERR_ARGUMENT_CLASS, oStr, OOP_CLASS_STRING);
    return FALSE;
  }
  if (info.size > capacity) {
    raiseError(KVF_ERR_ARGUMENT_RANGE, oStr);
    return FALSE;
  }
  buf[std::clamp<int64>(count, 0, capacity)] = '\0';
  return TRUE;
}

}  // namespace kvf
