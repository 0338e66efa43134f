// One run of a scenario with a plan of faults, and everything that is held against it.
#pragma once

#include "every_fault/script.h"

#include <string>
#include <vector>

namespace every_fault {

struct Plan {
  Planned faults[2];
  int count = 0;
};

// What a run showed.
struct Run {
  std::vector<std::string> answers;  // of each step
  std::string look;                  // code, text, position and state afterwards; the class error
  std::string again;                 // the step under test once more, without faults
  std::string rerun;                 // the whole scenario once more, for the same file objects
  std::string complaint;             // what must not be; empty
  uint64_t digest = 0;               // of all of it, and of every call
  int fired = 0;
  int firstFired = 0;  // number of the first call that failed
  std::vector<Made> made;
  std::vector<std::string> log;
};

// Prepares the machine: once in a process, before all runs.
void prepare();

// `reference` is a run of the scenario without faults, null while that is made.
Run runScenario(const Scenario& scenario, const Plan& plan, const Run* reference, bool logging);

// What a crash tells of the run that it came in.
std::string planText(const Plan& plan);

}  // namespace every_fault
