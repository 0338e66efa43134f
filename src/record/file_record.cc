// Life cycle and mode of a record.
#include "record/file_record.h"

#include <kvfile/platform/utl.h>

#include "framework/assertions.h"
#include "framework/texts.h"
#include "record/allocation_sites.h"
#include "record/unread_guard.h"

#include <cstring>
#include <iterator>

namespace kvf {

KvFileDataSType* KvFileDataSType::allocate() {
  auto* record =
      static_cast<KvFileDataSType*>(UtlMalloc(sizeof(KvFileDataSType), KVF_SITE_FILE_RECORD));
  if (record != nullptr) record->readBuffer[0] = 0;
  return record;
}

void KvFileDataSType::initialize(FILE* fileArg, gzFile gzFileArg, BoolType isClientArg,
                                 OopType kvfileOID, BoolType isStd, const char* mode) {
  // A null mode leaves the flags as they are, so that a new record needs some.
  readable = FALSE;
  writable = FALSE;
  isAppend = FALSE;
  errString = nullptr;
  next = nullptr;
  prev = nullptr;
  reinitialize(fileArg, gzFileArg, isClientArg, kvfileOID, isStd, mode);
}

void KvFileDataSType::reinitialize(FILE* fileArg, gzFile gzFileArg, BoolType /*isClientArg*/,
                                   OopType kvfileOID, BoolType isStd, const char* mode) {
  KVF_ASSERT(fileArg == nullptr || gzFileArg == nullptr);
  fPtr = fileArg;
  zf = gzFileArg;
  compressed = gzFileArg != nullptr;
  objId = kvfileOID;
  pathObj = OOP_NIL;
  isClient = TRUE;
  lastOpWasRead = -1;
  lastReadEof = FALSE;
  lastPutcWasEoln = TRUE;
  closeOnFinalize = TRUE;
  errCode = 0;
  zErrCode = 0;
  nextOsReadPos = 0;
  readBufSize = 0;
  readBufIdx = 0;
  guardBytes(readBuffer, std::end(readBuffer));
  setFromMode(mode);
  isStdFile = isStd != 0;
}

void KvFileDataSType::deallocate(KvFileDataSType* dataPtr) {
  if (dataPtr->errString != nullptr) {
    UtlFree(dataPtr->errString);
    dataPtr->errString = nullptr;
  }
  unguardBytes(dataPtr->readBuffer, std::end(dataPtr->readBuffer));
  UtlFree(dataPtr);
}

// Both ways is "+" directly behind a letter, anywhere.
static bool opensBothWays(const char* mode) {
  for (; mode[0] != '\0'; ++mode) {
    if (mode[1] == '+' && (mode[0] == 'a' || mode[0] == 'r' || mode[0] == 'w')) return true;
  }
  return false;
}

void KvFileDataSType::setFromMode(const char* mode) {
  if (mode == nullptr) return;
  writable = FALSE;
  readable = FALSE;
  isAppend = FALSE;
  // "+" counts only right behind its letter. "ab+" therefore is append mode, unlike "a+" and "a+b",
  // and existing images rely on where its seeks are refused.
  if (opensBothWays(mode)) {
    writable = TRUE;
    readable = TRUE;
    return;
  }
  readable = strchr(mode, 'r') != nullptr;
  writable = strchr(mode, 'w') != nullptr;
  if (!writable && strchr(mode, 'a') != nullptr) {
    isAppend = TRUE;
    writable = TRUE;
  }
  if (!readable && !writable) storeErrorString(TEXT_INCONSISTENT_MODE);
}

bool KvFileDataSType::holds() const {
  constexpr intptr_t LIMIT = read_buf_size + 1;
  return (compressed ? fPtr == nullptr : zf == nullptr) && readBufIdx >= 0 && readBufIdx <= LIMIT &&
         readBufSize >= 0 && readBufSize <= LIMIT && lastOpWasRead >= -1 && lastOpWasRead <= 1;
}

BoolType KvFileDataSType::usingCompression() const {
  return compressed && (zf == nullptr || gzdirect(zf) == 0);
}

}  // namespace kvf
