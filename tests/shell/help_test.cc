// What `kvf help` tells, and what it leaves nobody without.
#include "action_table.h"
#include "completion.h"
#include "functions.h"
#include "messages.h"
#include "shell/workspace.h"

#include <gmock/gmock.h>

#include <fstream>

namespace shell {
namespace {

using HelpTest = WorkspaceTest;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

TEST_F(HelpTest, NamesTheArgumentsOfEveryAction) {
  ASSERT_FALSE(actionRows().empty());
  for (const ActionRow& row : actionRows()) {
    std::string names = argumentNames(row);
    EXPECT_EQ(std::count(names.begin(), names.end(), ',') + 1, row.argumentCount) << row.name;
    EXPECT_THAT(names, Not(HasSubstr("OopType"))) << row.name;
  }
  EXPECT_EQ(argumentNames(*findAction("KvfSeek")), "oFile, oPosition, oKind");
}

TEST_F(HelpTest, ExplainsEveryActionAtLength) {
  for (const ActionRow& row : actionRows()) {
    std::string text = helpFor(row.name);
    for (const char* label :
         {"Arguments:", "Answers:", "Raises:", "Stores:", "Host calls:", "Blocks:"}) {
      EXPECT_THAT(text, HasSubstr(label)) << row.name;
    }
  }
  EXPECT_EQ(helpFor("nothing"), "");
  ASSERT_FALSE(cFunctions().empty());
  for (const CFunction& function : cFunctions()) EXPECT_NE(helpFor(function.name), "");
}

TEST_F(HelpTest, MarksWhatIsNotDeclared) {
  EXPECT_THAT(actionListing(), Not(HasSubstr("not declared")));
  kvhost::forgetDeclaredActions();
  EXPECT_THAT(actionListing(), HasSubstr("(not declared)"));
  EXPECT_THAT(helpFor("KvfOpen"), HasSubstr("Not declared in this build"));
  EXPECT_EQ(answer("KvfOpen(1, 2, 3, 4)"), "error: the action KvfOpen is not declared");
  EXPECT_TRUE(KvfUserActionInit());
  EXPECT_TRUE(KvfPassiveObjActionInit());
}

TEST_F(HelpTest, KnowsEveryErrorThatTheModuleRaises) {
  for (int number : {2061, 2094, 2208, 2242, 2284, 2364, 2718, 4100}) {
    EXPECT_NE(meaningOfError(number), "") << number;
  }
  EXPECT_EQ(meaningOfError(1), "");
}

TEST_F(HelpTest, KnowsNoSelectorOfMoreArgumentsThanAMessageHolds) {
  for (const std::string& selector : allSelectors()) {
    EXPECT_LE(std::count(selector.begin(), selector.end(), ':'), MAX_MESSAGE_ARGUMENTS) << selector;
  }
}

TEST_F(HelpTest, FindsTheNearestName) {
  EXPECT_EQ(nearestName("KvfOpenn"), "KvfOpen");
  EXPECT_EQ(nearestName("KvFileRaed"), "KvFileRead");
  EXPECT_EQ(nearestName("completelyElse"), "");
}

TEST(Completion, OffersNamesAndMessages) {
  size_t start = 99;
  EXPECT_THAT(completionsAt("x := KvfGetL", 12, &start, {}), ElementsAre("KvfGetLine("));
  EXPECT_EQ(start, 5U);
  EXPECT_THAT(completionsAt("not", 3, &start, {"note", "other"}),
              ElementsAre("not", "notNil", "note"));
  EXPECT_THAT(completionsAt("ByteA", 5, &start, {}), ElementsAre("ByteArray"));
  EXPECT_TRUE(completionsAt("", 0, &start, {}).empty());
}

TEST_F(HelpTest, CompletesPathsWithinQuotes) {
  std::filesystem::create_directory("dir");
  std::ofstream("dir/file.txt") << "x";
  std::ofstream(".hidden") << "x";
  size_t start = 0;
  EXPECT_THAT(completionsAt("KvfOpen(f, 'd", 13, &start, {}), ElementsAre("dir/"));
  EXPECT_EQ(start, 12U);
  EXPECT_THAT(completionsAt("KvfOpen(f, 'dir/f", 17, &start, {}), ElementsAre("dir/file.txt"));
  EXPECT_THAT(completionsAt("'", 1, &start, {}), ElementsAre("dir/"));
  EXPECT_THAT(completionsAt("'.h", 3, &start, {}), ElementsAre(".hidden"));
  EXPECT_TRUE(completionsAt("'missing/x", 10, &start, {}).empty());
  EXPECT_THAT(completionsAt("'a' , $' siz", 12, &start, {}), Contains("size"));
}

}  // namespace
}  // namespace shell
