/* Utilities of the product: its allocator, and the modification time of a path. Nothing here jumps.
 */
#ifndef KVFILE_PLATFORM_UTL_H
#define KVFILE_PLATFORM_UTL_H

#include <kvfile/platform/oop.h>
#include <kvfile/platform/syserror.h>

#ifdef __cplusplus
extern "C" {
#endif

/* `size` bytes, aligned for any type as malloc's are (16 bytes: the record of a file needs it),
 * their content unset; null when memory runs out. `siteTag` is a small number that names the
 * allocating place. */
void* UtlMalloc(size_t size, int siteTag);

/* Frees what UtlMalloc answered; does nothing for null. */
void UtlFree(void* p);

/* Stores the modification time of `path` at `*time`, in seconds since the start of 1970 UTC,
 * symbolic links followed. Non-zero on success; else 0 with category and code in `*err`, whose text
 * SysErrorFinishMsg completes. May block as the file system does. */
BoolType UtlGetFileModTime(const char* path, int64* time, SysErrorSType* err);

#ifdef __cplusplus
}
#endif

#endif
