// The classes of the standalone host. They are fixed: no class is made at run time, so that asking
// for one takes no lock.
#pragma once

#include <kvfile/kvhost.h>
#include <kvfile/platform/oop.h>

#include "memory/assertions.h"
#include "memory/slot.h"

#include <array>
#include <span>
#include <string_view>

namespace kvhost::memory {

enum class Format : uint8_t { Bytes, Pointers };

// Who may make instances of a class.
enum class Making : uint8_t {
  Anyone,    // KciNewOop and the byte object functions
  Specially  // only the function that knows what its instances hold
};

struct ClassInfo {
  OopType id;
  std::string_view name;
  OopType superclass;  // nil above Object
  Format format;
  Making making;
  bool sizeVaries;
  bool characters;    // instances hold text
  int64_t fixedSize;  // of instances whose size does not vary
};

// All classes, superclasses first.
std::span<const ClassInfo> allClasses();

// The classes by the number of their slot, and null between them, so that a look-up is one load.
inline constexpr uint64_t CLASS_NUMBERS = slotNumberOf(CLASS_KV_FILE) + 1;
extern const std::array<const ClassInfo*, CLASS_NUMBERS> CLASSES_BY_NUMBER;

// The class with this identifier, or null.
inline const ClassInfo* findClass(OopType id) {
  const uint64_t number = slotNumberOf(id);
  return hasSlotTag(id) && number < CLASS_NUMBERS ? CLASSES_BY_NUMBER[number] : nullptr;
}

// The class whose slot number is `number`; it must be one.
inline const ClassInfo& classOfNumber(uint32_t number) {
  KVHOST_ASSERT(number < CLASS_NUMBERS && CLASSES_BY_NUMBER[number] != nullptr);
  return *CLASSES_BY_NUMBER[number];
}

// True when `cls` is `ancestor` or inherits from it.
bool inheritsFrom(const ClassInfo& cls, OopType ancestor);

// The slot of a class object or of the error category; null when `number` is none of them.
[[gnu::cold, gnu::noinline]] Slot* fixedSlot(uint64_t number);

}  // namespace kvhost::memory
