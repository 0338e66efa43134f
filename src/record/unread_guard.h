// A guard behind the bytes of a read buffer: under the address sanitizer the part that holds no bytes
// is out of bounds, so that a use of what an earlier read left there is reported. Other builds have
// nothing of it.
#pragma once

#include <kvfile/platform/oop.h>

#if defined(__SANITIZE_ADDRESS__)
#define KVF_ADDRESS_SANITIZER
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define KVF_ADDRESS_SANITIZER
#endif
#endif

#ifdef KVF_ADDRESS_SANITIZER
#include <sanitizer/asan_interface.h>
#endif

namespace kvf {

// Closes [from, end). The sanitizer knows memory by eights: where memory in use follows within the
// last of them, that one stays open.
inline void guardBytes([[maybe_unused]] const ByteType* from,
                       [[maybe_unused]] const ByteType* end) {
#ifdef KVF_ADDRESS_SANITIZER
  ASAN_POISON_MEMORY_REGION(from, static_cast<size_t>(end - from));
#endif
}

// Opens [from, end), to be filled or given back.
inline void unguardBytes([[maybe_unused]] const ByteType* from,
                         [[maybe_unused]] const ByteType* end) {
#ifdef KVF_ADDRESS_SANITIZER
  ASAN_UNPOISON_MEMORY_REGION(from, static_cast<size_t>(end - from));
#endif
}

}  // namespace kvf
