// The actions that read.
#include <kvfile/kvfile.h>
#include <kvfile/platform/kci.h>
#include <kvfile/platform/kcistring.h>

#include "framework/raise.h"
#include "framework/texts.h"
#include "record/error_routing.h"
#include "record/registry.h"

#include <algorithm>

namespace kvf {

namespace {

// The answer of a read that was interrupted before any byte came.
constexpr OopType OOP_INTERRUPTED = oopFromSmallInteger(INTERRUPTED);

// Reads items until `amount` are stored or the file gives no more.
OopType readItems(KvFileDataSType* p, OopType oBytes, int64 itemSize, int64 amount) {
  const int64 perBuf = read_buf_size / itemSize;
  int64 items = 0;
  int64 stored = 0;
  while (items < amount) {
    const int64 want = std::min(amount - items, perBuf) * itemSize;
    const ssize_t got = p->readIntoBuffer(static_cast<ssize_t>(want), "");
    if (got < itemSize) {
      if (got == INTERRUPTED) return OOP_INTERRUPTED;
      if (p->kvferror() != 0) return OOP_NIL;
      if (items == 0) p->storeErrorString(TEXT_READ_PAST_END);
      break;
    }
    // A part of an item at the end of the file is delivered and counted in bytes, too.
    const int64 n = std::min(want, static_cast<int64>(got));
    KciStoreBytesInstanceOf(OOP_NIL, oBytes, stored + 1, &p->readBuffer[p->readBufIdx], n);
    stored += n;
    p->readBufIdx += static_cast<intptr_t>(n);
    items += n / itemSize;
    if (postPendingKciErr(p)) return OOP_NIL;
  }
  return KciI64ToOop(stored);
}

struct EolSequence {
  ByteType bytes[eol_max_size + 1];  // one more, so that a sequence too long is seen
  int size;
};

// A SmallInteger is a sequence of one byte. FALSE where the object is no sequence.
BoolType fetchEol(OopType eolOop, EolSequence* eol) {
  int conversionFailed = 0;
  const int byte = KciOopToI32_(eolOop, &conversionFailed);
  if (conversionFailed == 0) {
    if (static_cast<unsigned>(byte) > 255U) return FALSE;
    eol->bytes[0] = static_cast<ByteType>(byte);
    eol->size = 1;
    return TRUE;
  }
  if (!KciIsKindOfClass(eolOop, OOP_CLASS_STRING)) return FALSE;
  const int64 count = KciFetchBytes_(eolOop, 0, eol->bytes, sizeof eol->bytes);
  if (count < 1 || count > eol_max_size) return FALSE;
  eol->size = static_cast<int>(count);
  return TRUE;
}

struct Prompt {
  static constexpr int64 MAX_SIZE = 1023;
  char text[MAX_SIZE + 1];  // NUL-terminated
};

BoolType fetchPrompt(OopType promptOop, Prompt* prompt) {
  prompt->text[0] = '\0';
  if (promptOop == OOP_NIL) return TRUE;
  const int64 count = KciFetchChars_(promptOop, 1, prompt->text, Prompt::MAX_SIZE);
  prompt->text[std::clamp<int64>(count, 0, Prompt::MAX_SIZE)] = '\0';
  return count >= 1 && count <= Prompt::MAX_SIZE;
}

// The 0-based index to store at, within or right behind `oStr`. FALSE where the argument is none.
BoolType fetchStoreIndex(OopType oStr, OopType oStartIdx, int64* storeIndex) {
  int conversionFailed = 0;
  const int64 start = KciOopToI64_(oStartIdx, &conversionFailed);
  if (conversionFailed != 0) return FALSE;
  const int64 limit = oStr == OOP_NIL ? 1 : KciFetchSize_(oStr) + 1;
  if (start < 1 || start > limit) return FALSE;
  *storeIndex = start - 1;
  return TRUE;
}

// Reads one line into `oStr`, or into a new String where that is nil.
OopType readLine(KvFileDataSType* p, OopType oStr, OopType oStartIdx, const EolSequence& eol,
                 const char* prompt) {
  int64 storeIndex = 0;
  bool firstPass = true;
  int found = 0;
  while (found == 0) {
    intptr_t idx = 0;
    // Only a line that has not begun can begin behind the end of the file.
    found = p->readToEol(eol.bytes, eol.size, &idx, firstPass, prompt);
    if (found == INTERRUPTED) return OOP_INTERRUPTED;
    if (found < 0) return OOP_NIL;
    if (firstPass && !fetchStoreIndex(oStr, oStartIdx, &storeIndex)) {
      raiseError(KVF_ERR_ARGUMENT_RANGE, oStartIdx);
      return OOP_NIL;
    }
    firstPass = false;
    const int64 count = idx - p->readBufIdx;
    if (count == 0) break;
    if (oStr == OOP_NIL) {
      oStr = KciCreateByteObj(OOP_CLASS_STRING, 1, nullptr, count, 0, FALSE);
    }
    KciStoreBytesInstanceOf(OOP_NIL, oStr, storeIndex + 1, &p->readBuffer[p->readBufIdx], count);
    storeIndex += count;
    p->readBufIdx = idx;
  }
  if (oStr != OOP_NIL && storeIndex < KciFetchSize_(oStr)) {
    KciSetVaryingSize(oStr, storeIndex);
    if (postPendingKciErr(p)) return OOP_NIL;
  }
  return oStr;
}

}  // namespace

}  // namespace kvf

using namespace kvf;

/// Reads items of a fixed size into a byte object, from its index 1 on.
///
/// Arguments: oFile, an open file. oBytes, the byte object to fill; it grows where its class
///   allows. oItemSize, an integer 1 to 4096, bytes. oAmount, an integer, the number of items; 0 or
///   less reads nothing.
/// Answers: SmallInteger, the count of bytes stored, a part of an item at the end of the file
///   included; 0 at the end, where less than an item is left (it stays unread); -2 when the read
///   was interrupted before any byte came. nil without an open file and on failure.
/// Raises: 4100, 2364; 2061 with oAmount or oItemSize when it is no integer, or oItemSize is out of
///   range.
/// Stores: at the end of the file {TEXT_READ_PAST_END}; a failed read, code and text; an interface
///   error as {TEXT_KCI_ERROR} with its number.
/// Host calls: the look-up, KciOopToI64_ twice; the refill where the buffer holds too little; per
///   piece KciStoreBytesInstanceOf and KciErr; KciI64ToOop. The failure's text.
/// Blocks: as a read does.
OopType KvfRead(OopType oFile, OopType oBytes, OopType oItemSize, OopType oAmount) {
  KvFileDataSType* p = fetchKvFile(oFile, 0);
  if (p == nullptr) return OOP_NIL;
  int conversionFailed = 0;
  const int64 amount = KciOopToI64_(oAmount, &conversionFailed);
  if (conversionFailed != 0) {
    raiseError(KVF_ERR_ARGUMENT_RANGE, oAmount);
    return OOP_NIL;
  }
  const int64 itemSize = KciOopToI64_(oItemSize, &conversionFailed);
  if (conversionFailed != 0 || itemSize < 1 || itemSize > read_buf_size) {
    raiseError(KVF_ERR_ARGUMENT_RANGE, oItemSize);
    return OOP_NIL;
  }
  return readItems(p, oBytes, itemSize, amount);
}

/// Reads one byte.
///
/// Arguments: oFile, an open file.
/// Answers: the Character of that code; SmallInteger -2 when the read was interrupted; nil at the
///   end of the file, on failure, and without an open file.
/// Raises: 4100, 2364.
/// Stores: a failed read, code and text; nothing at the end of the file.
/// Host calls: the look-up; the refill where the buffer is empty.
/// Blocks: as a read does.
OopType KvfGetC(OopType oFile) {
  KvFileDataSType* p = fetchKvFile(oFile, 0);
  if (p == nullptr) return OOP_NIL;
  if (p->lastOpWasRead != 1 || p->bufBytesAvail() <= 0) {
    const ssize_t n = p->readIntoBuffer(read_buf_size, "");
    if (n == INTERRUPTED) return OOP_INTERRUPTED;
    if (n <= 0) return OOP_NIL;
  }
  return oopFromCharacter(p->readBuffer[p->readBufIdx++]);
}

/// Asks whether the file is at its end. A file that is read may be read ahead to find out.
///
/// Once a read of a plain file has met the end, the answer stays true until the bytes read ahead
/// are dropped, which a write, a flush, and a seek that asks the host do. So it is true also where
/// the file has grown, and where bytes are left to read: those of a part of an item, or of an
/// end-of-line sequence, and all behind a seek back inside the bytes read ahead, which asks nothing
/// of the host.
///
/// Arguments: oFile, an open file.
/// Answers: true or false. A file that cannot be read any more is at its end; a compressed file
///   open for writing always is. nil without an open file.
/// Raises: 4100, 2364.
/// Stores: a failed read or seek, code and text.
/// Host calls: the look-up; where the buffer does not tell, the refill, or gzgetc and gzungetc for
///   a compressed file; for a file that is only written fileno and lseek four times, and the
///   failure's text.
/// Blocks: as a read does.
OopType KvfAtEnd(OopType oFile) {
  KvFileDataSType* p = fetchKvFile(oFile, 0);
  return p == nullptr ? OOP_NIL : p->atEnd();
}

/// Reads one line, its end-of-line sequence included, into a String that ends right behind it. A
/// last line may end without the sequence; but where standard input is a pipe or a terminal, whose
/// position cannot be asked, such a line is lost: the answer is nil, and the code 29.
///
/// With a sequence of several bytes: where its first byte is found and the others differ, the
/// search goes on behind the length of the whole sequence, and misses one that begins in between,
/// as 'ab' in 'aab'. Bytes that only begin a sequence stay unread at the end of the file. Every
/// further call then answers nil without a text, or, with an oStr, never nil but oStr cut off
/// before oStartIdx; KvfGetC reads those bytes. Where a read of a pipe or terminal brings no more
/// than those, the line ends before them, perhaps empty, and the next call goes on.
///
/// An oStr that cannot take the bytes (no byte object, or invariant) comes back as it was, and the
/// line is used up: the interface is not asked whether a store succeeded. A host may raise the
/// error that is pending then.
///
/// Arguments: oFile, an open file. oStr, a String to store into, or nil for a new one. oStartIdx,
///   an integer, the 1-based index to store at: 1 to the size of oStr + 1; looked at only once a
///   line was read. eolOop, an integer 0 to 255, or a String of 1 to 128 bytes. promptOop, nil, or
///   a String of 1 to 1023 bytes that is shown before a line of standard input is read.
/// Answers: the String; SmallInteger -2 when the read was interrupted; nil at the end of the file,
///   on failure, and without an open file.
/// Raises: 4100, 2364; 2061 with eolOop, promptOop or oStartIdx.
/// Stores: at the end of the file {TEXT_READ_PAST_END}; a failed read, code and text; a failed
///   resize as {TEXT_KCI_ERROR} with its number.
/// Host calls: the look-up; KciOopToI32_ for eolOop, and for a sequence KciIsKindOfClass and
///   KciFetchBytes_; KciFetchChars_ for a prompt; the refill, as often as the line needs it;
///   KciOopToI64_ for oStartIdx, and KciFetchSize_ for an oStr; KciCreateByteObj for a new String;
///   KciStoreBytesInstanceOf per piece; KciFetchSize_, and KciSetVaryingSize and KciErr where the
///   String was longer. The failure's text.
/// Blocks: as a read does.
OopType KvfGetLine(OopType oFile, OopType oStr, OopType oStartIdx, OopType eolOop,
                   OopType promptOop) {
  KvFileDataSType* p = fetchKvFile(oFile, 0);
  if (p == nullptr) return OOP_NIL;
  EolSequence eol;
  if (!fetchEol(eolOop, &eol)) {
    raiseError(KVF_ERR_ARGUMENT_RANGE, eolOop);
    return OOP_NIL;
  }
  Prompt prompt;
  if (!fetchPrompt(promptOop, &prompt)) {
    raiseError(KVF_ERR_ARGUMENT_RANGE, promptOop);
    return OOP_NIL;
  }
  return readLine(p, oStr, oStartIdx, eol, prompt.text);
}
