// Integers to identifiers and back.
#include <kvfile/kvhost.h>

#include "interface/error_state.h"
#include "interface/object_creation.h"
#include "memory/slot_directory.h"

#include <cstring>
#include <limits>

namespace {

// Out of line, so that SmallIntegers have a short way.
[[gnu::noinline]] int64 largeIntegerValue(OopType obj, int* err) {
  kvhost::memory::Slot* slot = kvhost::memory::findMadeSlot(obj);
  if (slot == nullptr ||
      slot->classNumber != kvhost::memory::slotNumberOf(kvhost::CLASS_LARGE_INTEGER)) {
    *err = 1;
    return 0;
  }
  int64 value = 0;
  std::memcpy(&value, contentsOf(*slot), sizeof value);
  return value;
}

}  // namespace

extern "C" {

int64 KciOopToI64_(OopType obj, int* err) {
  return oopIsSmallInteger(obj) != FALSE ? oopSmallIntegerValue(obj) : largeIntegerValue(obj, err);
}

int KciOopToI32_(OopType obj, int* err) {
  int failed = 0;
  const int64 value = KciOopToI64_(obj, &failed);
  if (failed != 0 || value < std::numeric_limits<int>::min() ||
      value > std::numeric_limits<int>::max()) {
    *err = 1;
    return 0;
  }
  return static_cast<int>(value);
}

OopType KciI64ToOop(int64 value) {
  const OopType made = kvhost::interface::makeInteger(value);
  if (made != OOP_NIL) return made;
  return kvhost::interface::failWith(OOP_NIL, kvhost::interface::ERROR_NO_MEMORY,
                                     kvhost::CLASS_LARGE_INTEGER);
}

OopType KciI32ToOop(int value) { return oopFromSmallInteger(value); }

}  // extern "C"
