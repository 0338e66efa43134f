// Buffered reading and the end of a file.
//
// A reader asks for bytes to be in the buffer, takes them out by the index, and asks again. A
// refill makes one read of the host at most, for all the room that is free: so a pipe or terminal
// delivers what it has and is not waited for twice. What is left unread moves to the front first.
// Standard input is filled by lines, because a terminal gives them so. That a read met the end is
// remembered until the buffer is dropped, however far the index is moved back.
#include <kvfile/platform/host.h>
#include <kvfile/platform/unixio.h>

#include "framework/assertions.h"
#include "framework/texts.h"
#include "framework/wrapping.h"
#include "record/eol_scan.h"
#include "record/file_record.h"
#include "record/line_reader.h"
#include "record/unread_guard.h"

#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cstring>
#include <iterator>

namespace kvf {

namespace {

// zlib counts in unsigned ints and answers in ints.
constexpr size_t MAX_GZ_COUNT = INT_MAX;

}  // namespace

void KvFileDataSType::clearReadBuf() {
  lastOpWasRead = 0;
  readBufSize = 0;
  lastReadEof = FALSE;
  guardBytes(readBuffer, std::end(readBuffer));
}

int64 KvFileDataSType::readPosition() const {
  return wrappingSubtract(nextOsReadPos, bufBytesAvail());
}

ssize_t KvFileDataSType::kvfread(ByteType* buf, size_t howMany) {
  KVF_ASSERT(holds());
  clearErrorCode();
  if (!compressed) {
    if (fPtr == nullptr) return -1;
    const ssize_t n = HostReadFile_(fileno(fPtr), buf, howMany);
    if (n < 0) storeErrno();
    if (n == 0) lastReadEof = TRUE;
    // A host that claims more than it was asked for must not lead behind the buffer.
    return n < 0 ? n : std::min(n, static_cast<ssize_t>(howMany));
  }
  if (zf == nullptr) return -1;
  const auto want = static_cast<unsigned>(std::min(howMany, MAX_GZ_COUNT));
  const int n = gzread(zf, buf, want);
  if (n < 0) {
    getGzError();
    return n;
  }
  // A full read answers the whole request, also where it was cut to what zlib can count.
  if (static_cast<unsigned>(n) == want) return static_cast<ssize_t>(howMany);
  if (n == 0) lastReadEof = TRUE;
  return n;
}

// Reads one line of standard input behind the bytes in the buffer. Answers what the reader
// answered.
static int fetchStdinLine(KvFileDataSType* p, ssize_t numBytes, const char* prompt) {
  char* line = reinterpret_cast<char*>(&p->readBuffer[p->readBufSize]);
  // The NUL and one byte more are given, which is what the buffer has two spare bytes for.
  const size_t size =
      static_cast<size_t>(numBytes <= read_buf_size - 3 ? numBytes + 2 : read_buf_size);
  int status = 0;
  if (lineReadState != nullptr && numBytes != 1 && isatty(fileno(p->fPtr))) {
    status = LrSupReadLine(lineReadState, p->fPtr, line, size, prompt, 1);
  } else {
    printf("%s", prompt);
    fflush(stdout);
    status = UnixIoFgets_(line, size, p->fPtr);
  }
  line[size - 1] = '\0';
  return status;
}

ssize_t KvFileDataSType::readIntoBuffer(ssize_t numBytes, const char* prompt) {
  KVF_ASSERT(holds());
  const intptr_t avail = lastOpWasRead == 1 ? bufBytesAvail() : 0;
  if (numBytes <= avail) return avail;
  unguardBytes(readBuffer, std::end(readBuffer));
  const ssize_t result = refill(numBytes, avail, prompt);
  guardBytes(&readBuffer[readBufSize], std::end(readBuffer));
  return result;
}

ssize_t KvFileDataSType::refill(ssize_t numBytes, intptr_t avail, const char* prompt) {
  if (avail > 0) {
    if (readBufIdx > 0) {
      memmove(readBuffer, &readBuffer[readBufIdx], static_cast<size_t>(avail));
    }
    readBufSize = avail;
  } else {
    avail = 0;
    readBufSize = 0;
    nextOsReadPos = kvftell();
  }
  readBufIdx = 0;
  numBytes -= avail;
  kvclearerr();

  ssize_t n = 0;
  if (fPtr == stdin) {
    const int status = fetchStdinLine(this, numBytes, prompt);
    if (status == INTERRUPTED) return INTERRUPTED;
    if (status != 0) {
      if (status == -1) lastReadEof = TRUE;
      lastOpWasRead = readable;
      return avail;
    }
    n = static_cast<ssize_t>(strlen(reinterpret_cast<char*>(&readBuffer[readBufSize])));
  } else {
    n = kvfread(&readBuffer[readBufSize], static_cast<size_t>(read_buf_size - readBufSize));
  }

  lastOpWasRead = readable;
  if (n <= 0 && avail == 0) {
    if (n != 0) lastOpWasRead = -1;
    return n;
  }
  if (n > 0) {
    avail += n;
    readBufSize += n;
    nextOsReadPos = wrappingAdd(nextOsReadPos, n);
  }
  return avail;
}

int KvFileDataSType::readToEol(const ByteType* eolBuf, int eolSize, intptr_t* nextIdxOut,
                               BoolType eofIsError, const char* prompt) {
  KVF_ASSERT(holds() && eolSize >= 1 && eolSize <= eol_max_size);
  if (lastOpWasRead != 1 || bufBytesAvail() < eolSize) {
    const ssize_t want = lastOpWasRead == 1 ? read_buf_size - bufBytesAvail() : read_buf_size;
    const ssize_t n = readIntoBuffer(want, prompt);
    if (n <= 0) {
      if (lastReadEof && eofIsError) {
        storeErrorString(TEXT_READ_PAST_END);
        return -1;
      }
      if (n == INTERRUPTED) return INTERRUPTED;
      if (kvferror() != 0) return -1;
    }
  }
  const EolScan scan = scanForEol(readBuffer, readBufIdx, readBufSize, eolBuf, eolSize);
  *nextIdxOut = scan.nextIdx;
  return scan.found;
}

OopType KvFileDataSType::atEnd() {
  KVF_ASSERT(holds());
  if (compressed) return oopFromBool(zAtEnd());
  if (lastOpWasRead == 1) {
    if (lastReadEof) return OOP_TRUE;
    if (bufBytesAvail() > 0) return OOP_FALSE;
    const ssize_t n = readIntoBuffer(read_buf_size, "");
    return oopFromBool(n <= 0 && n != INTERRUPTED);
  }
  if (readable) {
    ssize_t n = 0;
    do {
      n = readIntoBuffer(read_buf_size, "");
    } while (n == INTERRUPTED);
    return oopFromBool(lastReadEof || n <= 0);
  }
  const int64 position = kvftell();
  kvfseek(0, SEEK_END);
  const int64 end = kvftell();
  kvfseek(position, SEEK_SET);
  return oopFromBool(position >= end);
}

BoolType KvFileDataSType::zAtEnd() {
  KVF_ASSERT(holds());
  if (writable || zf == nullptr) return TRUE;
  if (lastOpWasRead == 1 && readBufSize != readBufIdx) return FALSE;
  // In parentheses: the function and not zlib's macro, which looks into the handle.
  const int c = (gzgetc)(zf);
  if (c == -1) return TRUE;
  gzungetc(c, zf);
  return FALSE;
}

ssize_t KvFileDataSType::basicRead(ByteType* dest, intptr_t numBytes) {
  KVF_ASSERT(holds());
  ssize_t total = 0;
  if (lastOpWasRead == 1 && bufBytesAvail() > 0 && numBytes > 0) {
    total = std::min(bufBytesAvail(), numBytes);
    memcpy(dest, &readBuffer[readBufIdx], static_cast<size_t>(total));
    readBufIdx += total;
    dest += total;
    numBytes -= total;
  }
  if (numBytes <= 0) return total;
  const ssize_t n = kvfread(dest, static_cast<size_t>(numBytes));
  if (n < 0) return n;
  total += n;
  lastOpWasRead = 1;
  // Bytes that came out of the buffer are counted twice. Products have come to rely on the
  // positions that this gives after mixed reads, so that it stays.
  nextOsReadPos = wrappingAdd(nextOsReadPos, total);
  return total;
}

int KvFileDataSType::kvfgetc() {
  KVF_ASSERT(holds());
  if (compressed) return zf == nullptr ? -1 : (gzgetc)(zf);
  ByteType ch = 0;
  return kvfread(&ch, 1) == 1 ? ch : -1;
}

}  // namespace kvf
