// The shell on a terminal.
#pragma once

#include "interpreter.h"
#include "runner.h"

namespace shell {

// Reads statements from the terminal and runs them until the user types Ctrl-D or the program asks
// to leave. Ctrl-C ends a blocked read of the module (which answers -2), stops a loop, or clears
// the line that is being typed. Answers the exit code.
int runInteractively(Interpreter& interpreter, const RunOptions& options);

}  // namespace shell
