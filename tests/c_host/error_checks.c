/* What is raised, what jumps to a frame, and what stays pending. */
#include "c_host/checks.h"

#include <stdio.h>
#include <string.h>

/* ---- errors ---- */

static void checkRaise(void) {
  KciErrSType err = {0};
  OopType file = openFile("raise", "w", OOP_FALSE);
  CHECK(PERFORM("KvfPutC", file, number(256)) == OOP_NIL);
  CHECK(miniTakeRaised(&err));
  CHECK(err.number == 2061 && err.category == OOP_ERROR_CATEGORY);
  CHECK(err.argCount == 1 && err.args[0] == number(256) && err.args[1] == OOP_NIL);
  CHECK(PERFORM("KvfPutC", file, OOP_TRUE) == OOP_NIL && wasRaised(2242));
  CHECK(PERFORM("KvfIsOpen", file) == OOP_TRUE); /* the module can be called on after a raise */
  OopType closed = KciNewOop(MINI_CLASS_FILE);
  CHECK(PERFORM("KvfGetC", closed) == OOP_NIL && wasRaised(2364));
  CHECK(PERFORM("KvfUnlink", OOP_NIL, string("")) == OOP_NIL && wasRaised(2718));
  CHECK(nothingWasRaised());
  CHECK(PERFORM("KvfClose", file) == file);
}

/* The same mistakes, in a host whose raise comes back to the module. */
static void checkReturningRaise(void) {
  OopType file = openFile("raise", "w", OOP_FALSE);
  OopType stranger = KciNewOop(MINI_CLASS_FILE);
  OopType text = string("xyz");
  miniLetRaiseReturn(TRUE);
  CHECK(PERFORM("KvfPutC", file, number(256)) == OOP_NIL && wasRaised(2061));
  CHECK(PERFORM("KvfPutC", file, OOP_TRUE) == OOP_NIL && wasRaised(2242));
  /* Nil is the answer of all actions but the few that document another one. */
  CHECK(PERFORM("KvfGetC", stranger) == OOP_NIL && wasRaised(2364));
  CHECK(PERFORM("KvfPrintBytes", stranger, text) == OOP_NIL && wasRaised(2364));
  CHECK(PERFORM("KvfSeek", file, text, number(0)) == OOP_NIL && wasRaised(2061));
  CHECK(PERFORM("KvfWrite", file, text, number(1), number(4)) == OOP_NIL && wasRaised(2284));
  CHECK(PERFORM("KvfLoadByteStrings", file, text, text) == OOP_NIL && wasRaised(2061));
  CHECK(PERFORM("KvfUnlink", OOP_NIL, string("")) == OOP_NIL && wasRaised(2718));
  CHECK(PERFORM("KvfVersionParam", OOP_NIL, text) == OOP_NIL && wasRaised(2094));
  CHECK(PERFORM("KvfOpen", stranger, string(""), string("r"), OOP_FALSE) == OOP_NIL);
  CHECK(wasRaised(2718));
  CHECK(PERFORM("KvfGetLine", file, OOP_NIL, number(1), number(256), OOP_NIL) == OOP_NIL);
  CHECK(wasRaised(2061));
  miniUseSession(0);
  CHECK(PERFORM("KvfIsOpen", file) == OOP_FALSE && wasRaised(4100));
  miniUseSession(SESSION);
  miniLetRaiseReturn(FALSE);
  CHECK(nothingWasRaised());
  CHECK(PERFORM("KvfClose", file) == file);
  CHECK(PERFORM("KvfSize", OOP_NIL, string(pathOf("raise"))) == number(0));
}

/* ---- error-jump frames ---- */

static void checkByteStrings(void) {
  char expected[64];
  OopType file = openFile("numbers", "w+", OOP_FALSE);
  OopType bytes = KciNewByteObj(MINI_CLASS_BYTE_ARRAY, "\x00\x07\xFF", 3);
  OopType loaded = KciNewOop(MINI_CLASS_BYTE_ARRAY);
  CHECK(PERFORM("KvfPrintBytes", file, bytes) == file);
  CHECK(PERFORM("KvfSeek", file, number(0), number(0)) == number(0));
  CHECK(PERFORM("KvfLoadByteStrings", file, loaded, number(3)) == number(3));
  CHECK(KciFetchSize_(loaded) == 3 && memcmp(miniObject(loaded)->body, "\x00\x07\xFF", 3) == 0);
  /* An Array has a size but no bytes: the fetch fails, which unwinds to the action's own frame. */
  OopType array = KciNewOop(OOP_CLASS_ARRAY);
  KciSetVaryingSize(array, 2);
  CHECK(PERFORM("KvfPrintBytes", file, array) == OOP_NIL);
  snprintf(expected, sizeof expected, "Kestrova KCI error %d, message: ", MINI_ERR_WRONG_FORMAT);
  CHECK(PERFORM("KvfErrorCode", file) == number(MINI_ERR_WRONG_FORMAT));
  CHECK(beginsWith(PERFORM("KvfErrorString", file), expected));
  CHECK(nothingWasRaised());
  OopType text = PERFORM("KvfPassiveObjPrint", bytes);
  CHECK(text != OOP_NIL);
  CHECK(PERFORM("KvfPassiveObjLoadByteStrings", loaded, number(3), text, number(1)) != OOP_NIL);
  CHECK(PERFORM("KvfPassiveObjLoadByteStrings", array, number(3), text, number(1)) == OOP_NIL);
  CHECK(nothingWasRaised());
  CHECK(PERFORM("KvfClose", file) == file);
}

/* ---- directories ---- */

static BoolType arrayHolds(OopType array, const char* text) {
  OopType element = OOP_NIL;
  for (int64 i = 1; KciFetchOops(array, i, &element, 1) == 1; i++) {
    if (hasText(element, text)) return TRUE;
  }
  return FALSE;
}

static void checkDirectory(void) {
  OopType names = PERFORM("KvfDirectory", OOP_NIL, string(directoryPath()), OOP_TRUE);
  CHECK(KciIsKindOfClass(names, OOP_CLASS_ARRAY) && KciFetchSize_(names) == 4);
  CHECK(arrayHolds(names, pathOf("lines")) && arrayHolds(names, pathOf("lines.gz")));
  CHECK(arrayHolds(names, pathOf("raise")) && arrayHolds(names, pathOf("numbers")));
  CHECK(PERFORM("KvfDirectory", OOP_NIL, string(pathOf("none")), OOP_FALSE) == OOP_NIL);
  CHECK(nothingWasRaised());
}

/* The embedder's own frame: the walk's callback fails and leaves the action by a jump. */
static BoolType walkLeavesByJump(OopType path) {
  KciErrJumpSType jump;
  volatile BoolType jumped = FALSE;
  KciPushErrJump(&jump);
  if (setjmp(jump.buf) == 0) {
    miniAllowObjects(1); /* the Array, and no name */
    PERFORM("KvfDirectory", OOP_NIL, path, OOP_FALSE);
  } else {
    jumped = TRUE;
  }
  miniAllowAllObjects();
  KciPopErrJump(&jump);
  return jumped;
}

static void checkJumpOutOfWalk(void) {
  KciErrSType err = {0};
  int descriptors = openDescriptors();
  CHECK(walkLeavesByJump(string(directoryPath())));
  CHECK(KciErr(&err) && err.number == MINI_ERR_MEMORY);
  CHECK(openDescriptors() == descriptors);
  CHECK(nothingWasRaised());
}

static void raiseInsideFrame(void* frame) {
  KciErrJumpSType* jump = frame;
  KciPushErrJump(jump);
  if (setjmp(jump->buf) == 0) PERFORM("KvfUnlink", OOP_NIL, string(""));
}

static void raiseThroughFrame(void* frame) {
  KciErrJumpSType* jump = frame;
  KciErrSType err = {.category = OOP_ERROR_CATEGORY, .number = 2061};
  KciPushErrJump(jump);
  if (setjmp(jump->buf) == 0) KciRaiseException(&err);
}

/* A raise goes to the call site, never to a frame: one registered outside of it stays. */
static void checkRaisePassesFrames(void) {
  KciErrJumpSType jump;
  CHECK(miniProtect(raiseInsideFrame, &jump) && wasRaised(2718));
  CHECK(miniErrJumpDepth() == 1);
  KciPopErrJump(&jump);
  CHECK(!miniProtect(raiseThroughFrame, &jump) && wasRaised(2061));
  CHECK(nothingWasRaised());
}

/* An action that does not look leaves its error pending, which the next one must not see. */
static void checkPendingError(void) {
  OopType file = openFile("lines", "r", OOP_FALSE);
  OopType bytes = KciNewOop(MINI_CLASS_BYTE_ARRAY);
  OopType path = string(directoryPath());
  miniAllowObjects(1); /* the Array, and no name */
  CHECK(PERFORM("KvfDirectory", OOP_NIL, path, OOP_FALSE) != OOP_NIL);
  miniAllowAllObjects();
  CHECK(PERFORM("KvfRead", file, bytes, number(1), number(5)) == number(5));
  CHECK(PERFORM("KvfErrorCode", file) == number(0));
  CHECK(PERFORM("KvfClose", file) == file);
}

void checkErrors(void) {
  checkRaise();
  checkRaisePassesFrames();
  checkReturningRaise();
  checkByteStrings();
  checkDirectory();
  checkJumpOutOfWalk();
  checkPendingError();
}
