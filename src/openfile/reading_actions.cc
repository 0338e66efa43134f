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
constexpr OopType oopInterrupted = oopFromSmallInteger(interrupted);

// Reads items until `amount` are stored or the file gives no more.
OopType readItems(KvFileDataSType* p, OopType oBytes, int64 itemSize, int64 amount) {
  const int64 perBuf = read_buf_size / itemSize;
  int64 items = 0;
  int64 stored = 0;
  while (items < amount) {
    const int64 want = std::min(amount - items, perBuf) * itemSize;
    const ssize_t got = p->readIntoBuffer(static_cast<ssize_t>(want), "");
    if (got < itemSize) {
      if (got == interrupted) return oopInterrupted;
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
  static constexpr int64 max_size = 1023;
  char text[max_size + 1];  // NUL-terminated
};

BoolType fetchPrompt(OopType promptOop, Prompt* prompt) {
  prompt->text[0] = '\0';
  if (promptOop == OOP_NIL) return TRUE;
  const int64 count = KciFetchChars_(promptOop, 1, prompt->text, Prompt::max_size);
  prompt->text[std::clamp<int64>(count, 0, Prompt::max_size)] = '\0';
  return count >= 1 && count <= Prompt::max_size;
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
    if (found == interrupted) return oopInterrupted;
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
/// Host calls: KciOopToI64_ twice; per refill of the buffer lseek and HostReadFile_, or gztell and
///   gzread; per piece KciStoreBytesInstanceOf and KciErr; KciI64ToOop.
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
/// Host calls: none while the buffer holds bytes; else lseek and HostReadFile_, or gztell and
///   gzread.
/// Blocks: as a read does.
OopType KvfGetC(OopType oFile) {
  KvFileDataSType* p = fetchKvFile(oFile, 0);
  if (p == nullptr) return OOP_NIL;
  if (p->lastOpWasRead != 1 || p->bufBytesAvail() <= 0) {
    const ssize_t n = p->readIntoBuffer(read_buf_size, "");
    if (n == interrupted) return oopInterrupted;
    if (n <= 0) return OOP_NIL;
  }
  return oopFromCharacter(p->readBuffer[p->readBufIdx++]);
}

/// Asks whether the file is at its end. A file that is read may be read ahead to find out; once the
/// end was reached the answer stays true, even if the file grows, until the file is repositioned.
///
/// Arguments: oFile, an open file.
/// Answers: true or false. A file that cannot be read any more is at its end; a compressed file
///   open for writing always is. nil without an open file.
/// Raises: 4100, 2364.
/// Stores: a failed read or seek, code and text.
/// Host calls: none while the buffer tells; else lseek and HostReadFile_, gzgetc and gzungetc, or
///   four lseek for a file that is only written.
/// Blocks: as a read does.
OopType KvfAtEnd(OopType oFile) {
  KvFileDataSType* p = fetchKvFile(oFile, 0);
  return p == nullptr ? OOP_NIL : p->atEnd();
}

/// Reads one line, its end-of-line sequence included, into a String that ends right behind it. A last
/// line may end without the sequence. Bytes that only begin a sequence of several stay unread at the
/// end of the file; where a read of a pipe or terminal brings no more than those, the line ends
/// before them, perhaps empty, and the next call goes on.
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
/// Host calls: KciOopToI32_, or KciIsKindOfClass and KciFetchBytes_; KciFetchChars_ for a prompt;
///   per refill of the buffer lseek and HostReadFile_, or gztell and gzread, or for standard input
///   LrSupReadLine or UnixIoFgets_; KciOopToI64_, KciFetchSize_, KciCreateByteObj for a new String,
///   KciStoreBytesInstanceOf per piece, KciSetVaryingSize and KciErr where the String was longer.
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
