#include "interface/error_state.h"

#include <kvfile/kvhost.h>

#include "memory/assertions.h"

#include <cstdio>
#include <cstdlib>
#include <new>

namespace kvhost::interface {

namespace {

constinit thread_local ErrorState threadErrors = {};

int countFrames(const KciErrJumpSType* frame) {
  int count = 0;
  for (; frame != nullptr; frame = static_cast<const KciErrJumpSType*>(frame->link)) ++count;
  return count;
}

bool isRegistered(const ErrorState& state, const KciErrJumpSType* jump) {
  for (const KciErrJumpSType* frame = state.frames; frame != nullptr;
       frame = static_cast<const KciErrJumpSType*>(frame->link)) {
    if (frame == jump) return true;
  }
  return false;
}

// A frame that outlives its function would send the next failure into dead stack.
void reportForgottenFrames(ErrorState& state) {
  if (state.frames == nullptr) return;
  state.forgottenFrames += countFrames(state.frames);
  char text[96];
  std::snprintf(text, sizeof text, "kvhost: %d error-jump frame(s) left registered by an action\n",
                countFrames(state.frames));
  KciGetLogger()(text);
}

// An older error is not this call's. Where it is one of a surrounding call, it is kept for that.
void beginCall(ErrorState& state, RaisePoint* point) {
  point->callNumber = ++state.calls;
  point->outer = state.raisePoint;
  point->outerFrames = state.frames;
  point->outerIsPending = state.isPending && state.raisePoint != nullptr;
  if (point->outerIsPending) point->outerPending = state.pending;
  state.raisePoint = point;
  state.frames = nullptr;
  state.isPending = false;
}

void endCall(ErrorState& state, const RaisePoint& point) {
  KVHOST_ASSERT(state.raisePoint == &point);
  state.raisePoint = point.outer;
  state.frames = point.outerFrames;
  state.isPending = point.outerIsPending;
  if (point.outerIsPending) state.pending = point.outerPending;
}

// Memory that runs out in the host itself is an error like any other. Whatever else is thrown is the
// embedding program's, and goes on to it.
OopType callBody(OopType (*body)(void*), void* context, const RaisePoint& point) {
  ErrorState& state = threadErrors;
  try {
    return body(context);
  } catch (const std::bad_alloc&) {
    state.frames = nullptr;  // they went with their functions, which could not take them back
    describeError(ERROR_NO_MEMORY, OOP_NIL, OOP_NIL, &state.pending);
    state.isPending = true;
  } catch (...) {
    endCall(state, point);
    throw;
  }
  return OOP_NIL;
}

[[noreturn]] void stopUncaught(const KciErrSType& err) {
  std::fprintf(stderr, "kvhost: error %d was raised outside any call: %s%s%s\n", err.number,
               err.message, err.reason[0] != '\0' ? ": " : "", err.reason);
  std::abort();
}

}  // namespace

ErrorState& errorState() { return threadErrors; }

void fail(ErrorNumber number, OopType first, OopType second) {
  ErrorState& state = threadErrors;
  describeError(number, first, second, &state.pending);
  state.isPending = true;
  if (state.frames != nullptr) longjmp(state.frames->buf, 1);
}

uint64_t currentCall() {
  return threadErrors.raisePoint != nullptr ? threadErrors.raisePoint->callNumber : 0;
}

bool isUnderWay(uint64_t number) {
  const RaisePoint* point = threadErrors.raisePoint;
  while (point != nullptr && point->callNumber != number) point = point->outer;
  return number == 0 || point != nullptr;
}

bool runGuarded(OopType (*body)(void*), void* context, OopType* value, KciErrSType* error) {
  ErrorState& state = threadErrors;
  RaisePoint point;
  beginCall(state, &point);
  if (setjmp(point.buf) != 0) {
    *error = point.error;
    endCall(state, point);
    return false;
  }
  const OopType answer = callBody(body, context, point);
  const bool failed = state.isPending;
  if (failed) *error = state.pending;
  reportForgottenFrames(state);
  endCall(state, point);
  if (!failed) *value = answer;
  return !failed;
}

}  // namespace kvhost::interface

namespace kvhost {

int errorJumpDepth() {
  const interface::ErrorState& state = interface::errorState();
  int depth = interface::countFrames(state.frames);
  for (const interface::RaisePoint* point = state.raisePoint; point != nullptr;
       point = point->outer) {
    depth += interface::countFrames(point->outerFrames);
  }
  return depth;
}

int64 forgottenErrorJumps() { return interface::errorState().forgottenFrames; }

Outcome protect(OopType (*body)(void* context), void* context) {
  Outcome outcome;
  if (!interface::runGuarded(body, context, &outcome.value, &outcome.error)) {
    outcome.status = CallStatus::Raised;
    outcome.value = OOP_NIL;
  }
  return outcome;
}

}  // namespace kvhost

extern "C" {

void KciRaiseException(const KciErrSType* err) {
  kvhost::interface::ErrorState& state = kvhost::interface::errorState();
  kvhost::interface::RaisePoint* point = state.raisePoint;
  if (point == nullptr) kvhost::interface::stopUncaught(*err);
  point->error = *err;
  kvhost::interface::reportForgottenFrames(state);  // while the frames are still there
  longjmp(point->buf, 1);
}

BoolType KciErr(KciErrSType* err) {
  kvhost::interface::ErrorState& state = kvhost::interface::errorState();
  if (!state.isPending) return FALSE;
  *err = state.pending;
  state.isPending = false;
  return TRUE;
}

void KciPushErrJump(KciErrJumpSType* jump) {
  kvhost::interface::ErrorState& state = kvhost::interface::errorState();
  KVHOST_ASSERT(!kvhost::interface::isRegistered(state, jump));
  jump->link = state.frames;
  state.frames = jump;
}

void KciPopErrJump(KciErrJumpSType* jump) {
  kvhost::interface::ErrorState& state = kvhost::interface::errorState();
  if (!kvhost::interface::isRegistered(state, jump)) return;
  state.frames = static_cast<KciErrJumpSType*>(jump->link);
}

}  // extern "C"
