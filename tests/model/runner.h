// Runs many sequences in a child process, so that a crash is a finding like any other, and shrinks
// one that failed to the steps that matter.
#pragma once

#include "model/host.h"

#include <cstdint>
#include <string>

namespace model {

struct RunOptions {
  int64 operations = 1'000'000;  // at least as many steps are performed
  uint64_t seed = 1;
  int64 bufferSize = 4096;
  uint64_t firstSequence = 0;
  std::string transcript;  // where that of a failure goes
};

struct RunResult {
  bool passed = false;
  int64 operations = 0;
  double seconds = 0;
  std::string report;  // of a failure: where, what, and the shrunk steps
};

RunResult runModel(const RunOptions& options);

// Writes the first sequence as a transcript, without what a replay cannot do: its standard files are
// others, and the shell refuses counts that no buffer has. The result tells of a difference that was
// met on the way.
RunResult recordSequence(const RunOptions& options);

}  // namespace model
