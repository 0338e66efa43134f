// Making objects without reporting errors: what the C interface and the embedding program share.
#pragma once

#include <kvfile/platform/oop.h>

#include "memory/class_table.h"

#include <cstdint>
#include <string_view>

namespace kvhost::interface {

// A new object of the byte class `cls` (Symbols are interned); nil when memory runs out.
OopType makeByteObject(const memory::ClassInfo& cls, std::string_view bytes);

// The integer object for `value`; nil when memory runs out.
OopType makeInteger(int64_t value);

}  // namespace kvhost::interface
