// The golden files: of each scenario what it answers and the calls that it makes, and of each fault
// in the step under test what becomes of it. For people to review, and to be the same from every
// build.
#pragma once

#include "every_fault/enumerate.h"

#include <string>

namespace every_fault {

// The section of a scenario; enumerates its single faults.
std::string goldenSection(const Scenario& scenario, Tally* tally);

// "KvfRead.txt"'s text as it stands in `folder`, empty where there is none.
std::string readText(const std::string& path);
void writeText(const std::string& path, const std::string& text);

// Where two texts begin to differ, for a message; empty where they do not.
std::string firstDifference(const std::string& expected, const std::string& found);

}  // namespace every_fault
