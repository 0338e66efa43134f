/* Sessions, their file maps, the log and the socket buffer sizes. */
#include "c_host/minimal_host.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

struct KciOopMapEntryType {
  OopType key;
  void* value;
  KciOopMapType* map;
  KciOopMapEntryType* next;
};

struct KciOopMapType {
  KciOopMapEntryType* first;
};

static int gSession;
static KciOopMapType* gFileMaps[MINI_MAX_SESSIONS + 1];
static int gLiveMapParts;

/* ---- maps ---- */

KciOopMapType* KciOopMapCreate(void) {
  KciOopMapType* map = calloc(1, sizeof *map);
  if (map) gLiveMapParts++;
  return map;
}

void KciOopMapDestroy(KciOopMapType* map) {
  gLiveMapParts--;
  free(map);
}

void KciOopMapEntryAdd(KciOopMapType* map, OopType key, void* value, int* status) {
  KciOopMapEntryType* entry = malloc(sizeof *entry);
  if (!entry) {
    *status = 1;
    return;
  }
  entry->key = key;
  entry->value = value;
  entry->map = map;
  entry->next = map->first;
  map->first = entry;
  gLiveMapParts++;
}

KciOopMapEntryType* KciOopMapEntryFind(KciOopMapType* map, OopType key) {
  KciOopMapEntryType* entry = map->first;
  while (entry && entry->key != key) entry = entry->next;
  return entry;
}

void* KciOopMapEntryGetValue(KciOopMapEntryType* entry) { return entry->value; }

void KciOopMapEntryDelete(KciOopMapEntryType* entry) {
  KciOopMapEntryType** link = &entry->map->first;
  while (*link != entry) link = &(*link)->next;
  *link = entry->next;
  free(entry);
  gLiveMapParts--;
}

void KciOopMapForeach(KciOopMapType* map, KciOopMapCallbackType callback, int64* arg1,
                      int64* arg2) {
  KciOopMapEntryType* next = NULL;
  for (KciOopMapEntryType* entry = map->first; entry; entry = next) {
    next = entry->next; /* the callback may delete its entry */
    if (!callback(entry, arg1, arg2)) return;
  }
}

int miniLiveMapParts(void) { return gLiveMapParts; }

/* ---- sessions ---- */

void miniUseSession(int sessionId) { gSession = sessionId; }

int KciGetSessionId(void) { return gSession; }

static BoolType isSession(int sessionId) { return sessionId > 0 && sessionId <= MINI_MAX_SESSIONS; }

KciOopMapType* KciSupGetKvfileOopMap(int sessionId) {
  return isSession(sessionId) ? gFileMaps[sessionId] : NULL;
}

void KciSupStoreKvfileOopMap(int sessionId, KciOopMapType* map) {
  if (isSession(sessionId)) gFileMaps[sessionId] = map;
}

/* ---- socket buffer sizes ---- */

static int gSendBufferSize = 65536;

int KciSupFetchKciSocketBufSize(const char* name, char* errBuf, size_t errBufSize) {
  if (strcmp(name, "SO_SNDBUF") == 0) return gSendBufferSize;
  snprintf(errBuf, errBufSize, "no socket buffer %s", name);
  return -1;
}

BoolType KciSupSetKciSocketBufSize(const char* name, int size, char* errBuf, size_t errBufSize) {
  if (strcmp(name, "SO_SNDBUF") == 0 && size > 0) {
    gSendBufferSize = size;
    return TRUE;
  }
  snprintf(errBuf, errBufSize, "cannot set socket buffer %s to %d", name, size);
  return FALSE;
}

/* ---- the log ---- */

static char gLog[4096];
static int gLoggerFlush, gFlushedLogCalls;

static void appendToLog(const char* text) {
  size_t used = strlen(gLog);
  snprintf(gLog + used, sizeof gLog - used, "%s", text);
  gFlushedLogCalls += gLoggerFlush;
}

KciLoggerType KciGetLogger(void) { return appendToLog; }

int KciGetLoggerFlush(void) { return gLoggerFlush; }

void KciSetLoggerFlush(int flush) { gLoggerFlush = flush; }

const char* miniLogText(void) { return gLog; }

int miniFlushedLogCalls(void) { return gFlushedLogCalls; }
