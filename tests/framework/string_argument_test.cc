// Fetching a string argument into a buffer of a given size, and the bounded copy.
#include "framework/arguments.h"
#include "framework/bounded_copy.h"
#include "support/module_fixture.h"
#include "support/returning_raise.h"

#include <gmock/gmock.h>

#include <cstring>

namespace kvtest {

using namespace kvf;
namespace {

constexpr OopType NO_OBJECT = 0x7FFFFFFFFFFFFF01;
constexpr size_t CAPACITY = 16;
constexpr char GUARD = '#';

struct Fetch {
  OopType object;
  char buffer[CAPACITY + 8];
  BoolType answer;
};

class StringArgument : public ModuleTest {
 protected:
  kvhost::Outcome fetch(OopType object) {
    fetched_.object = object;
    fetched_.answer = 99;
    std::memset(fetched_.buffer, GUARD, sizeof fetched_.buffer);
    const kvhost::Outcome outcome = kvhost::protect(
        [](void* context) -> OopType {
          auto* each = static_cast<Fetch*>(context);
          each->answer = fetchString(each->object, CAPACITY, each->buffer);
          return OOP_NIL;
        },
        &fetched_);
    EXPECT_EQ(fetched_.buffer[CAPACITY], GUARD) << "wrote past the buffer";
    return outcome;
  }

  void expectFetched(OopType object, const char* text) {
    EXPECT_EQ(fetch(object).status, kvhost::CallStatus::Answered);
    EXPECT_EQ(fetched_.answer, TRUE);
    EXPECT_STREQ(fetched_.buffer, text);
  }

  void expectRaised(OopType object, int number, const std::vector<OopType>& args) {
    const kvhost::Outcome outcome = fetch(object);
    ASSERT_EQ(outcome.status, kvhost::CallStatus::Raised);
    EXPECT_EQ(outcome.error.number, number);
    EXPECT_EQ(std::vector<OopType>(outcome.error.args, outcome.error.args + outcome.error.argCount),
              args);
  }

  Fetch fetched_{};
};

TEST_F(StringArgument, StringsAndSymbolsPass) {
  expectFetched(str("writeLock"), "writeLock");
  expectFetched(kvhost::newSymbol("readLock"), "readLock");
  expectFetched(str(""), "");
  expectFetched(kvhost::newByteArray("bytes"), "bytes");
}

TEST_F(StringArgument, TheLongestLeavesRoomForTheTerminator) {
  expectFetched(str("123456789012345"), "123456789012345");
  const OopType tooLong = str("1234567890123456");
  expectRaised(tooLong, 2061, {tooLong});
  const OopType muchTooLong = str(std::string(5000, 'x'));
  expectRaised(muchTooLong, 2061, {muchTooLong});
}

TEST_F(StringArgument, AnObjectOfAnotherFormatIsRefused) {
  const OopType array = kvhost::newArray({OOP_NIL, OOP_NIL});
  expectRaised(array, 2094, {array, OOP_CLASS_STRING});
  const OopType longArray = kvhost::newArray(std::vector<OopType>(50, OOP_NIL));
  expectRaised(longArray, 2094, {longArray, OOP_CLASS_STRING});
  expectRaised(smallInt(3), 2094, {smallInt(3), OOP_CLASS_STRING});
  expectRaised(OOP_NIL, 2094, {OOP_NIL, OOP_CLASS_STRING});
  expectRaised(OOP_TRUE, 2094, {OOP_TRUE, OOP_CLASS_STRING});
}

TEST_F(StringArgument, AnObjectThatCannotBeFetchedRaisesTheInterfacesError) {
  KciObjInfoSType info{};
  ByteType bytes[1];
  int64 count = 0;
  EXPECT_FALSE(KciFetchObjInfo(NO_OBJECT, 1, 1, &info, bytes, &count));
  KciErrSType expected;
  expected.initialize();
  ASSERT_TRUE(KciErr(&expected));
  const kvhost::Outcome outcome = fetch(NO_OBJECT);
  ASSERT_EQ(outcome.status, kvhost::CallStatus::Raised);
  EXPECT_EQ(outcome.error.number, expected.number);
  EXPECT_STREQ(outcome.error.message, expected.message);
}

TEST_F(StringArgument, AFailureWithoutAnErrorRaisesTheFreshRecord) {
  fault("KciFetchObjInfo:1:result=0");
  const kvhost::Outcome outcome = fetch(str("abc"));
  ASSERT_EQ(outcome.status, kvhost::CallStatus::Raised);
  EXPECT_EQ(outcome.error.number, 0);
}

TEST_F(StringArgument, AsksForWhatFits) {
  const OopType text = str("abc");
  const auto calls = callsDuring([&] { fetch(text); });
  ASSERT_EQ(namesOf(calls), std::vector<std::string>{"KciFetchObjInfo"});
  EXPECT_THAT(calls[0].arguments,
              ::testing::ElementsAre(::testing::_, "1", "15", "ptr", "ptr", "ptr"));
}

TEST_F(StringArgument, ShouldARaiseComeBackTheFetchFails) {
  for (const OopType object : {str("1234567890123456"), smallInt(3), NO_OBJECT}) {
    letRaisesReturn(1);
    EXPECT_EQ(fetch(object).status, kvhost::CallStatus::Answered);
    EXPECT_EQ(fetched_.answer, FALSE);
    EXPECT_EQ(raisesThatWillReturn(), 0);
  }
}

struct CopyCase {
  const char* source;
  size_t size;
  const char* copied;
};

TEST(BoundedCopy, CutsAndTerminates) {
  for (const CopyCase& each :
       {CopyCase{"abc", 4, "abc"}, CopyCase{"abc", 3, "ab"}, CopyCase{"abc", 1, ""},
        CopyCase{"abc", 8, "abc"}, CopyCase{"", 1, ""}, CopyCase{"", 8, ""}}) {
    char buffer[8];
    std::memset(buffer, GUARD, sizeof buffer);
    EXPECT_EQ(kvf::strlcpy(buffer, each.source, each.size), std::strlen(each.source));
    EXPECT_STREQ(buffer, each.copied);
    for (size_t i = std::strlen(each.copied) + 1; i < sizeof buffer; ++i)
      EXPECT_EQ(buffer[i], GUARD) << each.source << " at " << i;
  }
}

TEST(BoundedCopy, WithoutRoomWritesNothing) {
  char buffer[2] = {GUARD, GUARD};
  EXPECT_EQ(kvf::strlcpy(buffer, "abc", 0), 3U);
  EXPECT_EQ(buffer[0], GUARD);
  EXPECT_EQ(kvf::strlcpy(nullptr, "abc", 0), 3U);
}

}  // namespace
}  // namespace kvtest
