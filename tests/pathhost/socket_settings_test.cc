// Socket buffer sizes: the checks in their order, and sizes that really are set.
#include "pathhost/path_fixture.h"

#include <climits>

namespace kvtest {
namespace {

constexpr const char* SEND = "SO_SNDBUF";
constexpr const char* RECEIVE = "SO_RCVBUF";

class SocketSettings : public PathTest {
 protected:
  OopType get(OopType name) { return call("KvfKciGetSocketBufSize", {KV_FILE, name}); }
  OopType set(OopType name, OopType size) {
    return call("KvfKciSetSocketBufSize", {KV_FILE, name, size});
  }
  void expectText(OopType answer, const std::string& text) {
    EXPECT_EQ(kvhost::classOf(answer), OOP_CLASS_STRING);
    EXPECT_EQ(bytes(answer), text);
  }
  static std::string textOfUnknown(const char* name) {
    char text[256] = "";
    EXPECT_EQ(KciSupFetchKciSocketBufSize(name, text, sizeof text), -1);
    return text;
  }
};

TEST_F(SocketSettings, WhatIsSetIsAnswered) {
  for (const char* name : {SEND, RECEIVE}) {
    for (const int64 size : {65536, 32768, 100000}) {
      EXPECT_EQ(set(str(name), smallInt(size)), OOP_TRUE);
      EXPECT_EQ(get(str(name)), smallInt(size)) << name;
    }
  }
}

TEST_F(SocketSettings, EitherBufferHasItsOwnSize) {
  EXPECT_EQ(set(str(SEND), smallInt(65536)), OOP_TRUE);
  EXPECT_EQ(set(str(RECEIVE), smallInt(32768)), OOP_TRUE);
  EXPECT_EQ(get(kvhost::newSymbol(SEND)), smallInt(65536));
  EXPECT_EQ(get(kvhost::newSymbol(RECEIVE)), smallInt(32768));
}

TEST_F(SocketSettings, HandTheNameAndA256ByteText) {
  const auto asking =
      callsOf(callsDuring([&] { get(str("name")); }), "KciSupFetchKciSocketBufSize");
  ASSERT_EQ(asking.size(), 1U);
  EXPECT_EQ(asking[0].arguments, (std::vector<std::string>{asText("name"), "ptr", "256"}));
  const auto setting =
      callsOf(callsDuring([&] { set(str("name"), smallInt(2)); }), "KciSupSetKciSocketBufSize");
  ASSERT_EQ(setting.size(), 1U);
  EXPECT_EQ(setting[0].arguments, (std::vector<std::string>{asText("name"), "2", "ptr", "256"}));
}

TEST_F(SocketSettings, AcceptTheEvenSizesFrom2To2147483646) {
  for (const int64 size : {int64{2}, int64{4}, int64{INT_MAX} - 1}) {
    fault("KciSupSetKciSocketBufSize:1:result=1");
    const auto calls =
        callsDuring([&] { EXPECT_EQ(set(str(SEND), smallInt(size)), OOP_TRUE) << size; });
    const auto made = callsOf(calls, "KciSupSetKciSocketBufSize");
    ASSERT_EQ(made.size(), 1U);
    EXPECT_EQ(made[0].arguments[1], std::to_string(size));
    clearFaults();
  }
}

TEST_F(SocketSettings, RefuseSizesThatAreNoSmallIntegers) {
  for (const OopType size :
       {OOP_NIL, OOP_TRUE, oopFromCharacter(2), str("2"), kvhost::newInteger(INT64_MAX)}) {
    expectText(set(str(SEND), size), "The size argument is not a SmallInteger");
  }
}

TEST_F(SocketSettings, RefuseOddSizesWhateverTheirRange) {
  for (const int64 size : {int64{1}, int64{3}, int64{-1}, int64{-3}, int64{INT_MAX},
                           (int64{1} << 32) + 1, -(int64{1} << 40) - 1, (int64{1} << 60) - 1}) {
    expectText(set(str(SEND), smallInt(size)), "Buffer size must be an even number.");
  }
}

TEST_F(SocketSettings, RefuseSizesOutOfRange) {
  for (const int64 size : {int64{0}, int64{-2}, int64{1} << 31, (int64{1} << 32) + 2,
                           int64{-4294967294}, -(int64{1} << 60)}) {
    expectText(set(str(SEND), smallInt(size)), "Buffer size is out of range");
  }
}

TEST_F(SocketSettings, LookAtTheSizeBeforeTheName) {
  const OopType name = str(std::string(32, 'n'));
  const auto calls = callsDuring([&] {
    expectText(set(name, OOP_NIL), "The size argument is not a SmallInteger");
    expectText(set(name, smallInt(3)), "Buffer size must be an even number.");
    expectText(set(name, smallInt(0)), "Buffer size is out of range");
  });
  EXPECT_TRUE(callsOf(calls, "KciFetchObjInfo").empty());
  expectRaise(2061, {name}, "KvfKciSetSocketBufSize", {KV_FILE, name, smallInt(2)});
}

TEST_F(SocketSettings, RaiseForNamesThatCannotBeFetched) {
  const OopType tooLong = str(std::string(32, 'n'));
  const OopType noBytes = kvhost::newArray({OOP_NIL});
  expectRaise(2061, {tooLong}, "KvfKciGetSocketBufSize", {KV_FILE, tooLong});
  expectRaise(2094, {noBytes, OOP_CLASS_STRING}, "KvfKciGetSocketBufSize", {KV_FILE, noBytes});
  expectRaise(2094, {noBytes, OOP_CLASS_STRING}, "KvfKciSetSocketBufSize",
              {KV_FILE, noBytes, smallInt(2)});
  expectRaise(2094, {OOP_NIL, OOP_CLASS_STRING}, "KvfKciGetSocketBufSize", {KV_FILE, OOP_NIL});
}

TEST_F(SocketSettings, TellThatTheNameCouldNotBeFetchedWhereARaiseComesBack) {
  for (const OopType name : {str(std::string(32, 'n')), kvhost::newArray({OOP_NIL})}) {
    raisesComeBack();
    expectText(get(name), "Error fetching option name");
    clearFaults();
    raisesComeBack();
    expectText(set(name, smallInt(2)), "Error fetching option name");
    clearFaults();
  }
}

TEST_F(SocketSettings, TakeNamesOf31Bytes) {
  const std::string name(31, 'n');
  expectText(get(str(name)), textOfUnknown(name.c_str()));
}

TEST_F(SocketSettings, AnswerTheHostsTextForNamesThatItDoesNotKnow) {
  for (const char* name : {"", "SO_NOTHING", "so_sndbuf"}) {
    expectText(get(str(name)), textOfUnknown(name));
    char text[256] = "";
    EXPECT_FALSE(KciSupSetKciSocketBufSize(name, 2, text, sizeof text));
    EXPECT_NE(text[0], '\0');
    expectText(set(str(name), smallInt(2)), text);
  }
}

TEST_F(SocketSettings, FailureWithoutATextIsTheEmptyString) {
  fault("KciSupFetchKciSocketBufSize:1:result=-1");
  expectText(get(str(SEND)), "");
  fault("KciSupSetKciSocketBufSize:1:result=0");
  expectText(set(str(SEND), smallInt(2)), "");
}

TEST_F(SocketSettings, OnlyMinusOneIsAFailure) {
  for (const int64 size : {int64{0}, int64{-2}, int64{INT_MAX}, int64{INT_MIN}}) {
    fault("KciSupFetchKciSocketBufSize:1:result=" + std::to_string(size));
    EXPECT_EQ(get(str(SEND)), smallInt(size));
    clearFaults();
  }
}

TEST_F(SocketSettings, LeaveTheClassLevelErrorAlone) {
  const ClassError earlier = seedSlot();
  get(str("unknown"));
  set(str("unknown"), smallInt(2));
  set(str(SEND), smallInt(3));
  EXPECT_EQ(takeSlot(), earlier);
}

}  // namespace
}  // namespace kvtest
