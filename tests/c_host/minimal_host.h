/* A whole host in C: what it offers to the program that embeds the module, beyond the platform's
 * own headers. One thread, a few sessions, objects that live until the host is closed. */
#ifndef MINIMAL_HOST_H
#define MINIMAL_HOST_H

#include <kvfile/platform/kci.h>
#include <kvfile/platform/kcistring.h>
#include <kvfile/platform/kcisup.h>

/* Classes of this host that oop.h does not name. */
enum {
  MINI_CLASS_OBJECT = 0x101,
  MINI_CLASS_SYMBOL = 0x201,
  MINI_CLASS_BYTE_ARRAY = 0x301,
  MINI_CLASS_LARGE_INTEGER = 0x401,
  MINI_CLASS_FILE = 0x501,
  MINI_CLASS_BOOLEAN = 0x601,
  MINI_CLASS_UNDEFINED_OBJECT = 0x701
};

/* Numbers of the errors with which this host's calls fail. */
enum {
  MINI_ERR_NO_OBJECT = 3001,
  MINI_ERR_WRONG_FORMAT = 3002,
  MINI_ERR_RANGE = 3003,
  MINI_ERR_CLASS = 3004,
  MINI_ERR_UNCHANGEABLE = 3005,
  MINI_ERR_MEMORY = 3006
};

/* An object: `size` bytes or identifiers at `body`. */
typedef struct MiniObject {
  OopType cls;
  int64 size;
  void* body;
  BoolType isBytes;
  BoolType varies;      /* its size may change */
  BoolType isCharacter; /* its bytes are text */
} MiniObject;

/* ---- objects ---- */

/* The object that `oop` names; null for a class, a value, and an identifier that names nothing. */
MiniObject* miniObject(OopType oop);

/* The class of any identifier; nil when it names nothing. */
OopType miniClassOf(OopType oop);

/* A new object of the byte class `cls`, of `size` bytes that are 0; nil, after failing, when the
 * class is none or the table is full. */
OopType miniNewBytes(OopType cls, int64 size);

/* The Symbol with the `length` bytes at `text`; nil when there is none yet. */
OopType miniFindSymbol(const char* text, size_t length);

/* How many more objects may be made; the default is as many as the table holds. */
void miniAllowObjects(int count);
void miniAllowAllObjects(void);

/* Frees all objects. */
void miniFreeObjects(void);

/* ---- errors ---- */

/* Fails as every call of the interface does: jumps where a frame is registered, else comes back. */
void miniFail(int number, const char* message);

/* How many error-jump frames are registered. */
int miniErrJumpDepth(void);

/* ---- calling the module ---- */

/* Calls `body` from a place to which a raise unwinds. False when it left by a raise. */
BoolType miniProtect(void (*body)(void*), void* argument);

/* Calls the declared action `name` from such a place. What it answered; nil when it raised, which
 * miniTakeRaised tells, or when there is no such action of `argCount` arguments. */
OopType miniPerform(const char* name, int argCount, const OopType* args);

/* The number of arguments that an action was declared with; -1 when it was not. */
int miniDeclaredArgCount(const char* name);

/* Copies the last raised error to `*err` and forgets it. False, with `*err` as it was, when nothing
 * was raised since. */
BoolType miniTakeRaised(KciErrSType* err);

/* Whether KciRaiseException comes back to the module instead of unwinding. */
void miniLetRaiseReturn(BoolType returns);

/* ---- the process ---- */

enum { MINI_MAX_SESSIONS = 3 };

/* Makes `sessionId`, 1 to MINI_MAX_SESSIONS, the current session; 0 for none. */
void miniUseSession(int sessionId);

/* What the module holds of this host: memory blocks, and maps with their entries. */
int miniLiveBlocks(void);
int miniLiveMapParts(void);

/* The log so far, and how many of its texts came while flushing was on. */
const char* miniLogText(void);
int miniFlushedLogCalls(void);

/* A line reader, to be freed by LineReadShutdown; how many there are, and the lines they read. */
struct LineReaderStateType* miniNewLineReader(void);
int miniLiveLineReaders(void);
int miniLinesRead(void);

/* Frees what a walk of a directory left behind when it was jumped out of. */
void miniFreeWalk(void);

#endif
