// Messages of integers and Characters.
#include <kvfile/kvhost.h>

#include "messages.h"

#include <array>
#include <cstdint>
#include <limits>

namespace shell {
namespace {

Value integerValue(int64_t value) {
  constexpr int64_t LIMIT = int64_t{1} << 60U;
  bool isSmall = value >= -LIMIT && value < LIMIT;
  return Value::object(isSmall ? oopFromSmallInteger(value) : kvhost::newInteger(value));
}

int64_t receiverInteger(const Value& receiver, std::string_view selector) {
  if (!isInteger(receiver)) doesNotUnderstand(receiver, selector);
  return integerOf(receiver, "receiver");
}

[[noreturn]] void overflow() { throw EvaluationError("error: the result does not fit in 64 bits"); }

Value add(Interpreter&, const Value& receiver, Arguments arguments) {
  int64_t result = 0;
  if (__builtin_add_overflow(receiverInteger(receiver, "+"), integerOf(arguments[0], "argument"),
                             &result)) {
    overflow();
  }
  return integerValue(result);
}

Value subtract(Interpreter&, const Value& receiver, Arguments arguments) {
  int64_t result = 0;
  if (__builtin_sub_overflow(receiverInteger(receiver, "-"), integerOf(arguments[0], "argument"),
                             &result)) {
    overflow();
  }
  return integerValue(result);
}

Value multiply(Interpreter&, const Value& receiver, Arguments arguments) {
  int64_t result = 0;
  if (__builtin_mul_overflow(receiverInteger(receiver, "*"), integerOf(arguments[0], "argument"),
                             &result)) {
    overflow();
  }
  return integerValue(result);
}

struct Quotient {
  int64_t quotient;
  int64_t remainder;
};

// Division towards negative infinity, as // and \\ divide.
Quotient floorDivide(int64_t dividend, int64_t divisor) {
  if (divisor == 0) throw EvaluationError("error: division by zero");
  if (dividend == std::numeric_limits<int64_t>::min() && divisor == -1) overflow();
  Quotient result{dividend / divisor, dividend % divisor};
  if (result.remainder != 0 && (result.remainder < 0) != (divisor < 0)) {
    result.quotient--;
    result.remainder += divisor;
  }
  return result;
}

Value divide(Interpreter&, const Value& receiver, Arguments arguments) {
  return integerValue(
      floorDivide(receiverInteger(receiver, "//"), integerOf(arguments[0], "argument")).quotient);
}

Value modulo(Interpreter&, const Value& receiver, Arguments arguments) {
  return integerValue(
      floorDivide(receiverInteger(receiver, "\\\\"), integerOf(arguments[0], "argument"))
          .remainder);
}

Value negated(Interpreter&, const Value& receiver, Arguments) {
  int64_t value = receiverInteger(receiver, "negated");
  if (value == std::numeric_limits<int64_t>::min()) overflow();
  return integerValue(-value);
}

Value less(Interpreter&, const Value& receiver, Arguments arguments) {
  return Value::boolean(receiverInteger(receiver, "<") < integerOf(arguments[0], "argument"));
}

Value lessOrEqual(Interpreter&, const Value& receiver, Arguments arguments) {
  return Value::boolean(receiverInteger(receiver, "<=") <= integerOf(arguments[0], "argument"));
}

Value greater(Interpreter&, const Value& receiver, Arguments arguments) {
  return Value::boolean(receiverInteger(receiver, ">") > integerOf(arguments[0], "argument"));
}

Value greaterOrEqual(Interpreter&, const Value& receiver, Arguments arguments) {
  return Value::boolean(receiverInteger(receiver, ">=") >= integerOf(arguments[0], "argument"));
}

Value asCharacter(Interpreter&, const Value& receiver, Arguments) {
  int64_t code = receiverInteger(receiver, "asCharacter");
  if (code < 0 || code > 0x10FFFF) {
    throw EvaluationError("error: a Character's code is 0 to 1114111");
  }
  return Value::object(oopFromCharacter(static_cast<uint32_t>(code)));
}

Value characterValue(Interpreter& interpreter, const Value& receiver, Arguments arguments) {
  if (!receiver.isObject() || receiver.oop != OOP_CLASS_CHARACTER) {
    doesNotUnderstand(receiver, "value:");
  }
  return asCharacter(interpreter, arguments[0], {});
}

Value asInteger(Interpreter&, const Value& receiver, Arguments) {
  if (isInteger(receiver)) return receiver;
  if (!receiver.isObject() || oopIsCharacter(receiver.oop) == 0) {
    doesNotUnderstand(receiver, "asInteger");
  }
  return integerValue(static_cast<int64_t>(oopCharacterCode(receiver.oop)));
}

constexpr std::array METHODS = {
    Method{"+", add},
    Method{"-", subtract},
    Method{"*", multiply},
    Method{"//", divide},
    Method{"\\\\", modulo},
    Method{"negated", negated},
    Method{"<", less},
    Method{"<=", lessOrEqual},
    Method{">", greater},
    Method{">=", greaterOrEqual},
    Method{"asCharacter", asCharacter},
    Method{"value:", characterValue},
    Method{"asInteger", asInteger},
};

}  // namespace

std::span<const Method> numberMessages() { return METHODS; }

}  // namespace shell
