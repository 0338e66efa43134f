// The one copy of texts whose length is not known.
#include "framework/bounded_copy.h"

#include <cstring>

namespace kvf {

size_t strlcpy(char* dst, const char* src, size_t size) {
  const size_t length = strlen(src);
  if (size > 0) {
    const size_t copied = length < size ? length : size - 1;
    memcpy(dst, src, copied);
    dst[copied] = '\0';
  }
  return length;
}

}  // namespace kvf
