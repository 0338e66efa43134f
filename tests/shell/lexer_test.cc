// Source text as tokens, each with its place.
#include "lexer.h"

#include <gtest/gtest.h>

namespace shell {
namespace {

std::vector<Token> tokensOf(std::string_view source) {
  std::vector<Token> tokens = tokenize(source);
  EXPECT_EQ(tokens.back().kind, Token::Kind::End);
  tokens.pop_back();
  return tokens;
}

Literal literalOf(std::string_view source) {
  std::vector<Token> tokens = tokensOf(source);
  EXPECT_EQ(tokens.size(), 1U) << source;
  EXPECT_EQ(tokens.at(0).kind, Token::Kind::Literal) << source;
  return tokens.at(0).literal;
}

SyntaxError errorOf(std::string_view source) {
  try {
    tokenize(source);
  } catch (const SyntaxError& error) {
    return error;
  }
  ADD_FAILURE() << "no syntax error in " << source;
  return {"", {}, false};
}

TEST(Lexer, ReadsIntegersInEveryRadix) {
  EXPECT_EQ(literalOf("42").integer, 42);
  EXPECT_EQ(literalOf("16r1F").integer, 31);
  EXPECT_EQ(literalOf("2r101").integer, 5);
  EXPECT_EQ(literalOf("36rZ").integer, 35);
  EXPECT_EQ(literalOf("9223372036854775807").integer, INT64_MAX);
}

TEST(Lexer, MarksTheMagnitudeThatOnlyAMinusMakesLegal) {
  EXPECT_TRUE(tokensOf("9223372036854775808").at(0).magnitude63);
  EXPECT_FALSE(tokensOf("9223372036854775807").at(0).magnitude63);
}

TEST(Lexer, RefusesIntegersThatDoNotFitOrEndInLetters) {
  EXPECT_FALSE(errorOf("9223372036854775809").incomplete);
  EXPECT_FALSE(errorOf("99999999999999999999999").incomplete);
  EXPECT_EQ(errorOf("12ab").position.column, 3);
  EXPECT_STREQ(errorOf("16rg").what(), "digits expected after the radix");
}

TEST(Lexer, DoublesQuotesInStrings) {
  EXPECT_EQ(literalOf("'it''s'").bytes, "it's");
  EXPECT_EQ(literalOf("''").bytes, "");
  EXPECT_EQ(literalOf("''''").bytes, "'");
  EXPECT_EQ(literalOf("'a\\n'").bytes, "a\\n");
}

TEST(Lexer, ReadsEscapesInPrefixedStringsOnly) {
  Literal literal = literalOf("e'a\\n\\r\\t\\\\\\xff\\x00z'''");
  EXPECT_EQ(literal.bytes, std::string("a\n\r\t\\\xff\0z'", 9));
  EXPECT_EQ(literal.kind, Literal::Kind::String);
  EXPECT_STREQ(errorOf("e'\\q'").what(), "an escape is one of \\n \\r \\t \\\\ \\xHH \\uHHHH");
  EXPECT_STREQ(errorOf("e'\\x4'").what(), "a hexadecimal digit expected");
}

TEST(Lexer, ReadsUtf8AndUtf16Texts) {
  EXPECT_EQ(literalOf("u'h\xC3\xA9'").kind, Literal::Kind::Utf8);
  EXPECT_EQ(literalOf("u'h\xC3\xA9'").bytes, "h\xC3\xA9");
  EXPECT_EQ(literalOf("w'h\xC3\xA9'").units, u"h\u00e9");
  EXPECT_EQ(literalOf("w'\\uD83D\\uDE00'").units, u"\U0001F600");
  EXPECT_EQ(literalOf("w'\\uD83D'").units, std::u16string(1, char16_t{0xD83D}));
  EXPECT_FALSE(errorOf("w'\xFF'").incomplete);
}

TEST(Lexer, ReadsCharactersAndSymbols) {
  EXPECT_EQ(literalOf("$a").integer, 'a');
  EXPECT_EQ(literalOf("$ ").integer, ' ');
  EXPECT_EQ(literalOf("$'").integer, '\'');
  EXPECT_EQ(literalOf("$\xC3\xA9").integer, 0xE9);
  EXPECT_EQ(literalOf("$\xFF").integer, 0xFF);
  EXPECT_EQ(literalOf("#at:put:").bytes, "at:put:");
  EXPECT_EQ(literalOf("#'a b'").bytes, "a b");
  EXPECT_EQ(literalOf("#e'a\\n'").bytes, "a\n");
  EXPECT_EQ(literalOf("#x").kind, Literal::Kind::Symbol);
}

TEST(Lexer, TellsWhatIsUnfinishedFromWhatIsWrong) {
  EXPECT_TRUE(errorOf("'abc").incomplete);
  EXPECT_TRUE(errorOf("\"abc").incomplete);
  EXPECT_TRUE(errorOf("e'abc\\").incomplete);
  EXPECT_TRUE(errorOf("$").incomplete);
  EXPECT_FALSE(errorOf("a ? b").incomplete);
  EXPECT_FALSE(errorOf("# a").incomplete);
}

TEST(Lexer, SkipsCommentsAndNotesLineStarts) {
  std::vector<Token> tokens = tokensOf("a \"x\ny\" b\n\n  c");
  ASSERT_EQ(tokens.size(), 3U);
  EXPECT_TRUE(tokens[0].startsLine);
  EXPECT_FALSE(tokens[1].startsLine);
  EXPECT_TRUE(tokens[2].startsLine);
  EXPECT_EQ(tokens[2].position.line, 4);
  EXPECT_EQ(tokens[2].position.column, 3);
}

TEST(Lexer, SplitsOperatorsSoThatAMinusStaysApart) {
  std::vector<Token> tokens = tokensOf("a<=b<-1,,x := y:z foo:=3");
  std::vector<std::string> texts;
  for (const Token& token : tokens) {
    texts.push_back(token.kind == Token::Kind::Literal ? "lit" : token.text);
  }
  EXPECT_EQ(texts, (std::vector<std::string>{"a", "<=", "b", "<", "-", "lit", ",", ",", "x",
                                             ":=", "y:", "z", "foo", ":=", "lit"}));
}

TEST(Lexer, SkipsAByteOrderMarkAndTheLineThatNamesTheInterpreter) {
  std::vector<Token> tokens = tokensOf("\xEF\xBB\xBF#!/usr/bin/kvf run 'x\na");
  ASSERT_EQ(tokens.size(), 1U);
  EXPECT_EQ(tokens[0].text, "a");
  EXPECT_TRUE(tokens[0].startsLine);
  EXPECT_EQ(tokens[0].position.line, 2);
  EXPECT_FALSE(errorOf("a\n#!x").incomplete);
}

}  // namespace
}  // namespace shell
