// The rest of the costless platform: functions that no measured workload reaches.
#include <kvfile/platform/host.h>
#include <kvfile/platform/kci.h>
#include <kvfile/platform/kcistring.h>
#include <kvfile/platform/kcisup.h>
#include <kvfile/platform/lrsupreadline.h>
#include <kvfile/platform/syserror.h>
#include <kvfile/platform/unixio.h>
#include <kvfile/platform/utl.h>
#include <kvfile/platform/version.h>

#include <cstdio>
#include <cstdlib>

namespace {

[[noreturn]] void unreached(const char* name) {
  std::fprintf(stderr, "%s is not part of what is measured\n", name);
  std::abort();
}

}  // namespace

extern "C" {

// ---- host.h ----

void HostStrerror(int, char*, size_t) { unreached("HostStrerror"); }
void HostGetErrMsg(const HostErrSType*, char*, size_t) { unreached("HostGetErrMsg"); }
BoolType HostExpandFileName(const char*, char*, size_t, int, int) {
  unreached("HostExpandFileName");
}
int HostLockFile(FILE*, int, long, long, int, SysErrorSType*) { unreached("HostLockFile"); }
int HostUnlockFile(FILE*, long, long, SysErrorSType*) { unreached("HostUnlockFile"); }
int HostLockFileQuery(FILE*, int, long, long, struct flock64*, char*, size_t) {
  unreached("HostLockFileQuery");
}
BoolType HostRemoveSingleFile(const char*, int, HostErrSType*) {
  unreached("HostRemoveSingleFile");
}
BoolType HostRemoveDirectory(const char*, HostErrSType*) { unreached("HostRemoveDirectory"); }
BoolType HostCreateDirectory(const char*, HostErrSType*, int) { unreached("HostCreateDirectory"); }
HostFileKindEType HostFileType(const char*, HostErrSType*) { unreached("HostFileType"); }
BoolType HostFileExistSize(const char*, int64*, int*, HostErrSType*, char*, size_t) {
  unreached("HostFileExistSize");
}
BoolType HostDirectory(const char*, HostDirCallbackType, HostDirClientDataType*, int) {
  unreached("HostDirectory");
}
BoolType HostGetEnv(const char*, char*, size_t) { unreached("HostGetEnv"); }
BoolType HostSetEnv(const char*, const char*) { unreached("HostSetEnv"); }
void HostSetOopPtr(OopType**) { unreached("HostSetOopPtr"); }

// ---- kci.h ----

BoolType KciDeclareAction(const char*, KciActionFnType, int, unsigned, BoolType) {
  unreached("KciDeclareAction");
}
void KciRaiseException(const KciErrSType*) { unreached("KciRaiseException"); }
void KciPushErrJump(KciErrJumpSType*) { unreached("KciPushErrJump"); }
void KciPopErrJump(KciErrJumpSType*) { unreached("KciPopErrJump"); }
int KciFetchOops(OopType, int64, OopType*, int) { unreached("KciFetchOops"); }
void KciStoreOop(OopType, int64, OopType) { unreached("KciStoreOop"); }
void KciStoreOops(OopType, int64, const OopType*, int) { unreached("KciStoreOops"); }
void KciAppendOops(OopType, int64, const OopType*) { unreached("KciAppendOops"); }
OopType KciNewOop(OopType) { unreached("KciNewOop"); }
OopType KciNewByteObj(OopType, const char*, size_t) { unreached("KciNewByteObj"); }
void KciReleaseOops(OopType*, int) { unreached("KciReleaseOops"); }
void KciCTimeToDateTime(int64, KciDateTimeSType*) { unreached("KciCTimeToDateTime"); }
OopType KciNewDateTime(OopType, const KciDateTimeSType*) { unreached("KciNewDateTime"); }

// ---- kcistring.h ----

int64 KciFetchChars_(OopType, int64, char*, int64) { unreached("KciFetchChars_"); }
OopType KciNewString(const char*) { unreached("KciNewString"); }
OopType KciNewCharObj(OopType, const char*) { unreached("KciNewCharObj"); }
OopType KciNewSymbol(const char*) { unreached("KciNewSymbol"); }
BoolType KciAll7Bit(const char*, size_t*) { unreached("KciAll7Bit"); }

// ---- kcisup.h ----

void KciOopMapEntryDelete(KciOopMapEntryType*) { unreached("KciOopMapEntryDelete"); }
void KciOopMapForeach(KciOopMapType*, KciOopMapCallbackType, int64*, int64*) {
  unreached("KciOopMapForeach");
}
int KciSupFetchKciSocketBufSize(const char*, char*, size_t) { unreached("the socket buffer size"); }
BoolType KciSupSetKciSocketBufSize(const char*, int, char*, size_t) {
  unreached("the socket buffer size");
}
KciLoggerType KciGetLogger(void) { unreached("KciGetLogger"); }
int KciGetLoggerFlush(void) { unreached("KciGetLoggerFlush"); }
void KciSetLoggerFlush(int) { unreached("KciSetLoggerFlush"); }

// ---- lrsupreadline.h ----

int LrSupReadLine(LineReaderStateType*, FILE*, char*, size_t, const char*, BoolType) {
  unreached("LrSupReadLine");
}
void LineReadShutdown(LineReaderStateType*) { unreached("LineReadShutdown"); }

// ---- syserror.h ----

void SysErrorFinishMsg(struct SysErrorSType*) { unreached("SysErrorFinishMsg"); }

// ---- unixio.h ----

BoolType UnixIoFstat(int, struct stat64*, char*, size_t) { unreached("UnixIoFstat"); }
int UnixIoFgets_(char*, size_t, FILE*) { unreached("UnixIoFgets_"); }

// ---- utl.h ----

BoolType UtlGetFileModTime(const char*, int64*, SysErrorSType*) { unreached("UtlGetFileModTime"); }

// ---- version.h ----

BoolType VerGetVersionParam(VerParamEType, VerParamResultSType*) {
  unreached("VerGetVersionParam");
}

}  // extern "C"
