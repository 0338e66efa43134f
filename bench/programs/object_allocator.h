// Strings of the standalone host, made by its object allocator and by nothing around it.
#pragma once

#include <kvfile/kvhost.h>

#include "memory/class_table.h"
#include "memory/object_memory.h"
#include "programs/program.h"
#include "programs/shapes.h"

#include <cstring>

namespace bench {

// Makes Strings and collects them after a while, because none of them lives on.
class StringMaker {
 public:
  static constexpr int64_t never = -1;

  // For Strings of about `size` bytes; `never`: they are not collected.
  explicit StringMaker(int64_t size)
      : period_(size == never ? INT64_MAX : objectsBetweenCollections(size)) {}

  OopType make(const char* bytes, size_t size) {
    const kvhost::memory::NewObject object = memory_.make(class_, static_cast<int64_t>(size));
    if (object.slot == nullptr) give_up("memory");
    std::memcpy(kvhost::memory::contentsOf(*object.slot), bytes, size);
    if (--left_ <= 0) {
      kvhost::collectGarbage();
      left_ = period_;
    }
    return object.oop;
  }

 private:
  kvhost::memory::ObjectMemory& memory_ = kvhost::memory::threadMemory();
  const kvhost::memory::ClassInfo& class_ = *kvhost::memory::findClass(OOP_CLASS_STRING);
  int64_t period_;
  int64_t left_ = period_;
};

}  // namespace bench
