// Objects for the embedding program: making them and looking into them.
#include <kvfile/kvhost.h>

#include "interface/dropped_files.h"
#include "interface/object_access.h"
#include "interface/object_creation.h"
#include "memory/contents.h"

#include <algorithm>
#include <new>

namespace kvhost {

using memory::ClassInfo;
using memory::Slot;

namespace {

OopType orThrow(OopType made) {
  if (made == OOP_NIL) throw std::bad_alloc();
  return made;
}

OopType newBytes(OopType cls, std::string_view bytes) {
  return orThrow(interface::makeByteObject(*memory::findClass(cls), bytes));
}

}  // namespace

OopType newKvFile() {
  const OopType file =
      orThrow(memory::threadMemory().make(*memory::findClass(CLASS_KV_FILE), 0).oop);
  interface::noteNewFile(file);
  return file;
}

OopType newString(std::string_view bytes) { return newBytes(OOP_CLASS_STRING, bytes); }

OopType newSymbol(std::string_view bytes) { return newBytes(CLASS_SYMBOL, bytes); }

OopType newByteArray(std::string_view bytes) { return newBytes(CLASS_BYTE_ARRAY, bytes); }

OopType newUtf8(std::string_view bytes) { return newBytes(OOP_CLASS_UTF8_STRING, bytes); }

OopType newUtf16(std::u16string_view units) {
  const void* bytes = units.data();
  return newBytes(OOP_CLASS_UTF16_STRING, {static_cast<const char*>(bytes), units.size() * 2});
}

OopType newArray(const std::vector<OopType>& elements) {
  const memory::NewObject made = memory::threadMemory().make(*memory::findClass(OOP_CLASS_ARRAY),
                                                             static_cast<int64_t>(elements.size()));
  if (made.slot != nullptr) std::copy(elements.begin(), elements.end(), elementsIn(*made.slot));
  return orThrow(made.oop);
}

OopType newInteger(int64 value) { return orThrow(interface::makeInteger(value)); }

OopType classOf(OopType object) {
  const ClassInfo* info = interface::classInfoOf(object);
  return info != nullptr ? info->id : OOP_NIL;
}

std::string_view className(OopType cls) {
  const ClassInfo* info = memory::findClass(cls);
  return info != nullptr ? info->name : std::string_view();
}

OopType classNamed(std::string_view name) {
  for (const ClassInfo& info : memory::allClasses()) {
    if (info.name == name) return info.id;
  }
  return OOP_NIL;
}

bool isValid(OopType object) { return interface::classInfoOf(object) != nullptr; }

std::string bytesOf(OopType object) {
  Slot* slot = memory::findSlot(object);
  if (slot == nullptr || (slot->flags & memory::SLOT_POINTERS) != 0) return {};
  memory::setUnsetBytes(*slot);
  const void* bytes = contentsOf(*slot);
  return {static_cast<const char*>(bytes), static_cast<size_t>(slot->size)};
}

std::vector<OopType> elementsOf(OopType object) {
  Slot* slot = memory::findSlot(object);
  if (slot == nullptr || (slot->flags & memory::SLOT_POINTERS) == 0) return {};
  return {elementsIn(*slot), elementsIn(*slot) + slot->size};
}

void makeInvariant(OopType object) {
  Slot* slot = memory::findSlot(object);
  // Classes, which all threads share, are invariant already and must not be written to.
  if (slot == nullptr || (slot->flags & memory::SLOT_INVARIANT) != 0) return;
  slot->flags |= memory::SLOT_INVARIANT;
}

void addRoot(const OopType* address) { memory::threadMemory().roots.insert(address); }

void removeRoot(const OopType* address) { memory::threadMemory().roots.erase(address); }

int64 objectsSinceCollection() { return memory::threadMemory().objectsSinceCollection(); }

int64 bytesSinceCollection() { return memory::threadMemory().bytesSinceCollection(); }

int64 liveObjects() { return memory::threadMemory().liveObjects(); }

}  // namespace kvhost
