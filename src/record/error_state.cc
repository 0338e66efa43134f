// The error state of a record.
#include <kvfile/platform/host.h>
#include <kvfile/platform/utl.h>

#include "framework/assertions.h"
#include "framework/bounded_copy.h"
#include "record/allocation_sites.h"
#include "record/file_record.h"

#include <cerrno>

namespace kvf {

KvFileErrStrType* KvFileErrStrType::allocate() {
  auto* buffer =
      static_cast<KvFileErrStrType*>(UtlMalloc(sizeof(KvFileErrStrType), KVF_SITE_ERROR_TEXT));
  if (buffer != nullptr) buffer->msg[0] = '\0';
  return buffer;
}

void KvFileDataSType::clearErrorCode() {
  zErrCode = 0;
  errCode = 0;
  if (errString != nullptr) errString->msg[0] = '\0';
}

void KvFileDataSType::getErrorString() {
  KVF_ASSERT(holds());
  if (errString != nullptr) return;
  errString = KvFileErrStrType::allocate();
  if (errString == nullptr) return;
  HostStrerror(errCode, errString->msg, sizeof errString->msg);
  errString->msg[sizeof errString->msg - 1] = '\0';
}

void KvFileDataSType::storeErrorString(const char* str) {
  if (errString != nullptr) return;
  errString = KvFileErrStrType::allocate();
  if (errString != nullptr) kvf::strlcpy(errString->msg, str, sizeof errString->msg);
}

void KvFileDataSType::storeErrno() {
  errCode = errno;
  getErrorString();
}

void KvFileDataSType::getGzError() {
  KVF_ASSERT(holds());
  if (zf == nullptr) return;
  const char* msg = gzerror(zf, &zErrCode);
  if (zErrCode == Z_OK) return;
  if (zErrCode == Z_ERRNO) {
    storeErrno();
  } else {
    storeErrorString(msg);
  }
}

}  // namespace kvf
