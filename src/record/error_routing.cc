// The same failure told to a record, or to the class where there is none.
#include "record/error_routing.h"

#include <kvfile/platform/kci.h>

#include "framework/class_error.h"
#include "framework/texts.h"

#include <cstdio>

namespace kvf {

void storeErrorString(KvFileDataSType* p, const char* str) {
  if (p == nullptr) {
    storeClassErrorString(str);
  } else {
    p->storeErrorString(str);
  }
}

void storeError(KvFileDataSType* p, int errNo, const char* msg) {
  if (p == nullptr) {
    classErrorCode = errNo;
  } else {
    p->errCode = errNo;
  }
  storeErrorString(p, msg);
}

void postKciErr(KvFileDataSType* p, const KciErrSType* err) {
  char text[2048];
  snprintf(text, sizeof text, TEXT_KCI_ERROR, err->number, err->message);
  storeError(p, err->number, text);
}

BoolType postPendingKciErr(KvFileDataSType* p) {
  // KciErr fills all of it where there is an error, which is seldom: only what is shown is set.
  KciErrSType err;
  err.number = 0;
  err.message[0] = '\0';
  if (!KciErr(&err)) return FALSE;
  err.message[sizeof err.message - 1] = '\0';
  postKciErr(p, &err);
  return TRUE;
}

static void hostMessage(const HostErrSType* hostErr, ErrMsgStrType message) {
  message[0] = '\0';
  HostGetErrMsg(hostErr, message, ERRMSG_MAX_TXT);
  message[ERRMSG_MAX_TXT - 1] = '\0';
}

void postError(KvFileDataSType* p, const HostErrSType* hostErr, const char* path) {
  ErrMsgStrType message;
  ErrMsgStrType text;
  hostMessage(hostErr, message);
  snprintf(text, sizeof text, TEXT_HOST_ERROR_PATH, message, path);
  storeError(p, hostErr->theErrno, text);
}

void postError(KvFileDataSType* p, const HostErrSType* hostErr, OopType pathObj) {
  ErrMsgStrType message;
  ErrMsgStrType text;
  hostMessage(hostErr, message);
  snprintf(text, sizeof text, TEXT_HOST_ERROR_PATH_OBJECT, message, pathObj);
  storeError(p, hostErr->theErrno, text);
}

void postError(KvFileDataSType* p, const HostErrSType* hostErr, const KvfPath* aPath,
               OopType pathObj) {
  if (aPath->isUtf16) {
    postError(p, hostErr, pathObj);
  } else {
    postError(p, hostErr, aPath->path);
  }
}

}  // namespace kvf
