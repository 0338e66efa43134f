// Counts the module's calls of its platform while the program runs, and prints them when it ends:
// "calls NAME COUNT" lines.
#include "seam/seam.h"

#include <cstdio>
#include <map>
#include <string>

namespace {

struct Count {
  std::map<std::string, long> calls;

  Count() {
    seam::setListener([this](const seam::Call& call) { ++calls[call.name]; });
  }
  ~Count() {
    seam::setListener(nullptr);
    for (const auto& [name, count] : calls) std::printf("calls %s %ld\n", name.c_str(), count);
  }
};

Count count;

}  // namespace
