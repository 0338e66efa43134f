// Raises that come back to the module, as an embedder may have them do. Needs a program that is
// linked with --wrap=KciRaiseException and support/returning_raise.cc.
#pragma once

namespace kvtest {

// The next `times` raises of this thread do nothing and return.
void letRaisesReturn(int times);

// How many of them have not been used up.
int raisesThatWillReturn();

}  // namespace kvtest
