#include "memory/class_table.h"

#include <array>
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

constexpr OopType HIGHEST_CLASS = CLASS_KV_FILE;
constexpr uint8_t NO_CLASS = 0xFF;

// Slot number to index in CLASSES, so that a look-up is one load.
constexpr auto INDEX_OF_NUMBER = [] {
  std::array<uint8_t, slotNumberOf(HIGHEST_CLASS) + 1> result{};
  result.fill(NO_CLASS);
  for (size_t i = 0; i < CLASSES.size(); ++i) {
    result.at(slotNumberOf(CLASSES.at(i).id)) = static_cast<uint8_t>(i);
  }
  return result;
}();

uint8_t indexOfNumber(uint64_t number) {
  return number < INDEX_OF_NUMBER.size() ? INDEX_OF_NUMBER[number] : NO_CLASS;
}

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

const ClassInfo* findClass(OopType id) {
  if (!hasSlotTag(id)) return nullptr;
  const uint8_t index = indexOfNumber(slotNumberOf(id));
  return index == NO_CLASS ? nullptr : &CLASSES[index];
}

const ClassInfo& classOfNumber(uint32_t number) { return CLASSES[INDEX_OF_NUMBER[number]]; }

bool inheritsFrom(const ClassInfo& cls, OopType ancestor) {
  for (const ClassInfo* each = &cls; each != nullptr; each = findClass(each->superclass)) {
    if (each->id == ancestor) return true;
  }
  return false;
}

Slot* fixedSlot(uint64_t number) {
  if (number == slotNumberOf(OOP_ERROR_CATEGORY)) return &fixedSlots.back();
  const uint8_t index = indexOfNumber(number);
  return index == NO_CLASS ? nullptr : &fixedSlots[index];
}

}  // namespace kvhost::memory
