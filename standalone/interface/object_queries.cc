// Asking objects: class, size, bytes and elements.
#include "interface/error_state.h"
#include "interface/object_access.h"
#include "memory/contents.h"
#include "memory/slot_directory.h"

#include <algorithm>

using kvhost::interface::failWith;
using kvhost::memory::Slot;

namespace {

// Of these bytes cannot be fetched as they lie there.
constexpr int KEPT_BACK = kvhost::memory::SLOT_POINTERS | kvhost::memory::SLOT_UNSET;

// Out of line, so that objects have a short way.
[[gnu::cold, gnu::noinline]] int64 sizeOfOther(OopType oop) {
  const Slot* slot = kvhost::memory::findSlot(oop);
  if (slot != nullptr) return slot->size;
  if (kvhost::interface::carriesItsValue(oop)) return 0;
  return failWith<int64>(0, kvhost::interface::ERROR_NO_SUCH_OBJECT, oop);
}

}  // namespace

extern "C" {

BoolType KciIsKindOfClass(OopType obj, OopType cls) {
  const Slot* slot = kvhost::memory::findMadeSlot(obj);
  if (slot != nullptr && kvhost::memory::oopOfSlot(slot->classNumber) == cls) return TRUE;
  return kvhost::interface::isKindOf(obj, cls) ? TRUE : FALSE;
}

int64 KciFetchSize_(OopType obj) {
  const Slot* slot = kvhost::memory::findMadeSlot(obj);
  return slot != nullptr ? slot->size : sizeOfOther(obj);
}

int64 KciFetchBytes_(OopType obj, int64 startIndex, ByteType* buf, int64 count) {
  Slot* slot = kvhost::memory::findMadeSlot(obj);
  if (slot == nullptr || (slot->flags & KEPT_BACK) != 0) slot = kvhost::interface::byteObject(obj);
  if (slot == nullptr) return 0;
  if (startIndex < 0 || count < 0) {
    return failWith<int64>(0, kvhost::interface::ERROR_OUT_OF_RANGE, obj);
  }
  const int64 first = std::max<int64>(startIndex, 1);
  const int64 available = kvhost::interface::unitsAvailable(*slot, first, count);
  if (available == 0) return 0;
  kvhost::memory::copyBytes(buf, contentsOf(*slot) + first - 1, static_cast<size_t>(available));
  return available;
}

int KciFetchOops(OopType obj, int64 startIndex, OopType* buf, int count) {
  Slot* slot = kvhost::interface::pointerObject(obj);
  if (slot == nullptr) return 0;
  if (startIndex < 1 || count < 0) {
    return failWith(0, kvhost::interface::ERROR_OUT_OF_RANGE, obj);
  }
  const int64 available = kvhost::interface::unitsAvailable(*slot, startIndex, count);
  std::copy_n(elementsIn(*slot) + (available > 0 ? startIndex - 1 : 0), available, buf);
  return static_cast<int>(available);
}

BoolType KciFetchObjInfo(OopType obj, int64 startIndex, int64 bufSize, KciObjInfoSType* info,
                         ByteType* buf, int64* numRet) {
  const kvhost::memory::ClassInfo* cls = kvhost::interface::classInfoOf(obj);
  if (cls == nullptr) return failWith(FALSE, kvhost::interface::ERROR_NO_SUCH_OBJECT, obj);
  if (startIndex < 0 || bufSize < 0) {
    return failWith(FALSE, kvhost::interface::ERROR_OUT_OF_RANGE, obj);
  }
  const Slot* slot = kvhost::memory::findSlot(obj);
  const bool hasBytes = slot != nullptr && (slot->flags & kvhost::memory::SLOT_POINTERS) == 0;
  info->size = slot != nullptr ? slot->size : 0;
  info->format = hasBytes ? KCI_FORMAT_BYTES : KCI_FORMAT_POINTERS;
  info->objClass = cls->id;
  const int64 copied = hasBytes ? KciFetchBytes_(obj, startIndex, buf, bufSize) : 0;
  if (numRet != nullptr) *numRet = copied;
  return TRUE;
}

}  // extern "C"
