#include "memory/symbol_table.h"

#include "memory/contents.h"
#include "memory/object_memory.h"

#include <new>

namespace kvhost::memory {

namespace {

// A Symbol is permanent only once the table knows it: what fails before leaves garbage to collect.
OopType addSymbol(ObjectMemory& memory, std::string_view bytes) {
  const NewObject symbol =
      memory.make(*findClass(CLASS_SYMBOL), static_cast<int64_t>(bytes.size()));
  if (symbol.slot == nullptr) return OOP_NIL;
  unsigned char* text = contentsOf(*symbol.slot);
  copyBytes(text, bytes.data(), bytes.size());
  const void* kept = text;
  memory.symbols.emplace(std::string_view(static_cast<const char*>(kept), bytes.size()),
                         symbol.oop);
  symbol.slot->flags |= SLOT_INVARIANT | SLOT_PERMANENT;
  return symbol.oop;
}

}  // namespace

OopType internSymbol(std::string_view bytes) {
  ObjectMemory& memory = threadMemory();
  const auto found = memory.symbols.find(bytes);
  if (found != memory.symbols.end()) return found->second;
  try {
    return addSymbol(memory, bytes);
  } catch (const std::bad_alloc&) {
    return OOP_NIL;
  }
}

}  // namespace kvhost::memory
