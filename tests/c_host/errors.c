/* Actions, and the two ways out of them: the error-jump stack and the raise to the caller. */
#include "c_host/minimal_host.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

enum { MAX_ACTIONS = 64 };

typedef struct MiniAction {
  char name[KCI_MAX_ACTION_NAME + 1];
  KciActionFnType fn;
  int argCount;
} MiniAction;

/* A place that a raise unwinds to, with the error-jump stack as it was there. */
typedef struct CallSite {
  jmp_buf buf;
  struct CallSite* outer;
  KciErrJumpSType* errJump;
} CallSite;

static MiniAction gActions[MAX_ACTIONS];
static int gActionCount;
static CallSite* gCallSite;
static KciErrJumpSType* gErrJump;
static KciErrSType gPending, gRaised;
static BoolType gIsPending, gIsRaised, gRaiseReturns;

/* ---- error-jump frames ---- */

void KciPushErrJump(KciErrJumpSType* jump) {
  jump->link = gErrJump;
  gErrJump = jump;
}

void KciPopErrJump(KciErrJumpSType* jump) { gErrJump = jump->link; }

int miniErrJumpDepth(void) {
  int depth = 0;
  for (const KciErrJumpSType* each = gErrJump; each; each = each->link) depth++;
  return depth;
}

void miniFail(int number, const char* message) {
  memset(&gPending, 0, sizeof gPending);
  gPending.category = gPending.context = gPending.exceptionObj = OOP_NIL;
  gPending.number = number;
  snprintf(gPending.message, sizeof gPending.message, "%s", message);
  gIsPending = TRUE;
  if (gErrJump) longjmp(gErrJump->buf, 1);
}

BoolType KciErr(KciErrSType* err) {
  if (!gIsPending) return FALSE;
  *err = gPending;
  gIsPending = FALSE;
  return TRUE;
}

/* ---- raising ---- */

void KciRaiseException(const KciErrSType* err) {
  gRaised = *err;
  gIsRaised = TRUE;
  if (gRaiseReturns) return;
  if (!gCallSite) {
    fprintf(stderr, "error %d raised outside of any call\n", err->number);
    abort();
  }
  gErrJump = gCallSite->errJump;
  longjmp(gCallSite->buf, 1);
}

void miniLetRaiseReturn(BoolType returns) { gRaiseReturns = returns; }

BoolType miniTakeRaised(KciErrSType* err) {
  if (!gIsRaised) return FALSE;
  *err = gRaised;
  gIsRaised = FALSE;
  return TRUE;
}

BoolType miniProtect(void (*body)(void*), void* argument) {
  CallSite site;
  site.outer = gCallSite;
  site.errJump = gErrJump;
  gCallSite = &site;
  gIsPending = FALSE; /* what an earlier action left is not this one's error */
  BoolType finished = FALSE;
  if (setjmp(site.buf) == 0) {
    body(argument);
    finished = TRUE;
  }
  gCallSite = gCallSite->outer;
  return finished;
}

/* ---- actions ---- */

static const MiniAction* findAction(const char* name) {
  for (int i = 0; i < gActionCount; i++) {
    if (strcmp(gActions[i].name, name) == 0) return &gActions[i];
  }
  return NULL;
}

BoolType KciDeclareAction(const char* name, KciActionFnType fn, int argCount, unsigned flags,
                          BoolType publish) {
  (void)flags; /* every action is of the session, and called by its name */
  (void)publish;
  size_t length = strlen(name);
  if (length == 0 || length > KCI_MAX_ACTION_NAME || !fn || argCount < 0 ||
      argCount > KCI_MAX_ACTION_ARGS || gActionCount == MAX_ACTIONS || findAction(name)) {
    return FALSE;
  }
  MiniAction* action = &gActions[gActionCount++];
  memcpy(action->name, name, length + 1);
  action->fn = fn;
  action->argCount = argCount;
  return TRUE;
}

int miniDeclaredArgCount(const char* name) {
  const MiniAction* action = findAction(name);
  return action ? action->argCount : -1;
}

typedef void (*AnyFn)(void); /* the type through which compilers let a function be cast */
typedef OopType (*Fn1)(OopType);
typedef OopType (*Fn2)(OopType, OopType);
typedef OopType (*Fn3)(OopType, OopType, OopType);
typedef OopType (*Fn4)(OopType, OopType, OopType, OopType);
typedef OopType (*Fn5)(OopType, OopType, OopType, OopType, OopType);
typedef OopType (*Fn6)(OopType, OopType, OopType, OopType, OopType, OopType);
typedef OopType (*Fn7)(OopType, OopType, OopType, OopType, OopType, OopType, OopType);
typedef OopType (*Fn8)(OopType, OopType, OopType, OopType, OopType, OopType, OopType, OopType);

static OopType invoke(const MiniAction* action, const OopType* a) {
  AnyFn fn = (AnyFn)action->fn;
  switch (action->argCount) {
    case 0:
      return action->fn();
    case 1:
      return ((Fn1)fn)(a[0]);
    case 2:
      return ((Fn2)fn)(a[0], a[1]);
    case 3:
      return ((Fn3)fn)(a[0], a[1], a[2]);
    case 4:
      return ((Fn4)fn)(a[0], a[1], a[2], a[3]);
    case 5:
      return ((Fn5)fn)(a[0], a[1], a[2], a[3], a[4]);
    case 6:
      return ((Fn6)fn)(a[0], a[1], a[2], a[3], a[4], a[5]);
    case 7:
      return ((Fn7)fn)(a[0], a[1], a[2], a[3], a[4], a[5], a[6]);
    default:
      return ((Fn8)fn)(a[0], a[1], a[2], a[3], a[4], a[5], a[6], a[7]);
  }
}

typedef struct Performance {
  const MiniAction* action;
  const OopType* args;
  OopType answer;
} Performance;

static void performIt(void* argument) {
  Performance* it = argument;
  it->answer = invoke(it->action, it->args);
}

OopType miniPerform(const char* name, int argCount, const OopType* args) {
  Performance it = {findAction(name), args, OOP_NIL};
  if (!it.action || it.action->argCount != argCount) {
    fprintf(stderr, "no action %s of %d arguments\n", name, argCount);
    return OOP_NIL;
  }
  miniProtect(performIt, &it);
  return it.answer;
}
