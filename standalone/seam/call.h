// The one body of all wrappers. A call may be left by a jump: so every object in these frames is
// trivially destructible, and the record of the call lives in the recorder.
#pragma once

#include "seam/failures.h"
#include "seam/recorder.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <tuple>
#include <type_traits>

namespace seam {

// What a function does beyond coming back and failing.
struct Traits {
  Flow flow = Flow::Returns;
  bool raises = false;           // fails by an error of the interface
  bool allocates = false;        // fails for want of memory
  bool releases = false;         // gives its argument up even where it fails: so it is always made
  bool isInterruptible = false;  // answers -2 for an interrupt
  int countArgument = -1;        // index of the argument that says how much to transfer, or -1
  int64_t countSurplus = 0;      // how much that argument counts beyond what is transferred
};

inline constexpr Traits PLAIN{};
inline constexpr Traits LEAVES{.flow = Flow::Leaves};
inline constexpr Traits NESTS{.flow = Flow::Nests};
inline constexpr Traits PUSHES_JUMP{.flow = Flow::PushesJump};
inline constexpr Traits POPS_JUMP{.flow = Flow::PopsJump};
inline constexpr Traits RAISES{.raises = true};
inline constexpr Traits ALLOCATES{.allocates = true};
inline constexpr Traits RELEASES{.releases = true};

constexpr Traits transfers(int countArgument) { return {.countArgument = countArgument}; }

constexpr Traits interruptible(int countArgument, int64_t countSurplus) {
  return {.isInterruptible = true, .countArgument = countArgument, .countSurplus = countSurplus};
}

// What an interruptible read answers when the user interrupted it.
constexpr int64_t INTERRUPTED = -2;

using FailsNil = FailsSilently<static_cast<int64_t>(OOP_NIL)>;
using FailsZero = FailsSilently<0>;

template <class Failure>
constexpr FunctionInfo functionInfo(std::string_view name, std::string_view argumentKinds,
                                    char resultKind, const Traits& traits) {
  unsigned faults = 0;
  if (Failure::FAILS) faults |= faultBit(Fault::Kind::Error);
  if (traits.countArgument >= 0) faults |= faultBit(Fault::Kind::Short);
  if (resultKind != 'v' && resultKind != 'c') faults |= faultBit(Fault::Kind::Result);
  if (traits.isInterruptible) faults |= faultBit(Fault::Kind::Interrupt);
  if (traits.raises) faults |= faultBit(Fault::Kind::Raise);
  if (traits.allocates) faults |= faultBit(Fault::Kind::NoMemory);
  return {name, argumentKinds, resultKind, faults, traits.flow};
}

template <class F>
struct Signature;

template <class R, class... A>
struct Signature<R(A...)> {
  using Result = R;
  using Arguments = std::tuple<A...>;
  template <size_t I>
  using Argument = std::tuple_element_t<I, Arguments>;
  static constexpr size_t ARITY = sizeof...(A);
};

// For decltype: the signature of a declared function, its attributes left behind.
template <class R, class... A>
Signature<R(A...)> signatureOf(R (*)(A...));

// An errno value that a call finds is not its own: while one lives, errno is 0 until the call sets it,
// and what was there comes back where the call leaves it alone.
class OwnErrno {
 public:
  OwnErrno() : former_(errno) { errno = 0; }
  // The call has ended; `restore` once its failure was looked at.
  void restore() const {
    if (errno == 0) errno = former_;
  }

 private:
  int former_;
};

// Makes the real call, ends its record, and answers. A Row is what SEAM_CALL defines.
template <class Row>
typename Row::Result callThrough(const Ticket& ticket, const typename Row::Arguments& arguments,
                                 bool injected) {
  using Result = typename Row::Result;
  const OwnErrno own;
  if constexpr (std::is_void_v<Result>) {
    std::apply(Row::real, arguments);
    own.restore();
    endCall(ticket, Word{}, 0, injected);
  } else {
    const Result result = std::apply(Row::real, arguments);
    const int errorNumber = Row::Failure::errorNumber(result, arguments);
    own.restore();
    endCall(ticket, toWord(result), errorNumber, injected);
    return result;
  }
}

template <class Row>
typename Row::Result callShort(const Ticket& ticket, typename Row::Arguments arguments) {
  auto& count = std::get<static_cast<size_t>(Row::TRAITS.countArgument)>(arguments);
  using Count = std::remove_reference_t<decltype(count)>;
  const auto most = static_cast<Count>(ticket.value + Row::TRAITS.countSurplus);
  const bool shortens = count > most;
  count = std::min(count, most);
  return callThrough<Row>(ticket, arguments, shortens);
}

// Leaves error `number` of the interface as a failing call of the host does.
void leaveInterfaceError(int64_t number);

// Comes back only where no error-jump frame is registered.
template <class Row>
typename Row::Result raiseInstead(const Ticket& ticket, const typename Row::Arguments& arguments) {
  using Result = typename Row::Result;
  if constexpr (std::is_void_v<Result>) {
    endRaisingCall(ticket, Word{});
    leaveInterfaceError(ticket.value);
    afterPendingRaise(ticket);
  } else {
    const auto result = Row::Failure::template fail<Result>(errno, arguments);
    endRaisingCall(ticket, toWord(result));
    leaveInterfaceError(ticket.value);
    afterPendingRaise(ticket);
    return result;
  }
}

// What the record shows of errno: an interrupt's is told by its result. The arguments of a function
// that has given them up may no longer be looked at.
template <class Row>
int shownErrno(const Ticket& ticket, typename Row::Result result,
               const typename Row::Arguments& arguments) {
  if (ticket.kind == Fault::Kind::Interrupt) return 0;
  if constexpr (Row::TRAITS.releases) {
    return ticket.kind == Fault::Kind::Error ? errno : 0;
  } else {
    return Row::Failure::errorNumber(result, arguments);
  }
}

// Answers a result that the fault made up. The failure of a function that gives something up even
// where it fails comes after the real call, or every fault would leak.
template <class Row>
typename Row::Result answerInstead(const Ticket& ticket, const typename Row::Arguments& arguments) {
  using Result = typename Row::Result;
  using Failure = typename Row::Failure;
  const int64_t number = ticket.kind == Fault::Kind::NoMemory ? ENOMEM : ticket.value;
  if constexpr (Row::TRAITS.releases) std::apply(Row::real, arguments);
  if constexpr (std::is_void_v<Result>) {
    Failure::template fail<void>(number, arguments);
    endCall(ticket, Word{}, static_cast<int>(number), true);
  } else {
    Result result{};
    if (ticket.kind == Fault::Kind::Result) {
      result = fromNumber<Result>(number);
    } else if (ticket.kind == Fault::Kind::Interrupt) {
      errno = EINTR;
      result = fromNumber<Result>(INTERRUPTED);
    } else {
      result = Failure::template fail<Result>(number, arguments);
    }
    endCall(ticket, toWord(result), shownErrno<Row>(ticket, result, arguments), true);
    return result;
  }
}

template <class Row>
[[gnu::noinline]] typename Row::Result watchedCall(const typename Row::Arguments& arguments) {
  static_assert(std::is_trivially_destructible_v<typename Row::Arguments>);
  static_assert(std::is_trivially_destructible_v<Ticket>);
  const auto words = std::apply(
      [](auto... argument) { return std::array<Word, sizeof...(argument)>{toWord(argument)...}; },
      arguments);
  Ticket ticket = beginCall(Row::INFO, words.data());
  if constexpr (requires { Row::Failure::leftError(arguments); }) {
    if (const int left = Row::Failure::leftError(arguments); left != 0) {
      ticket.kind = Fault::Kind::Error;
      ticket.value = left;
      // zlib keeps that the descriptor failed, and leaves errno as it is from then on.
      const int before = errno;
      const auto result = answerInstead<Row>(ticket, arguments);
      errno = before;
      return result;
    }
  }
  if (!ticket.fires) return callThrough<Row>(ticket, arguments, false);
  if constexpr (Row::TRAITS.countArgument >= 0) {
    if (ticket.kind == Fault::Kind::Short) return callShort<Row>(ticket, arguments);
  }
  if constexpr (Row::TRAITS.raises) {
    if (ticket.kind == Fault::Kind::Raise) return raiseInstead<Row>(ticket, arguments);
  }
  return answerInstead<Row>(ticket, arguments);
}

template <class Row, class... A>
typename Row::Result call(A... arguments) {
  if (!active) [[likely]]
    return Row::real(arguments...);
  return watchedCall<Row>(typename Row::Arguments(arguments...));
}

}  // namespace seam
