#include "interface/error_state.h"

#include <kvfile/kvhost.h>

#include <cstdio>
#include <cstdlib>

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

bool runGuarded(OopType (*body)(void*), void* context, OopType* value, KciErrSType* error) {
  ErrorState& state = threadErrors;
  RaisePoint point;
  point.outer = state.raisePoint;
  point.outerFrames = state.frames;
  if (setjmp(point.buf) != 0) {
    *error = point.error;
    return false;
  }
  state.raisePoint = &point;
  state.frames = nullptr;
  state.isPending = false;  // an older error is not this call's
  *value = body(context);
  reportForgottenFrames(state);
  state.raisePoint = point.outer;
  state.frames = point.outerFrames;
  return true;
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
  kvhost::interface::reportForgottenFrames(state);
  state.raisePoint = point->outer;
  state.frames = point->outerFrames;
  state.isPending = false;
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
  jump->link = state.frames;
  state.frames = jump;
}

void KciPopErrJump(KciErrJumpSType* jump) {
  kvhost::interface::ErrorState& state = kvhost::interface::errorState();
  if (!kvhost::interface::isRegistered(state, jump)) return;
  state.frames = static_cast<KciErrJumpSType*>(jump->link);
}

}  // extern "C"
