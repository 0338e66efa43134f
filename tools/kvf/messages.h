// The messages that the shell's objects understand.
#pragma once

#include "interpreter.h"

#include <string>
#include <string_view>
#include <vector>

namespace shell {

// One row of the message tables: what a selector does, whatever the receiver. It refuses a receiver
// that is not its kind.
struct Method {
  std::string_view selector;
  Value (*handler)(Interpreter& interpreter, const Value& receiver, Arguments arguments);
};

// No selector of the tables takes more arguments.
constexpr size_t MAX_MESSAGE_ARGUMENTS = 2;

// The method of that selector, or null.
const Method* findMethod(std::string_view selector);

// Every selector, sorted; for completion.
std::vector<std::string> allSelectors();

// The tables, by subject.
std::span<const Method> objectMessages();
std::span<const Method> numberMessages();
std::span<const Method> textMessages();
std::span<const Method> controlMessages();
std::span<const Method> systemMessages();

// ---- for the handlers ----

// "String does not understand #foo"; a handler throws it for a receiver that is not its kind.
[[noreturn]] void doesNotUnderstand(const Value& receiver, std::string_view selector);

// "String", "Block", "Session class", ...
std::string classNameOf(const Value& value);

// The integer that `value` is; throws, naming `role`, for anything else.
int64_t largeIntegerOf(const Value& value, std::string_view role);
inline int64_t integerOf(const Value& value, std::string_view role) {
  return value.isSmallInteger() ? oopSmallIntegerValue(value.oop) : largeIntegerOf(value, role);
}
bool isLargeInteger(const Value& value);
inline bool isInteger(const Value& value) {
  return value.isSmallInteger() || isLargeInteger(value);
}

// True for objects whose contents are bytes; for Arrays.
bool isByteObject(const Value& value);
bool isArray(const Value& value);
bool isClass(const Value& value);

// The bytes of a String, Symbol, UTF-8 or ByteArray argument; throws, naming `role`.
std::string bytesArgument(const Value& value, std::string_view role);

// A new object of the byte class `cls`.
Value newByteObject(OopType cls, std::string_view bytes);

// Throws the interface's pending error, if there is one.
void throwPendingError(Interpreter& interpreter);

// The value of a block, or of any other value itself.
inline Value valueOf(Interpreter& interpreter, const Value& value) {
  return value.isBlock() ? interpreter.run(*value.block) : value;
}

}  // namespace shell
