// The messages that the shell's objects understand.
#pragma once

#include "interpreter.h"

#include <string>
#include <string_view>
#include <vector>

namespace shell {

// One row of the message tables.
struct Message {
  std::string_view selector;
  Value (*handler)(Interpreter& interpreter, const Value& receiver, Arguments arguments);
};

// Sends a message. Throws EvaluationError where the receiver does not understand it.
Value sendMessage(Interpreter& interpreter, const Value& receiver, std::string_view selector,
                  Arguments arguments);

// Every selector, sorted; for completion.
std::vector<std::string> allSelectors();

// The tables, by subject.
std::span<const Message> objectMessages();
std::span<const Message> numberMessages();
std::span<const Message> textMessages();
std::span<const Message> controlMessages();
std::span<const Message> systemMessages();

// ---- for the handlers ----

// "String does not understand #foo"; a handler throws it for a receiver that is not its kind.
[[noreturn]] void doesNotUnderstand(const Value& receiver, std::string_view selector);

// "String", "Block", "Session class", ...
std::string classNameOf(const Value& value);

// The integer that `value` is; throws, naming `role`, for anything else.
int64_t integerOf(const Value& value, std::string_view role);
bool isInteger(const Value& value);

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
Value valueOf(Interpreter& interpreter, const Value& value);

}  // namespace shell
