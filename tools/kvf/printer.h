// How values look when they are printed.
#pragma once

#include "interpreter.h"

#include <string>

namespace shell {

// The value as a Smalltalk programmer writes it; what is a literal can be read back.
std::string printString(Interpreter& interpreter, const Value& value);

// The value as text for people: texts and Characters as they are, all else as printString.
std::string displayString(Interpreter& interpreter, const Value& value);

}  // namespace shell
