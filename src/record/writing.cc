// Writing, flushing and closing.
#include <kvfile/platform/host.h>

#include "framework/assertions.h"
#include "record/file_record.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>

namespace kvf {

static constexpr ByteType NEWLINE = 10;

// When the descriptor failed, zlib has lost bytes that it had, or does not know how many it wrote. It
// has lost its place, and would go on with garbage or write data twice: its error stays, and every
// call after this one fails.
static void clearGzError(gzFile zf) {
  int code = Z_OK;
  gzerror(zf, &code);
  if (code == Z_ERRNO) {
    errno = EIO;
  } else {
    gzclearerr(zf);
  }
}

void KvFileDataSType::kvclearerr() {
  if (compressed) {
    if (zf != nullptr) clearGzError(zf);
  } else if (fPtr != nullptr) {
    // Without the stream's lock: a session's files belong to its thread.
    clearerr_unlocked(fPtr);
  }
}

ssize_t KvFileDataSType::kvfwrite(const ByteType* buf, size_t howMany) {
  KVF_ASSERT(holds() && (buf != nullptr || howMany == 0));
  kvclearerr();
  clearErrorCode();
  if (!clearReadBufBeforeWrite()) return -1;
  if (howMany > 0) lastPutcWasEoln = buf[howMany - 1] == NEWLINE;
  if (compressed) {
    if (zf == nullptr) return 0;
    const int n = gzwrite(zf, buf, static_cast<unsigned>(std::min<size_t>(howMany, INT_MAX)));
    if (n < 0) getGzError();
    return n;
  }
  if (fPtr == nullptr) return -1;
  const ssize_t n = HostWriteFile_(fileno(fPtr), buf, howMany);
  if (n < 0) storeErrno();
  return n;
}

void KvFileDataSType::kvfputc(ByteType c) {
  KVF_ASSERT(holds());
  if (!isOpen()) return;
  lastPutcWasEoln = c == NEWLINE;
  if (!clearReadBufBeforeWrite()) return;
  if (compressed) {
    gzputc(zf, c);
  } else {
    HostWriteFile_(fileno(fPtr), &c, 1);
  }
}

void KvFileDataSType::kvfputs(const char* s) {
  KVF_ASSERT(holds());
  if (!isOpen()) return;
  const size_t length = strlen(s);
  if (length > 0) lastPutcWasEoln = s[length - 1] == NEWLINE;
  if (compressed) {
    gzputs(zf, s);
  } else {
    HostWriteFile_(fileno(fPtr), s, length);
  }
}

int KvFileDataSType::kvfflush(BoolType doSync) {
  KVF_ASSERT(holds());
  if (compressed) {
    if (zf == nullptr) return -1;
    // The member is finished, so that a reader finds a complete gzip file after every flush.
    const int status = gzflush(zf, Z_FINISH);
    if (status != Z_OK) getGzError();
    return status;
  }
  if (fPtr == nullptr) return -1;
  int status = fflush(fPtr);
  if (status == 0 && doSync) status = fsync(fileno(fPtr));
  if (status != 0) storeErrno();
  return status;
}

static int closePlain(KvFileDataSType* p) {
  if (!p->isStdFile) {
    const int status = fclose(p->fPtr);
    if (status != 0) p->storeErrno();
    return status;
  }
  if (p->fPtr == stdout && !p->lastPutcWasEoln) {
    p->lastPutcWasEoln = TRUE;
    const size_t written = fwrite("\n", 1, 1, stdout);
    // All else goes to the descriptor, past the stream: flushed, the newline lies before it.
    fflush(stdout);
    return static_cast<int>(written);
  }
  return 0;
}

int KvFileDataSType::kvfClose() {
  KVF_ASSERT(holds());
  if (compressed) {
    if (zf != nullptr) zErrCode = gzclose(zf);
    zf = nullptr;
    return 0;
  }
  if (fPtr == nullptr) return 0;
  const int status = closePlain(this);
  fPtr = nullptr;
  return status;
}

int KvFileDataSType::kvfFileDesc() const {
  return compressed || fPtr == nullptr ? -1 : fileno(fPtr);
}

}  // namespace kvf
