// What the C interface's functions ask of an object before they touch it: each check reports the
// error that it finds and answers null or false then.
#pragma once

#include "memory/class_table.h"
#include "memory/slot.h"

#include <cstdint>

namespace kvhost::interface {

// The class of any identifier; null when it names no object.
const memory::ClassInfo* classInfoOf(OopType oop);

// True when `oop` is nil, a Boolean, a Character or a SmallInteger.
bool carriesItsValue(OopType oop);

// True when `oop` names an object of `cls` or of a class below it.
bool isKindOf(OopType oop, OopType cls);

// The slot of an object that holds bytes (elements, text); null after reporting why not.
memory::Slot* byteObject(OopType oop);
memory::Slot* byteObjectToSet(OopType oop);  // whose bytes may not have been set yet
memory::Slot* pointerObject(OopType oop);
memory::Slot* characterObject(OopType oop);

// True when a store may change the object; false after reporting why not.
bool mayChange(OopType oop, const memory::Slot& slot);

// Makes room so that `count` units can be stored from the 0-based `offset` on, which the caller does
// at once; false after reporting why that cannot be.
bool makeRoom(OopType oop, memory::Slot& slot, int64_t offset, int64_t count);

// Units that a fetch of `count` from the 1-based `startIndex` on gives: fewer at the end, 0 behind
// it. Neither is negative.
int64_t unitsAvailable(const memory::Slot& slot, int64_t startIndex, int64_t count);

}  // namespace kvhost::interface
