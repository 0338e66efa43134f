// The trace and the faults that the command line asks for.
#pragma once

#include "seam/seam.h"

#include <vector>

namespace shell {

struct Instrumentation {
  bool trace = false;
  std::vector<seam::Fault> faults;

  // From now on each call that the module makes on this thread is printed to stderr and meets the
  // faults.
  void apply() const;

  // Ends both, so that leaving the workspace is neither printed nor disturbed.
  static void remove();
};

}  // namespace shell
