#include "hostlayer/error_text.h"

#include <kvfile/platform/host.h>

#include <netdb.h>

#include <cstdio>
#include <cstring>
#include <string>

namespace kvhost {

namespace {

constexpr const char* separatorFor(const char* subject) { return *subject != '\0' ? " : " : ""; }

const char* errnoName(int errNum) {
  if (errNum == 0) return "NONE";
  const char* name = strerrorname_np(errNum);
  return name != nullptr ? name : "UNKNOWN";
}

const char* errnoMeaning(int errNum) {
  if (errNum == 0) return "No error was reported";
  const char* meaning = strerrordesc_np(errNum);
  return meaning != nullptr ? meaning : "Unknown error";
}

}  // namespace

void formatErrno(int errNum, const char* subject, char* buf, std::size_t size) {
  const char* about = subject != nullptr ? subject : "";
  std::snprintf(buf, size, "errno=%d,%s, %s%s%s", errNum, errnoName(errNum), errnoMeaning(errNum),
                separatorFor(about), about);
}

void recordErrno(SysErrorSType* err, int errNum, const char* subject) {
  err->initialize();
  err->errCode = static_cast<SysErrorCodeEType>(errNum);
  err->categ = SYS_ERROR_CATEG_ERRNO;
  std::snprintf(err->errMsg, sizeof err->errMsg, "%s", subject);
}

}  // namespace kvhost

extern "C" {

void HostStrerror(int errNum, char* buf, size_t size) {
  kvhost::formatErrno(errNum, nullptr, buf, size);
}

void HostGetErrMsg(const HostErrSType* err, char* buf, size_t size) {
  kvhost::formatErrno(err->theErrno, nullptr, buf, size);
}

void SysErrorFinishMsg(SysErrorSType* err) {
  if (err->errMsgFinished) return;
  const std::string subject = err->errMsg;
  if (err->categ == SYS_ERROR_CATEG_EAI) {
    std::snprintf(err->errMsg, sizeof err->errMsg, "eaiError=%d, %s%s%s", err->eaiError,
                  gai_strerror(err->eaiError), kvhost::separatorFor(subject.c_str()),
                  subject.c_str());
  } else {
    kvhost::formatErrno(err->errCode, subject.c_str(), err->errMsg, sizeof err->errMsg);
  }
  err->errMsgFinished = TRUE;
}

}  // extern "C"
