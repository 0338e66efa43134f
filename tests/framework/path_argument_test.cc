// Fetching a path argument.
#include "framework/arguments.h"
#include "support/converting_host.h"
#include "support/module_fixture.h"
#include "support/returning_raise.h"

#include <gmock/gmock.h>

#include <cstring>

namespace kvtest {

using namespace kvf;
namespace {

constexpr OopType NO_OBJECT = 0x7FFFFFFFFFFFFF01;

struct Fetch {
  OopType object;
  KvfPath path;
  BoolType answer;
};

class PathArgument : public ModuleTest {
 protected:
  kvhost::Outcome fetch(OopType object) {
    fetched_ = {};
    fetched_.object = object;
    fetched_.answer = 99;
    return kvhost::protect(
        [](void* context) -> OopType {
          auto* each = static_cast<Fetch*>(context);
          each->answer = fetchPath(each->object, &each->path);
          return OOP_NIL;
        },
        &fetched_);
  }

  void expectFetched(OopType object, std::string_view path) {
    EXPECT_EQ(fetch(object).status, kvhost::CallStatus::Answered);
    EXPECT_EQ(fetched_.answer, TRUE);
    EXPECT_EQ(fetched_.path.isUtf16, FALSE);
    EXPECT_EQ(fetched_.path.sizeBytes, static_cast<int>(path.size()));
    EXPECT_EQ(std::string_view(fetched_.path.path, path.size()), path);
    EXPECT_EQ(fetched_.path.path[path.size()], '\0');
  }

  void expectRaised(OopType object, int number) {
    const kvhost::Outcome outcome = fetch(object);
    ASSERT_EQ(outcome.status, kvhost::CallStatus::Raised);
    EXPECT_EQ(outcome.error.number, number);
    EXPECT_EQ(outcome.error.argCount, 1);
    EXPECT_EQ(outcome.error.args[0], object);
    EXPECT_EQ(outcome.error.category, OOP_ERROR_CATEGORY);
    EXPECT_EQ(outcome.error.fatal, 0);
  }

  // The raises of one fetch, each of which comes back to the module.
  std::vector<std::string> raisesOf(OopType object) {
    std::vector<std::string> raises;
    letRaisesReturn(1000);
    for (const seam::Call& each : callsDuring([&] { fetch(object); }))
      if (each.name == "KciRaiseException") raises.push_back(argumentOf(each, 0));
    letRaisesReturn(0);
    return raises;
  }

  Fetch fetched_{};
};

TEST_F(PathArgument, AFreshPathIsEmpty) {
  const KvfPath path;
  EXPECT_EQ(path.sizeBytes, 0);
  EXPECT_EQ(path.isUtf16, FALSE);
  EXPECT_STREQ(path.path, "");
  EXPECT_EQ(sizeof path.path, 4100U);
}

TEST_F(PathArgument, StringsSymbolsAndUtf8) {
  expectFetched(str("dir/file"), "dir/file");
  expectFetched(str("x"), "x");
  expectFetched(kvhost::newSymbol("name"), "name");
  expectFetched(kvhost::newUtf8("gr\xC3\xBC\xC3\x9F"), "gr\xC3\xBC\xC3\x9F");
}

TEST_F(PathArgument, ANulIsAByteOfThePath) {
  expectFetched(str(std::string_view("ab\0cd", 5)), std::string_view("ab\0cd", 5));
}

TEST_F(PathArgument, TheLongestHas4095Bytes) {
  expectFetched(str(std::string(4094, 'p')), std::string(4094, 'p'));
  expectFetched(str(std::string(4095, 'p')), std::string(4095, 'p'));
  expectRaised(str(std::string(4096, 'p')), 2061);
  expectRaised(str(std::string(4097, 'p')), 2061);
  expectRaised(str(std::string(10000, 'p')), 2061);
}

TEST_F(PathArgument, AnEmptyPathIsRefused) {
  expectRaised(str(""), 2718);
  expectRaised(kvhost::newUtf8(""), 2718);
}

TEST_F(PathArgument, AUtf16PathIsRefused) {
  expectRaised(kvhost::newUtf16(u"file"), 2718);
  expectRaised(kvhost::newUtf16(u""), 2718);
  EXPECT_EQ(isUtf16(kvhost::newUtf16(u"file")), TRUE);
  EXPECT_EQ(isUtf16(str("file")), FALSE);
  EXPECT_EQ(isUtf16(OOP_NIL), FALSE);
}

TEST_F(PathArgument, WhatHasNoSizeCountsAsEmpty) {
  expectRaised(OOP_NIL, 2718);
  expectRaised(smallInt(42), 2718);
  expectRaised(OOP_TRUE, 2718);
  expectRaised(kvhost::newArray({}), 2718);
}

TEST_F(PathArgument, AnObjectThatIsNoTextRaisesTheInterfacesOwnError) {
  const OopType array = kvhost::newArray({OOP_NIL});
  ByteType bytes[16];
  OopType converted = OOP_NIL;
  EXPECT_EQ(KciFetchUtf8Bytes_(array, 1, bytes, 16, &converted, 0), 0);
  KciErrSType expected;
  expected.initialize();
  ASSERT_TRUE(KciErr(&expected));
  const kvhost::Outcome outcome = fetch(array);
  ASSERT_EQ(outcome.status, kvhost::CallStatus::Raised);
  EXPECT_EQ(outcome.error.number, expected.number);
  EXPECT_STREQ(outcome.error.message, expected.message);
}

TEST_F(PathArgument, AFailedFetchRaisesTheInterfacesError) {
  fault("KciFetchUtf8Bytes_:1:raise=2345");
  const kvhost::Outcome outcome = fetch(str("file"));
  ASSERT_EQ(outcome.status, kvhost::CallStatus::Raised);
  EXPECT_EQ(outcome.error.number, 2345);
}

TEST_F(PathArgument, AFetchThatFailsWithoutAnErrorRaisesTheFreshRecord) {
  for (const int64_t count : {0, -1, -4096}) {
    clearFaults();
    fault("KciFetchUtf8Bytes_:1:result=" + std::to_string(count));
    const kvhost::Outcome outcome = fetch(str("file"));
    ASSERT_EQ(outcome.status, kvhost::CallStatus::Raised) << count;
    EXPECT_EQ(outcome.error.number, 0);
    EXPECT_EQ(outcome.error.category, OOP_NIL);
  }
}

TEST_F(PathArgument, AsksForOneByteMoreThanItAccepts) {
  const OopType path = str("file");
  const auto fetches = callsOf(callsDuring([&] { fetch(path); }), "KciFetchUtf8Bytes_");
  ASSERT_EQ(fetches.size(), 1U);
  EXPECT_THAT(fetches[0].arguments,
              ::testing::ElementsAre(::testing::_, "1", "ptr", "4096", "ptr", "0"));
}

TEST_F(PathArgument, AConvertedTextIsReleased) {
  for (const OopType text : {str("plain"), str(std::string(5000, 'p'))}) {
    const ConvertingHost host;
    fetch(text);
    EXPECT_EQ(ConvertingHost::converted().size(), 1U);
    EXPECT_EQ(ConvertingHost::released(), ConvertingHost::converted());
  }
}

TEST_F(PathArgument, ATextThatWasNotConvertedIsNotReleased) {
  for (const OopType text : {str("plain"), str("\xE4\xF6"), kvhost::newUtf8("gr\xC3\xBC")}) {
    const auto calls = callsDuring([&] { fetch(text); });
    EXPECT_EQ(countOf(calls, "KciFetchUtf8Bytes_"), 1);
    EXPECT_EQ(countOf(calls, "KciReleaseOops"), 0);
  }
}

TEST_F(PathArgument, ShouldARaiseComeBackTheFetchFails) {
  EXPECT_EQ(raisesOf(str("")), std::vector<std::string>{"{2718, \"\"}"});
  EXPECT_EQ(fetched_.answer, FALSE);
  EXPECT_EQ(raisesOf(str(std::string(4096, 'p'))), std::vector<std::string>{"{2061, \"\"}"});
  EXPECT_EQ(fetched_.answer, FALSE);
  EXPECT_EQ(raisesOf(kvhost::newArray({OOP_NIL})).size(), 1U);
  EXPECT_EQ(fetched_.answer, FALSE);
}

TEST_F(PathArgument, ShouldTheRaiseComeBackAUtf16PathIsFetchedAsItsBytes) {
  const std::vector<std::string> refused = {"{2718, \"\"}"};
  EXPECT_EQ(raisesOf(kvhost::newUtf16(u"ab")), refused);
  EXPECT_EQ(fetched_.answer, TRUE);
  EXPECT_EQ(fetched_.path.isUtf16, TRUE);
  EXPECT_EQ(fetched_.path.sizeBytes, 4);
  EXPECT_EQ(std::memcmp(fetched_.path.path, u"ab", 4), 0);
  EXPECT_EQ(fetched_.path.path[4], '\0');
  EXPECT_EQ(fetched_.path.path[5], '\0');

  EXPECT_EQ(raisesOf(kvhost::newUtf16(std::u16string(2046, u'x'))), refused);
  EXPECT_EQ(fetched_.answer, TRUE);
  EXPECT_EQ(fetched_.path.sizeBytes, 4092);

  const std::vector<std::string> tooLong = {"{2718, \"\"}", "{2061, \"\"}"};
  EXPECT_EQ(raisesOf(kvhost::newUtf16(std::u16string(2047, u'x'))), tooLong);
  EXPECT_EQ(fetched_.answer, FALSE);
  for (const int64_t count : {3, -1, -2, 4095}) {
    clearFaults();
    fault("KciFetchBytes_:1:result=" + std::to_string(count));
    EXPECT_EQ(raisesOf(kvhost::newUtf16(u"abc")), tooLong) << count;
    EXPECT_EQ(fetched_.answer, FALSE);
  }
}

TEST_F(PathArgument, AnIdentifierThatNamesNothingRaises) {
  EXPECT_EQ(fetch(NO_OBJECT).status, kvhost::CallStatus::Raised);
}

}  // namespace
}  // namespace kvtest
