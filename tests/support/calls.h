// Looks at what the seam recorded.
#pragma once

#include "seam/seam.h"

#include <algorithm>
#include <iterator>
#include <string>
#include <string_view>
#include <vector>

namespace kvtest {

// Those of one function.
inline std::vector<seam::Call> callsOf(const std::vector<seam::Call>& calls,
                                       std::string_view name) {
  std::vector<seam::Call> made;
  std::copy_if(calls.begin(), calls.end(), std::back_inserter(made),
               [name](const seam::Call& call) { return call.name == name; });
  return made;
}

inline int64_t countOf(const std::vector<seam::Call>& calls, std::string_view name) {
  return std::count_if(calls.begin(), calls.end(),
                       [name](const seam::Call& call) { return call.name == name; });
}

inline std::vector<std::string> namesOf(const std::vector<seam::Call>& calls) {
  std::vector<std::string> names;
  for (const seam::Call& call : calls) names.push_back(call.name);
  return names;
}

inline std::vector<std::string> resultsOf(const std::vector<seam::Call>& calls) {
  std::vector<std::string> results;
  for (const seam::Call& call : calls) results.push_back(call.result);
  return results;
}

// The argument at `index` (0-based), as a trace shows it.
inline std::string argumentOf(const seam::Call& call, size_t index) {
  return index < call.arguments.size() ? call.arguments[index] : "no such argument";
}

inline std::string lastArgumentOf(const seam::Call& call) {
  return call.arguments.empty() ? "no argument" : call.arguments.back();
}

}  // namespace kvtest
