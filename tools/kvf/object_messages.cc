// Messages that every object understands, and those of classes.
#include <kvfile/kvhost.h>

#include "messages.h"
#include "printer.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <set>
#include <utility>
#include <vector>

namespace shell {
namespace {

constexpr int64_t MAX_NEW_SIZE = int64_t{1} << 30;

Value classMessage(Interpreter&, const Value& receiver, Arguments) {
  if (!receiver.isObject()) doesNotUnderstand(receiver, "class");
  return Value::object(kvhost::classOf(receiver.oop));
}

bool isNilValue(const Value& value) { return value.isObject() && value.oop == OOP_NIL; }

Value isNil(Interpreter&, const Value& receiver, Arguments) {
  return Value::boolean(isNilValue(receiver));
}

Value notNil(Interpreter&, const Value& receiver, Arguments) {
  return Value::boolean(!isNilValue(receiver));
}

bool isIdentical(const Value& left, const Value& right) {
  if (left.kind != right.kind) return false;
  return left.isBlock() ? left.block == right.block : left.oop == right.oop;
}

// Equal but for the elements of Arrays: identical, or integers of one value, or texts or bytes of
// one class with equal contents.
bool isEqualWithoutElements(const Value& left, const Value& right) {
  if (isIdentical(left, right)) return true;
  if (isInteger(left) && isInteger(right)) {
    return integerOf(left, "receiver") == integerOf(right, "argument");
  }
  if (!left.isObject() || !right.isObject()) return false;
  if (kvhost::classOf(left.oop) != kvhost::classOf(right.oop)) return false;
  return isByteObject(left) && kvhost::bytesOf(left.oop) == kvhost::bytesOf(right.oop);
}

// Arrays may hold themselves, and may be nested deeper than a recursion could go. So pairs wait in a
// list, and one that was met before is not looked at again.
bool isEqual(const Value& left, const Value& right) {
  if (!isArray(left) || !isArray(right)) return isEqualWithoutElements(left, right);
  std::vector<std::pair<OopType, OopType>> waiting = {{left.oop, right.oop}};
  std::set<std::pair<OopType, OopType>> met;
  while (!waiting.empty()) {
    auto [x, y] = waiting.back();
    waiting.pop_back();
    if (x == y || !met.insert({x, y}).second) continue;
    Value a = Value::object(x);
    Value b = Value::object(y);
    if (isArray(a) && isArray(b)) {
      std::vector<OopType> elements = kvhost::elementsOf(x);
      std::vector<OopType> others = kvhost::elementsOf(y);
      if (elements.size() != others.size()) return false;
      for (size_t i = 0; i < elements.size(); i++) waiting.emplace_back(elements[i], others[i]);
    } else if (!isEqualWithoutElements(a, b)) {
      return false;
    }
  }
  return true;
}

Value equal(Interpreter&, const Value& receiver, Arguments arguments) {
  return Value::boolean(isEqual(receiver, arguments[0]));
}

Value notEqual(Interpreter&, const Value& receiver, Arguments arguments) {
  return Value::boolean(!isEqual(receiver, arguments[0]));
}

Value identical(Interpreter&, const Value& receiver, Arguments arguments) {
  return Value::boolean(isIdentical(receiver, arguments[0]));
}

Value notIdentical(Interpreter&, const Value& receiver, Arguments arguments) {
  return Value::boolean(!isIdentical(receiver, arguments[0]));
}

Value yourself(Interpreter&, const Value& receiver, Arguments) { return receiver; }

Value printStringMessage(Interpreter& interpreter, const Value& receiver, Arguments) {
  return Value::object(kvhost::newString(printString(interpreter, receiver)));
}

Value displayStringMessage(Interpreter& interpreter, const Value& receiver, Arguments) {
  return Value::object(kvhost::newString(displayString(interpreter, receiver)));
}

Value printNl(Interpreter& interpreter, const Value& receiver, Arguments) {
  interpreter.print(printString(interpreter, receiver) + "\n");
  return receiver;
}

Value displayNl(Interpreter& interpreter, const Value& receiver, Arguments) {
  interpreter.print(displayString(interpreter, receiver) + "\n");
  return receiver;
}

Value objectId(Interpreter&, const Value& receiver, Arguments) {
  if (!receiver.isObject()) doesNotUnderstand(receiver, "objectId");
  return Value::object(kvhost::newInteger(static_cast<int64_t>(receiver.oop)));
}

Value beInvariant(Interpreter&, const Value& receiver, Arguments) {
  if (!isByteObject(receiver) && !isArray(receiver)) doesNotUnderstand(receiver, "beInvariant");
  kvhost::makeInvariant(receiver.oop);
  return receiver;
}

Value isKindOf(Interpreter&, const Value& receiver, Arguments arguments) {
  if (!receiver.isObject() || !isClass(arguments[0])) doesNotUnderstand(receiver, "isKindOf:");
  return Value::boolean(KciIsKindOfClass(receiver.oop, arguments[0].oop) != 0);
}

// ---- classes ----

Value nameMessage(Interpreter&, const Value& receiver, Arguments) {
  if (!isClass(receiver)) doesNotUnderstand(receiver, "name");
  return Value::object(kvhost::newString(kvhost::className(receiver.oop)));
}

Value newMessage(Interpreter& interpreter, const Value& receiver, Arguments) {
  if (!isClass(receiver)) doesNotUnderstand(receiver, "new");
  if (receiver.oop == kvhost::CLASS_KV_FILE) {
    OopType file = kvhost::newKvFile();
    interpreter.fileNumber(file);
    return Value::object(file);
  }
  OopType result = KciNewOop(receiver.oop);
  if (result == OOP_NIL) throwPendingError(interpreter);
  return Value::object(result);
}

int64_t sizeArgument(const Value& value) {
  int64_t size = integerOf(value, "size");
  if (size < 0 || size > MAX_NEW_SIZE) {
    throw EvaluationError(fmt::format("error: the size {} is not in 0 to {}", size, MAX_NEW_SIZE));
  }
  return size;
}

Value newFilled(Interpreter& interpreter, const Value& cls, int64_t size, const Value& filler) {
  if (cls.oop == OOP_CLASS_ARRAY) {
    return Value::object(
        kvhost::newArray(std::vector<OopType>(static_cast<size_t>(size), filler.oop)));
  }
  int64_t byte = oopIsCharacter(filler.oop) != 0
                     ? static_cast<int64_t>(oopCharacterCode(filler.oop))
                     : integerOf(filler, "element");
  if (byte < 0 || byte > 255) throw EvaluationError("error: the element is no byte, 0 to 255");
  std::string bytes(static_cast<size_t>(size), static_cast<char>(byte));
  OopType result = KciNewByteObj(cls.oop, bytes.data(), bytes.size());
  if (result == OOP_NIL) throwPendingError(interpreter);
  return Value::object(result);
}

Value newSized(Interpreter& interpreter, const Value& receiver, Arguments arguments) {
  if (!isClass(receiver)) doesNotUnderstand(receiver, "new:");
  Value filler = receiver.oop == OOP_CLASS_ARRAY ? Value() : Value::object(kvhost::newInteger(0));
  return newFilled(interpreter, receiver, sizeArgument(arguments[0]), filler);
}

Value newWithAll(Interpreter& interpreter, const Value& receiver, Arguments arguments) {
  if (!isClass(receiver)) doesNotUnderstand(receiver, "new:withAll:");
  return newFilled(interpreter, receiver, sizeArgument(arguments[0]), arguments[1]);
}

constexpr std::array METHODS = {
    Method{"class", classMessage},
    Method{"isNil", isNil},
    Method{"notNil", notNil},
    Method{"=", equal},
    Method{"~=", notEqual},
    Method{"==", identical},
    Method{"~~", notIdentical},
    Method{"yourself", yourself},
    Method{"printString", printStringMessage},
    Method{"displayString", displayStringMessage},
    Method{"printNl", printNl},
    Method{"displayNl", displayNl},
    Method{"objectId", objectId},
    Method{"beInvariant", beInvariant},
    Method{"isKindOf:", isKindOf},
    Method{"name", nameMessage},
    Method{"new", newMessage},
    Method{"new:", newSized},
    Method{"new:withAll:", newWithAll},
};

}  // namespace

std::span<const Method> objectMessages() { return METHODS; }

}  // namespace shell
