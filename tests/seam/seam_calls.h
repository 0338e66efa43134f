// The wrappers that the seamed module calls, with the types of what they stand for.
#pragma once

#include <kvfile/platform/host.h>
#include <kvfile/platform/kci.h>
#include <kvfile/platform/kcistring.h>
#include <kvfile/platform/kcisup.h>
#include <kvfile/platform/unixio.h>
#include <kvfile/platform/utl.h>

#include <unistd.h>
#include <zlib.h>

#include <cstdio>

extern "C" {

decltype(KciErr) seam_KciErr;
decltype(KciFetchSize_) seam_KciFetchSize_;
decltype(KciGetLogger) seam_KciGetLogger;
decltype(KciNewString) seam_KciNewString;
decltype(KciOopMapCreate) seam_KciOopMapCreate;
decltype(KciOopMapDestroy) seam_KciOopMapDestroy;
decltype(KciOopMapEntryAdd) seam_KciOopMapEntryAdd;
decltype(KciOopMapEntryDelete) seam_KciOopMapEntryDelete;
decltype(KciOopMapEntryFind) seam_KciOopMapEntryFind;
decltype(KciOopMapForeach) seam_KciOopMapForeach;
decltype(KciOopToI64_) seam_KciOopToI64_;
decltype(KciPopErrJump) seam_KciPopErrJump;
decltype(KciPushErrJump) seam_KciPushErrJump;
decltype(KciRaiseException) seam_KciRaiseException;
decltype(KciStoreOops) seam_KciStoreOops;
decltype(HostCreateDirectory) seam_HostCreateDirectory;
decltype(HostDirectory) seam_HostDirectory;
decltype(HostFileExistSize) seam_HostFileExistSize;
decltype(HostFileType) seam_HostFileType;
decltype(HostLockFile) seam_HostLockFile;
decltype(HostLockFileQuery) seam_HostLockFileQuery;
decltype(HostOpenFile) seam_HostOpenFile;
decltype(HostReadFile_) seam_HostReadFile_;
decltype(HostRemoveSingleFile) seam_HostRemoveSingleFile;
decltype(HostWriteFile_) seam_HostWriteFile_;
decltype(UtlFree) seam_UtlFree;
decltype(UtlGetFileModTime) seam_UtlGetFileModTime;
decltype(UtlMalloc) seam_UtlMalloc;
decltype(UnixIoFgets_) seam_UnixIoFgets_;
decltype(UnixIoFstat) seam_UnixIoFstat;
gzFile seam_gzopen(const char* path, const char* mode);
int seam_gzread(gzFile file, voidp buffer, unsigned count);
int seam_gzwrite(gzFile file, voidpc buffer, unsigned count);
int seam_gzflush(gzFile file, int flush);
int seam_gzclose(gzFile file);
const char* seam_gzerror(gzFile file, int* code);
void seam_gzclearerr(gzFile file);
z_off_t seam_gzseek(gzFile file, z_off_t offset, int whence);
int seam_fclose(FILE* stream);
int seam_fileno(FILE* stream);
int seam_fflush(FILE* stream);
off_t seam_lseek(int fd, off_t offset, int whence);
__attribute__((format(printf, 1, 2))) int seam_printf(const char* format, ...);
}
