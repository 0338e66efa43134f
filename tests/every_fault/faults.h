// What can befall each function that the module calls, and each that zlib calls.
#pragma once

#include <kvfile/platform/oop.h>

#include <string>
#include <vector>

namespace every_fault {

enum Fn {
#define SEAM_CALL(function, ...) FN_##function,
#define SEAM_CALL_VIA(function, ...) FN_##function,
#define SEAM_INNER(function, ...) FN_##function,
#define SEAM_VARIADIC(function, ...) FN_##function,
#include "seam/functions.def"
#undef SEAM_CALL
#undef SEAM_CALL_VIA
#undef SEAM_INNER
#undef SEAM_VARIADIC
  FN_zlib_malloc,
  FN_zlib_open,
  FN_zlib_read,
  FN_zlib_write,
  FN_zlib_lseek,
  FN_zlib_close,
  FN_COUNT
};

enum class What {
  Errno,      // the failure value, with errno `value`
  Partial,    // half of it is written, then the failure value with errno `value`
  Short,      // made, for at most `value` bytes
  End,        // the end of the file or input
  Interrupt,  // -2
  Raise,      // an error of the interface, by a jump or pending
  NoMemory,   // null
  Refuse,     // the answer that says no
  Lie,        // made, and more is claimed than was asked for
  Convert,    // a text had to be converted first, and has to be released
  Back,       // a raise comes back
  Zlib        // the failure value, with the zlib code `value` in the handle
};

struct Fault {
  What what;
  int value;
  std::string name;  // as the golden files have it
};

const char* functionName(Fn function);

const std::vector<Fault>& faultsOf(Fn function);

}  // namespace every_fault
