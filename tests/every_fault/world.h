// The machine that the module runs on here, all of it in memory: objects, sessions, files,
// descriptors, streams and allocations. Every call that the module or zlib makes is counted here,
// can be written down, and can be made to fail. So a run takes microseconds, and what is left
// behind by it can be counted to the last block.
#pragma once

#include <kvfile/platform/host.h>
#include <kvfile/platform/kci.h>

#include "every_fault/faults.h"

#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

struct KciOopMapEntryType {
  bool used;
  OopType key;
  void* value;
};

struct KciOopMapType {
  bool used;
  KciOopMapEntryType entries[16];
};

namespace every_fault {

inline constexpr int SESSIONS = 4;   // ids 1 to 3; 0 is none
inline constexpr int BYSTANDER = 2;  // the session that nothing may touch
inline constexpr int FIRST_FREE_FD = 3;
inline constexpr int DESCRIPTORS = 32;
inline constexpr int FILES = 28;
inline constexpr int RAISED = 2719;      // the interface error that a fault raises
inline constexpr int WRONG_KIND = 2105;  // ... and the one of a call that asks the wrong object

// What a host file is: seekable or not, a terminal or not.
enum class Kind { Regular, Directory, Pipe, Terminal };

struct MemFile {
  std::string name;
  std::string bytes;
  Kind kind = Kind::Regular;
  bool exists = false;
};

struct Descriptor {
  bool open;
  int file;
  int64 position;
  bool reads, writes, appends;
};

struct Stream {
  bool open;
  int fd;
};

struct Object {
  OopType cls = OOP_NIL;
  bool pointers = false;
  std::string bytes;
  std::vector<OopType> elements;
};

// One write of bytes to a host file, in order.
struct Written {
  int file;
  int64 offset;
  std::string bytes;
  bool byZlib;
};

// A fault to come: at call `at`, and where it is `forever` at each later call of that function.
struct Planned {
  int at = 0;
  const Fault* fault = nullptr;
  bool forever = false;
  Fn function = FN_COUNT;
};

// A call of the run, for the list of calls to make fail.
struct Made {
  Fn function;
  int step;
};

struct World {
  // ---- objects ----
  std::vector<Object> objects;
  size_t objectCount = 0;
  std::vector<OopType> releasable;  // converted texts that the module has to release

  // ---- the interface ----
  int session = 1;
  KciOopMapType maps[8];
  KciOopMapType* slots[SESSIONS];
  bool ownsMap = false;  // the step begins or ends a session
  KciErrJumpSType* frames[16];
  int frameCount = 0;
  bool isPending = false;
  KciErrSType pending;
  void* top = nullptr;  // where a raise lands: the jmp_buf of the step
  bool raised = false;
  KciErrSType raise;
  int loggerFlush = 0;
  std::string logged;
  int lineReader = 0;  // its address stands for the state

  // ---- files ----
  MemFile files[FILES];
  Descriptor descriptors[DESCRIPTORS];
  Stream streams[DESCRIPTORS];
  std::string outBuffer;  // of stdout
  std::vector<Written> written;
  int lastOpened = -1;  // the file
  int conflict = -1;    // l_whence of another process's lock, -1 for none
  std::vector<std::pair<std::string, std::string>> environment;

  // ---- allocations ----
  int blocks = 0;      // of the product's allocator
  int zlibBlocks = 0;  // of zlib's
  void* lastBlock = nullptr;
  size_t lastBlockSize = 0;

  // ---- calls ----
  bool quiet = true;  // calls are neither counted nor made to fail
  bool logging = false;
  int step = 0;
  int calls = 0;
  int zlibDepth = 0;
  Planned planned[2];
  int plannedCount = 0;
  int fired = 0;
  int firedInStep = 0;
  bool fetchCut = false;  // a fetch answered less than there was, or nothing, in this step
  int firstFired = 0;     // number of the call
  uint64_t digest = 0;
  std::vector<Made> made;
  std::vector<std::string> log;
  std::string line;
};

extern World w;

// ---- calls ----

// A hash that is the same in every build.
void mix(uint64_t value);
void mixText(const char* text, size_t size);

// How arguments are written: what differs from run to run is left out.
struct OopArg {
  OopType oop;
};
struct TextArg {
  const char* text;
};
struct BytesArg {
  const void* bytes;
  int64 size;
};
struct StreamArg {
  FILE* stream;
};

void showArgument(int64 value);
void showArgument(OopArg value);
void showArgument(TextArg value);
void showArgument(BytesArg value);
void showArgument(StreamArg value);
std::string oopText(OopType oop);
std::string quoted(std::string_view bytes);
const char* errnoName(int number);

// Begins a call: the fault that befalls it, or null. What follows is done(), or a jump.
const Fault* beginCall(Fn function);
void beginLine(Fn function);
void nextArgument();
void endArguments();
void endLine(const char* result);
void endLineNumber(int64 result);

template <class... Arguments>
const Fault* call(Fn function, const Arguments&... arguments) {
  const Fault* fault = beginCall(function);
  if (w.quiet) return nullptr;
  if (w.logging) beginLine(function);
  ((nextArgument(), showArgument(arguments)), ...);
  if (w.logging) endArguments();
  return fault;
}

// Ends a call with what it answers.
template <class R>
R done(R result) {
  endLineNumber(static_cast<int64>(result));
  return result;
}
OopType doneOop(OopType result);
void doneVoid();
template <class T>
T* donePointer(T* result) {
  endLine(result == nullptr ? "null" : "set");
  return result;
}

// A short transfer: `count` cut to the fault's value, which counts as fired only where it cuts.
int64 cutShort(const Fault* fault, int64 count);

// A fault that can do nothing here, as a refusal of what was not there, has not befallen the call.
void takeBack(const Fault* fault);

// Leaves an error of the interface: by a jump where a frame is registered.
void raiseError(int number, const char* message);

// ---- objects ----

Object* findObject(OopType oop);
OopType newObject(OopType cls, bool pointers);
OopType newBytes(OopType cls, std::string_view bytes);
void describeErrno(int number, char* buffer, size_t size);

// ---- files ----

int fileNamed(const char* name);
int openFile(const char* path, bool reads, bool writes, bool appends, bool creates, bool truncates,
             int* error);
int closeDescriptor(int fd);
int64 readDescriptor(int fd, void* buffer, int64 count);
int64 unreadIn(int fd);  // bytes from the position to the end
int64 writeDescriptor(int fd, const void* buffer, int64 count);
int64 seekDescriptor(int fd, int64 offset, int whence);
int openDescriptors();
int descriptorOf(FILE* stream);

// ---- zlib ----

void forgetGzErrors();
// Closes the handles that nobody has closed, and answers how many there were.
int closeLeftHandles();

}  // namespace every_fault
