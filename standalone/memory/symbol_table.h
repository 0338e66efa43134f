// The Symbols: one for each text in the whole process, seen by all threads and never freed.
#pragma once

#include <kvfile/platform/oop.h>

#include <string_view>

namespace kvhost::memory {

// The Symbol of these bytes, made when there is none yet; nil when memory runs out.
OopType internSymbol(std::string_view bytes);

}  // namespace kvhost::memory
