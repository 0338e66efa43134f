// Writing to the interface's log.
#include <kvfile/kvfile.h>
#include <kvfile/platform/kci.h>
#include <kvfile/platform/kcistring.h>
#include <kvfile/platform/kcisup.h>

#include "framework/raise.h"
#include "framework/wrapping.h"

#include <algorithm>

namespace kvf {

namespace {

constexpr int64 MAX_CHUNK = 1023;  // bytes of text in one call of the logger
constexpr int LONG_TEXT = 2;       // flag of a fetch piece by piece

struct Logged {
  int64 total;    // bytes
  char lastByte;  // meaningful where total is not 0
};

// Logs the text of `oString` in chunks, which may end within a character. Leaves at `*utf8String`
// the object that later pieces were fetched from.
Logged logChunks(OopType oString, OopType* utf8String, KciLoggerType log) {
  char chunk[MAX_CHUNK + 1];
  Logged logged = {0, '\0'};
  for (;;) {
    const OopType source = *utf8String;
    const int64 fetched =
        KciFetchUtf8Bytes_(logged.total == 0 ? oString : source, wrappingAdd(logged.total, 1),
                           reinterpret_cast<ByteType*>(chunk), MAX_CHUNK, utf8String, LONG_TEXT);
    if (fetched <= 0) return logged;
    const int64 count = std::min(fetched, MAX_CHUNK);
    logged.lastByte = chunk[count - 1];
    logged.total = wrappingAdd(logged.total, count);
    chunk[count] = '\0';
    log(chunk);
  }
}

}  // namespace

}  // namespace kvf

using namespace kvf;

/// Writes a string to the interface's log, flushed, in pieces of at most 1023 bytes of UTF-8, and a
/// newline behind it unless it ends in one.
///
/// Arguments: oClass, the receiver. oString, a String, Symbol or UTF-16 string.
/// Answers: oClass, also for an empty string, which logs nothing.
/// Raises: 2094 with oString and class String for an object that has bytes but no text.
/// Stores: nothing. The logger stays flushing where nothing was logged, else as it was.
/// Host calls: KciGetLoggerFlush, KciSetLoggerFlush, KciGetLogger; per piece, and once more behind
///   the last, KciFetchUtf8Bytes_; per piece and for the newline the logger (KciLogger in a trace);
///   KciReleaseOops for a string that the host had to convert; KciSetLoggerFlush. KciFetchSize_
///   where nothing was logged.
/// Blocks: as writing the log does.
OopType KvfKciLog(OopType oClass, OopType oString) {
  const int savedFlush = KciGetLoggerFlush();
  KciSetLoggerFlush(1);
  const KciLoggerType log = KciGetLogger();
  OopType utf8String = oString;
  const Logged logged = logChunks(oString, &utf8String, log);
  if (logged.total == 0) {
    if (KciFetchSize_(oString) == 0) return oClass;
    raiseError(KVF_ERR_ARGUMENT_CLASS, oString, OOP_CLASS_STRING);
    return OOP_NIL;
  }
  if (logged.lastByte != '\n') log("\n");
  if (utf8String != oString) KciReleaseOops(&utf8String, 1);
  KciSetLoggerFlush(savedFlush);
  return oClass;
}
