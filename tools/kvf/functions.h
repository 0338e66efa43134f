// Calls of the module: the user actions and the exported C functions in the form that scripts use.
#pragma once

#include "interpreter.h"

#include <string_view>

namespace shell {

// One exported C function, as scripts call it. Trailing arguments may be left out down to
// `leastCount`.
struct CFunction {
  std::string_view name;
  size_t leastCount;
  size_t mostCount;
  std::string_view parameters;
  std::string_view meaning;
  Value (*handler)(Interpreter& interpreter, Arguments arguments);
};

std::span<const CFunction> cFunctions();

// What a call of that name runs other than a declared action, or null.
const CFunction* findEntryPoint(std::string_view name);

// Calls an action or an exported function. Throws EvaluationError where an error is raised, the name
// is unknown or undeclared, or the count of arguments is wrong. May block as the action.
Value callFunction(Interpreter& interpreter, const Call& call, Arguments arguments);

// The line for a raised error: number, meaning, whether it is fatal, arguments.
std::string describeRaised(Interpreter& interpreter, const KciErrSType& error);

// What an error number means, or "" for one that nobody has heard of.
std::string_view meaningOfError(int number);

// Makes a memory fault within KvfTestClientHandler come back as an error. Any other fault ends the
// process as before.
void containTestFaults();

}  // namespace shell
