#include "seam/recorder.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <utility>

namespace seam {

constinit thread_local bool active = false;

namespace {

using Clock = std::chrono::steady_clock;

constexpr const char* JUMPED = "jumped";

// A call that has begun and was not seen to end.
struct Open {
  int64_t serial = 0;
  const FunctionInfo* function = nullptr;
  Call call;
  Clock::time_point begun;
  bool foundError = false;  // one of the interface was pending before it began
  bool settled = false;     // its record is complete, though it may not have come back
};

struct ScheduledFault {
  Fault fault;
  int64_t seen = 0;
  int64_t fired = 0;
};

// A registered error-jump frame, and how many calls were open around it.
struct Jump {
  const void* frame;
  size_t openCalls;
};

struct State {
  bool recording = false;
  bool listening = false;  // within the listener
  int64_t lastNumber = 0;
  int64_t lastSerial = 0;
  int64_t fired = 0;
  std::vector<Call> calls;
  std::vector<Open> open;
  std::vector<Jump> jumps;
  std::vector<ScheduledFault> faults;
  std::function<void(const Call&)> listener;

  State() = default;
  State(const State&) = delete;
  State& operator=(const State&) = delete;
  ~State() { active = false; }
};

State& state() {
  thread_local State instance;
  return instance;
}

void updateActive(const State& s) {
  active = s.recording || s.listener != nullptr || !s.faults.empty();
}

// The slot of `call` in the record, or null when it is not kept. Numbers are dense, but a record
// may begin after the first.
Call* recordOf(State& s, int64_t number) {
  if (!s.recording || s.calls.empty()) return nullptr;
  const int64_t slot = number - s.calls.front().number;
  if (slot < 0 || slot >= static_cast<int64_t>(s.calls.size())) return nullptr;
  return &s.calls[static_cast<size_t>(slot)];
}

// The interface's own error is the cause of the failure, where the call left one.
void noteInterfaceError(Open& open) {
  const KciErrSType* error = pendingInterfaceError();
  const bool canRaise = (open.function->faults & faultBit(Fault::Kind::Raise)) != 0;
  if (error == nullptr || !canRaise || open.foundError) return;
  open.call.errorAfter = error->number;
  open.call.errorText = error->message;
}

void settle(State& s, Open& open) {
  if (std::exchange(open.settled, true)) return;
  if (Call* record = recordOf(s, open.call.number)) *record = open.call;
  if (!s.listener) return;
  // The listener sees a copy: it may clear the record, or replace itself.
  const Call call = open.call;
  const auto listener = s.listener;
  s.listening = true;
  listener(call);
  s.listening = false;
}

void abandonDownTo(State& s, size_t depth) {
  while (s.open.size() > depth) {
    Open open = std::move(s.open.back());
    s.open.pop_back();
    if (!open.settled) {
      open.call.result = JUMPED;
      noteInterfaceError(open);
    }
    settle(s, open);
  }
}

// A call that cannot contain another one did not come back when the next one begins: control left
// it for the innermost error-jump frame, or for the caller of the action.
void noticeJump(State& s) {
  if (s.open.empty() || s.open.back().function->flow == Flow::Nests) return;
  if (s.open.back().function->flow == Flow::Leaves || s.jumps.empty()) {
    s.jumps.clear();
    abandonDownTo(s, 0);
  } else {
    abandonDownTo(s, std::min(s.jumps.back().openCalls, s.open.size() - 1));
  }
}

// The module's caller asks: so nothing is under way any more.
State& settledState() {
  State& s = state();
  if (!s.listening) abandonDownTo(s, 0);
  return s;
}

void followJumpFrames(State& s, const FunctionInfo& function, const Word* arguments) {
  if (function.flow == Flow::PushesJump) {
    s.jumps.push_back({arguments[0].address, s.open.size()});
  } else if (function.flow == Flow::PopsJump) {
    for (size_t i = s.jumps.size(); i-- > 0;) {
      if (s.jumps[i].frame == arguments[0].address) return s.jumps.resize(i, Jump{});
    }
  }
}

// Counts the call for every fault, and answers the first that is due.
Ticket takeFault(State& s, const FunctionInfo& function) {
  Ticket ticket;
  for (ScheduledFault& scheduled : s.faults) {
    const Fault& fault = scheduled.fault;
    if (!fault.function.empty() && fault.function != function.name) continue;
    if (!faultFits(function, fault)) continue;
    scheduled.seen++;
    const bool due = fault.forever ? scheduled.seen >= fault.at : scheduled.seen == fault.at;
    if (!due || ticket.fires) continue;
    ticket.fires = true;
    ticket.kind = fault.kind;
    ticket.value = fault.value;
    scheduled.fired++;
    s.fired++;
  }
  return ticket;
}

void openCall(State& s, const FunctionInfo& function, const Word* arguments, Ticket* ticket) {
  Open open;
  open.serial = ++s.lastSerial;
  open.function = &function;
  open.foundError = pendingInterfaceError() != nullptr;
  open.call.number = s.lastNumber;
  if (s.recording || s.listener) {
    open.call.name = function.name;
    open.call.arguments = argumentTexts(function.argumentKinds, arguments);
  }
  if (s.recording) s.calls.push_back(open.call);
  s.open.push_back(std::move(open));
  ticket->serial = s.lastSerial;
}

// The open call of the ticket, with those begun after it abandoned; null when it was forgotten.
Open* reopen(State& s, const Ticket& ticket) {
  for (size_t i = s.open.size(); i-- > 0;) {
    if (s.open[i].serial != ticket.serial) continue;
    abandonDownTo(s, i + 1);
    return i < s.open.size() ? &s.open[i] : nullptr;
  }
  return nullptr;
}

std::string resultText(char kind, Word result) {
  std::string text;
  if (kind != 'v') appendWord(&text, kind, result, Word{});
  return text;
}

int64_t nanosecondsSince(Clock::time_point begun, Clock::time_point now) {
  return std::chrono::duration_cast<std::chrono::nanoseconds>(now - begun).count();
}

}  // namespace

Ticket beginCall(const FunctionInfo& function, const Word* arguments) {
  const int savedErrno = errno;
  State& s = state();
  noticeJump(s);
  s.lastNumber++;
  followJumpFrames(s, function, arguments);
  Ticket ticket = takeFault(s, function);
  openCall(s, function, arguments, &ticket);
  if (function.flow == Flow::Leaves) {
    s.open.back().call.result = JUMPED;
    settle(s, s.open.back());
  }
  if (!s.open.empty()) s.open.back().begun = Clock::now();
  errno = savedErrno;
  return ticket;
}

void endCall(const Ticket& ticket, Word result, int errorNumber, bool injected) {
  const int savedErrno = errno;
  const Clock::time_point now = Clock::now();
  State& s = state();
  if (Open* found = reopen(s, ticket)) {
    Open open = std::move(*found);
    s.open.pop_back();
    open.call.result = resultText(open.function->resultKind, result);
    open.call.errnoAfter = errorNumber;
    noteInterfaceError(open);
    open.call.injected = injected;
    open.call.nanoseconds = nanosecondsSince(open.begun, now);
    if (open.settled) {
      if (Call* record = recordOf(s, open.call.number)) *record = open.call;
    } else {
      settle(s, open);
    }
  }
  errno = savedErrno;
}

void endRaisingCall(const Ticket& ticket, Word result) {
  State& s = state();
  Open* open = reopen(s, ticket);
  if (open == nullptr) return;
  const char kind = open->function->resultKind;
  open->call.result = s.jumps.empty() ? resultText(kind, result) : JUMPED;
  open->call.injected = true;
  open->call.errorAfter = static_cast<int>(ticket.value);
  open->call.errorText = RAISED_TEXT;
  settle(s, *open);
}

void afterPendingRaise(const Ticket& ticket) {
  State& s = state();
  if (reopen(s, ticket) != nullptr) s.open.pop_back();
}

void clear() {
  State& s = state();
  s.open.clear();
  s.calls.clear();
  s.lastNumber = 0;
}

void start() {
  clear();
  State& s = state();
  s.recording = true;
  updateActive(s);
}

std::vector<Call> stop() {
  State& s = settledState();
  s.recording = false;
  updateActive(s);
  return std::exchange(s.calls, {});
}

const std::vector<Call>& calls() { return settledState().calls; }

void setListener(std::function<void(const Call&)> listener) {
  State& s = settledState();
  s.listener = std::move(listener);
  updateActive(s);
}

void addFault(const Fault& fault) {
  State& s = state();
  if (s.faults.empty()) s.fired = 0;
  s.faults.push_back({fault, 0, 0});
  updateActive(s);
}

void clearFaults() {
  State& s = state();
  s.faults.clear();
  updateActive(s);
}

int64_t faultsFired() { return state().fired; }

std::vector<FaultCount> faultCounts() {
  std::vector<FaultCount> counts;
  for (const ScheduledFault& scheduled : state().faults) {
    counts.push_back({scheduled.fault, scheduled.seen, scheduled.fired});
  }
  return counts;
}

}  // namespace seam
