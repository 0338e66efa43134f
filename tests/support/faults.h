// Makes calls of the platform fail, in the words of `kvf --fault`: "HostReadFile_:2:EIO".
#pragma once

#include "seam/seam.h"

#include <gtest/gtest.h>

#include <string>

namespace kvtest {

inline void fault(const std::string& text) {
  seam::Fault parsed;
  std::string message;
  ASSERT_TRUE(seam::parseFault(text, &parsed, &message)) << message;
  seam::addFault(parsed);
}

// Ends every fault. Each must have befallen a call: a test whose fault does not come to pass sees
// nothing of what it is about.
inline void clearFaults() {
  for (const seam::FaultCount& each : seam::faultCounts())
    EXPECT_GT(each.fired, 0) << "a fault of " << each.fault.function << " befell no call";
  seam::clearFaults();
}

}  // namespace kvtest
