// Filling error records and handing them to the interface.
#include "framework/raise.h"

#include <kvfile/platform/kci.h>

#include "framework/assertions.h"

namespace kvf {

void raiseError(int errnum, int argCount, OopType arg1, OopType arg2, OopType arg3) {
  KVF_ASSERT(argCount >= 0 && argCount <= 3);
  KciErrSType err;
  err.initialize();
  err.category = OOP_ERROR_CATEGORY;
  err.number = errnum;
  err.fatal = errnum >= 4000 && errnum <= 4999;
  err.argCount = argCount;
  err.args[0] = arg1;
  err.args[1] = arg2;
  err.args[2] = arg3;
  KciRaiseException(&err);
}

void raiseError(int errnum) { raiseError(errnum, 0, OOP_NIL, OOP_NIL, OOP_NIL); }

void raiseError(int errnum, OopType arg1) { raiseError(errnum, 1, arg1, OOP_NIL, OOP_NIL); }

void raiseError(int errnum, OopType arg1, OopType arg2) {
  raiseError(errnum, 2, arg1, arg2, OOP_NIL);
}

void raiseError(int errnum, OopType arg1, OopType arg2, OopType arg3) {
  raiseError(errnum, 3, arg1, arg2, arg3);
}

void raiseErrorI(int errnum, int arg1) { raiseError(errnum, KciI32ToOop(arg1)); }

void raisePendingError() {
  KciErrSType err;
  err.initialize();
  KciErr(&err);
  KciRaiseException(&err);
}

}  // namespace kvf
