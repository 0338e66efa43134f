// Stores into objects, and changes of their size.
#include "interface/dropped_files.h"
#include "interface/error_state.h"
#include "interface/object_access.h"
#include "memory/contents.h"

#include <algorithm>

using kvhost::interface::fail;
using kvhost::memory::Slot;

namespace {

bool isIndexRange(OopType obj, int64 startIndex, int64 count) {
  if (startIndex >= 1 && count >= 0) return true;
  fail(kvhost::interface::ERROR_OUT_OF_RANGE, obj);
  return false;
}

// The elements from `from` to `to`, of which there may be none, are about to be overwritten.
void noteDroppedElements(Slot& slot, int64 from, int64 to) {
  const OopType* elements = elementsIn(slot);
  for (int64 i = from; i < to; ++i) kvhost::interface::noteDroppedReference(elements[i]);
}

void storeElements(OopType obj, Slot& slot, int64 offset, const OopType* values, int64 count) {
  const int64 oldSize = slot.size;
  if (count == 0 || !kvhost::interface::makeRoom(obj, slot, offset, count)) return;
  noteDroppedElements(slot, offset, std::min(offset + count, oldSize));
  std::copy_n(values, count, elementsIn(slot) + offset);
}

// A store that needs no more than copying: within an object that may be changed, of no class in
// particular.
bool isPlainStore(OopType cls, const Slot* slot, int64 startIndex, int64 count) {
  constexpr int KEEP_OUT = kvhost::memory::SLOT_POINTERS | kvhost::memory::SLOT_INVARIANT;
  return slot != nullptr && cls == OOP_NIL && (slot->flags & KEEP_OUT) == 0 && startIndex >= 1 &&
         count >= 0 && count <= slot->size - (startIndex - 1);
}

// Any other: the object is checked, and grows where its class allows.
[[gnu::noinline]] void checkAndStoreBytes(OopType cls, OopType obj, int64 startIndex,
                                          const ByteType* bytes, int64 count) {
  Slot* slot = kvhost::interface::byteObjectToSet(obj);
  if (slot == nullptr) return;
  if (cls != OOP_NIL && !kvhost::interface::isKindOf(obj, cls)) {
    fail(kvhost::interface::ERROR_WRONG_CLASS, obj, cls);
    return;
  }
  if (!kvhost::interface::mayChange(obj, *slot) || !isIndexRange(obj, startIndex, count)) return;
  if (count == 0) return;
  kvhost::memory::setUnsetBytes(*slot);
  if (!kvhost::interface::makeRoom(obj, *slot, startIndex - 1, count)) return;
  kvhost::memory::copyBytes(contentsOf(*slot) + startIndex - 1, bytes, static_cast<size_t>(count));
}

}  // namespace

extern "C" {

void KciStoreBytesInstanceOf(OopType cls, OopType obj, int64 startIndex, const ByteType* bytes,
                             int64 count) {
  Slot* slot = kvhost::memory::findMadeSlot(obj);
  if (!isPlainStore(cls, slot, startIndex, count)) {
    checkAndStoreBytes(cls, obj, startIndex, bytes, count);
    return;
  }
  kvhost::memory::setUnsetBytes(*slot, startIndex - 1, count);
  kvhost::memory::copyBytes(contentsOf(*slot) + startIndex - 1, bytes, static_cast<size_t>(count));
}

void KciStoreOop(OopType obj, int64 index, OopType value) { KciStoreOops(obj, index, &value, 1); }

void KciStoreOops(OopType obj, int64 startIndex, const OopType* values, int count) {
  Slot* slot = kvhost::interface::pointerObject(obj);
  if (slot == nullptr || !kvhost::interface::mayChange(obj, *slot)) return;
  if (isIndexRange(obj, startIndex, count)) {
    storeElements(obj, *slot, startIndex - 1, values, count);
  }
}

void KciAppendOops(OopType array, int64 count, const OopType* values) {
  Slot* slot = kvhost::interface::pointerObject(array);
  if (slot == nullptr || !kvhost::interface::mayChange(array, *slot)) return;
  if (isIndexRange(array, 1, count)) storeElements(array, *slot, slot->size, values, count);
}

void KciSetVaryingSize(OopType obj, int64 size) {
  Slot* slot = kvhost::memory::findSlot(obj);
  if (slot == nullptr) {
    fail(kvhost::interface::carriesItsValue(obj) ? kvhost::interface::ERROR_SIZE_FIXED
                                                 : kvhost::interface::ERROR_NO_SUCH_OBJECT,
         obj);
    return;
  }
  if (!kvhost::interface::mayChange(obj, *slot) || !isIndexRange(obj, 1, size)) return;
  if (!kvhost::memory::classOfNumber(slot->classNumber).sizeVaries) {
    fail(kvhost::interface::ERROR_SIZE_FIXED, obj);
    return;
  }
  if ((slot->flags & kvhost::memory::SLOT_POINTERS) != 0) {
    noteDroppedElements(*slot, size, slot->size);
  }
  if (!kvhost::memory::resize(*slot, size)) fail(kvhost::interface::ERROR_NO_MEMORY, obj);
}

}  // extern "C"
