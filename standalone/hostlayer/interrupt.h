// The note that the SIGINT handler leaves; see enableInterrupts and takeInterrupt in kvhost.h.
#pragma once

namespace kvhost {

// True when an interrupt is noted; the note stays.
bool interruptIsNoted();

}  // namespace kvhost
