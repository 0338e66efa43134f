#include "support/returning_raise.h"

#include <kvfile/platform/kci.h>

namespace {

thread_local int remaining = 0;

}  // namespace

namespace kvtest {

void letRaisesReturn(int times) { remaining = times; }
int raisesThatWillReturn() { return remaining; }

}  // namespace kvtest

// The names are the linker's.
extern "C" {
void __real_KciRaiseException(const KciErrSType* err);  // NOLINT(bugprone-reserved-identifier)

void __wrap_KciRaiseException(const KciErrSType* err) {  // NOLINT(bugprone-reserved-identifier)
  if (remaining <= 0) return __real_KciRaiseException(err);
  --remaining;
}
}
