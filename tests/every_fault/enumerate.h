// Every fault of a scenario, singly and in pairs.
#pragma once

#include "every_fault/runner.h"

#include <functional>
#include <string>
#include <vector>

namespace every_fault {

struct Tally {
  int64_t instances = 0;  // runs that failed as planned and were checked
  uint64_t digest = 0;
  std::vector<std::string> complaints;
};

// The run without faults, made twice: what differs is a complaint.
Run cleanRun(const Scenario& scenario, Tally* tally);

// Each call of the clean run with each of its faults, once, and from there on where that makes more
// calls fail. `visit` sees them in order.
using Visit = std::function<void(const Plan&, const Run&)>;
void everySingle(const Scenario& scenario, const Run& clean, Tally* tally, const Visit& visit);

// Each fault, and behind it each of every call that the run then still makes; one of the two from
// there on where that makes more calls fail. Of `shares` parts only the one of number `share`.
void everyPair(const Scenario& scenario, const Run& clean, int share, int shares, Tally* tally);

}  // namespace every_fault
