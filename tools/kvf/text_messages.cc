// Messages of texts, ByteArrays and Arrays.
#include <kvfile/kvhost.h>

#include "messages.h"
#include "printer.h"
#include "text.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>

namespace shell {
namespace {

Value sizeMessage(Interpreter&, const Value& receiver, Arguments) {
  if (!isByteObject(receiver) && !isArray(receiver)) doesNotUnderstand(receiver, "size");
  return Value::object(kvhost::newInteger(KciFetchSize_(receiver.oop)));
}

Value isEmpty(Interpreter&, const Value& receiver, Arguments) {
  if (!isByteObject(receiver) && !isArray(receiver)) doesNotUnderstand(receiver, "isEmpty");
  return Value::boolean(KciFetchSize_(receiver.oop) == 0);
}

int64_t checkedIndex(const Value& receiver, const Value& index) {
  int64_t position = integerOf(index, "index");
  int64_t size = KciFetchSize_(receiver.oop);
  if (position < 1 || position > size) {
    throw EvaluationError(fmt::format("error: the index {} is not in 1 to {}", position, size));
  }
  return position;
}

// A byte as an element: an integer of a ByteArray, a Character of any text.
Value elementFromByte(const Value& receiver, ByteType byte) {
  bool isText = kvhost::classOf(receiver.oop) != kvhost::CLASS_BYTE_ARRAY;
  return Value::object(isText ? oopFromCharacter(byte) : kvhost::newInteger(byte));
}

Value at(Interpreter&, const Value& receiver, Arguments arguments) {
  if (isArray(receiver)) {
    int64_t index = checkedIndex(receiver, arguments[0]);
    OopType element = OOP_NIL;
    KciFetchOops(receiver.oop, index, &element, 1);
    return Value::object(element);
  }
  if (!isByteObject(receiver)) doesNotUnderstand(receiver, "at:");
  ByteType byte = 0;
  KciFetchBytes_(receiver.oop, checkedIndex(receiver, arguments[0]), &byte, 1);
  return elementFromByte(receiver, byte);
}

ByteType byteFromElement(const Value& element) {
  int64_t code = element.isObject() && oopIsCharacter(element.oop) != 0
                     ? static_cast<int64_t>(oopCharacterCode(element.oop))
                     : integerOf(element, "element");
  if (code < 0 || code > 255) throw EvaluationError("error: the element is no byte, 0 to 255");
  return static_cast<ByteType>(code);
}

Value atPut(Interpreter& interpreter, const Value& receiver, Arguments arguments) {
  if (isArray(receiver)) {
    if (!arguments[1].isObject()) throw EvaluationError("error: an Array holds objects only");
    KciStoreOop(receiver.oop, checkedIndex(receiver, arguments[0]), arguments[1].oop);
  } else if (isByteObject(receiver)) {
    ByteType byte = byteFromElement(arguments[1]);
    KciStoreBytesInstanceOf(OOP_NIL, receiver.oop, checkedIndex(receiver, arguments[0]), &byte, 1);
  } else {
    doesNotUnderstand(receiver, "at:put:");
  }
  throwPendingError(interpreter);
  return arguments[1];
}

// The class for a part of a text: a part of a Symbol is a String.
OopType classForPart(const Value& receiver) {
  OopType cls = kvhost::classOf(receiver.oop);
  return cls == kvhost::CLASS_SYMBOL ? OOP_CLASS_STRING : cls;
}

Value copyFromTo(Interpreter&, const Value& receiver, Arguments arguments) {
  if (!isByteObject(receiver) && !isArray(receiver)) doesNotUnderstand(receiver, "copyFrom:to:");
  int64_t size = KciFetchSize_(receiver.oop);
  int64_t first = integerOf(arguments[0], "start");
  int64_t last = integerOf(arguments[1], "end");
  if (first < 1 || last > size || last < first - 1) {
    throw EvaluationError(
        fmt::format("error: {} to {} does not lie within 1 to {}", first, last, size));
  }
  if (isArray(receiver)) {
    std::vector<OopType> elements = kvhost::elementsOf(receiver.oop);
    return Value::object(kvhost::newArray(
        std::vector<OopType>(elements.begin() + (first - 1), elements.begin() + last)));
  }
  std::string bytes = kvhost::bytesOf(receiver.oop);
  return newByteObject(classForPart(receiver),
                       std::string_view(bytes).substr(static_cast<size_t>(first - 1),
                                                      static_cast<size_t>(last - first + 1)));
}

Value concatenate(Interpreter&, const Value& receiver, Arguments arguments) {
  if (isArray(receiver) && isArray(arguments[0])) {
    std::vector<OopType> elements = kvhost::elementsOf(receiver.oop);
    std::vector<OopType> more = kvhost::elementsOf(arguments[0].oop);
    elements.insert(elements.end(), more.begin(), more.end());
    return Value::object(kvhost::newArray(elements));
  }
  if (!isByteObject(receiver)) doesNotUnderstand(receiver, ",");
  return newByteObject(classForPart(receiver),
                       kvhost::bytesOf(receiver.oop) + bytesArgument(arguments[0], "argument"));
}

Value asSymbol(Interpreter& interpreter, const Value& receiver, Arguments) {
  if (!isByteObject(receiver)) doesNotUnderstand(receiver, "asSymbol");
  return Value::object(kvhost::newSymbol(displayString(interpreter, receiver)));
}

// The receiver's text; bytes of a ByteArray are taken as they are.
std::string textOf(Interpreter& interpreter, const Value& receiver) {
  bool isBytes =
      isByteObject(receiver) && kvhost::classOf(receiver.oop) == kvhost::CLASS_BYTE_ARRAY;
  return isBytes ? kvhost::bytesOf(receiver.oop) : displayString(interpreter, receiver);
}

Value asString(Interpreter& interpreter, const Value& receiver, Arguments) {
  return Value::object(kvhost::newString(textOf(interpreter, receiver)));
}

Value asUtf8(Interpreter& interpreter, const Value& receiver, Arguments) {
  if (!isByteObject(receiver)) doesNotUnderstand(receiver, "asUtf8");
  return Value::object(kvhost::newUtf8(textOf(interpreter, receiver)));
}

Value asUtf16(Interpreter& interpreter, const Value& receiver, Arguments) {
  if (!isByteObject(receiver)) doesNotUnderstand(receiver, "asUtf16");
  std::u16string units;
  if (!utf16FromEscapedUtf8(textOf(interpreter, receiver), &units)) {
    throw EvaluationError("error: the text is not valid UTF-8, so it has no UTF-16 form");
  }
  return Value::object(kvhost::newUtf16(units));
}

Value asByteArray(Interpreter&, const Value& receiver, Arguments) {
  if (!isByteObject(receiver)) doesNotUnderstand(receiver, "asByteArray");
  return Value::object(kvhost::newByteArray(kvhost::bytesOf(receiver.oop)));
}

// Arrays of texts in the order of their bytes, so that a listing can be compared.
Value sorted(Interpreter&, const Value& receiver, Arguments) {
  if (!isArray(receiver)) doesNotUnderstand(receiver, "sorted");
  std::vector<std::pair<std::string, OopType>> pairs;
  for (OopType element : kvhost::elementsOf(receiver.oop)) {
    pairs.emplace_back(bytesArgument(Value::object(element), "element"), element);
  }
  std::sort(pairs.begin(), pairs.end());
  std::vector<OopType> elements;
  elements.reserve(pairs.size());
  for (const auto& pair : pairs) elements.push_back(pair.second);
  return Value::object(kvhost::newArray(elements));
}

Value includes(Interpreter&, const Value& receiver, Arguments arguments) {
  if (!isByteObject(receiver)) doesNotUnderstand(receiver, "includesString:");
  return Value::boolean(
      kvhost::bytesOf(receiver.oop).find(bytesArgument(arguments[0], "argument")) !=
      std::string::npos);
}

constexpr std::array METHODS = {
    Method{"size", sizeMessage},
    Method{"isEmpty", isEmpty},
    Method{"at:", at},
    Method{"at:put:", atPut},
    Method{"copyFrom:to:", copyFromTo},
    Method{",", concatenate},
    Method{"asSymbol", asSymbol},
    Method{"asString", asString},
    Method{"asUtf8", asUtf8},
    Method{"asUtf16", asUtf16},
    Method{"asByteArray", asByteArray},
    Method{"sorted", sorted},
    Method{"includesString:", includes},
};

}  // namespace

std::span<const Method> textMessages() { return METHODS; }

}  // namespace shell
