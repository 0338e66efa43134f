// Messages of Booleans and blocks: choice, repetition, and going on after an error.
#include <kvfile/kvhost.h>

#include "messages.h"

#include <array>
#include <chrono>

namespace shell {
namespace {

bool truthOf(const Value& value, std::string_view selector) {
  if (value.isTrue()) return true;
  if (!value.isFalse()) doesNotUnderstand(value, selector);
  return false;
}

Value notMessage(Interpreter&, const Value& receiver, Arguments) {
  return Value::boolean(!truthOf(receiver, "not"));
}

Value andMessage(Interpreter& interpreter, const Value& receiver, Arguments arguments) {
  return truthOf(receiver, "and:") ? valueOf(interpreter, arguments[0]) : receiver;
}

Value orMessage(Interpreter& interpreter, const Value& receiver, Arguments arguments) {
  return truthOf(receiver, "or:") ? receiver : valueOf(interpreter, arguments[0]);
}

Value ifTrue(Interpreter& interpreter, const Value& receiver, Arguments arguments) {
  return truthOf(receiver, "ifTrue:") ? valueOf(interpreter, arguments[0]) : Value();
}

Value ifFalse(Interpreter& interpreter, const Value& receiver, Arguments arguments) {
  return truthOf(receiver, "ifFalse:") ? Value() : valueOf(interpreter, arguments[0]);
}

Value ifTrueIfFalse(Interpreter& interpreter, const Value& receiver, Arguments arguments) {
  return valueOf(interpreter, truthOf(receiver, "ifTrue:ifFalse:") ? arguments[0] : arguments[1]);
}

Value ifFalseIfTrue(Interpreter& interpreter, const Value& receiver, Arguments arguments) {
  return valueOf(interpreter, truthOf(receiver, "ifFalse:ifTrue:") ? arguments[1] : arguments[0]);
}

Value blockValue(Interpreter& interpreter, const Value& receiver, Arguments) {
  if (receiver.isBlock()) return interpreter.run(*receiver.block);
  if (!receiver.isObject() || oopIsCharacter(receiver.oop) == 0) {
    doesNotUnderstand(receiver, "value");
  }
  return Value::object(kvhost::newInteger(static_cast<int64_t>(oopCharacterCode(receiver.oop))));
}

// Runs `body` while the receiver block answers `wanted`.
Value repeatWhile(Interpreter& interpreter, const Value& receiver, const Value& body, bool wanted,
                  std::string_view selector) {
  if (!receiver.isBlock()) doesNotUnderstand(receiver, selector);
  while (truthOf(interpreter.run(*receiver.block), selector) == wanted) {
    valueOf(interpreter, body);
    interpreter.safePointInLoop();
  }
  return {};
}

Value whileTrue(Interpreter& interpreter, const Value& receiver, Arguments arguments) {
  return repeatWhile(interpreter, receiver, arguments[0], true, "whileTrue:");
}

Value whileFalse(Interpreter& interpreter, const Value& receiver, Arguments arguments) {
  return repeatWhile(interpreter, receiver, arguments[0], false, "whileFalse:");
}

Value whileTrueAlone(Interpreter& interpreter, const Value& receiver, Arguments) {
  return repeatWhile(interpreter, receiver, Value(), true, "whileTrue");
}

Value whileFalseAlone(Interpreter& interpreter, const Value& receiver, Arguments) {
  return repeatWhile(interpreter, receiver, Value(), false, "whileFalse");
}

Value timesRepeat(Interpreter& interpreter, const Value& receiver, Arguments arguments) {
  if (!isInteger(receiver)) doesNotUnderstand(receiver, "timesRepeat:");
  int64_t count = integerOf(receiver, "receiver");
  for (int64_t i = 0; i < count; i++) {
    valueOf(interpreter, arguments[0]);
    interpreter.safePointInLoop();
  }
  return receiver;
}

// Answers the block's value, or that of the argument where the block failed. What the user stops
// stays stopped.
Value ifError(Interpreter& interpreter, const Value& receiver, Arguments arguments) {
  if (!receiver.isBlock()) doesNotUnderstand(receiver, "ifError:");
  try {
    return interpreter.run(*receiver.block);
  } catch (const EvaluationError& error) {
    if (error.interrupted) throw;
    interpreter.lastErrorNumber = error.number;
  }
  return valueOf(interpreter, arguments[0]);
}

Value millisecondsToRun(Interpreter& interpreter, const Value& receiver, Arguments) {
  if (!receiver.isBlock()) doesNotUnderstand(receiver, "millisecondsToRun");
  auto start = std::chrono::steady_clock::now();
  interpreter.run(*receiver.block);
  auto passed = std::chrono::steady_clock::now() - start;
  return Value::object(
      kvhost::newInteger(std::chrono::duration_cast<std::chrono::milliseconds>(passed).count()));
}

constexpr std::array METHODS = {
    Method{"not", notMessage},
    Method{"and:", andMessage},
    Method{"or:", orMessage},
    Method{"ifTrue:", ifTrue},
    Method{"ifFalse:", ifFalse},
    Method{"ifTrue:ifFalse:", ifTrueIfFalse},
    Method{"ifFalse:ifTrue:", ifFalseIfTrue},
    Method{"value", blockValue},
    Method{"whileTrue:", whileTrue},
    Method{"whileFalse:", whileFalse},
    Method{"whileTrue", whileTrueAlone},
    Method{"whileFalse", whileFalseAlone},
    Method{"timesRepeat:", timesRepeat},
    Method{"ifError:", ifError},
    Method{"millisecondsToRun", millisecondsToRun},
};

}  // namespace

std::span<const Method> controlMessages() { return METHODS; }

}  // namespace shell
