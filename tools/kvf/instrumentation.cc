#include "instrumentation.h"

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

void Instrumentation::remove() {
  seam::setListener(nullptr);
  seam::clearFaults();
}

}  // namespace shell
