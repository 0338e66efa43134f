// The names that mean a standard file of the process and no path.
#pragma once

#include "framework/arguments.h"

namespace kvf {

// True exactly for "stdin", "stdout" and "stderr".
BoolType isStdFile(const char* name);

// The same for a path argument; false for a UTF-16 path.
BoolType isStdFile(const KvfPath* aPath);

}  // namespace kvf
