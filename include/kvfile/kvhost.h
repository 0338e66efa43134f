// The standalone host: everything that the file module needs around it, so that it runs in any
// process on Linux. This header is what the embedding program calls; the module itself sees only the
// platform's headers.
//
// Typical use:
//
//   kvhost::initialize();
//   KvfUserActionInit();
//   int session = kvhost::sessionBegin();
//   KvfStartup(session);
//   OopType file = kvhost::newKvFile();
//   OopType args[] = {file, kvhost::newString("notes.txt"), kvhost::newString("r"), OOP_FALSE};
//   kvhost::Outcome outcome = kvhost::callAction("KvfOpen", args, 4);
//   ...
//   KvfShutdown(session);
//   kvhost::sessionEnd(session);
//
// Threads: sessions and their objects belong to the thread that made them, Symbols included. Several
// sessions may share a thread; each thread has one current session. Object identifiers are not passed
// between threads, but for those of classes.
//
// Forking: see dropInherited.
#pragma once

#include <kvfile/platform/kci.h>
#include <kvfile/platform/kcistring.h>
#include <kvfile/platform/kcisup.h>
#include <kvfile/platform/lrsupreadline.h>
#include <kvfile/platform/oop.h>

#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>
#include <vector>

namespace kvhost {

// ---- classes that the platform's headers do not name ----

inline constexpr OopType CLASS_OBJECT = 0x10001;
inline constexpr OopType CLASS_CLASS = 0x10201;
inline constexpr OopType CLASS_UNDEFINED_OBJECT = 0x10301;
inline constexpr OopType CLASS_BOOLEAN = 0x10401;
inline constexpr OopType CLASS_LARGE_INTEGER =
    0x12101;                                      // integers of 64 bits past the SmallIntegers
inline constexpr OopType CLASS_SYMBOL = 0x12501;  // a kind of String; invariant
inline constexpr OopType CLASS_BYTE_ARRAY = 0x12601;
inline constexpr OopType CLASS_KV_FILE = 0x2A001;

// ---- process and sessions ----

// Prepares the process; calling it again does nothing. To be called before there are threads.
void initialize();

// Begins a session on this thread and makes it current. Answers its id, 1 or above, never reused
// within the process. The caller then calls KvfStartup.
int sessionBegin();

// Ends a session (the caller has called KvfShutdown). Where it was current, none is. Its socket pair,
// whose "SO_SNDBUF" and "SO_RCVBUF" the socket buffer actions ask and set, is closed.
void sessionEnd(int sessionId);

// Makes a session of this thread current; 0: none.
void sessionSelect(int sessionId);

// Called by the child of a fork, forgets the sessions that it has inherited and leaves their files
// to the parent: nothing is written, nothing is closed, no position is moved. The child may then
// begin sessions of its own. Its descriptors for the inherited files stay open until it ends or runs
// another program. In the process that began the sessions this does nothing.
//
// Without it, parent and child both write what zlib has not yet written, both end a last line of
// standard output, and move each other's positions: only one of the two may go on with the sessions.
void dropInherited();

// ---- calling actions ----

enum class CallStatus {
  Answered,           // `value` is the answer
  Raised,             // `error` is the error that was raised
  NoSuchAction,       // no action of that name is declared
  WrongArgumentCount  // `expectedCount` tells how many it takes
};

struct Outcome {
  CallStatus status = CallStatus::Answered;
  OopType value = OOP_NIL;
  int expectedCount = 0;
  KciErrSType error;

  Outcome() { error.initialize(); }
};

// Calls a declared action. A raise ends the action and unwinds the error-jump stack to its depth at
// the call. An error of the C interface that is pending when the action ends is raised as well.
Outcome callAction(const char* name, const OopType* args, int count);

// A declared action, for whoever calls it often; null when none of that name is declared. It is good
// for the life of the process, and calls what was declared even after forgetDeclaredActions.
struct FoundAction;
const FoundAction* findAction(std::string_view name);
Outcome callAction(const FoundAction& action, const OopType* args, int count);
const char* nameOf(const FoundAction& action);

// Runs `body(context)` so that a raise within it, or an error pending at its end, is an outcome; for
// the module's C entry points. Frames of `body` must hold nothing that needs destruction.
Outcome protect(OopType (*body)(void* context), void* context);

// Error-jump frames registered on this thread now; 0 outside actions.
int errorJumpDepth();

// Frames that calls on this thread left registered when they ended or raised, which the host dropped
// for them. Anything but 0 is a mistake in an action.
int64 forgottenErrorJumps();

// Names and argument counts of the declared actions, in the order of declaration.
struct DeclaredAction {
  std::string name;
  int argumentCount;
  unsigned flags;
};
std::vector<DeclaredAction> declaredActions();

// Forgets every declared action, so that a test can declare them anew.
void forgetDeclaredActions();

// ---- objects ----
//
// The functions that make one throw std::bad_alloc when memory runs out, and for more than 4 GB.

OopType newKvFile();
OopType newString(std::string_view bytes);
OopType newSymbol(std::string_view bytes);
OopType newByteArray(std::string_view bytes);
OopType newUtf8(std::string_view bytes);
OopType newUtf16(std::u16string_view units);
OopType newArray(const std::vector<OopType>& elements);
OopType newInteger(int64 value);

// The class of any identifier; nil when it names no live object.
OopType classOf(OopType object);

// The class's name ("String"), or "" when `cls` is no class. The class of that name, or nil.
std::string_view className(OopType cls);
OopType classNamed(std::string_view name);

// True when `object` is nil, carries its value, or names a live object.
bool isValid(OopType object);

// Bytes of a byte object, elements of a pointer object; empty for anything else.
std::string bytesOf(OopType object);
std::vector<OopType> elementsOf(OopType object);

// Forbids any change of the object from now on: stores into it fail.
void makeInvariant(OopType object);

// ---- garbage collection (objects of this thread) ----

// While an address is a root, the object that it names is kept, with all that it refers to.
void addRoot(const OopType* address);
void removeRoot(const OopType* address);

// Stores into a root, so that takeDroppedFiles knows of the reference that goes.
void storeRoot(OopType* address, OopType value);

struct Collection {
  int64 objectsBefore = 0;
  int64 objectsFreed = 0;
  int64 filesFinalized = 0;  // dead KvFile objects handed to KvfClientFinalize
  int64 filesKept = 0;       // that it could not close, so that their objects live on
};

// Frees every object of this thread that no root refers to. Dead KvFile objects that are registered
// in a session of this thread are handed to the action KvfClientFinalize first, which closes their
// files. While an action runs it does nothing. Throws std::bad_alloc, with nothing freed.
Collection collectGarbage();

// True when a collection is worth its time: when as much was made since the last one as that one
// kept, but at least 16 MB or 100,000 objects; so the time spent on collecting grows with the objects
// made and no faster. True as well when files that were dropped may hold half of the descriptors
// that are left, or 256.
bool collectionIsDue();

// True when a registered file object may have lost its last reference since this was asked last: one
// was made, or a reference to one, or to an object that leads to others, was overwritten by storeRoot
// or a store into an Array. Collecting then closes a dropped file at once, and a program that does
// not drop files need not collect for that.
bool takeDroppedFiles();

// Objects and bytes allocated by this thread since its last collection.
int64 objectsSinceCollection();
int64 bytesSinceCollection();
int64 liveObjects();

// ---- settings ----

// Where the log of the whole process goes; stderr at first. Whether it is flushed after each text is
// a flag of each thread (KciSetLoggerFlush), 0 at first.
void setLogStream(FILE* stream);

// Answers -2 from a blocked read when the user types Ctrl-C: installs a SIGINT handler that only
// notes the interrupt. Without it SIGINT keeps its meaning.
void enableInterrupts();

// Puts the SIGINT handler back that was there before, unless it was replaced since, and forgets a
// noted interrupt.
void disableInterrupts();

// True when an interrupt was noted and no read has answered it yet; clears it.
bool takeInterrupt();

// How a thread waits for a record lock that another process holds. 0, as at first: it asks again and
// again, every 10 milliseconds at last, and takes no signal. With the number of a signal it waits in
// the system, is woken as soon as the lock is free, and learns of a deadlock. During such a wait the
// signal has a handler of the host's, in the whole process, and is unblocked in the waiting thread;
// so it is to be one that nothing else uses, such as SIGRTMIN + 6. Where the system has no timer to
// give, the thread asks again and again all the same.
void setLockWaitSignal(int signal);

// Makes the pointer that KvfTestClientHandler reads through lead to nothing, so that the read
// faults; false makes it lead to a valid identifier (nil), as at first.
void setTestPointerFaults(bool faults);

// A line reader for the terminal, with editing and with history kept in `historyPath` (empty: not
// kept). Null when the terminal library refuses. To be installed with KvFileSetLineReader. Where
// standard input and output are not both terminals when it is made, the line is taken as it comes,
// and the terminal's settings stay as they are.
LineReaderStateType* lineReaderCreate(const char* programName, const char* historyPath);

}  // namespace kvhost
