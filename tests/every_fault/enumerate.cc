#include "every_fault/enumerate.h"

#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <cstring>

namespace every_fault {

namespace {

// What a crash tells. A fixed buffer, because a handler can do little.
char underWay[400];

void tellCrash(int signal) {
  const char* const text = "\ncrashed in: ";
  [[maybe_unused]] ssize_t n = write(STDERR_FILENO, text, strlen(text));
  n = write(STDERR_FILENO, underWay, strlen(underWay));
  n = write(STDERR_FILENO, "\n", 1);
  ::signal(signal, SIG_DFL);
  raise(signal);
}

Run runOne(const Scenario& scenario, const Plan& plan, const Run& clean, Tally* tally) {
  snprintf(underWay, sizeof underWay, "%s, %s", scenario.name.c_str(), planText(plan).c_str());
  Run run = runScenario(scenario, plan, &clean, false);
  bool lasting = false;
  for (int i = 0; i < plan.count; ++i) lasting = lasting || plan.faults[i].forever;
  // From there on is the same as once where no later call failed.
  if (run.fired < plan.count + (lasting ? 1 : 0)) {
    run.fired = 0;
    return run;
  }
  ++tally->instances;
  tally->digest = tally->digest * 0x100000001B3U + run.digest;
  if (!run.complaint.empty()) {
    tally->complaints.push_back(scenario.name + ", " + planText(plan) + ": " + run.complaint);
  }
  return run;
}

// Of a function that is called again and again, the first calls and the last: what is between them
// finds and leaves the same.
constexpr int MANY = 16;

std::vector<bool> worthFailing(const std::vector<Made>& made) {
  int all[FN_COUNT] = {};
  int seen[FN_COUNT] = {};
  for (const Made& call : made) ++all[call.function];
  std::vector<bool> worth;
  for (const Made& call : made) {
    const int number = ++seen[call.function];
    const int left = all[call.function] - number;
    worth.push_back(number <= MANY / 2 || left < MANY / 2);
  }
  return worth;
}

}  // namespace

Run cleanRun(const Scenario& scenario, Tally* tally) {
  static bool told = false;
  if (!told) {
    for (const int number : {SIGSEGV, SIGABRT, SIGBUS, SIGFPE, SIGILL}) signal(number, tellCrash);
    told = true;
  }
  snprintf(underWay, sizeof underWay, "%s, no fault", scenario.name.c_str());
  Run clean = runScenario(scenario, {}, nullptr, true);
  const Run second = runScenario(scenario, {}, &clean, true);
  ++tally->instances;
  if (second.digest != clean.digest) clean.complaint = "two runs differ";
  if (clean.complaint.empty()) clean.complaint = second.complaint;
  if (!clean.complaint.empty()) {
    tally->complaints.push_back(scenario.name + ", no fault: " + clean.complaint);
  }
  return clean;
}

void everySingle(const Scenario& scenario, const Run& clean, Tally* tally, const Visit& visit) {
  const std::vector<bool> worth = worthFailing(clean.made);
  for (size_t call = 0; call < clean.made.size(); ++call) {
    if (!worth[call]) continue;
    for (const Fault& fault : faultsOf(clean.made[call].function)) {
      for (const bool forever : {false, true}) {
        Plan plan;
        plan.count = 1;
        plan.faults[0] = {static_cast<int>(call) + 1, &fault, forever, FN_COUNT};
        const Run run = runOne(scenario, plan, clean, tally);
        if (run.fired > 0) visit(plan, run);
      }
    }
  }
}

namespace {

// A call of the machine's and what befalls it.
Planned planned(size_t call, const Fault& fault, bool forever) {
  return {static_cast<int>(call) + 1, &fault, forever, FN_COUNT};
}

}  // namespace

void everyPair(const Scenario& scenario, const Run& clean, int share, int shares, Tally* tally) {
  int64_t number = 0;
  const auto second = [&](const Plan& first, const Run& single) {
    const std::vector<bool> worth = worthFailing(single.made);
    for (auto call = static_cast<size_t>(first.faults[0].at); call < single.made.size(); ++call) {
      if (!worth[call]) continue;
      for (const Fault& fault : faultsOf(single.made[call].function)) {
        for (const bool forever : {false, true}) {
          if (first.faults[0].forever && forever) continue;
          if (number++ % shares != share) continue;
          Plan plan = first;
          plan.count = 2;
          plan.faults[1] = planned(call, fault, forever);
          runOne(scenario, plan, clean, tally);
        }
      }
    }
  };
  const std::vector<bool> worth = worthFailing(clean.made);
  for (size_t call = 0; call < clean.made.size(); ++call) {
    if (!worth[call]) continue;
    for (const Fault& fault : faultsOf(clean.made[call].function)) {
      for (const bool forever : {false, true}) {
        Plan first;
        first.count = 1;
        first.faults[0] = planned(call, fault, forever);
        const Run single = runScenario(scenario, first, &clean, false);
        if (single.fired > (forever ? 1 : 0)) second(first, single);
      }
    }
  }
}

}  // namespace every_fault
