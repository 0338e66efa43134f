/* The host layer: files, names, directories, the environment and record locks of the operating
 * system that the process runs on.
 *
 * Conventions: paths are NUL-terminated bytes, taken as they stand unless a line says "expands".
 * BoolType results are non-zero for success. Texts are NUL-terminated and cut to fit; the module
 * terminates every buffer itself, too. Pointers are never null, unless a line says so. Nothing here
 * leaves by a jump, but for a walk whose callback does. Calls that reach a file system may block as
 * long as that file system does. Each is called on the thread of the session whose action runs.
 *
 * Beyond these functions the module uses the C library's: on descriptors lseek, fsync and isatty;
 * on streams fileno, clearerr_unlocked, fflush, fclose and, for standard output, printf and fwrite;
 * and rename. */
#ifndef KVFILE_PLATFORM_HOST_H
#define KVFILE_PLATFORM_HOST_H

#include <kvfile/platform/oop.h>
#include <kvfile/platform/syserror.h>

#include <stdio.h>
#include <sys/types.h>

struct flock64; /* <fcntl.h> with _GNU_SOURCE */

/* The error of a host call: an errno value, 0 for none. */
typedef struct HostErrSType {
  int theErrno;
#ifdef __cplusplus
  void initialize() { theErrno = 0; }
#endif
} HostErrSType;

enum { HOST_FNAME_MAX_SIZE = 4097, ERRMSG_MAX_TXT = 2048 };

typedef char HostFnameStrType[HOST_FNAME_MAX_SIZE]; /* a path of at most 4096 bytes and its NUL */
typedef char ErrMsgStrType[ERRMSG_MAX_TXT];

KV_INT_ENUM(HostFileKindEType){
    HOST_FILE_KIND_FILE = 0,         HOST_FILE_KIND_DIR = 1,  HOST_FILE_KIND_CHRDEVICE = 2,
    HOST_FILE_KIND_BLKDEVICE = 3,    HOST_FILE_KIND_LNK = 4,  HOST_FILE_KIND_OTHER = 5,
    HOST_FILE_KIND_ERROR = 6,        HOST_FILE_KIND_FIFO = 7, HOST_FILE_KIND_STDFILE = 8,
    HOST_FILE_KIND_STD_TERMINAL = 9,
};

/* What a directory walk hands through to its callback. */
typedef struct HostDirClientDataType {
  OopType arrayOop;   /* receives the entries */
  void* arrH;         /* handle of that Array in the object memory, where the walker keeps one */
  void* omPtr;        /* the object memory */
  BoolType fullPath;  /* the callback: compose directory, separator and entry name */
  BoolType allowNfs;  /* the walk: it may enter network-mounted directories */
  BoolType utfResult; /* the callback: choose the class of each name by its bytes */
  int errNum;         /* set by the walk: errno value of its failure */
  void* clientData;   /* the caller's own */
#ifdef __cplusplus
  HostDirClientDataType(void* memory, void* handle, OopType array, BoolType ruby, BoolType nfs,
                        BoolType resultIsUtf)
      : arrayOop(array),
        arrH(handle),
        omPtr(memory),
        fullPath(!ruby),
        allowNfs(nfs),
        utfResult(resultIsUtf),
        errNum(0),
        clientData(nullptr) {}
#endif
} HostDirClientDataType;

#ifdef __cplusplus
extern "C" {
#endif

/* ---- error texts ---- */

/* Writes the text of `errNum` to the `size` bytes at `buf`: number, name and meaning, in one form
 * for all of the host. */
void HostStrerror(int errNum, char* buf, size_t size);

/* The same for `err->theErrno`. */
void HostGetErrMsg(const HostErrSType* err, char* buf, size_t size);

/* ---- descriptors ---- */

/* Reads up to `count` bytes: answers the count, 0 at the end of the file, -1 when it failed, or -2
 * when the user interrupted the read before any byte came; what counts as such an interrupt is the
 * host's to say. errno is set with every negative answer, -2 included (EINTR, for instance): the
 * module keeps it as the file's error code. An answer above `count` is taken as `count`. A signal
 * that is no such interrupt is not seen outside: the read goes on. May block. */
ssize_t HostReadFile_(int fd, void* buf, size_t count);

/* Writes all `count` bytes and answers `count`, or answers a negative value with errno; some bytes
 * may then have been written. A short write is finished here, because the module does not do it
 * everywhere: behind a shorter positive answer KvfWrite goes on with the rest, KvFileWrite begins
 * again with the first byte, and KvfPutC and KvfPrintBytes lose what is left. 0 is taken as "takes
 * no more". May block. */
ssize_t HostWriteFile_(int fd, const void* buf, size_t count);

/* ---- opening and naming ---- */

/* Opens `path` as fopen does with `mode`, one of those that KvfAllValidFileModes lists for plain
 * files, closed on exec; a directory is refused. The stream, or null with `err` filled. The module
 * owns the stream and closes it with fclose. It reads, writes and positions its descriptor, past
 * the stream's buffer: nothing may be buffered in it, as by reading ahead. `flag` is 1. May block
 * (a FIFO). */
FILE* HostOpenFile(const char* path, const char* mode, HostErrSType* err, int flag);

/* Expands `$NAME`, `${NAME}` and a leading `~` of `in` into the `outSize` bytes at `out`. False,
 * with `out` untouched, when a name is unknown or the result does not fit. `noWildcards` 0 and
 * `expandLast` 1: wildcard characters are ordinary, the last component is expanded like the rest.
 * A "$" that no name follows, and "~user", are the host's to decide. */
BoolType HostExpandFileName(const char* in, char* out, size_t outSize, int noWildcards,
                            int expandLast);

/* ---- record locks ---- */

/* Locks `bytes` bytes (0: to the end of the file, however far it grows) from absolute `offset` on,
 * waiting at most `millisecs` milliseconds (0: not at all). 1: locked; 0: another process kept it
 * locked all that time; any other value: failed, with the text in `err->errMsg`. A null stream
 * fails. */
int HostLockFile(FILE* f, int isWriteLock, long offset, long bytes, int millisecs,
                 SysErrorSType* err);

/* Unlocks such a range. 1: unlocked; 0: not unlocked; any other value: failed, with a text. */
int HostUnlockFile(FILE* f, long offset, long bytes, SysErrorSType* err);

/* Asks which lock of another process would refuse this one. 1: `*info` describes it, or has l_type
 * 2 when there is none; any other value: failed, with a text in the `errMsgSize` bytes at `errMsg`.
 * Lock types are 0 read, 1 write, 2 none; l_whence is 0 start, 1 position, 2 end. */
int HostLockFileQuery(FILE* f, int isWriteLock, long offset, long bytes, struct flock64* info,
                      char* errMsg, size_t errMsgSize);

/* ---- paths ---- */

/* Removes one file, never a directory. `flag` is 1. False with `err` filled. */
BoolType HostRemoveSingleFile(const char* path, int flag, HostErrSType* err);

/* Removes an empty directory. False with `err` filled. */
BoolType HostRemoveDirectory(const char* path, HostErrSType* err);

/* Creates a directory with the permission bits `mode` less the umask; -1: no mode was given. False
 * with `err` filled. */
BoolType HostCreateDirectory(const char* path, HostErrSType* err, int mode);

/* What `path` is, symbolic links not followed; HOST_FILE_KIND_ERROR with `err` filled on failure.
 */
HostFileKindEType HostFileType(const char* path, HostErrSType* err);

/* Size in bytes of the file at `path`, symbolic links followed. Non-zero: `*size` filled. 0:
 * failed, and `*exists` tells whether there is such a file, with `err` filled where an errno tells
 * why. `buf` may be null: else it receives a text of the failure, of at most `bufSize` - 1 bytes.
 */
BoolType HostFileExistSize(const char* path, int64* size, int* exists, HostErrSType* err, char* buf,
                           size_t bufSize);

/* ---- directories ---- */

/* Takes one entry: the directory as it is walked, the entry's raw name, and the separator that
 * belongs between them (it may be empty). True to go on. May leave by a jump or a throw of the C
 * interface; the walk must not leak its descriptor then where the host can help it, as one does
 * that has read all names and closed the directory before its first call. */
typedef BoolType (*HostDirCallbackType)(const char* dirName, const char* fileName,
                                        const char* seperator, HostDirClientDataType* clData);

/* Calls `callback` for every entry but "." and "..", in no particular order. Non-zero: the whole
 * directory was walked; 0: it was not, because of a failure that `clientData->errNum` tells, or
 * because the callback ended it. `flag` is 0. */
BoolType HostDirectory(const char* path, HostDirCallbackType callback,
                       HostDirClientDataType* clientData, int flag);

/* ---- the process ---- */

/* Copies the value of an environment variable to the `outSize` bytes at `out`. Non-zero when the
 * variable exists. */
BoolType HostGetEnv(const char* name, char* out, size_t outSize);

/* Sets an environment variable; a null `value` removes it. Non-zero on success. Not safe beside
 * other threads that use the environment through other ways than this layer. */
BoolType HostSetEnv(const char* name, const char* value);

/* Stores at `*where` the address of an object identifier that the host keeps for tests of a
 * client's fault handler. Reading through it may fault on purpose. */
void HostSetOopPtr(OopType** where);

#ifdef __cplusplus
}
#endif

#endif
