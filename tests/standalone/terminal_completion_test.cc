// Completion of words on the line that is being typed.
#include "terminal/completion.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

namespace {

using kvhost::commonStart;
using kvhost::listInColumns;

TEST(Completion, findsWhatAllWordsBeginWith) {
  EXPECT_EQ(commonStart({}), "");
  EXPECT_EQ(commonStart({"one"}), "one");
  EXPECT_EQ(commonStart({"open", "opera"}), "ope");
  EXPECT_EQ(commonStart({"open", "op"}), "op");
  EXPECT_EQ(commonStart({"a", "b"}), "");
  EXPECT_EQ(commonStart({"p\xc3\xa9", "p\xc3\xaa"}), "p");
  EXPECT_EQ(commonStart({"p\xc3\xa9x", "p\xc3\xa9y"}), "p\xc3\xa9");
}

TEST(Completion, listsWordsInColumns) {
  EXPECT_EQ(listInColumns({"one", "three", "two"}, 14), "one    three\ntwo\n");
  EXPECT_EQ(listInColumns({"one", "three", "two"}, 21), "one    three  two\n");
  EXPECT_EQ(listInColumns({"one", "three", "two"}, 1), "one\nthree\ntwo\n");
  EXPECT_EQ(listInColumns({"p\xc3\xa9", "x", "y"}, 8), "p\xc3\xa9  x\ny\n");
}

TEST(Completion, listsAtMostAHundredWords) {
  const std::vector<std::string> words(130, "w");
  const std::string text = listInColumns(words, 30);
  EXPECT_EQ(text.substr(text.size() - 16), "... and 30 more\n");
  EXPECT_EQ(std::count(text.begin(), text.end(), 'w'), 100);
}

}  // namespace
