// Raising errors to Smalltalk. None of these comes back in a real host; every caller returns right
// behind the call all the same, because a host under test may let them return.
#pragma once

#include <kvfile/platform/kcicmn.h>

#include <type_traits>

namespace kvf {

// KVF_ERR_ARGUMENT_RANGE and the others, by their numbers.
enum KvfErrorEType : int {
#define KVF_ERROR(number, name, meaning, arguments) KVF_ERR_##name = (number),
#include <kvfile/error_table.def>
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
