// The module's own calls pass through the seam, and those that the host makes itself do not.
#include "support/module_fixture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using kvtest::fault;
using kvtest::namesOf;
using kvtest::smallInt;
using testing::Contains;
using testing::Each;
using testing::IsEmpty;
using testing::Not;

using ModuleTrace = kvtest::ModuleTest;

TEST_F(ModuleTrace, ShowsWhatOpeningAFileAsks) {
  kvtest::writeFile("f", "text");
  const std::vector<seam::Call> calls = callsDuring([this] { openFile("f", "r"); });
  std::vector<std::string> lines;
  for (const seam::Call& call : calls) lines.push_back(seam::formatCall(call, false));
  EXPECT_THAT(lines, Contains(testing::HasSubstr("HostOpenFile(\"")));
  EXPECT_THAT(calls, Each(testing::Field(&seam::Call::injected, false)));
  for (size_t i = 0; i < calls.size(); i++) {
    EXPECT_EQ(calls[i].number, static_cast<int64_t>(i) + 1);
  }
}

TEST_F(ModuleTrace, FaultsReachTheModule) {
  kvtest::writeFile("f", "text");
  const OopType file = openFile("f", "r");
  const OopType buffer = str("");
  fault("HostReadFile_:1:EIO");
  const OopType failed = call("KvfRead", {file, buffer, smallInt(1), smallInt(4)});
  EXPECT_EQ(seam::faultsFired(), 1);
  EXPECT_NE(failed, smallInt(4));
  seam::clearFaults();
  EXPECT_EQ(call("KvfErrorCode", {file}), smallInt(EIO));
}

TEST_F(ModuleTrace, DirectoryCallbacksCallWithinTheWalk) {
  kvtest::writeFile("one", "");
  const std::vector<seam::Call> calls = callsDuring([this] {
    call("KvfDirectory", {kvhost::CLASS_KV_FILE, str("."), OOP_FALSE});
  });
  EXPECT_THAT(namesOf(calls), Contains("HostDirectory"));
  EXPECT_THAT(calls, Each(testing::Field(&seam::Call::result, Not("jumped"))));
}

// Every call that may raise does so once, by a jump or pending: the action answers or raises, and
// the trace stays in order.
TEST_F(ModuleTrace, SurvivesARaiseAtEveryCall) {
  kvtest::writeFile("f", "text");
  int64_t fired = 0;
  for (int64_t at = 1; at < 1000; at++) {
    fault("*:" + std::to_string(at) + ":raise=2101");
    const OopType arguments[] = {kvhost::CLASS_KV_FILE, str("."), OOP_FALSE};
    const std::vector<seam::Call> calls = callsDuring([&arguments] {
      const kvhost::Outcome outcome = kvhost::callAction("KvfDirectory", arguments, 3);
      EXPECT_NE(outcome.status, kvhost::CallStatus::NoSuchAction);
    });
    EXPECT_EQ(kvhost::errorJumpDepth(), 0);
    EXPECT_THAT(calls, Not(IsEmpty()));
    for (size_t i = 0; i < calls.size(); i++) {
      EXPECT_EQ(calls[i].number, static_cast<int64_t>(i) + 1);
    }
    seam::clearFaults();
    if (seam::faultsFired() == 0) break;
    fired++;
  }
  EXPECT_GT(fired, 2);
}

}  // namespace
