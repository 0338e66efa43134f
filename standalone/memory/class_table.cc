#include "memory/class_table.h"

#include <cstddef>

namespace kvhost::memory {

namespace {

constexpr std::array CLASSES = {
    ClassInfo{CLASS_OBJECT, "Object", OOP_NIL, Format::Pointers, Making::Anyone, false, false, 0},
    ClassInfo{CLASS_CLASS, "Class", CLASS_OBJECT, Format::Pointers, Making::Specially, false, false,
              0},
    ClassInfo{CLASS_UNDEFINED_OBJECT, "UndefinedObject", CLASS_OBJECT, Format::Pointers,
              Making::Specially, false, false, 0},
    ClassInfo{CLASS_BOOLEAN, "Boolean", CLASS_OBJECT, Format::Pointers, Making::Specially, false,
              false, 0},
    ClassInfo{OOP_CLASS_CHARACTER, "Character", CLASS_OBJECT, Format::Pointers, Making::Specially,
              false, false, 0},
    ClassInfo{OOP_CLASS_SMALL_INTEGER, "SmallInteger", CLASS_OBJECT, Format::Pointers,
              Making::Specially, false, false, 0},
    ClassInfo{CLASS_LARGE_INTEGER, "LargeInteger", CLASS_OBJECT, Format::Bytes, Making::Specially,
              false, false, 8},
    ClassInfo{OOP_CLASS_ARRAY, "Array", CLASS_OBJECT, Format::Pointers, Making::Anyone, true, false,
              0},
    ClassInfo{CLASS_BYTE_ARRAY, "ByteArray", CLASS_OBJECT, Format::Bytes, Making::Anyone, true,
              false, 0},
    ClassInfo{OOP_CLASS_STRING, "String", CLASS_OBJECT, Format::Bytes, Making::Anyone, true, true,
              0},
    ClassInfo{CLASS_SYMBOL, "Symbol", OOP_CLASS_STRING, Format::Bytes, Making::Specially, false,
              true, 0},
    ClassInfo{OOP_CLASS_UTF8_STRING, "Utf8", CLASS_OBJECT, Format::Bytes, Making::Anyone, true,
              true, 0},
    ClassInfo{OOP_CLASS_UTF16_STRING, "Utf16", CLASS_OBJECT, Format::Bytes, Making::Anyone, true,
              true, 0},
    ClassInfo{OOP_CLASS_DATE_TIME, "DateTime", CLASS_OBJECT, Format::Pointers, Making::Specially,
              false, false, 4},
    ClassInfo{CLASS_KV_FILE, "KvFile", CLASS_OBJECT, Format::Pointers, Making::Anyone, false, false,
              0},
};

// One object for each class, and the error category behind them.
using FixedSlots = std::array<Slot, CLASSES.size() + 1>;

constexpr Slot fixedObject(OopType cls) {
  Slot slot{};
  slot.classNumber = static_cast<uint32_t>(slotNumberOf(cls));
  slot.flags = SLOT_LIVE | SLOT_POINTERS | SLOT_INVARIANT | SLOT_PERMANENT;
  return slot;
}

// Nobody writes to them; they are no constants because slots are handed out as changeable.
constinit FixedSlots fixedSlots = [] {
  FixedSlots slots{};
  slots.fill(fixedObject(CLASS_CLASS));
  slots.back() = fixedObject(CLASS_OBJECT);
  return slots;
}();

}  // namespace

std::span<const ClassInfo> allClasses() { return CLASSES; }

constexpr std::array<const ClassInfo*, CLASS_NUMBERS> CLASSES_BY_NUMBER = [] {
  std::array<const ClassInfo*, CLASS_NUMBERS> result{};
  for (const ClassInfo& info : CLASSES) result.at(slotNumberOf(info.id)) = &info;
  return result;
}();

bool inheritsFrom(const ClassInfo& cls, OopType ancestor) {
  for (const ClassInfo* each = &cls; each != nullptr; each = findClass(each->superclass)) {
    if (each->id == ancestor) return true;
  }
  return false;
}

Slot* fixedSlot(uint64_t number) {
  if (number == slotNumberOf(OOP_ERROR_CATEGORY)) return &fixedSlots.back();
  if (number >= CLASS_NUMBERS || CLASSES_BY_NUMBER[number] == nullptr) return nullptr;
  return &fixedSlots[static_cast<size_t>(CLASSES_BY_NUMBER[number] - CLASSES.data())];
}

}  // namespace kvhost::memory
