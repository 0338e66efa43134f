/* Small wrappers of the operating system's input and output. Nothing here jumps. */
#ifndef KVFILE_PLATFORM_UNIXIO_H
#define KVFILE_PLATFORM_UNIXIO_H

#include <kvfile/platform/oop.h>

#include <stdio.h>

struct stat64; /* <sys/stat.h> with _GNU_SOURCE */

#ifdef __cplusplus
extern "C" {
#endif

/* Describes the open file `fd` in `*buf`. Non-zero on success; else 0 with a NUL-terminated text of
 * at most `errMsgSize` - 1 bytes in `errMsg`. */
BoolType UnixIoFstat(int fd, struct stat64* buf, char* errMsg, size_t errMsgSize);

/* Reads one line, its newline included, or at most `size` - 1 bytes of it, from `stream`, and adds
 * a NUL: `size` counts it. 0: read; -1: end of input before any byte; -2: the user interrupted the
 * read before any byte came; any other value: failed. errno is set with every answer but 0 and -1.
 * It is called for standard input only, and may buffer in the stream what lies behind the line, as
 * fgets does; reads that go to the descriptor (KvFileRead, KvfLoadByteStrings) then miss those
 * bytes. Before each call the module has printed the prompt, which may be empty, to standard output
 * and flushed that. May block. */
int UnixIoFgets_(char* buf, size_t size, FILE* stream);

#ifdef __cplusplus
}
#endif

#endif
