// The actions that write, move the position, and flush.
#include <kvfile/kvfile.h>
#include <kvfile/platform/kci.h>

#include "bytestrings/decimal_text.h"
#include "framework/raise.h"
#include "framework/wrapping.h"
#include "record/error_routing.h"
#include "record/registry.h"

#include <algorithm>
#include <csetjmp>
#include <cstring>

namespace kvf {

namespace {

constexpr int64 WRITE_CHUNK = 4096;  // bytes fetched and written at a time
constexpr int MAX_PRINT_COLUMN = 200;

// Writes until everything is written, or the host takes no more. Answers the count.
int64 writeChunks(KvFileDataSType* p, OopType oBytes, int64 numBytes) {
  ByteType buffer[WRITE_CHUNK];
  int64 total = 0;
  while (total < numBytes) {
    const int64 chunk = std::min(numBytes - total, WRITE_CHUNK);
    const int64 fetched =
        std::clamp<int64>(KciFetchBytes_(oBytes, total + 1, buffer, chunk), 0, chunk);
    // A fetch that comes back short must not let old memory into the file.
    memset(buffer + fetched, 0, static_cast<size_t>(chunk - fetched));
    const ssize_t n = p->kvfwrite(buffer, static_cast<size_t>(chunk));
    if (n <= 0) break;
    total += n;
  }
  return total;
}

// Prints fetched bytes, breaking the line before the first field behind the last column.
void printFields(KvFileDataSType* p, const ByteType* bytes, int64 count, int* column) {
  for (int64 i = 0; i < count; ++i) {
    if (*column > MAX_PRINT_COLUMN) {
      p->kvfputc('\n');
      *column = 0;
    }
    const DecimalField& field = decimalField(bytes[i]);
    p->kvfputs(field.text);
    *column += field.length;
  }
}

void printByteObject(KvFileDataSType* p, OopType oBytes) {
  const int64 size = KciFetchSize_(oBytes);
  p->clearReadBuf();
  if (size == 0) {
    p->kvfputc(' ');
    return;
  }
  ByteType bytes[CHUNKSIZE];
  int column = 0;
  for (int64 offset = 0; offset < size; offset += CHUNKSIZE) {
    const int64 chunk = std::min(size - offset, CHUNKSIZE);
    const int64 fetched = KciFetchBytes_(oBytes, offset + 1, bytes, chunk);
    printFields(p, bytes, std::min(fetched, chunk), &column);
  }
}

OopType doFlush(OopType oFile, BoolType doFsync) {
  KvFileDataSType* p = fetchKvFile(oFile, 0);
  if (p == nullptr) return OOP_NIL;
  // Read-ahead is dropped and not undone: the next read goes on from the host's position.
  p->clearReadBuf();
  p->clearErrorCode();
  return p->kvfflush(doFsync) == 0 ? oFile : OOP_NIL;
}

// The byte to write. FALSE after raising.
BoolType fetchByte(OopType oChar, ByteType* byte) {
  uint64_t code = 0;
  if (oopIsSmallInteger(oChar)) {
    int conversionFailed = 0;
    const int value = KciOopToI32_(oChar, &conversionFailed);
    // A negative value is beyond 255, too, once it is unsigned.
    code = conversionFailed != 0 ? UINT64_MAX : static_cast<uint64_t>(value);
  } else if (oopIsCharacter(oChar)) {
    code = oopCharacterCode(oChar);
  } else {
    raiseError(KVF_ERR_NOT_CHARACTER, oChar, OOP_CLASS_CHARACTER, OOP_CLASS_SMALL_INTEGER);
    return FALSE;
  }
  if (code > 255) {
    raiseError(KVF_ERR_ARGUMENT_RANGE, oChar);
    return FALSE;
  }
  *byte = static_cast<ByteType>(code);
  return TRUE;
}

}  // namespace

}  // namespace kvf

using namespace kvf;

/// Writes items from a byte object, right behind the last byte that was read or written. Plain
/// files are written to the descriptor at once; compressed data leaves the process when zlib's
/// buffer is full, and at flush and close.
///
/// Arguments: oFile, an open file. oBytes, the byte object to write from its index 1 on. oItemSize
///   and oAmount, integers: their product, which is not checked for overflow, is the count of
///   bytes; 0 or less writes nothing.
/// Answers: SmallInteger, the count of bytes written, fewer than asked for where the host took no
///   more: 0 for a compressed file that is open for reading, or that has failed. nil on failure,
///   when the record holds an error already and nothing was to be written, and without an open
///   file.
/// Raises: 4100, 2364; 2061 with oItemSize or oAmount when it is no integer; 2284 with oBytes and
///   the count when oBytes is smaller.
/// Stores: a failed write or repositioning, code and text.
/// Host calls: the look-up, KciOopToI64_ twice, KciFetchSize_, the rewind; per 4096 bytes
///   KciFetchBytes_, and clearerr_unlocked, fileno and HostWriteFile_, or gzerror, gzclearerr and
///   gzwrite; KciI64ToOop. The failure's text.
/// Blocks: as a write does.
OopType KvfWrite(OopType oFile, OopType oBytes, OopType oItemSize, OopType oAmount) {
  KvFileDataSType* p = fetchKvFile(oFile, 0);
  if (p == nullptr) return OOP_NIL;
  int conversionFailed = 0;
  const int64 itemSize = KciOopToI64_(oItemSize, &conversionFailed);
  if (conversionFailed != 0) {
    raiseError(KVF_ERR_ARGUMENT_RANGE, oItemSize);
    return OOP_NIL;
  }
  const int64 amount = KciOopToI64_(oAmount, &conversionFailed);
  if (conversionFailed != 0) {
    raiseError(KVF_ERR_ARGUMENT_RANGE, oAmount);
    return OOP_NIL;
  }
  const int64 numBytes = wrappingMultiply(itemSize, amount);
  if (numBytes > KciFetchSize_(oBytes)) {
    raiseError(KVF_ERR_COUNT_TOO_LARGE, oBytes, KciI64ToOop(numBytes));
    return OOP_NIL;
  }
  if (!p->clearReadBufBeforeWrite()) return OOP_NIL;
  const int64 total = writeChunks(p, oBytes, numBytes);
  return p->kvferror() != 0 ? OOP_NIL : KciI64ToOop(total);
}

/// Writes one byte.
///
/// Arguments: oFile, an open file. oChar, a Character or SmallInteger of code 0 to 255.
/// Answers: true, also when the write failed: only the record's error tells of a failed
///   repositioning, and nothing of a failed write. nil without an open file.
/// Raises: 4100, 2364; 2061 with oChar above 255 or below 0; 2242 with oChar and the classes
///   Character and SmallInteger when it is neither.
/// Stores: a failed repositioning, code and text.
/// Host calls: the look-up; KciOopToI32_ for a SmallInteger; the rewind; fileno and HostWriteFile_
///   of one byte, or gzputc.
/// Blocks: as a write does.
OopType KvfPutC(OopType oFile, OopType oChar) {
  KvFileDataSType* p = fetchKvFile(oFile, 0);
  if (p == nullptr) return OOP_NIL;
  ByteType byte = 0;
  if (!fetchByte(oChar, &byte)) return OOP_NIL;
  p->kvfputc(byte);
  return OOP_TRUE;
}

/// Writes the bytes of an object as unsigned decimal numbers, each followed by one space, with a
/// line feed before the first number that would begin behind column 200. An empty object is written
/// as one space. Bytes read ahead are dropped first, without repositioning the file.
///
/// Arguments: oFile, an open file. oBytes, a byte object.
/// Answers: oFile, also when a write failed; nil when the interface failed, and without an open
///   file.
/// Raises: 4100, 2364.
/// Stores: an interface error as {TEXT_KCI_ERROR} with its number; nothing of a failed write.
/// Host calls: the look-up, KciPushErrJump, KciFetchSize_, KciFetchBytes_ per 1024 bytes; fileno
///   and HostWriteFile_ per number and line end, or gzputs per number and gzputc per line end;
///   KciErr and the failure's text where the interface failed; KciPopErrJump.
/// Blocks: as a write does.
OopType KvfPrintBytes(OopType oFile, OopType oBytes) {
  KvFileDataSType* p = fetchKvFile(oFile, 0);
  if (p == nullptr) return OOP_NIL;
  KciErrJumpSType jump;
  KciPushErrJump(&jump);
  if (setjmp(jump.buf) != 0) {
    postPendingKciErr(p);
    KciPopErrJump(&jump);
    return OOP_NIL;
  }
  printByteObject(p, oBytes);
  KciPopErrJump(&jump);
  return oFile;
}

/// Moves the position. Inside the bytes read ahead of a file that is not written, this asks nothing
/// of the host.
///
/// Arguments: oFile, an open file. oPosition, an integer, bytes. oKind, an integer: 0 from the
///   start; 1 from the current position after a read, and from the start after anything else; 2
///   from the end, which compressed files do not know.
/// Answers: SmallInteger, the new position in bytes from the start; nil on failure, and without an
///   open file.
/// Raises: 4100, 2364; 2061 with oPosition or oKind.
/// Stores: a failed seek, code and text; on a file in append mode, which moves to its very end
///   only, code 9 and {TEXT_APPEND_SEEK}.
/// Host calls: the look-up, KciOopToI64_ twice; fileno and lseek, and both again for the position
///   reached from the end, or gzseek; none of these inside the bytes read ahead, in append mode,
///   and for a compressed file before its start; KciI64ToOop. The failure's text.
/// Blocks: a compressed file, which is read or written up to the new position.
OopType KvfSeek(OopType oFile, OopType oPosition, OopType oKind) {
  KvFileDataSType* p = fetchKvFile(oFile, 0);
  if (p == nullptr) return OOP_NIL;
  int conversionFailed = 0;
  const int64 position = KciOopToI64_(oPosition, &conversionFailed);
  if (conversionFailed != 0) {
    raiseError(KVF_ERR_ARGUMENT_RANGE, oPosition);
    return OOP_NIL;
  }
  const int64 kind = KciOopToI64_(oKind, &conversionFailed);
  if (conversionFailed != 0 || static_cast<uint64_t>(kind) > 2) {
    raiseError(KVF_ERR_ARGUMENT_RANGE, oKind);
    return OOP_NIL;
  }
  const int64 reached = doSeek(p, position, static_cast<int>(kind));
  return reached < 0 ? OOP_NIL : KciI64ToOop(reached);
}

/// Asks the logical position: after a read that of the next unread byte, else the host's.
///
/// Arguments: oFile, an open file.
/// Answers: SmallInteger, bytes from the start; nil on failure, and without an open file.
/// Raises: 4100, 2364.
/// Stores: a failed lseek or gztell, code and text; after a read nothing.
/// Host calls: the look-up; fileno and lseek, or gztell, unless the last operation was a read;
///   KciI64ToOop. The failure's text.
/// Blocks: never.
OopType KvfPosition(OopType oFile) {
  KvFileDataSType* p = fetchKvFile(oFile, 0);
  if (p == nullptr) return OOP_NIL;
  const int64 position = p->lastOpWasRead == 1 ? p->readPosition() : p->kvftell();
  return position == -1 ? OOP_NIL : KciI64ToOop(position);
}

/// Flushes written bytes to the host; a compressed file ends its gzip member, and later writes
/// begin a new one. Bytes read ahead are dropped: the next read goes on from the host's position.
///
/// Arguments: oFile, an open file.
/// Answers: oFile; nil on failure, and without an open file.
/// Raises: 4100, 2364.
/// Stores: a failed flush, code and text.
/// Host calls: the look-up; fflush, or gzflush; the failure's text.
/// Blocks: as a write does.
OopType KvfFlush(OopType oFile) { return doFlush(oFile, FALSE); }

/// Flushes like KvfFlush and waits until a plain file is on disk; a compressed file is only
/// flushed.
///
/// Arguments: oFile, an open file.
/// Answers: oFile; nil on failure, and without an open file.
/// Raises: 4100, 2364.
/// Stores: a failed flush or sync, code and text.
/// Host calls: the look-up; fflush, fileno and fsync, or gzflush; the failure's text.
/// Blocks: until the disk has the bytes.
OopType KvfSync(OopType oFile) { return doFlush(oFile, TRUE); }
