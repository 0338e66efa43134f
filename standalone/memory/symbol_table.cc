#include "memory/symbol_table.h"

#include "memory/contents.h"
#include "memory/object_memory.h"

#include <absl/container/flat_hash_map.h>

#include <mutex>
#include <new>

namespace kvhost::memory {

namespace {

struct SymbolTable {
  std::mutex mutex;
  ObjectMemory memory{OWNER_EVERYONE};
  absl::flat_hash_map<std::string_view, OopType> symbols;  // the texts lie in the Symbols
};

SymbolTable& symbolTable() {
  static auto* table = new SymbolTable;  // outlives every thread
  return *table;
}

// Called with the lock held. The table makes room first, so that nothing fails once the Symbol is
// there.
OopType addSymbol(SymbolTable& table, std::string_view bytes) {
  table.symbols.reserve(table.symbols.size() + 1);
  const NewObject symbol =
      table.memory.makeUnpublished(*findClass(CLASS_SYMBOL), static_cast<int64_t>(bytes.size()));
  if (symbol.slot == nullptr) return OOP_NIL;
  unsigned char* text = contentsOf(*symbol.slot);
  copyBytes(text, bytes.data(), bytes.size());
  symbol.slot->flags |= SLOT_INVARIANT | SLOT_PERMANENT;
  ObjectMemory::publish(*symbol.slot);
  const void* kept = text;
  table.symbols.emplace(std::string_view(static_cast<const char*>(kept), bytes.size()), symbol.oop);
  return symbol.oop;
}

}  // namespace

OopType internSymbol(std::string_view bytes) {
  SymbolTable& table = symbolTable();
  const std::lock_guard lock(table.mutex);
  const auto found = table.symbols.find(bytes);
  if (found != table.symbols.end()) return found->second;
  try {
    return addSymbol(table, bytes);
  } catch (const std::bad_alloc&) {
    return OOP_NIL;
  }
}

}  // namespace kvhost::memory
