// The trace and the faults that the command line asks for.
#pragma once

#include "seam/seam.h"

#include <cstdint>
#include <string>
#include <vector>

namespace shell {

// The calls that counted for a fault, and those that it befell.
struct FaultTally {
  int64_t seen = 0;
  int64_t fired = 0;
};

struct Instrumentation {
  bool trace = false;
  std::vector<seam::Fault> faults;
  std::vector<std::string> faultTexts;  // as they were given

  // From now on each call that the module makes on this thread is printed to stderr and meets the
  // faults.
  void apply() const;

  // One line for each fault that befell no call; `counts` are the faults' in their order.
  std::string describeUnfired(const std::vector<FaultTally>& counts) const;

  // What the faults met on this thread since apply().
  static std::vector<FaultTally> tallies();

  // Ends both, so that leaving the workspace is neither printed nor disturbed.
  static void remove();
};

}  // namespace shell
