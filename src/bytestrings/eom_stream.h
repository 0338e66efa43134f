// Reading a byte object piece by piece.
#pragma once

#include <kvfile/platform/oop.h>

#include <type_traits>

namespace kvf {

inline constexpr int64 EOMBUFFERSIZE = 4096;

struct EomStream {
  OopType obytes;
  int64 size;      // of the object, when the stream was opened
  int64 idx;       // 0-based offset of the next byte to deliver
  int64 bufindex;  // next unread position in the buffer
  int64 bufbytes;  // valid bytes in the buffer
  uint8 buffer[EOMBUFFERSIZE];
};
static_assert(std::is_trivially_destructible_v<EomStream>);

// Opens a stream over `oBytes` that begins at the 1-based index `idx`. May leave by an interface
// error.
void eomReadStreamOpen(OopType oBytes, int64 idx, EomStream* stream);

// Delivers the next byte, refilling the buffer from the object where it is empty. FALSE at the end.
// Bytes that a short fetch left out, and bytes before the object's start, are delivered as 0. May
// leave by an interface error.
BoolType eomReadStreamNext(EomStream* stream, unsigned char* chp);

}  // namespace kvf
