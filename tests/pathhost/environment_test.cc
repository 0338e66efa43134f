// Reading, expanding and setting environment variables.
#include "pathhost/path_fixture.h"

#include <optional>

namespace kvtest {
namespace {

constexpr const char* NAME = "KVF_TEST_VARIABLE";

class Environment : public PathTest {
 protected:
  void SetUp() override {
    PathTest::SetUp();
    unsetenv(NAME);
  }
  void TearDown() override {
    unsetenv(NAME);
    PathTest::TearDown();
  }

  OopType expand(std::string_view name, int64 opcode) {
    return call("KvfExpandEnvVar", {KV_FILE, str(name), smallInt(opcode)});
  }
  void expectText(OopType text, OopType cls, std::string_view expected) {
    EXPECT_EQ(kvhost::classOf(text), cls);
    EXPECT_EQ(bytes(text), expected);
  }
  OopType set(std::string_view name, OopType value) {
    return call("KvfSetEnvVar", {KV_FILE, str(name), value});
  }
  static std::optional<std::string> value() {
    const char* text = getenv(NAME);
    return text == nullptr ? std::nullopt : std::optional<std::string>(text);
  }
};

// ---- reading ----

TEST_F(Environment, UnsetVariableIsNil) { EXPECT_EQ(expand(NAME, 0), OOP_NIL); }

TEST_F(Environment, EmptyVariableIsTheEmptyString) {
  setenv(NAME, "", 1);
  expectText(expand(NAME, 0), OOP_CLASS_STRING, "");
}

TEST_F(Environment, ClassFollowsTheBytes) {
  setenv(NAME, "plain \x7F", 1);
  expectText(expand(NAME, 0), OOP_CLASS_STRING, "plain \x7F");
  setenv(NAME, "caf\xC3\xA9", 1);
  expectText(expand(NAME, 0), OOP_CLASS_UTF8_STRING, "caf\xC3\xA9");
  setenv(NAME, "\x80", 1);
  expectText(expand(NAME, 0), OOP_CLASS_UTF8_STRING, "\x80");
}

TEST_F(Environment, AnswersANewStringEachTime) {
  setenv(NAME, "x", 1);
  EXPECT_NE(expand(NAME, 0), expand(NAME, 0));
}

TEST_F(Environment, ReadsOneByteLessThanItExpands) {
  setenv(NAME, "x", 1);
  const auto reading = callsDuring([&] { expand(NAME, 0); });
  const auto reads = callsOf(reading, "HostGetEnv");
  ASSERT_EQ(reads.size(), 1U);
  EXPECT_EQ(reads[0].arguments.front(), asText(NAME));
  EXPECT_EQ(reads[0].arguments.back(), "15999");
  EXPECT_TRUE(callsOf(reading, "HostExpandFileName").empty());

  const auto expanding = callsDuring([&] { expand("name", 1); });
  const auto expansions = callsOf(expanding, "HostExpandFileName");
  ASSERT_EQ(expansions.size(), 1U);
  const std::vector<std::string>& args = expansions[0].arguments;
  ASSERT_EQ(args.size(), 5U);
  EXPECT_EQ(args[0], asText("name"));
  EXPECT_EQ(args[2], "16000");
  EXPECT_EQ(args[3], "0");
  EXPECT_EQ(args[4], "1");
  EXPECT_TRUE(callsOf(expanding, "HostGetEnv").empty());
}

TEST_F(Environment, LongValuesAreCutTo15998Bytes) {
  for (const size_t length : {15997U, 15998U, 15999U, 16000U, 40000U}) {
    setenv(NAME, std::string(length, 'v').c_str(), 1);
    expectText(expand(NAME, 0), OOP_CLASS_STRING,
               std::string(std::min<size_t>(length, 15998), 'v'));
  }
}

// ---- expanding ----

TEST_F(Environment, ExpandsReferencesAndLeavesTheRest) {
  setenv(NAME, "value", 1);
  expectText(expand("a/$KVF_TEST_VARIABLE/b", 1), OOP_CLASS_STRING, "a/value/b");
  expectText(expand("${KVF_TEST_VARIABLE}", 1), OOP_CLASS_STRING, "value");
  expectText(expand("nothing here", 1), OOP_CLASS_STRING, "nothing here");
  setenv(NAME, "\xC3\xA9", 1);
  expectText(expand("$KVF_TEST_VARIABLE", 1), OOP_CLASS_UTF8_STRING, "\xC3\xA9");
}

TEST_F(Environment, FailedExpansionAnswersWhatIsInTheBuffer) {
  expectText(expand("a/$KVF_TEST_VARIABLE", 1), OOP_CLASS_STRING, "");
  fault("HostExpandFileName:1:EINVAL");
  expectText(expand("name", 1), OOP_CLASS_STRING, "");
}

// ---- opcodes ----

TEST_F(Environment, OtherOpcodesAnswerNilWithoutAHostCall) {
  setenv(NAME, "x", 1);
  for (const int64 opcode : {int64{2}, int64{-1}, int64{1} << 32, (int64{1} << 32) + 1,
                             -(int64{1} << 32), (int64{1} << 60) - 1, -(int64{1} << 60)}) {
    const auto calls = callsDuring([&] { EXPECT_EQ(expand(NAME, opcode), OOP_NIL) << opcode; });
    EXPECT_TRUE(callsOf(calls, "HostGetEnv").empty());
    EXPECT_TRUE(callsOf(calls, "HostExpandFileName").empty());
  }
}

TEST_F(Environment, OpcodesThatAreNoSmallIntegersAnswerNil) {
  setenv(NAME, "x", 1);
  for (const OopType opcode :
       {OOP_NIL, OOP_TRUE, oopFromCharacter(0), str("0"), kvhost::newInteger(INT64_MIN)}) {
    EXPECT_EQ(call("KvfExpandEnvVar", {KV_FILE, str(NAME), opcode}), OOP_NIL);
  }
}

TEST_F(Environment, TheNameIsLookedAtBeforeTheOpcode) {
  const OopType empty = str("");
  expectRaise(2718, {empty}, "KvfExpandEnvVar", {KV_FILE, empty, OOP_NIL});
}

// ---- setting ----

TEST_F(Environment, SetsReplacesAndRemoves) {
  EXPECT_EQ(set(NAME, str("one")), OOP_TRUE);
  EXPECT_EQ(value(), "one");
  EXPECT_EQ(set(NAME, str("two=2 \xFF")), OOP_TRUE);
  EXPECT_EQ(value(), "two=2 \xFF");
  EXPECT_EQ(set(NAME, OOP_NIL), OOP_TRUE);
  EXPECT_EQ(value(), std::nullopt);
  EXPECT_EQ(expand(NAME, 0), OOP_NIL);
  EXPECT_EQ(set(NAME, OOP_NIL), OOP_TRUE) << "removing what is not there is no failure";
}

TEST_F(Environment, RemovingHandsNoValue) {
  const auto removing = callsOf(callsDuring([&] { set(NAME, OOP_NIL); }), "HostSetEnv");
  ASSERT_EQ(removing.size(), 1U);
  EXPECT_EQ(removing[0].arguments, (std::vector<std::string>{asText(NAME), "null"}));
  const auto setting = callsOf(callsDuring([&] { set(NAME, str("v")); }), "HostSetEnv");
  ASSERT_EQ(setting.size(), 1U);
  EXPECT_EQ(setting[0].arguments, (std::vector<std::string>{asText(NAME), asText("v")}));
}

TEST_F(Environment, FailureOfTheHostIsNilAndStoresNothing) {
  const ClassError earlier = seedSlot();
  EXPECT_EQ(set("with=sign", str("v")), OOP_NIL);
  fault("HostSetEnv:1:ENOMEM");
  EXPECT_EQ(set(NAME, str("v")), OOP_NIL);
  EXPECT_EQ(value(), std::nullopt);
  EXPECT_EQ(takeSlot(), earlier);
}

TEST_F(Environment, ValueOf4095BytesIsSetWhole) {
  const std::string longest(4095, 'v');
  EXPECT_EQ(set(NAME, str(longest)), OOP_TRUE);
  EXPECT_EQ(value(), longest);
  expectText(expand(NAME, 0), OOP_CLASS_STRING, longest);
}

TEST_F(Environment, EmptyOrTooLongValueIsRaisedAndChangesNothing) {
  EXPECT_EQ(set(NAME, str("kept")), OOP_TRUE);
  const OopType empty = str("");
  expectRaise(2718, {empty}, "KvfSetEnvVar", {KV_FILE, str(NAME), empty});
  const OopType tooLong = str(std::string(4096, 'v'));
  expectRaise(2061, {tooLong}, "KvfSetEnvVar", {KV_FILE, str(NAME), tooLong});
  EXPECT_EQ(value(), "kept");
}

TEST_F(Environment, TheNameIsFetchedBeforeTheValue) {
  const OopType name = str("");
  const OopType text = kvhost::newUtf16(u"v");
  expectRaise(2718, {name}, "KvfSetEnvVar", {KV_FILE, name, text});
  expectRaise(2718, {text}, "KvfSetEnvVar", {KV_FILE, str(NAME), text});
}

}  // namespace
}  // namespace kvtest
