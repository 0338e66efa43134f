// The errors of a thread: the one that is pending, the frames that failing calls jump to, and the
// points that a raise unwinds to.
//
// `fail` and KciRaiseException leave by longjmp: their callers, up to the frame that is jumped to,
// hold nothing that needs destruction.
#pragma once

#include <kvfile/platform/kci.h>

#include "interface/error_table.h"

#include <setjmp.h>

#include <type_traits>

namespace kvhost::interface {

// Where a raise unwinds to: a frame of callAction or protect.
struct RaisePoint {
  jmp_buf buf;
  uint64_t callNumber;           // of the call that it belongs to; never used twice in a thread
  RaisePoint* outer;             // the point of the surrounding call
  KciErrJumpSType* outerFrames;  // frames of the surrounding call, hidden from this one
  bool outerIsPending;           // whether the surrounding call had an error pending ...
  KciErrSType outerPending;      // ... which is kept here meanwhile
  KciErrSType error;             // what was raised
};

struct ErrorState {
  RaisePoint* raisePoint;   // the innermost
  KciErrJumpSType* frames;  // error-jump frames of the running call, the innermost first
  int64 forgottenFrames;    // that ended calls left registered, since the thread began
  uint64_t calls;           // begun since the thread began
  bool isPending;
  KciErrSType pending;
};

static_assert(std::is_trivially_destructible_v<RaisePoint>);
static_assert(std::is_trivially_destructible_v<ErrorState>);

// The calling thread's.
ErrorState& errorState();

// Reports an error in the mode that is in force: jumps to the innermost frame, or leaves the error
// pending and comes back.
[[gnu::cold]] void fail(ErrorNumber number, OopType first = OOP_NIL, OopType second = OOP_NIL);

// Runs `body(context)` as a call of its own. True with `*value` filled, or false with `*error`
// filled when it raised, or ended with an interface error pending: what an action did not ask about
// is no success.
bool runGuarded(OopType (*body)(void*), void* context, OopType* value, KciErrSType* error);

// The number of the innermost call that runs on this thread; 0 outside of calls.
uint64_t currentCall();

// True until call `number` has ended; 0 never ends.
bool isUnderWay(uint64_t number);

// Like `fail`, for functions that answer something: answers `result` when it comes back.
template <typename T>
T failWith(T result, ErrorNumber number, OopType first = OOP_NIL, OopType second = OOP_NIL) {
  fail(number, first, second);
  return result;
}

}  // namespace kvhost::interface
