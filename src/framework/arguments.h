// Fetching the arguments of actions into C buffers. Each function answers true on success; on
// failure it has raised an error and answers false, should the raise come back.
#pragma once

#include <kvfile/platform/oop.h>

#include <cstddef>
#include <type_traits>

namespace kvf {

// A path argument.
struct KvfPath {
  static constexpr int MAX_UTF8_BYTES = 4095;  // the longest path accepted, without its NUL

  int sizeBytes = 0;         // without the terminator
  BoolType isUtf16 = FALSE;  // never true on this platform, where such paths are refused
  char path[4100];           // NUL-terminated

  KvfPath() { path[0] = '\0'; }
};
static_assert(std::is_trivially_destructible_v<KvfPath>);

// True when the object is a UTF-16 string.
BoolType isUtf16(OopType oPath);

/// Host calls of the path fetch: KciIsKindOfClass and KciFetchUtf8Bytes_; KciReleaseOops for a text
///   that the host had to convert; KciFetchSize_ where no byte came, and KciErr where that was a
///   failure.
//
// Fetches the UTF-8 bytes of a path. Raises 2718 for a UTF-16 string and for an empty path, 2061
// for more than 4095 bytes, and the interface's own error for an object that has no text.
BoolType fetchPath(OopType oPath, KvfPath* dest);

/// Host calls of the string fetch: KciFetchObjInfo, and KciErr where that failed.
//
// Fetches a String or Symbol, or any byte object, of at most `bufSize` - 1 bytes, terminated.
// Raises 2094 (with class String) for an object of another format, 2061 for a longer one, and the
// interface's own error where it cannot be fetched.
BoolType fetchString(OopType oStr, size_t bufSize, char* buf);

}  // namespace kvf
