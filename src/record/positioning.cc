// Keeping three positions together:
//
//   the host's       where the descriptor or zlib's handle stands
//   the buffer's     nextOsReadPos: where the host stood when it had filled the buffer; a note
//   Smalltalk's      readPosition(): the note less the bytes not consumed; after a read only
//
// Reading ahead takes the first past the third. A write must land right behind the last byte
// consumed, so the host is sent back before it (clearReadBufBeforeWrite). A seek inside the buffer
// of a file that is only read moves Smalltalk's alone. A flush drops the buffer and leaves the host
// where it stands: bytes read ahead are then lost, as callers know. After anything but a read the
// host's is the only one.
#include "framework/assertions.h"
#include "framework/texts.h"
#include "framework/wrapping.h"
#include "record/file_record.h"

#include <unistd.h>

#include <cerrno>

namespace kvf {

BoolType KvFileDataSType::clearReadBufBeforeWrite() {
  KVF_ASSERT(holds());
  if (lastOpWasRead == 1 && bufBytesAvail() > 0) {
    const int64 position = readPosition();
    clearReadBuf();
    clearErrorCode();
    return kvfseek(position, SEEK_SET) >= 0;
  }
  clearReadBuf();
  return TRUE;
}

int64 KvFileDataSType::kvfseek(int64 offset, int whence) {
  KVF_ASSERT(holds());
  clearErrorCode();
  clearReadBuf();
  if (compressed) {
    // zlib would lose its place over a position before the start.
    if (zf == nullptr || (whence == SEEK_SET && offset < 0)) return -1;
    const int64 result = gzseek(zf, offset, whence);
    if (result < 0) getGzError();
    return result;
  }
  if (fPtr == nullptr) return -1;
  if (isAppend && (whence != SEEK_END || offset != 0)) {
    errCode = EBADF;
    storeErrorString(TEXT_APPEND_SEEK);
    return -1;
  }
  const int64 result = lseek(fileno(fPtr), offset, whence);
  if (result < 0) storeErrno();
  return result;
}

int64 KvFileDataSType::kvftell() {
  KVF_ASSERT(holds());
  clearErrorCode();
  if (compressed) {
    if (zf == nullptr) return -1;
    const int64 result = gztell(zf);
    if (result < 0) getGzError();
    return result;
  }
  if (fPtr == nullptr) return -1;
  const int64 result = lseek(fileno(fPtr), 0, SEEK_CUR);
  if (result < 0) storeErrno();
  return result;
}

// Only a file that is not written may be served from its buffer: a write would otherwise have to
// find out where the host really stands.
static bool bufferCanServe(const KvFileDataSType* record, int64 position) {
  if (record->lastOpWasRead != 1 || record->bufBytesAvail() <= 0 || record->writable) return false;
  const int64 bufferStart = wrappingSubtract(record->nextOsReadPos, record->readBufSize);
  return position >= bufferStart && position < record->nextOsReadPos;
}

static int64 seekFromStart(KvFileDataSType* record, int64 position) {
  if (bufferCanServe(record, position)) {
    record->readBufIdx += static_cast<intptr_t>(position - record->readPosition());
    return position;
  }
  const int64 result = record->kvfseek(position, SEEK_SET);
  if (result < 0) return result;
  record->nextOsReadPos = position;
  return position;
}

static int64 seekFromEnd(KvFileDataSType* record, int64 position) {
  const int64 result = record->kvfseek(position, SEEK_END);
  if (result < 0) return result;
  const int64 reached = record->kvftell();
  if (reached >= 0) record->nextOsReadPos = reached;
  return reached;
}

int64 doSeek(KvFileDataSType* record, int64 position, int seekKind) {
  KVF_ASSERT(record->holds() && seekKind >= 0 && seekKind <= 2);
  if (seekKind == 2) return seekFromEnd(record, position);
  // Only a read establishes a current position; after anything else kind 1 counts from the start.
  if (seekKind == 1 && record->lastOpWasRead == 1) {
    position = wrappingAdd(position, record->readPosition());
  }
  return seekFromStart(record, position);
}

}  // namespace kvf
