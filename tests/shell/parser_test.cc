// Tokens as statements, and what a syntax error tells.
#include "parser.h"

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace shell {
namespace {

std::string show(const Node& node);

std::string showAll(const Nodes& nodes) {
  std::string out;
  for (const NodePtr& node : nodes) out += (out.empty() ? "" : " ") + show(*node);
  return out;
}

std::string show(const Literal& literal) {
  switch (literal.kind) {
    case Literal::Kind::Nil:
      return "nil";
    case Literal::Kind::True:
      return "true";
    case Literal::Kind::False:
      return "false";
    case Literal::Kind::Integer:
      return std::to_string(literal.integer);
    case Literal::Kind::Character:
      return fmt::format("${}", literal.integer);
    case Literal::Kind::Symbol:
      return "#" + literal.bytes;
    case Literal::Kind::ByteArray:
      return fmt::format("#[{}]", literal.bytes.size());
    case Literal::Kind::Array: {
      std::string out;
      for (const Literal& element : literal.elements) out += " " + show(element);
      return "#(" + out + " )";
    }
    default:
      return "'" + literal.bytes + "'";
  }
}

// The tree in full parentheses: (receiver selector arguments).
std::string show(const Node& node) {
  if (const auto* literal = std::get_if<Literal>(&node.content)) return show(*literal);
  if (const auto* variable = std::get_if<Variable>(&node.content)) return variable->name;
  if (const auto* assignment = std::get_if<Assignment>(&node.content)) {
    return fmt::format("({} := {})", assignment->name, show(*assignment->value));
  }
  if (const auto* send = std::get_if<Send>(&node.content)) {
    std::string out = show(*send->receiver);
    for (const Message& message : send->messages) {
      std::string arguments = showAll(message.arguments);
      out = fmt::format("({} {}{}{})", out, message.selector, arguments.empty() ? "" : " ",
                        arguments);
    }
    return out;
  }
  if (const auto* call = std::get_if<Call>(&node.content)) {
    return fmt::format("{}({})", call->function, showAll(call->arguments));
  }
  if (const auto* block = std::get_if<Block>(&node.content)) {
    return "[" + showAll(block->body->statements) + "]";
  }
  return "{" + showAll(std::get<Brace>(node.content).elements) + "}";
}

std::string parsed(std::string_view source) {
  std::string out;
  for (const NodePtr& node : parse(source)) out += (out.empty() ? "" : "; ") + show(*node);
  return out;
}

SyntaxError errorOf(std::string_view source) {
  try {
    parse(source);
  } catch (const SyntaxError& error) {
    return error;
  }
  ADD_FAILURE() << "no syntax error in " << source;
  return {"", {}, false};
}

TEST(Parser, BindsUnaryBeforeBinaryBeforeKeyword) {
  EXPECT_EQ(parsed("a b + c d at: e f put: g + h"), "(((a b) + (c d)) at:put: (e f) (g + h))");
  EXPECT_EQ(parsed("1 + 2 * 3"), "((1 + 2) * 3)");
  EXPECT_EQ(parsed("1 + (2 * 3)"), "(1 + (2 * 3))");
}

TEST(Parser, ReadsNegativeNumbersWhereAnOperandIsExpected) {
  EXPECT_EQ(parsed("-7"), "-7");
  EXPECT_EQ(parsed("3 - 7"), "(3 - 7)");
  EXPECT_EQ(parsed("3 -7"), "(3 - 7)");
  EXPECT_EQ(parsed("3 - -7"), "(3 - -7)");
  EXPECT_EQ(parsed("#(1 -2)"), "#( 1 -2 )");
  EXPECT_EQ(parsed("-9223372036854775808"), "-9223372036854775808");
  EXPECT_FALSE(errorOf("9223372036854775808").incomplete);
}

TEST(Parser, EndsStatementsAtPeriodsAndLineEnds) {
  EXPECT_EQ(parsed("a. b"), "a; b");
  EXPECT_EQ(parsed("a\nb foo\nc"), "a; (b foo); c");
  EXPECT_EQ(parsed("a := 3 +\n 4\n. . b."), "(a := (3 + 4)); b");
  EXPECT_EQ(parsed("a\n-1"), "a; -1");
  EXPECT_EQ(parsed(""), "");
  EXPECT_EQ(parsed("\"only a comment\""), "");
}

TEST(Parser, TakesLineEndsWithinBracketsAsBlanks) {
  EXPECT_EQ(parsed("(a\nfoo)"), "(a foo)");
  EXPECT_EQ(parsed("[a\nfoo.\nb] value"), "([(a foo) b] value)");
  EXPECT_EQ(parsed("K(a,\n b\n)"), "K(a b)");
  EXPECT_EQ(parsed("x := {1.\n2}"), "(x := {1 2})");
}

TEST(Parser, SeparatesArgumentsByCommasAndConcatenatesElsewhere) {
  EXPECT_EQ(parsed("K(a, b foo, 1 + 2)"), "K(a (b foo) (1 + 2))");
  EXPECT_EQ(parsed("K((a , b), c)"), "K((a , b) c)");
  EXPECT_EQ(parsed("K([a , b], {c , d})"), "K([(a , b)] {(c , d)})");
  EXPECT_EQ(parsed("a , b"), "(a , b)");
  EXPECT_EQ(parsed("K()"), "K()");
  EXPECT_EQ(parsed("K(L(1), 2) foo"), "(K(L(1) 2) foo)");
}

TEST(Parser, ReadsLiteralArrays) {
  EXPECT_EQ(parsed("#(1 nil true false 'x' #s sym $a (2) #(3) #[1 2])"),
            "#( 1 nil true false 'x' #s #sym $97 #( 2 ) #( 3 ) #[2] )");
  EXPECT_STREQ(errorOf("#[256]").what(), "an integer of 0 to 255 or ']' expected");
  EXPECT_STREQ(errorOf("#(])").what(), "a literal or ')' expected, not ']'");
}

TEST(Parser, SaysWhatIsIncomplete) {
  for (const char* source :
       {"(a", "[a", "K(a,", "a :=", "a +", "#(1", "#[1", "{1", "a at: 1 put:"}) {
    EXPECT_TRUE(errorOf(source).incomplete) << source;
  }
  for (const char* source : {"a )", "a := )", "nil := 3", "1 2", "a at: )"}) {
    EXPECT_FALSE(errorOf(source).incomplete) << source;
  }
}

TEST(Parser, KeepsTheSelectorsPlace) {
  Nodes nodes = parse("\n  abc foo");
  EXPECT_EQ(nodes.at(0)->position.line, 2);
  EXPECT_EQ(nodes.at(0)->position.column, 7);
}

TEST(Parser, DescribesAnErrorWithItsLineAndACaret) {
  std::string source = "a := 1\n\xC3\xA9 b";
  try {
    parse(source);
    FAIL() << "no syntax error";
  } catch (const SyntaxError& error) {
    EXPECT_EQ(describe(error, "x.kvf", SourceText(source)),
              "x.kvf:2:1: unexpected character 16rC3\n  \xC3\xA9 b\n  ^\n");
  }
  SyntaxError error = errorOf("\ta \xC3\xA9");
  EXPECT_EQ(describe(error, "x", SourceText("\ta \xC3\xA9")),
            "x:1:4: unexpected character 16rC3\n"
            "  \ta \xC3\xA9\n  \t  ^\n");
}

std::string repeated(std::string_view piece, int count) {
  std::string out;
  for (int i = 0; i < count; i++) out += piece;
  return out;
}

std::string nested(std::string_view opening, std::string_view closing, int depth) {
  return repeated(opening, depth) + "1" + repeated(closing, depth);
}

std::string messageOf(const std::string& source) {
  try {
    parse(source);
  } catch (const SyntaxError& error) {
    return error.what();
  }
  return "";
}

TEST(Parser, RefusesWhatIsNestedTooDeep) {
  static constexpr std::string_view BRACKETS[][2] = {
      {"(", ")"}, {"[", "]"}, {"{", "}"}, {"#(", ")"}, {"f(", ")"}, {"a := ", ""}, {"1 + (", ")"}};
  for (const auto& [opening, closing] : BRACKETS) {
    EXPECT_EQ(messageOf(nested(opening, closing, MAX_NESTING - 1)), "") << opening << closing;
    EXPECT_EQ(messageOf(nested(opening, closing, 100'000)), "this is nested more than 500 deep")
        << opening << closing;
  }
}

TEST(Parser, TakesAFlatChainOfMessagesForNoNesting) {
  EXPECT_EQ(messageOf(nested("1 + ", "", 100'000)), "");
  EXPECT_EQ(messageOf(nested("", " negated", 100'000)), "");
  EXPECT_EQ(messageOf(nested("1 + ", " negated", 1000) + " at: 3"), "");
}

TEST(Parser, SaysThatThereAreNoFractions) {
  for (const char* source : {"3.14", "x := 1.5", "#(1.5)", "16r1F.0", "f(-1.5)"}) {
    EXPECT_THAT(messageOf(source), testing::StartsWith("there are no fractions")) << source;
  }
  EXPECT_EQ(parsed("3. 14"), "3; 14");
  EXPECT_EQ(parsed("3.x := 1.\n5"), "3; (x := 1); 5");
}

TEST(Parser, RefusesToHideWhatHasANameAlready) {
  for (const char* name : {"nil", "true", "Session", "Smalltalk", "String", "KvFile", "KvfOpen",
                           "KvfStartup", "KvFileRead", "KvfFile"}) {
    EXPECT_THAT(messageOf(std::string(name) + " := 3"),
                testing::HasSubstr("'" + std::string(name) + "' cannot be assigned to"));
  }
  EXPECT_EQ(messageOf("kvfOpen := 3. string := 4. Total := 5"), "");
}

TEST(Parser, ShowsThePartOfALongLineAroundAnError) {
  std::string source = std::string(1000, 'a') + " \x01\x1B[31m ) " + std::string(1000, 'b');
  try {
    parse(source);
    FAIL() << "no error";
  } catch (const SyntaxError& error) {
    EXPECT_EQ(describe(error, "s", SourceText(source)),
              "s:1:1002: unexpected character 16r01\n  ..." + std::string(59, 'a') + " ??[31m ) " +
                  std::string(51, 'b') + "...\n  " + std::string(63, ' ') + "^\n");
  }
}

}  // namespace
}  // namespace shell
