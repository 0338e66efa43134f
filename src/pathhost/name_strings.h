// Strings for texts of the host, whose bytes may be more than ASCII.
#pragma once

#include <kvfile/platform/kci.h>
#include <kvfile/platform/kcistring.h>

namespace kvf {

// A new String when every byte of `text` is below 128, else a new UTF-8 string. May leave by an
// interface error.
inline OopType newNameString(const char* text) {
  size_t length = 0;
  const bool isAscii = KciAll7Bit(text, &length) != 0;
  return KciNewByteObj(isAscii ? OOP_CLASS_STRING : OOP_CLASS_UTF8_STRING, text, length);
}

}  // namespace kvf
