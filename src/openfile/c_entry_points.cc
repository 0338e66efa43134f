// The functions by which other C modules read and write files that Smalltalk opened.
#include <kvfile/kvfile.h>

#include "framework/bounded_copy.h"
#include "framework/texts.h"
#include "framework/wrapping.h"
#include "record/line_reader.h"
#include "record/registry.h"

#include <algorithm>
#include <climits>

using namespace kvf;

BoolType KvFileWrite(OopType oFile, const ByteType* buffer, intptr_t numBytes, int sessId) {
  KvFileDataSType* p = fetchKvFile(oFile, sessId);
  if (p == nullptr) return FALSE;
  if (!p->clearReadBufBeforeWrite()) return FALSE;
  p->kvclearerr();
  // Pointer and length stay the same for every write. Only a host that writes short, or a count
  // past what an int holds, shows it; the callers that do either depend on it.
  const intptr_t chunk = std::min<intptr_t>(numBytes, INT_MAX);
  intptr_t left = numBytes;
  while (left > 0) {
    const ssize_t n = p->kvfwrite(buffer, static_cast<size_t>(chunk));
    if (n <= 0) return FALSE;
    p->nextOsReadPos = wrappingAdd(p->nextOsReadPos, n);
    left -= n;
  }
  return TRUE;
}

intptr_t KvFileRead(OopType oFile, ByteType* buffer, intptr_t numBytes, int sessId) {
  KvFileDataSType* p = fetchKvFile(oFile, sessId);
  if (p == nullptr) return -1;
  const ssize_t n = p->basicRead(buffer, numBytes);
  if (n < 0) return -1;
  if (n == 0 && p->lastReadEof) p->storeErrorString(TEXT_READ_PAST_END);
  return n;
}

void KvFileFetchErrorString(OopType kvFile, char* buf, size_t bufSize, int kciSessId) {
  buf[0] = '\0';
  const KvFileDataSType* p = fetchKvFileIfKnown(kvFile, kciSessId);
  if (p != nullptr && p->errString != nullptr) kvf::strlcpy(buf, p->errString->msg, bufSize);
}

void KvFileSetLineReader(LineReaderStateType* state) { lineReadState = state; }

void KvFileShutdownLineReader() {
  if (lineReadState == nullptr) return;
  LineReadShutdown(lineReadState);
  lineReadState = nullptr;
}
