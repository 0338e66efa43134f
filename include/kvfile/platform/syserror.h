/* The error record of the host's system layer. */
#ifndef KVFILE_PLATFORM_SYSERROR_H
#define KVFILE_PLATFORM_SYSERROR_H

#include <kvfile/platform/oop.h>

/* Where an error came from. */
KV_INT_ENUM(SysErrorCategEType){
    SYS_ERROR_CATEG_NONE = 0, SYS_ERROR_CATEG_ERRNO = 1, /* errCode is an errno value */
    SYS_ERROR_CATEG_EAI = 2                              /* eaiError is an address-lookup error */
};

/* The error itself: 0 for none, else an errno value. */
KV_INT_ENUM(SysErrorCodeEType){SYS_ERROR_NONE = 0};

struct SysErrorSType;

#ifdef __cplusplus
extern "C" {
#endif

/* Completes `err->errMsg` from the codes in the record, once: afterwards errMsgFinished is true and
 * the text names the error and its number. Does nothing when it is true already. */
void SysErrorFinishMsg(struct SysErrorSType* err);

#ifdef __cplusplus
}
#endif

typedef struct SysErrorSType {
  int64 errFlags;
  SysErrorCodeEType errCode;
  int eaiError;
  SysErrorCategEType categ;
  BoolType errMsgFinished;
  char errMsg[1024]; /* NUL-terminated */
#ifdef __cplusplus
  /* Sets flags, codes and the finished flag to 0 and the text to empty. */
  void initialize() {
    errFlags = 0;
    errCode = SYS_ERROR_NONE;
    eaiError = 0;
    categ = SYS_ERROR_CATEG_NONE;
    errMsgFinished = FALSE;
    errMsg[0] = '\0';
  }
  void finishMsg() { SysErrorFinishMsg(this); }
#endif
} SysErrorSType;

#endif
