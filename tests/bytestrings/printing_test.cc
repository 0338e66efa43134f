// A byte object as decimal byte text.
#include "bytestrings/bytes_fixture.h"

namespace kvtest {
namespace {

class Printing : public BytesTest {
 protected:
  static std::string pattern(size_t length) {
    std::string data;
    for (size_t i = 0; i < length; ++i) data.push_back(static_cast<char>(i * 7 + i / 256));
    return data;
  }
};

TEST_F(Printing, WritesEachByteAndASpaceAndEndsTheLine) {
  const OopType text = print(kvhost::newByteArray(std::string("\0\t\n\x63\x64\xFF", 6)));
  EXPECT_EQ(bytes(text), "0 9 10 99 100 255 \n");
  EXPECT_EQ(kvhost::classOf(text), OOP_CLASS_STRING);
}

TEST_F(Printing, WritesEveryByteValue) {
  std::string data;
  for (int value = 0; value < 256; ++value) data.push_back(static_cast<char>(value));
  EXPECT_EQ(bytes(print(str(data))), modelPrint(data));
}

TEST_F(Printing, OfNothingIsALineFeed) {
  for (const OopType nothing : {str(""), kvhost::newByteArray(""), OOP_NIL, smallInt(5)}) {
    const OopType text = print(nothing);
    EXPECT_EQ(kvhost::classOf(text), OOP_CLASS_STRING);
    EXPECT_EQ(bytes(text), "\n");
  }
}

TEST_F(Printing, PutsAtMost1024BytesOnALine) {
  for (const size_t length : {1023U, 1024U, 1025U, 2047U, 2048U, 2049U, 10000U}) {
    const std::string data = pattern(length);
    const std::string text = bytes(print(kvhost::newByteArray(data)));
    EXPECT_EQ(text, modelPrint(data)) << length;
    const auto lines = std::count(text.begin(), text.end(), '\n');
    EXPECT_EQ(lines, static_cast<std::ptrdiff_t>((length + 1023) / 1024)) << length;
  }
}

TEST_F(Printing, FillsItsLineWithTheLongestValues) {
  const std::string data(1024, '\xFF');
  const std::string text = bytes(print(kvhost::newByteArray(data)));
  EXPECT_EQ(text.size(), 4097U);
  EXPECT_EQ(text, modelPrint(data));
}

TEST_F(Printing, FetchesAndStoresALineAtATime) {
  const OopType object = kvhost::newByteArray(std::string(2050, '\x07'));
  const auto calls = callsDuring([&] { print(object); });
  EXPECT_EQ(fetchesIn(calls), (Ranges{{1, 1024}, {1025, 1024}, {2049, 2}}));
  EXPECT_EQ(countOf(calls, "KciNewByteObj"), 1);
  EXPECT_EQ(storesIn(calls), (Ranges{{2050, 2049}, {4099, 5}}));
  EXPECT_EQ(countOf(calls, "KciFetchSize_"), 1);
  expectFramesPopped(calls);
}

TEST_F(Printing, OfNothingFetchesNothing) {
  const auto calls = callsDuring([&] { print(str("")); });
  EXPECT_EQ(countOf(calls, "KciFetchBytes_"), 0);
  EXPECT_EQ(countOf(calls, "KciStoreBytesInstanceOf"), 0);
  EXPECT_EQ(countOf(calls, "KciNewByteObj"), 1);
}

TEST_F(Printing, StoresIntoTheResultWithoutAClass) {
  const auto calls = callsDuring([&] { print(str(std::string(1025, 'a'))); });
  const auto stores = callsOf(calls, "KciStoreBytesInstanceOf");
  ASSERT_FALSE(stores.empty());
  EXPECT_EQ(argumentOf(stores[0], 0), "nil");
  EXPECT_TRUE(argumentOf(stores[0], 1).starts_with("oop:"));
}

TEST_F(Printing, LineWhoseFetchAnswersNothingIsALineFeed) {
  const OopType object = str(std::string(2049, 'a'));
  fault("KciFetchBytes_:2:result=0");
  const std::string line = modelPrint(std::string(1024, 'a'));
  EXPECT_EQ(bytes(print(object)), line + "\n" + "97 \n");
}

TEST_F(Printing, OfWhatHoldsNoBytesIsNil) {
  const OopType array = kvhost::newArray({OOP_NIL});
  const auto calls = callsDuring([&] { EXPECT_EQ(print(array), OOP_NIL); });
  expectFramesPopped(calls);
  KciErrSType pending;
  EXPECT_FALSE(KciErr(&pending)) << "the error was taken";
}

TEST_F(Printing, AnyErrorOfTheInterfaceIsNil) {
  const OopType object = str(std::string(3000, 'a'));
  for (const auto& [function, at] :
       std::vector<std::pair<const char*, int64_t>>{{"KciFetchSize_", 1},
                                                    {"KciFetchBytes_", 1},
                                                    {"KciFetchBytes_", 3},
                                                    {"KciNewByteObj", 1},
                                                    {"KciStoreBytesInstanceOf", 1},
                                                    {"KciStoreBytesInstanceOf", 2}}) {
    fault(std::string(function) + ":" + std::to_string(at) + ":raise=2101");
    const auto calls = callsDuring([&] { EXPECT_EQ(print(object), OOP_NIL); });
    EXPECT_EQ(seam::faultsFired(), 1) << function << at;
    clearFaults();
    expectFramesPopped(calls);
    KciErrSType pending;
    EXPECT_FALSE(KciErr(&pending)) << function << at;
  }
  EXPECT_EQ(takeClassError(), "");
}

}  // namespace
}  // namespace kvtest
