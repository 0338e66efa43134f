// The actions of the decimal byte text. Each runs under an error-jump frame of its own: a failing
// fetch or store ends the work and comes back to the frame, where the action answers nil.
#include <kvfile/kvfile.h>
#include <kvfile/platform/kci.h>

#include "bytestrings/decimal_text.h"
#include "bytestrings/eom_stream.h"
#include "framework/raise.h"
#include "record/error_routing.h"
#include "record/registry.h"

#include <algorithm>
#include <csetjmp>
#include <cstring>

namespace kvf {

namespace {

constexpr size_t BUFSIZE = 4100;  // a line: 1024 fields of four characters, and the line feed
static_assert(BUFSIZE >= CHUNKSIZE * DECIMAL_FIELD_MAX + 4);

// Collects values for the target object, which is written once per 2048 of them. There is room for
// all that a piece of text can hold, so that reading it need not pause at the 2048th.
struct ByteSink {
  static constexpr int64 STORE_SIZE = 2048;
  static constexpr int64 CAPACITY = STORE_SIZE + EOMBUFFERSIZE / 2 + int64{DECIMAL_BLOCK};

  OopType target;
  int64 amount;      // values asked for
  int64 storeIndex;  // 1-based index in the target of buffer[0]
  int64 count;
  uint8 buffer[CAPACITY];

  void open(OopType oByteObj, int64 wanted) {
    target = oByteObj;
    amount = wanted;
    storeIndex = 1;
    count = 0;
  }
  int64 total() const { return storeIndex + count - 1; }
  bool isSatisfied() const { return total() >= amount; }
  int64 room() const { return std::min(CAPACITY - count, amount - total()); }
  void store(int64 size) {
    KciStoreBytesInstanceOf(OOP_NIL, target, storeIndex, buffer, size);
    storeIndex += size;
    count -= size;
  }
  void storeFull() {
    if (count < STORE_SIZE) return;
    store(STORE_SIZE);
    memmove(buffer, &buffer[STORE_SIZE], static_cast<size_t>(count));
  }
  void storeRest() {
    if (count > 0) store(count);
  }
  void add(uint8 value) { buffer[count++] = value; }
};
static_assert(std::is_trivially_destructible_v<ByteSink>);

// Reads values out of `text`, at most EOMBUFFERSIZE characters, into the sink; answers the
// characters consumed.
size_t readValues(DecimalReader* reader, const uint8* text, size_t length, ByteSink* sink) {
  const DecimalReader::Result result =
      reader->read(text, length, &sink->buffer[sink->count], static_cast<size_t>(sink->room()));
  sink->count += static_cast<int64>(result.produced);
  sink->storeFull();
  return result.consumed;
}

// One line of text at a time, each printed from one fetch.
OopType printByteObject(OopType oBytes) {
  const int64 size = KciFetchSize_(oBytes);
  OopType result = OOP_NIL;
  int64 storeIndex = 1;
  int64 offset = 0;
  do {
    uint8 bytes[CHUNKSIZE];
    char line[BUFSIZE];
    const int64 chunk = std::min(CHUNKSIZE, size - offset);
    const int64 fetched = chunk > 0 ? KciFetchBytes_(oBytes, offset + 1, bytes, chunk) : 0;
    size_t length = 0;
    if (fetched > 0) {
      length = printDecimal(bytes, static_cast<size_t>(std::min(fetched, chunk)), line);
    }
    line[length++] = '\n';
    if (offset == 0) {
      result = KciNewByteObj(OOP_CLASS_STRING, line, length);
    } else {
      KciStoreBytesInstanceOf(OOP_NIL, result, storeIndex, reinterpret_cast<ByteType*>(line),
                              static_cast<int64>(length));
    }
    storeIndex += static_cast<int64>(length);
    offset += CHUNKSIZE;
  } while (offset < size);
  return result;
}

// Every character is a read of its own, so that the file stands right behind the one that stopped
// the reading. Answers the bytes stored.
int64 loadFromFile(KvFileDataSType* p, OopType oByteObj, int64 amount) {
  ByteSink sink;
  sink.open(oByteObj, amount);
  DecimalReader reader;
  while (!sink.isSatisfied() && !reader.stopped() && p->kvferror() == 0) {
    const int c = p->kvfgetc();
    if (c < 0) {
      if (reader.insideValue()) sink.add(reader.endValue());
      break;
    }
    const uint8 character = static_cast<uint8>(c);
    readValues(&reader, &character, 1, &sink);
  }
  sink.storeRest();
  return sink.total();
}

// Advances `*idx` past every character examined. FALSE where the source ended unexpectedly.
BoolType loadFromObject(OopType oByteObj, int64 amount, OopType oSource, int64 sourceSize,
                        int64* idx) {
  EomStream stream;
  eomReadStreamOpen(oSource, *idx, &stream);
  ByteSink sink;
  sink.open(oByteObj, amount);
  DecimalReader reader;
  while (!sink.isSatisfied() && !reader.stopped() && *idx <= sourceSize) {
    uint8 character = 0;
    if (!eomReadStreamNext(&stream, &character)) return FALSE;
    readValues(&reader, &character, 1, &sink);
    // The rest of what the stream holds is read in place.
    const int64 more = static_cast<int64>(
        readValues(&reader, &stream.buffer[stream.bufindex],
                   static_cast<size_t>(stream.bufbytes - stream.bufindex), &sink));
    stream.bufindex += more;
    stream.idx += more;
    *idx += 1 + more;
  }
  // A source that ends inside a value is answered as if a character more had been examined. A fifth
  // digit that is the source's last character has been examined and begins no value any more.
  if (reader.insideValue() && !reader.insideValueBegunByFifthDigit()) {
    sink.add(reader.endValue());
    ++*idx;
  }
  sink.storeRest();
  return TRUE;
}

}  // namespace

}  // namespace kvf

using namespace kvf;

/// Prints a byte object as decimal byte text: each byte as its decimal value without leading zeros
/// and one space, 1024 bytes to a line, each line ended by a line feed.
///
/// Arguments: oBytes, a byte object of any size.
/// Answers: a new String; a single line feed for an empty object. nil when the interface failed.
/// Raises: nothing.
/// Stores: nothing.
/// Host calls: KciPushErrJump, KciFetchSize_, KciFetchBytes_ per line, KciNewByteObj for the first
///   line and KciStoreBytesInstanceOf for each later one; KciErr where one of these failed;
///   KciPopErrJump.
/// Blocks: never.
OopType KvfPassiveObjPrint(OopType oBytes) {
  KciErrJumpSType jump;
  KciPushErrJump(&jump);
  if (setjmp(jump.buf) != 0) {
    KciErrSType err;
    err.initialize();
    KciErr(&err);
    KciPopErrJump(&jump);
    return OOP_NIL;
  }
  const OopType result = printByteObject(oBytes);
  KciPopErrJump(&jump);
  return result;
}

/// Loads decimal byte text from a file into a byte object. Values are separated by spaces, tabs and
/// line feeds; a value is one to four digits, of which the low eight bits count. Loading ends at
/// the amount, at the end of the file, at a read error, or at the first other character, which has
/// then been consumed. Bytes read ahead are dropped first, without repositioning the file.
///
/// Arguments: oFile, an open file. oByteObj, the byte object to store into from index 1 on.
///   oAmount, an integer, the number of bytes to load at most; 0 or less loads nothing.
/// Answers: an Integer, the number of bytes stored. nil without an open file, or when the interface
///   failed.
/// Raises: 4100, 2364; 2061 with oAmount when it is no 64-bit integer.
/// Stores: a read error in the file's record; an interface error as {TEXT_KCI_ERROR} with its
///   number.
/// Host calls: the look-up, KciPushErrJump, KciOopToI64_; per character fileno and HostReadFile_ of
///   one byte, or gzgetc; KciStoreBytesInstanceOf per 2048 bytes and for the rest; KciErr where one
///   of these failed; KciPopErrJump, KciI64ToOop. The failure's text.
/// Blocks: as a read does.
OopType KvfLoadByteStrings(OopType oFile, OopType oByteObj, OopType oAmount) {
  KvFileDataSType* p = fetchKvFile(oFile, 0);
  if (p == nullptr) return OOP_NIL;
  KciErrJumpSType jump;
  KciPushErrJump(&jump);
  if (setjmp(jump.buf) != 0) {
    postPendingKciErr(p);
    KciPopErrJump(&jump);
    return OOP_NIL;
  }
  int conversionFailed = 0;
  const int64 amount = KciOopToI64_(oAmount, &conversionFailed);
  if (conversionFailed != 0) {
    KciPopErrJump(&jump);
    raiseError(KVF_ERR_ARGUMENT_RANGE, oAmount);
    return OOP_NIL;
  }
  p->clearReadBuf();
  const int64 stored = loadFromFile(p, oByteObj, amount);
  KciPopErrJump(&jump);
  return KciI64ToOop(stored);
}

/// Loads decimal byte text from a byte object into another, in the format of KvfLoadByteStrings.
///
/// Arguments: oByteObj, the byte object to store into from index 1 on. oAmount, an integer, the
///   number of bytes to load at most; 0 or less loads nothing. oSource, the byte object with the
///   text. oStartIdx, an integer, the 1-based index in oSource to begin at.
/// Answers: an Integer, the 1-based index just past the last character examined: from there a
///   caller goes on. The size of oSource + 1 when it ended in separators, + 2 when it ended inside
///   a value. nil when the interface failed.
/// Raises: 2061 with oAmount when oStartIdx or oAmount is no 64-bit integer.
/// Stores: nothing.
/// Host calls: KciPushErrJump, KciFetchSize_, KciOopToI64_ twice, KciFetchSize_, KciFetchBytes_ per
///   4096 characters, KciStoreBytesInstanceOf per 2048 bytes and for the rest; KciErr where one of
///   these failed; KciPopErrJump, KciI64ToOop.
/// Blocks: never.
OopType KvfPassiveObjLoadByteStrings(OopType oByteObj, OopType oAmount, OopType oSource,
                                     OopType oStartIdx) {
  KciErrJumpSType jump;
  KciPushErrJump(&jump);
  if (setjmp(jump.buf) != 0) {
    KciErrSType err;
    err.initialize();
    KciErr(&err);
    KciPopErrJump(&jump);
    return OOP_NIL;
  }
  const int64 sourceSize = KciFetchSize_(oSource);
  int conversionFailed = 0;
  int64 idx = KciOopToI64_(oStartIdx, &conversionFailed);
  const int64 amount = conversionFailed != 0 ? 0 : KciOopToI64_(oAmount, &conversionFailed);
  if (conversionFailed != 0) {
    KciPopErrJump(&jump);
    // Also where it is the index that did not convert: callers know this error by the amount.
    raiseError(KVF_ERR_ARGUMENT_RANGE, oAmount);
    return OOP_NIL;
  }
  const BoolType loaded = loadFromObject(oByteObj, amount, oSource, sourceSize, &idx);
  KciPopErrJump(&jump);
  return loaded ? KciI64ToOop(idx) : OOP_NIL;
}
