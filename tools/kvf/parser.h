// Builds the syntax tree of a kvf program. The grammar stands in docs/kvf.md.
#pragma once

#include "syntax.h"

#include <string_view>

namespace shell {

// No tree is higher, and nothing nested deeper, so that walking a tree never exhausts the stack.
constexpr int MAX_NESTING = 500;

// One statement per element, in order. Throws SyntaxError; its `incomplete` tells that the text
// ended within a bracket, a text, or an expression.
Nodes parse(std::string_view source);

// The error as a person reads it: "name:3:7: message", the line, and a caret below the place.
// Of a long line the part around the place is shown; bytes that would steer a terminal are not.
std::string describe(const SyntaxError& error, std::string_view name, std::string_view source);

}  // namespace shell
