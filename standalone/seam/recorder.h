// What the wrappers call while anybody listens, records, or has set a fault. A wrapper's frame may
// be jumped over, so all that needs destruction is kept here, in the thread's own state, and a
// wrapper holds plain numbers only.
#pragma once

#include <kvfile/platform/kcicmn.h>

#include "seam/call_text.h"
#include "seam/seam.h"

#include <cstddef>
#include <string_view>

namespace seam {

// What control does in a call, beyond coming back from it.
enum class Flow { Returns, Nests, Leaves, PushesJump, PopsJump };

// One row of functions.def.
struct FunctionInfo {
  std::string_view name;
  std::string_view argumentKinds;
  char resultKind;  // 'v' for none
  unsigned faults;  // one bit for each kind of fault that can befall it: faultBit
  Flow flow;
};

constexpr unsigned faultBit(Fault::Kind kind) { return 1U << static_cast<unsigned>(kind); }

// True when `fault`, its name aside, can befall the function.
bool faultFits(const FunctionInfo& function, const Fault& fault);

// The row of the function `name`, or null. The rows of all, without an end mark.
const FunctionInfo* findFunction(std::string_view name);

// True while this thread records, has a listener, or has a fault set.
extern constinit thread_local bool active;

// A call that is under way, and the fault that is to befall it.
struct Ticket {
  int64_t serial = 0;  // 0: nobody wants to know of the call
  bool fires = false;
  Fault::Kind kind = Fault::Kind::Error;
  int64_t value = 0;
};

// The text of an error that a fault raises.
constexpr const char* RAISED_TEXT = "raised by a fault";

// The error of the C interface that is pending on this thread, or null.
const KciErrSType* pendingInterfaceError();

// Numbers the call, notes its arguments and looks for a fault. Leaves errno as it was.
Ticket beginCall(const FunctionInfo& function, const Word* arguments);

// Records the end of the call: `result` is read in the function's result format, and `errorNumber`
// is an errno value where the result tells of a failure, else 0. Leaves errno as it was.
void endCall(const Ticket& ticket, Word result, int errorNumber, bool injected);

// Records that the call leaves an error of the interface behind, by a jump where a frame is
// registered and else by answering `result`. To be called before the error is left.
void endRaisingCall(const Ticket& ticket, Word result);

// The call whose error did not jump is over.
void afterPendingRaise(const Ticket& ticket);

}  // namespace seam
