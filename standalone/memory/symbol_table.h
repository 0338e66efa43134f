// The Symbols: one for each text in a thread, never freed before the thread ends.
#pragma once

#include <kvfile/platform/oop.h>

#include <string_view>

namespace kvhost::memory {

// The Symbol of these bytes, made when there is none yet; nil when memory runs out.
OopType internSymbol(std::string_view bytes);

}  // namespace kvhost::memory
