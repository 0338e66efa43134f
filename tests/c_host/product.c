/* The rest of a product: allocator, error texts, versions and the line reader. */
#define _GNU_SOURCE
#include <kvfile/platform/host.h>
#include <kvfile/platform/lrsupreadline.h>
#include <kvfile/platform/unixio.h>
#include <kvfile/platform/utl.h>
#include <kvfile/platform/version.h>

#include "c_host/minimal_host.h"

#include <errno.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/utsname.h>
#include <unistd.h>

/* ---- error texts ---- */

void HostStrerror(int errNum, char* buf, size_t size) {
  const char* name = strerrorname_np(errNum);
  snprintf(buf, size, "errno=%d,%s,%s", errNum, name ? name : "?", strerror(errNum));
}

void HostGetErrMsg(const HostErrSType* err, char* buf, size_t size) {
  HostStrerror(err->theErrno, buf, size);
}

void SysErrorFinishMsg(struct SysErrorSType* err) {
  if (err->errMsgFinished) return;
  int code = err->categ == SYS_ERROR_CATEG_EAI ? err->eaiError : err->errCode;
  if (err->categ == SYS_ERROR_CATEG_ERRNO) {
    HostStrerror(code, err->errMsg, sizeof err->errMsg);
  } else {
    snprintf(err->errMsg, sizeof err->errMsg, "error %d", code);
  }
  err->errMsgFinished = TRUE;
}

/* ---- allocator and times ---- */

static int gLiveBlocks;

void* UtlMalloc(size_t size, int siteTag) {
  (void)siteTag;
  void* block = malloc(size);
  if (block) gLiveBlocks++;
  return block;
}

void UtlFree(void* p) {
  if (p) gLiveBlocks--;
  free(p);
}

int miniLiveBlocks(void) { return gLiveBlocks; }

BoolType UtlGetFileModTime(const char* path, int64* time, SysErrorSType* err) {
  struct stat64 status;
  if (stat64(path, &status) == 0) {
    *time = status.st_mtime;
    return TRUE;
  }
  err->categ = SYS_ERROR_CATEG_ERRNO;
  err->errCode = errno;
  return FALSE;
}

/* ---- version parameters ---- */

static void setText(VerParamResultSType* result, const char* text) {
  result->kind = VER_STRING_KIND;
  snprintf(result->stringVal, sizeof result->stringVal, "%s", text);
}

static void setNumber(VerParamResultSType* result, long value) {
  result->kind = VER_INT_KIND;
  result->intVal = (int32)value;
}

static void setMachineText(VerParamEType id, VerParamResultSType* result) {
  struct utsname machine;
  if (uname(&machine) != 0) memset(&machine, 0, sizeof machine);
  if (id == VER_INFO_NODE_NAME) {
    setText(result, machine.nodename);
  } else if (id == VER_INFO_OS_NAME) {
    setText(result, machine.sysname);
  } else if (id == VER_INFO_OS_RELEASE) {
    setText(result, machine.release);
  } else if (id == VER_INFO_OS_VERSION) {
    setText(result, machine.version);
  } else {
    setText(result, machine.machine);
  }
}

BoolType VerGetVersionParam(VerParamEType id, VerParamResultSType* result) {
  if (id < VER_INFO_CPU_KIND || id > VER_INFO_KV_BUILD_TYPE) return FALSE;
  switch (id) {
    case VER_INFO_PROCESS_ID:
      setNumber(result, getpid());
      break;
    case VER_INFO_PROCESSOR_COUNT:
      setNumber(result, sysconf(_SC_NPROCESSORS_ONLN));
      break;
    case VER_INFO_KV_BUILD_SERIAL_NUM:
      setNumber(result, 1);
      break;
    case VER_INFO_KV_BUILD_DATE:
    case VER_INFO_KV_IMAGE_KIND:
    case VER_INFO_KV_RELEASE:
    case VER_INFO_KV_VERSION:
    case VER_INFO_KV_BUILD_TYPE:
      setText(result, "minimal");
      break;
    default:
      setMachineText(id, result);
  }
  return TRUE;
}

/* ---- the line reader ---- */

struct LineReaderStateType {
  BoolType keepsHistory; /* this one never does */
};

static int gLiveLineReaders, gLinesRead;

LineReaderStateType* miniNewLineReader(void) {
  LineReaderStateType* state = calloc(1, sizeof *state);
  if (state) gLiveLineReaders++;
  return state;
}

int miniLiveLineReaders(void) { return gLiveLineReaders; }

int miniLinesRead(void) { return gLinesRead; }

int LrSupReadLine(LineReaderStateType* state, FILE* stream, char* buf, size_t size,
                  const char* prompt, BoolType flag) {
  state->keepsHistory = state->keepsHistory && flag;
  fputs(prompt, stdout);
  fflush(stdout);
  gLinesRead++;
  return UnixIoFgets_(buf, size, stream);
}

void LineReadShutdown(LineReaderStateType* state) {
  gLiveLineReaders--;
  free(state);
}
