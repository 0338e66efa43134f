// Raising errors to Smalltalk. None of these comes back in a real host; every caller returns right
// behind the call all the same, because a host under test may let them return.
#pragma once

#include <kvfile/platform/kcicmn.h>

#include <type_traits>

namespace kvf {

// The errors that the module raises, by their numbers. Their texts are the host system's.
enum KvfErrorEType : int {
  KVF_ERR_ARGUMENT_RANGE = 2061,       // argument out of range or not convertible: the argument
  KVF_ERR_ARGUMENT_CLASS = 2094,       // wrong class: the argument, the expected class
  KVF_ERR_NO_MEMORY = 2208,            // no memory for a file record
  KVF_ERR_NOT_CHARACTER = 2242,        // neither Character nor SmallInteger: argument, both classes
  KVF_ERR_COUNT_TOO_LARGE = 2284,      // count exceeds the object's size: the object, the count
  KVF_ERR_FILE_NOT_REGISTERED = 2364,  // file object not in the session's map: the file object
  KVF_ERR_PATH = 2718,                 // UTF-16 or empty path: the path object
  KVF_ERR_NO_SESSION = 4100,           // no session or no file map: the session id
};

/// Host calls of the raise: KciRaiseException, which is the last call of an action; before it
///   KciI32ToOop for the session id of error 4100.
//
// Raises error `errnum` with `argCount` of the arguments; fatal exactly for 4000 to 4999.
void raiseError(int errnum, int argCount, OopType arg1, OopType arg2, OopType arg3);

void raiseError(int errnum);
void raiseError(int errnum, OopType arg1);
void raiseError(int errnum, OopType arg1, OopType arg2);
void raiseError(int errnum, OopType arg1, OopType arg2, OopType arg3);

// The same with one argument given as a C int.
void raiseErrorI(int errnum, int arg1);

// Raises the C interface's pending error as it is. Where none is pending, the empty record is
// raised all the same, so that a failed fetch never passes for a good one.
void raisePendingError();

// A raise or an interface error may jump over the frames of the module, so that whatever lives in
// them must need no destruction.
static_assert(std::is_trivially_destructible_v<KciErrSType>);
static_assert(std::is_trivially_destructible_v<KciErrJumpSType>);

}  // namespace kvf
