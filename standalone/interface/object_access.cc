#include "interface/object_access.h"

#include "interface/error_state.h"
#include "memory/contents.h"
#include "memory/slot_directory.h"

#include <algorithm>

namespace kvhost::interface {

using memory::ClassInfo;
using memory::Slot;

namespace {

constexpr uint64_t HIGHEST_CODE_POINT = 0x10FFFF;

// The class of an identifier that carries its value, or nil.
OopType classOfValue(OopType oop) {
  if (oopIsSmallInteger(oop)) return OOP_CLASS_SMALL_INTEGER;
  if (oop == OOP_NIL) return CLASS_UNDEFINED_OBJECT;
  if (oop == OOP_TRUE || oop == OOP_FALSE) return CLASS_BOOLEAN;
  if (oopIsCharacter(oop) && oopCharacterCode(oop) <= HIGHEST_CODE_POINT)
    return OOP_CLASS_CHARACTER;
  return OOP_NIL;
}

Slot* reportMissing(OopType oop, ErrorNumber whenValue) {
  return failWith<Slot*>(nullptr, carriesItsValue(oop) ? whenValue : ERROR_NO_SUCH_OBJECT, oop);
}

}  // namespace

bool carriesItsValue(OopType oop) { return classOfValue(oop) != OOP_NIL; }

const ClassInfo* classInfoOf(OopType oop) {
  const Slot* slot = memory::findSlot(oop);
  if (slot != nullptr) return &memory::classOfNumber(slot->classNumber);
  return memory::findClass(classOfValue(oop));
}

bool isKindOf(OopType oop, OopType cls) {
  const ClassInfo* info = classInfoOf(oop);
  return info != nullptr && memory::inheritsFrom(*info, cls);
}

Slot* byteObjectToSet(OopType oop) {
  Slot* slot = memory::findSlot(oop);
  if (slot == nullptr) return reportMissing(oop, ERROR_NOT_BYTES);
  if ((slot->flags & memory::SLOT_POINTERS) == 0) return slot;
  return failWith<Slot*>(nullptr, ERROR_NOT_BYTES, oop);
}

Slot* byteObject(OopType oop) {
  Slot* slot = byteObjectToSet(oop);
  if (slot != nullptr) memory::setUnsetBytes(*slot);
  return slot;
}

Slot* pointerObject(OopType oop) {
  Slot* slot = memory::findSlot(oop);
  if (slot == nullptr) return reportMissing(oop, ERROR_NOT_POINTERS);
  if ((slot->flags & memory::SLOT_POINTERS) != 0) return slot;
  return failWith<Slot*>(nullptr, ERROR_NOT_POINTERS, oop);
}

Slot* characterObject(OopType oop) {
  Slot* slot = memory::findSlot(oop);
  if (slot == nullptr) return reportMissing(oop, ERROR_NOT_CHARACTERS);
  if (!memory::classOfNumber(slot->classNumber).characters) {
    return failWith<Slot*>(nullptr, ERROR_NOT_CHARACTERS, oop);
  }
  memory::setUnsetBytes(*slot);
  return slot;
}

bool mayChange(OopType oop, const Slot& slot) {
  if ((slot.flags & memory::SLOT_INVARIANT) == 0) return true;
  return failWith(false, ERROR_INVARIANT, oop);
}

bool makeRoom(OopType oop, Slot& slot, int64_t offset, int64_t count) {
  KVHOST_ASSERT(offset >= 0 && count >= 0 && (slot.flags & memory::SLOT_INVARIANT) == 0);
  int64_t end = 0;
  if (__builtin_add_overflow(offset, count, &end)) return failWith(false, ERROR_OUT_OF_RANGE, oop);
  if (end <= slot.size) return true;
  if (!memory::classOfNumber(slot.classNumber).sizeVaries) {
    return failWith(false, ERROR_SIZE_FIXED, oop);
  }
  if (memory::extendForStore(slot, offset, count)) return true;
  return failWith(false, ERROR_NO_MEMORY, oop);
}

int64_t unitsAvailable(const Slot& slot, int64_t startIndex, int64_t count) {
  KVHOST_ASSERT(startIndex >= 0 && count >= 0);
  if (startIndex > slot.size) return 0;
  return std::min(count, slot.size - startIndex + 1);
}

}  // namespace kvhost::interface
