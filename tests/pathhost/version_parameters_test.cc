// Version parameters of the build and the machine, and the read through the host's test pointer.
#include <kvfile/platform/version.h>

#include "pathhost/path_fixture.h"

#include <sys/utsname.h>
#include <unistd.h>

namespace kvtest {
namespace {

class VersionParameter : public PathTest {
 protected:
  OopType ask(OopType id) { return call("KvfVersionParam", {KV_FILE, id}); }

  std::string text(VerParamEType id) {
    const OopType answer = ask(smallInt(id));
    EXPECT_EQ(kvhost::classOf(answer), OOP_CLASS_STRING) << id;
    return bytes(answer);
  }
};

TEST_F(VersionParameter, AnswersEveryIdWithWhatTheHostTells) {
  for (int id = 0; id <= 14; ++id) {
    VerParamResultSType expected{};
    ASSERT_TRUE(VerGetVersionParam(static_cast<VerParamEType>(id), &expected)) << id;
    const OopType answer = ask(smallInt(id));
    if (expected.kind == VER_STRING_KIND) {
      EXPECT_EQ(kvhost::classOf(answer), OOP_CLASS_STRING) << id;
      EXPECT_EQ(bytes(answer), expected.stringVal) << id;
      EXPECT_NE(bytes(answer), "") << id;
    } else {
      EXPECT_EQ(answer, smallInt(expected.intVal)) << id;
    }
  }
}

TEST_F(VersionParameter, TellsTheTruthAboutThisMachine) {
  utsname machine{};
  ASSERT_EQ(uname(&machine), 0);
  EXPECT_EQ(text(VER_INFO_NODE_NAME), machine.nodename);
  EXPECT_EQ(text(VER_INFO_OS_NAME), machine.sysname);
  EXPECT_EQ(text(VER_INFO_OS_RELEASE), machine.release);
  EXPECT_EQ(text(VER_INFO_OS_VERSION), machine.version);
  EXPECT_EQ(ask(smallInt(VER_INFO_PROCESS_ID)), smallInt(getpid()));
  EXPECT_EQ(ask(smallInt(VER_INFO_PROCESSOR_COUNT)), smallInt(sysconf(_SC_NPROCESSORS_ONLN)));
}

TEST_F(VersionParameter, PassesAnyIdOfThirtyTwoBitsOn) {
  for (const int64 id : {int64{15}, int64{99}, int64{-1}, int64{INT32_MAX}, int64{INT32_MIN}}) {
    const ClassError earlier = seedSlot();
    const auto calls = callsDuring([&] { EXPECT_EQ(ask(smallInt(id)), OOP_NIL) << id; });
    const auto asked = callsOf(calls, "VerGetVersionParam");
    ASSERT_EQ(asked.size(), 1U);
    EXPECT_EQ(asked[0].arguments.front(), std::to_string(id));
    EXPECT_EQ(takeSlot(), (ClassError{earlier.code, "VerGetVersionParam failed"}));
  }
}

TEST_F(VersionParameter, FailureKeepsTheEarlierCode) {
  const ClassError earlier = seedSlot();
  fault("VerGetVersionParam:1:result=0");
  EXPECT_EQ(ask(smallInt(VER_INFO_OS_NAME)), OOP_NIL);
  EXPECT_EQ(takeSlot(), (ClassError{earlier.code, "VerGetVersionParam failed"}));
}

TEST_F(VersionParameter, RaisesForAnythingButASmallInteger) {
  for (const OopType id :
       {OOP_NIL, OOP_TRUE, oopFromCharacter(3), str("3"), kvhost::newInteger(INT64_MAX)}) {
    expectRaise(2094, {id, OOP_CLASS_SMALL_INTEGER}, "KvfVersionParam", {KV_FILE, id});
    raisesComeBack();
    EXPECT_EQ(ask(id), OOP_NIL);
    clearFaults();
  }
}

TEST_F(VersionParameter, RaisesForMoreThanThirtyTwoBits) {
  for (const int64 value : {int64{1} << 31, -(int64{1} << 31) - 1, int64{1} << 40}) {
    expectRaise(2061, {smallInt(value)}, "KvfVersionParam", {KV_FILE, smallInt(value)});
    raisesComeBack();
    const auto calls = callsDuring([&] { EXPECT_EQ(ask(smallInt(value)), OOP_NIL); });
    clearFaults();
    EXPECT_TRUE(callsOf(calls, "VerGetVersionParam").empty());
  }
}

using TestPointer = PathTest;

TEST_F(TestPointer, IsReadThrough) {
  kvhost::setTestPointerFaults(false);
  const auto calls =
      callsDuring([&] { EXPECT_EQ(call("KvfTestClientHandler", {KV_FILE}), OOP_NIL); });
  EXPECT_EQ(namesOf(calls), std::vector<std::string>{"HostSetOopPtr"});
}

TEST_F(TestPointer, MayFaultOnPurpose) {
  const auto readThrough = [] {
    kvhost::setTestPointerFaults(true);
    const OopType receiver = KV_FILE;
    kvhost::callAction("KvfTestClientHandler", &receiver, 1);
    _exit(0);
  };
  // A sanitizer turns the signal into an exit, so any end but the plain one will do.
  EXPECT_DEATH(readThrough(), "");
}

}  // namespace
}  // namespace kvtest
