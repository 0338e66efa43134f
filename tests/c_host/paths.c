/* Names: paths, directories and the environment. */
#define _GNU_SOURCE
#include <kvfile/platform/host.h>

#include "c_host/minimal_host.h"

#include <ctype.h>
#include <dirent.h>
#include <errno.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

/* ---- expansion ---- */

/* Where a reference begins: writes its value to `*value` and answers the bytes of the reference,
 * 0 when `in` begins with none, and -1 when its name is unknown. */
static int reference(const char* in, BoolType atStart, const char** value) {
  char name[256];
  if (in[0] == '~' && atStart && (in[1] == '/' || in[1] == '\0')) {
    *value = getenv("HOME");
    return *value ? 1 : -1;
  }
  if (in[0] != '$') return 0;
  int braces = in[1] == '{';
  const char* begin = in + 1 + braces;
  size_t length = 0;
  while (isalnum((unsigned char)begin[length]) || begin[length] == '_') length++;
  if (length == 0 || length >= sizeof name || (braces && begin[length] != '}')) return -1;
  memcpy(name, begin, length);
  name[length] = '\0';
  *value = getenv(name);
  return *value ? (int)length + 1 + 2 * braces : -1;
}

BoolType HostExpandFileName(const char* in, char* out, size_t outSize, int noWildcards,
                            int expandLast) {
  (void)noWildcards;
  (void)expandLast;
  char expanded[HOST_FNAME_MAX_SIZE] = "";
  size_t used = 0;
  for (const char* at = in; *at;) {
    const char* piece = at;
    int taken = reference(at, at == in, &piece);
    if (taken < 0) return FALSE;
    size_t length = taken == 0 ? 1 : strlen(piece);
    if (used + length >= sizeof expanded) return FALSE;
    memcpy(expanded + used, piece, length);
    used += length;
    at += taken == 0 ? 1 : taken;
  }
  if (used >= outSize) return FALSE;
  expanded[used] = '\0';
  memcpy(out, expanded, used + 1);
  return TRUE;
}

/* ---- files ---- */

static BoolType succeeded(int result, HostErrSType* err) {
  if (result == 0) return TRUE;
  err->theErrno = errno;
  return FALSE;
}

BoolType HostRemoveSingleFile(const char* path, int flag, HostErrSType* err) {
  (void)flag;
  return succeeded(unlink(path), err);
}

BoolType HostRemoveDirectory(const char* path, HostErrSType* err) {
  return succeeded(rmdir(path), err);
}

BoolType HostCreateDirectory(const char* path, HostErrSType* err, int mode) {
  return succeeded(mkdir(path, mode < 0 ? 0777 : (mode_t)mode), err);
}

HostFileKindEType HostFileType(const char* path, HostErrSType* err) {
  struct stat64 status;
  if (!succeeded(lstat64(path, &status), err)) return HOST_FILE_KIND_ERROR;
  if (S_ISREG(status.st_mode)) return HOST_FILE_KIND_FILE;
  if (S_ISDIR(status.st_mode)) return HOST_FILE_KIND_DIR;
  if (S_ISCHR(status.st_mode)) return HOST_FILE_KIND_CHRDEVICE;
  if (S_ISBLK(status.st_mode)) return HOST_FILE_KIND_BLKDEVICE;
  if (S_ISLNK(status.st_mode)) return HOST_FILE_KIND_LNK;
  return S_ISFIFO(status.st_mode) ? HOST_FILE_KIND_FIFO : HOST_FILE_KIND_OTHER;
}

BoolType HostFileExistSize(const char* path, int64* size, int* exists, HostErrSType* err, char* buf,
                           size_t bufSize) {
  struct stat64 status;
  if (succeeded(stat64(path, &status), err)) {
    *exists = TRUE;
    *size = status.st_size;
    return TRUE;
  }
  *exists = err->theErrno != ENOENT && err->theErrno != ENOTDIR;
  if (buf) HostGetErrMsg(err, buf, bufSize);
  return FALSE;
}

/* ---- directories ---- */

/* The names of the walk: each with its NUL, one behind the other. They are kept here and not on the
 * stack, since the callback may leave by a jump. */
static char* gWalkNames;
static size_t gWalkSize;

void miniFreeWalk(void) {
  free(gWalkNames);
  gWalkNames = NULL;
  gWalkSize = 0;
}

static int keepName(const char* name) {
  size_t length = strlen(name) + 1;
  char* names = realloc(gWalkNames, gWalkSize + length);
  if (!names) return ENOMEM;
  memcpy(names + gWalkSize, name, length);
  gWalkNames = names;
  gWalkSize += length;
  return 0;
}

/* Reads the whole directory and closes it: an errno value, 0 when all went well. */
static int keepNames(const char* path) {
  DIR* dir = opendir(path);
  if (!dir) return errno;
  int failure = 0;
  while (failure == 0) {
    errno = 0;
    const struct dirent* entry = readdir(dir);
    if (!entry) {
      failure = errno;
      break;
    }
    if (strcmp(entry->d_name, ".") != 0 && strcmp(entry->d_name, "..") != 0) {
      failure = keepName(entry->d_name);
    }
  }
  closedir(dir);
  return failure;
}

BoolType HostDirectory(const char* path, HostDirCallbackType callback,
                       HostDirClientDataType* clientData, int flag) {
  (void)flag;
  miniFreeWalk();
  clientData->errNum = keepNames(path);
  BoolType goesOn = clientData->errNum == 0;
  size_t length = strlen(path);
  const char* separator = length > 0 && path[length - 1] == '/' ? "" : "/";
  for (size_t at = 0; goesOn && at < gWalkSize; at += strlen(gWalkNames + at) + 1) {
    goesOn = callback(path, gWalkNames + at, separator, clientData);
  }
  miniFreeWalk();
  return goesOn;
}

/* ---- the environment ---- */

BoolType HostGetEnv(const char* name, char* out, size_t outSize) {
  const char* value = getenv(name);
  if (value) snprintf(out, outSize, "%s", value);
  return value != NULL;
}

BoolType HostSetEnv(const char* name, const char* value) {
  return (value ? setenv(name, value, 1) : unsetenv(name)) == 0;
}

void HostSetOopPtr(OopType** where) {
  static OopType kept;
  kept = OOP_TRUE;
  *where = &kept;
}
