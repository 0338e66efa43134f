// Documents as statements with the answers that they promise.
#include "transcript.h"

#include <gtest/gtest.h>

namespace shell {
namespace {

using Lines = std::vector<std::string>;

TEST(Transcript, ReadsStatementsInputAndAnswers) {
  auto groups = readTranscript("\"about\"\n> a\n> b\n< typed\n1\n\n2\n\n> c\n", false);
  ASSERT_EQ(groups.size(), 1U);
  ASSERT_EQ(groups[0].size(), 2U);
  EXPECT_EQ(groups[0][0].source, "a\nb");
  EXPECT_EQ(groups[0][0].sourceLine, 2);
  EXPECT_EQ(groups[0][0].input, "typed\n");
  EXPECT_EQ(groups[0][0].expected, (Lines{"1", "", "2"}));
  EXPECT_EQ(groups[0][1].source, "c");
  EXPECT_EQ(groups[0][1].sourceLine, 9);
  EXPECT_TRUE(groups[0][1].expected.empty());
}

TEST(Transcript, TakesOnlyMarkedBlocksOfMarkdown) {
  auto groups = readTranscript(
      "text\n> quoted\n```\n> no\n```\n```kvf\n> a\n1\n```\n```kvf\n> b\n```\n```kvf fresh\n> "
      "c\n```\n",
      true);
  ASSERT_EQ(groups.size(), 2U);
  ASSERT_EQ(groups[0].size(), 2U);
  EXPECT_EQ(groups[0][0].source, "a");
  EXPECT_EQ(groups[0][0].expected, Lines{"1"});
  EXPECT_EQ(groups[0][1].source, "b");
  ASSERT_EQ(groups[1].size(), 1U);
  EXPECT_EQ(groups[1][0].source, "c");
}

TEST(Transcript, RefusesWhatIsNoTranscript) {
  EXPECT_THROW(readTranscript("1\n> a\n", false), TranscriptError);
  EXPECT_THROW(readTranscript("< a\n", false), TranscriptError);
  EXPECT_THROW(readTranscript("```kvf\n> a\n", true), TranscriptError);
}

TEST(Transcript, MatchesWildcardsWithinALine) {
  EXPECT_TRUE(lineMatches("abc", "abc"));
  EXPECT_FALSE(lineMatches("abc", "abcd"));
  EXPECT_TRUE(lineMatches("pid ... of ...", "pid 12 of 7"));
  EXPECT_TRUE(lineMatches("...", ""));
  EXPECT_TRUE(lineMatches("a...b...c", "axbxbyc"));
  EXPECT_FALSE(lineMatches("a...b", "axc"));
  EXPECT_FALSE(lineMatches("...b", "bc"));
}

TEST(Transcript, MatchesPiecesInTheirOrderWithoutOverlap) {
  EXPECT_FALSE(lineMatches("ab...ba", "aba"));
  EXPECT_TRUE(lineMatches("ab...ba", "abba"));
  EXPECT_FALSE(lineMatches("...b...a", "ab"));
  EXPECT_FALSE(lineMatches("...ab...ab", "xab"));
  EXPECT_TRUE(lineMatches("a......b", "ab"));
}

// Tried in every place, the wildcards of this line would outlast the test's time limit by far.
TEST(Transcript, MatchesALineOfManyWildcardsInTimeThatGrowsWithItsLength) {
  std::string expected;
  for (int i = 0; i < 40; i++) expected += "...a";
  EXPECT_FALSE(lineMatches(expected + "...b", std::string(20'000, 'a')));
  EXPECT_TRUE(lineMatches(expected + "...", std::string(20'000, 'a')));
}

TEST(Transcript, MatchesAnyLinesForALoneWildcard) {
  EXPECT_TRUE(matches({"a", "...", "z"}, {"a", "z"}));
  EXPECT_TRUE(matches({"a", "...", "z"}, {"a", "b", "c", "z"}));
  EXPECT_FALSE(matches({"a", "...", "z"}, {"a", "b"}));
  EXPECT_TRUE(matches({"..."}, {}));
  EXPECT_TRUE(matches({}, {}));
  EXPECT_FALSE(matches({}, {"a"}));
  EXPECT_FALSE(matches({"a"}, {}));
}

TEST(Transcript, ShowsADifferenceAsAHunk) {
  Exchange exchange;
  exchange.source = "a\nb";
  exchange.sourceLine = 5;
  exchange.expected = {"1", "2", "3"};
  EXPECT_EQ(diffHunk(exchange, {"1", "x", "3", "4"}),
            "@@ -5,5 +5,6 @@\n > a\n > b\n 1\n-2\n+x\n 3\n+4\n");
}

TEST(Transcript, ReadsLinesThatEndInCrLf) {
  auto groups = readTranscript("```kvf\r\n> 3 + 4\r\n7\r\n```\r\n", true);
  ASSERT_EQ(groups.at(0).size(), 1U);
  EXPECT_EQ(groups[0][0].source, "3 + 4");
  EXPECT_EQ(groups[0][0].expected, std::vector<std::string>{"7"});
  groups = readTranscript("> e'x\\r' displayNl\nx\r\n", false);
  EXPECT_EQ(groups.at(0).at(0).expected, std::vector<std::string>{"x\r"});
}

}  // namespace
}  // namespace shell
