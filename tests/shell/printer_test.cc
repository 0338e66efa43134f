// How answers are written, so that they can be read back.
#include "shell/workspace.h"
#include "text.h"

#include <chrono>

namespace shell {
namespace {

using PrinterTest = WorkspaceTest;

// What is printed reads back as an equal object.
TEST_F(PrinterTest, PrintsLiteralsSoThatTheyCanBeReadBack) {
  for (const char* source : {"nil",
                             "true",
                             "false",
                             "0",
                             "-7",
                             "1152921504606846976",
                             "-9223372036854775808",
                             "''",
                             "'it''s'",
                             "'a\\b'",
                             "e'a\\n\\r\\t\\\\\\x00\\x7F\\xFF'",
                             "u'h\xC3\xA9'",
                             "u'a\\n'",
                             "w'h\\u00E9\\uD83D'",
                             "#sym",
                             "#at:put:",
                             "#'a b'",
                             "#''",
                             "#e'\\n'",
                             "$a",
                             "$ ",
                             "$'",
                             "Character value: 10",
                             "Character value: 233",
                             "#[]",
                             "#[1 2 255]",
                             "#()",
                             "#(1 nil 'x' #sym $a #[1] #(true))"}) {
    EXPECT_EQ(answer(source), source);
  }
}

TEST_F(PrinterTest, UsesEscapesOnlyWhereTheyAreNeeded) {
  EXPECT_EQ(answer("'a\\b' , e'\\n'"), "e'a\\\\b\\n'");
  EXPECT_EQ(answer("'h\xC3\xA9'"), "e'h\\xC3\\xA9'");
  EXPECT_EQ(answer("e'\\xC3\\xA9' asUtf8"), "u'\xC3\xA9'");
  EXPECT_EQ(answer("e'\\xE2\\x80\\x8Ex' asUtf8"), "u'\\xE2\\x80\\x8Ex'");
  EXPECT_EQ(answer("e'\\xFFx' asUtf8"), "u'\\xFFx'");
}

TEST_F(PrinterTest, PrintsArraysThatAreNoLiteralsInBraces) {
  EXPECT_EQ(answer("{KvFile new. 1. 'x'}"), "{aKvFile#1. 1. 'x'}");
  EXPECT_EQ(answer("{Character value: 10}"), "{Character value: 10}");
  EXPECT_EQ(answer("a := Array new: 1. a at: 1 put: a. a size"), "1");
  EXPECT_NE(answer("a").find("anArray"), std::string::npos);
}

TEST_F(PrinterTest, NumbersFilesAsTheyAreMade) {
  EXPECT_EQ(answer("f := KvFile new. g := KvFile new. g"), "aKvFile#2");
  EXPECT_EQ(answer("f"), "aKvFile#1");
  EXPECT_EQ(answer("g := nil. Smalltalk collectGarbage. KvFile new"), "aKvFile#3");
}

TEST_F(PrinterTest, PrintsClassesBlocksAndGlobals) {
  EXPECT_EQ(answer("3 class"), "SmallInteger");
  EXPECT_EQ(answer("[3]"), "aBlock");
  EXPECT_EQ(answer("Session"), "Session");
}

TEST_F(PrinterTest, PrintsDatesInIsoForm) {
  answer("f := KvFile new. KvfOpen(f, 'x', 'w', false). KvfClose(f)");
  auto time = std::chrono::sys_days{std::chrono::year{2024} / 2 / 29} + std::chrono::seconds(3661);
  std::filesystem::last_write_time("x", std::chrono::file_clock::from_sys(time));
  EXPECT_EQ(answer("KvfModTime(KvFile, 'x')"), "2024-02-29T01:01:01.000Z");
}

TEST_F(PrinterTest, DisplaysTextsAsTheyAre) {
  EXPECT_EQ(answer("'it''s' displayNl. #(1 'a') displayNl. $a displayNl. w'\\u00E9' displayNl"),
            "w'\\u00E9'");
  EXPECT_EQ(out_.str(), "it's\n#(1 'a')\na\n\xC3\xA9\n");
}

TEST(CutForTerminal, CutsBetweenCharactersAndSaysSo) {
  EXPECT_EQ(cutForTerminal("abc", 0), "abc");
  EXPECT_EQ(cutForTerminal("abc", 3), "abc");
  EXPECT_EQ(cutForTerminal("abcd", 3), "abc ... (3 of 4 bytes shown)");
  EXPECT_EQ(cutForTerminal("ab\xC3\xA9z", 3), "ab ... (2 of 5 bytes shown)");
}

TEST(Text, KnowsWellFormedUtf8) {
  EXPECT_EQ(utf8Length("a"), 1U);
  EXPECT_EQ(utf8Length("\xC3\xA9"), 2U);
  EXPECT_EQ(utf8Length("\xC0\x80"), 0U);
  EXPECT_EQ(utf8Length("\xE0\x80\x80"), 0U);
  EXPECT_EQ(utf8Length("\xED\xA0\x80"), 0U);
  EXPECT_EQ(utf8Length("\xF4\x90\x80\x80"), 0U);
  EXPECT_EQ(utf8Length("\xC3"), 0U);
  EXPECT_EQ(utf8Length(""), 0U);
}

TEST(Text, ConvertsBetweenUtf8AndUtf16) {
  std::u16string units;
  EXPECT_TRUE(utf16FromEscapedUtf8("a\xF0\x9F\x98\x80", &units));
  EXPECT_EQ(units, u"a\U0001F600");
  EXPECT_EQ(utf8FromUtf16(units), "a\xF0\x9F\x98\x80");
  EXPECT_FALSE(utf16FromEscapedUtf8("\xFF", &units));
}

}  // namespace
}  // namespace shell
