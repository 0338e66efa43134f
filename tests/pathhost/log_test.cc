// Writing a string to the log: pieces, the newline at the end, and the flush flag.
#include "pathhost/path_fixture.h"

#include <cstdio>

namespace kvtest {
namespace {

class Log : public PathTest {
 protected:
  void SetUp() override {
    PathTest::SetUp();
    cookie_io_functions_t functions{};
    functions.write = [](void* cookie, const char* data, size_t size) {
      static_cast<std::vector<std::string>*>(cookie)->emplace_back(data, size);
      return static_cast<ssize_t>(size);
    };
    stream_ = fopencookie(&written_, "w", functions);
    ASSERT_NE(stream_, nullptr);
    kvhost::setLogStream(stream_);
    flushBefore_ = KciGetLoggerFlush();
    KciSetLoggerFlush(0);
  }
  void TearDown() override {
    kvhost::setLogStream(stderr);
    KciSetLoggerFlush(flushBefore_);
    fclose(stream_);
    PathTest::TearDown();
  }

  OopType log(OopType text) { return call("KvfKciLog", {KV_FILE, text}); }

  // What was logged, one element for each call of the logging function: each one is flushed.
  std::vector<std::string> logged(OopType text) {
    written_.clear();
    EXPECT_EQ(log(text), KV_FILE);
    return written_;
  }

  std::vector<std::string> written_;

 private:
  FILE* stream_ = nullptr;
  int flushBefore_ = 0;
};

using Pieces = std::vector<std::string>;

TEST_F(Log, AddsANewlineOfItsOwn) { EXPECT_EQ(logged(str("abc")), (Pieces{"abc", "\n"})); }

TEST_F(Log, AddsNoneAfterANewline) {
  EXPECT_EQ(logged(str("abc\n")), Pieces{"abc\n"});
  EXPECT_EQ(logged(str("\n")), Pieces{"\n"});
}

TEST_F(Log, AddsOneAfterACarriageReturnAndAfterAnEarlierNewline) {
  EXPECT_EQ(logged(str("abc\r")), (Pieces{"abc\r", "\n"}));
  EXPECT_EQ(logged(str("a\nb")), (Pieces{"a\nb", "\n"}));
}

TEST_F(Log, AnswersTheReceiver) {
  EXPECT_EQ(call("KvfKciLog", {smallInt(5), str("abc")}), smallInt(5));
}

TEST_F(Log, CutsAt1023Bytes) {
  for (const size_t length : {1U, 1022U, 1023U, 1024U, 2046U, 2047U, 3000U}) {
    std::string text;
    for (size_t i = 0; i < length; ++i) text.push_back(static_cast<char>('a' + i % 26));
    Pieces expected;
    for (size_t at = 0; at < length; at += 1023) expected.push_back(text.substr(at, 1023));
    expected.push_back("\n");
    EXPECT_EQ(logged(str(text)), expected) << length;
    text.back() = '\n';
    expected.pop_back();
    expected.back().back() = '\n';
    EXPECT_EQ(logged(str(text)), expected) << length;
  }
}

TEST_F(Log, LooksForTheNewlineInTheLastPieceOnly) {
  std::string text(1024, 'x');
  text[1022] = '\n';
  EXPECT_EQ(logged(str(text)), (Pieces{text.substr(0, 1023), "x", "\n"}));
}

TEST_F(Log, EndsAPieceAtANulAndCountsItAll) {
  EXPECT_EQ(logged(str(std::string_view("ab\0cd", 5))), (Pieces{"ab", "\n"}));
  EXPECT_EQ(logged(str(std::string_view("ab\0\n", 4))), Pieces{"ab"});
  std::string text(1024, 'x');
  text[3] = '\0';
  EXPECT_EQ(logged(str(text)), (Pieces{"xxx", "x", "\n"}));
}

TEST_F(Log, PassesSymbolsAndUtf8Strings) {
  EXPECT_EQ(logged(kvhost::newSymbol("abc")), (Pieces{"abc", "\n"}));
  EXPECT_EQ(logged(kvhost::newUtf8("\xC3\xA9")), (Pieces{"\xC3\xA9", "\n"}));
}

TEST_F(Log, FetchesByItsOwnCount) {
  const OopType text = str(std::string(1500, 'x'));
  const auto fetches = callsOf(callsDuring([&] { log(text); }), "KciFetchUtf8Bytes_");
  ASSERT_EQ(fetches.size(), 3U);
  const char* starts[] = {"1", "1024", "1501"};
  for (size_t i = 0; i < 3; ++i) {
    const std::vector<std::string>& args = fetches[i].arguments;
    ASSERT_EQ(args.size(), 6U);
    EXPECT_EQ(args[0], fetches[0].arguments[0]);
    EXPECT_EQ(args[1], starts[i]);
    EXPECT_EQ(args[3], "1023");
    EXPECT_EQ(args[5], "2");
  }
}

// ---- texts that are converted first ----

TEST_F(Log, CutsAUtf16TextWithinCharacters) {
  // Each character is three bytes; 1023 is a multiple of three, so one byte goes before.
  std::u16string text = u"a";
  std::string utf8 = "a";
  for (int i = 0; i < 500; ++i) {
    text.push_back(u'\u20AC');
    utf8 += "\xE2\x82\xAC";
  }
  EXPECT_EQ(logged(kvhost::newUtf16(text)),
            (Pieces{utf8.substr(0, 1023), utf8.substr(1023), "\n"}));
}

TEST_F(Log, ReadsTheConvertedTextAndReleasesItOnce) {
  const OopType text = kvhost::newUtf16(std::u16string(1500, u'x'));
  const auto calls = callsDuring([&] { log(text); });
  const auto fetches = callsOf(calls, "KciFetchUtf8Bytes_");
  ASSERT_EQ(fetches.size(), 3U);
  EXPECT_NE(fetches[1].arguments[0], fetches[0].arguments[0]);
  EXPECT_EQ(fetches[2].arguments[0], fetches[1].arguments[0]);
  const auto releases = callsOf(calls, "KciReleaseOops");
  ASSERT_EQ(releases.size(), 1U);
  EXPECT_EQ(releases[0].arguments.back(), "1");
}

TEST_F(Log, ReleasesNothingThatWasNotConverted) {
  const auto calls = callsDuring([&] { log(str("abc")); });
  EXPECT_TRUE(callsOf(calls, "KciReleaseOops").empty());
}

// ---- the flush flag ----

TEST_F(Log, RestoresTheFlushFlag) {
  for (const int flush : {0, 1}) {
    KciSetLoggerFlush(flush);
    log(str("abc"));
    EXPECT_EQ(KciGetLoggerFlush(), flush);
  }
}

TEST_F(Log, SetsTheFlushFlagBeforeItAsksForTheLogger) {
  const auto names = namesOf(callsDuring([&] { log(str("abc")); }));
  const std::vector<std::string> expected = {
      "KciGetLoggerFlush", "KciSetLoggerFlush",  "KciGetLogger", "KciFetchUtf8Bytes_",
      "KciLogger",         "KciFetchUtf8Bytes_", "KciLogger",    "KciSetLoggerFlush"};
  EXPECT_EQ(names, expected);
}

TEST_F(Log, OfNothingLeavesTheFlagSetAndLogsNothing) {
  for (const OopType nothing :
       {str(""), OOP_NIL, smallInt(7), kvhost::newArray({}), kvhost::newUtf16(u"")}) {
    KciSetLoggerFlush(0);
    EXPECT_EQ(logged(nothing), Pieces{});
    EXPECT_EQ(KciGetLoggerFlush(), 1);
  }
}

TEST_F(Log, OfWhatIsNoTextRaisesAndLeavesTheFlagSet) {
  for (const OopType object : {kvhost::newArray({OOP_NIL}), kvhost::newByteArray("abc")}) {
    KciSetLoggerFlush(0);
    expectRaise(2094, {object, OOP_CLASS_STRING}, "KvfKciLog", {KV_FILE, object});
    EXPECT_EQ(KciGetLoggerFlush(), 1);
    EXPECT_EQ(written_, Pieces{});
    raisesComeBack();
    expectUnasked(2104, "KvfKciLog", {KV_FILE, object});
    clearFaults();
  }
}

TEST_F(Log, EndsAtACountBelowZero) {
  const OopType text = str(std::string(1500, 'x'));
  fault("KciFetchUtf8Bytes_:2:result=-1");
  EXPECT_EQ(logged(text), (Pieces{std::string(1023, 'x'), "\n"}));
  EXPECT_EQ(KciGetLoggerFlush(), 0);
  clearFaults();
  fault("KciFetchUtf8Bytes_:1:result=-1");
  expectRaise(2094, {text, OOP_CLASS_STRING}, "KvfKciLog", {KV_FILE, text});
}

TEST_F(Log, LeavesTheClassLevelErrorAlone) {
  const ClassError earlier = seedSlot();
  log(str("abc"));
  log(str(""));
  EXPECT_EQ(takeSlot(), earlier);
}

}  // namespace
}  // namespace kvtest
