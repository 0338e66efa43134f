/* Per-session services of the C interface: maps from objects to pointers, the slot that keeps a
 * session's file map, the logger, and the socket buffer sizes. Nothing here jumps. */
#ifndef KVFILE_PLATFORM_KCISUP_H
#define KVFILE_PLATFORM_KCISUP_H

#include <kvfile/platform/kcicmn.h>

#ifdef __cplusplus
extern "C" {
#endif

/* ---- maps: object identifier to pointer ---- */

typedef struct KciOopMapType KciOopMapType;           /* opaque */
typedef struct KciOopMapEntryType KciOopMapEntryType; /* opaque; valid until the map changes */

/* Called for each entry of a walk; answers true to go on. May delete the entry it was given, and
 * no other. */
typedef BoolType (*KciOopMapCallbackType)(KciOopMapEntryType* entry, int64* arg1, int64* arg2);

/* A new empty map, owned by the caller; null when memory runs out. KvfStartup then stores null as
 * the session's map, and tells nobody: the session's actions raise 4100. */
KciOopMapType* KciOopMapCreate(void);

/* Frees a map. Every entry must have been deleted. */
void KciOopMapDestroy(KciOopMapType* map);

/* Adds an entry for `key`, which has none yet. The map keeps `value` and does not own it.
 * `*status`, which is 0 before the call, is left as it was on success and set to non-zero on
 * failure, where nothing was added: the module then frees the record, closes the file that it has
 * just opened, and raises 2208. */
void KciOopMapEntryAdd(KciOopMapType* map, OopType key, void* value, int* status);

/* The entry of `key`, or null. It stays valid until the map changes. */
KciOopMapEntryType* KciOopMapEntryFind(KciOopMapType* map, OopType key);

/* The pointer that the entry was added with. */
void* KciOopMapEntryGetValue(KciOopMapEntryType* entry);

/* Deletes the entry from its map. */
void KciOopMapEntryDelete(KciOopMapEntryType* entry);

/* Calls `callback` with each entry, `arg1` and `arg2`, in no particular order, until one answers
 * false. */
void KciOopMapForeach(KciOopMapType* map, KciOopMapCallbackType callback, int64* arg1, int64* arg2);

/* ---- the session's file map ---- */

/* The file map of session `sessionId`; null when it has none, or there is no such session. */
KciOopMapType* KciSupGetKvfileOopMap(int sessionId);

/* Keeps `map` (null: none) as the session's file map. Nothing is destroyed. There is no way to
 * refuse: the session must be known to the host before KvfStartup. */
void KciSupStoreKvfileOopMap(int sessionId, KciOopMapType* map);

/* ---- socket buffer sizes ---- */

/* The size in bytes of the socket buffer `name`, one of the host's own names, or -1 with a
 * NUL-terminated text of at most `errBufSize` - 1 bytes in `errBuf`. */
int KciSupFetchKciSocketBufSize(const char* name, char* errBuf, size_t errBufSize);

/* Sets that size in bytes. True on success, else false with a text as above. */
BoolType KciSupSetKciSocketBufSize(const char* name, int size, char* errBuf, size_t errBufSize);

/* ---- the log ---- */

/* Writes one NUL-terminated text to the log as it stands; no line end is added. May block as any
 * write does. */
typedef void (*KciLoggerType)(const char* text);

/* The logging function; never null. */
KciLoggerType KciGetLogger(void);

/* Whether each call of the logging function is flushed: 0 or 1. */
int KciGetLoggerFlush(void);
void KciSetLoggerFlush(int flush);

#ifdef __cplusplus
}
#endif

#endif
