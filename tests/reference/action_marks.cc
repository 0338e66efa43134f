// Marks in the trace of kvf where an action begins and ends, so that a test knows which action made
// a call. Linked into a kvf of its own, with the functions by which actions are called wrapped.
#include <kvfile/kvfile.h>
#include <kvfile/kvhost.h>

#include "seam/recorder.h"
#include "seam/seam.h"

#include <cstdio>

// The names are the linker's.
kvhost::Outcome realCallAction(
    const kvhost::FoundAction& action, const OopType* args,
    int count) asm("__real__ZN6kvhost10callActionERKNS_11FoundActionEPKmi");
kvhost::Outcome wrappedCallAction(
    const kvhost::FoundAction& action, const OopType* args,
    int count) asm("__wrap__ZN6kvhost10callActionERKNS_11FoundActionEPKmi");
extern "C" OopType __real_KvfTestClientHandler(  // NOLINT(bugprone-reserved-identifier)
    OopType oClass);

namespace {

void mark(const char* what, const char* action) {
  if (!seam::active) return;
  seam::calls();  // a call that was left by a jump is told before the mark
  std::fprintf(stderr, "%s %s\n", what, action);
}

}  // namespace

kvhost::Outcome wrappedCallAction(const kvhost::FoundAction& action, const OopType* args,
                                  int count) {
  mark("begin", kvhost::nameOf(action));
  const kvhost::Outcome outcome = realCallAction(action, args, count);
  mark("end", kvhost::nameOf(action));
  return outcome;
}

// The shell calls this action past the others, so that it can contain the fault.
extern "C" OopType __wrap_KvfTestClientHandler(  // NOLINT(bugprone-reserved-identifier)
    OopType oClass) {
  mark("begin", "KvfTestClientHandler");
  const OopType answer = __real_KvfTestClientHandler(oClass);
  mark("end", "KvfTestClientHandler");
  return answer;
}
