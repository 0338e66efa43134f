// A byte object is fetched 4096 bytes at a time, as its reader goes.
#include "bytestrings/eom_stream.h"

#include <kvfile/platform/kci.h>

#include "framework/wrapping.h"

#include <algorithm>
#include <cstring>

namespace kvf {

void eomReadStreamOpen(OopType oBytes, int64 idx, EomStream* stream) {
  stream->obytes = oBytes;
  stream->size = KciFetchSize_(oBytes);
  stream->idx = wrappingSubtract(idx, 1);
  stream->bufindex = 0;
  stream->bufbytes = 0;
}

// What a short fetch leaves out is delivered as 0.
static void clearLeftOut(EomStream* stream, int64 fetched, int64 wanted) {
  const int64 from = std::clamp<int64>(fetched, 0, wanted);
  memset(&stream->buffer[from], 0, static_cast<size_t>(wanted - from));
}

static BoolType refill(EomStream* stream) {
  if (stream->idx >= stream->size) return FALSE;
  // Far below the object's start the difference wraps to a negative number: that is plenty, too.
  const int64 left = wrappingSubtract(stream->size, stream->idx);
  const int64 wanted = left > 0 && left < EOMBUFFERSIZE ? left : EOMBUFFERSIZE;
  const int64 fetched = KciFetchBytes_(stream->obytes, stream->idx + 1, stream->buffer, wanted);
  // A later one leaves out what the buffer holds already, and never wants more than the first.
  if (stream->bufbytes == 0) clearLeftOut(stream, fetched, wanted);
  stream->bufbytes = wanted;
  stream->bufindex = 0;
  return TRUE;
}

BoolType eomReadStreamNext(EomStream* stream, unsigned char* chp) {
  if (stream->bufindex == stream->bufbytes && !refill(stream)) return FALSE;
  *chp = stream->buffer[stream->bufindex++];
  ++stream->idx;
  return TRUE;
}

}  // namespace kvf
