#include "instrumentation.h"

#include <fmt/format.h>

#include <cstdio>

namespace shell {

void Instrumentation::apply() const {
  if (trace) {
    seam::setListener([](const seam::Call& call) {
      // What the program printed so far comes first where both streams are one terminal.
      std::fflush(stdout);
      std::fprintf(stderr, "%s\n", seam::formatCall(call, true).c_str());
    });
  }
  for (const seam::Fault& fault : faults) seam::addFault(fault);
}

std::vector<FaultTally> Instrumentation::tallies() {
  std::vector<FaultTally> tallies;
  for (const seam::FaultCount& count : seam::faultCounts()) {
    tallies.push_back({count.seen, count.fired});
  }
  return tallies;
}

std::string Instrumentation::describeUnfired(const std::vector<FaultTally>& counts) const {
  std::string text;
  for (size_t i = 0; i < counts.size(); i++) {
    if (counts[i].fired > 0) continue;
    text += fmt::format("kvf: the fault {} never came to pass; {} call{} counted for it\n",
                        faultTexts[i], counts[i].seen, counts[i].seen == 1 ? "" : "s");
  }
  return text;
}

void Instrumentation::remove() {
  seam::setListener(nullptr);
  seam::clearFaults();
}

}  // namespace shell
