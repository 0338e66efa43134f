#include "parser.h"

#include "lexer.h"
#include "text.h"

#include <fmt/format.h>

#include <utility>

namespace shell {
namespace {

using Kind = Token::Kind;

class Parser {
 public:
  explicit Parser(std::string_view source) : tokens_(tokenize(source)) {}

  Nodes parseProgram();

 private:
  // What the surroundings of an expression mean for it.
  struct Surroundings {
    bool inBrackets = false;      // line ends are blanks
    bool commaSeparates = false;  // a comma ends an argument of a call
  };

  const Token& current() const { return tokens_[index_]; }
  const Token& ahead() const { return tokens_[std::min(index_ + 1, tokens_.size() - 1)]; }
  Token take() { return tokens_[index_ == tokens_.size() - 1 ? index_ : index_++]; }
  [[noreturn]] void fail(const std::string& message) const;
  void expect(Kind kind, const std::string& what);

  // True when the expression may go on with the current token.
  bool continues(Kind kind) const;
  bool isBinary() const;
  bool isNegativeNumber() const;

  Nodes parseStatements(Kind closer);
  Nodes parseArguments();
  NodePtr parseExpression();
  NodePtr parseKeywordSend();
  NodePtr parseBinarySend();
  NodePtr parseUnarySend();
  NodePtr parsePrimary();
  NodePtr parseIdentifier();
  NodePtr parseBracketed(Kind closer);
  Literal parseNumber();
  Literal parseArrayElement();
  Literal parseLiteralArray();
  Literal parseByteArray();

  template <typename Content>
  NodePtr make(Position position, Content&& content) const {
    return std::make_unique<const Node>(Node{position, std::forward<Content>(content)});
  }

  std::vector<Token> tokens_;
  size_t index_ = 0;
  Surroundings surroundings_;
};

std::string nameOf(const Token& token) {
  switch (token.kind) {
    case Kind::End:
      return "the end";
    case Kind::Literal:
      return "a literal";
    default:
      return "'" + token.text + "'";
  }
}

void Parser::fail(const std::string& message) const {
  throw SyntaxError(message, current().position, current().kind == Kind::End);
}

void Parser::expect(Kind kind, const std::string& what) {
  if (current().kind != kind) fail(what + " expected, not " + nameOf(current()));
  take();
}

bool Parser::continues(Kind kind) const {
  return current().kind == kind && (surroundings_.inBrackets || !current().startsLine);
}

bool Parser::isBinary() const {
  return continues(Kind::Binary) && !(surroundings_.commaSeparates && current().text == ",");
}

bool Parser::isNegativeNumber() const {
  return current().kind == Kind::Binary && current().text == "-" && ahead().touchesLast &&
         ahead().kind == Kind::Literal && ahead().literal.kind == Literal::Kind::Integer;
}

Nodes Parser::parseProgram() {
  Nodes statements;
  while (true) {
    while (current().kind == Kind::Period) take();
    if (current().kind == Kind::End) return statements;
    statements.push_back(parseExpression());
    bool ends =
        current().kind == Kind::Period || current().kind == Kind::End || current().startsLine;
    if (!ends)
      fail("a message, a period or the end of the line expected, not " + nameOf(current()));
  }
}

// Statements up to `closer`, which is taken.
Nodes Parser::parseStatements(Kind closer) {
  Surroundings outer = std::exchange(surroundings_, {true, false});
  Nodes statements;
  while (true) {
    while (current().kind == Kind::Period) take();
    if (current().kind == closer) break;
    statements.push_back(parseExpression());
    if (current().kind != Kind::Period && current().kind != closer) {
      fail("a period or the closing bracket expected, not " + nameOf(current()));
    }
  }
  take();
  surroundings_ = outer;
  return statements;
}

Nodes Parser::parseArguments() {
  Surroundings outer = std::exchange(surroundings_, {true, true});
  Nodes arguments;
  take();
  if (current().kind != Kind::RightParenthesis) {
    arguments.push_back(parseExpression());
    while (current().kind == Kind::Binary && current().text == ",") {
      take();
      arguments.push_back(parseExpression());
    }
  }
  expect(Kind::RightParenthesis, "a comma or ')'");
  surroundings_ = outer;
  return arguments;
}

NodePtr Parser::parseExpression() {
  if (current().kind != Kind::Identifier || ahead().kind != Kind::Assign) return parseKeywordSend();
  Token name = take();
  take();
  static constexpr std::string_view RESERVED[] = {"nil", "true", "false"};
  for (std::string_view word : RESERVED) {
    if (name.text == word) {
      throw SyntaxError("'" + name.text + "' cannot be assigned to", name.position, false);
    }
  }
  return make(name.position, Assignment{name.text, parseExpression()});
}

NodePtr Parser::parseKeywordSend() {
  NodePtr receiver = parseBinarySend();
  if (!continues(Kind::Keyword)) return receiver;
  Send send;
  Position position = current().position;
  while (continues(Kind::Keyword)) {
    send.selector += take().text;
    send.arguments.push_back(parseBinarySend());
  }
  send.receiver = std::move(receiver);
  return make(position, std::move(send));
}

NodePtr Parser::parseBinarySend() {
  NodePtr receiver = parseUnarySend();
  while (isBinary()) {
    Token operation = take();
    Send send;
    send.receiver = std::move(receiver);
    send.selector = operation.text;
    send.arguments.push_back(parseUnarySend());
    receiver = make(operation.position, std::move(send));
  }
  return receiver;
}

NodePtr Parser::parseUnarySend() {
  NodePtr receiver = parsePrimary();
  while (continues(Kind::Identifier)) {
    Token selector = take();
    receiver = make(selector.position, Send{std::move(receiver), selector.text, {}});
  }
  return receiver;
}

NodePtr Parser::parsePrimary() {
  Position position = current().position;
  if (isNegativeNumber()) return make(position, parseNumber());
  switch (current().kind) {
    case Kind::Identifier:
      return parseIdentifier();
    case Kind::Literal:
      return make(position, current().literal.kind == Literal::Kind::Integer ? parseNumber()
                                                                             : take().literal);
    case Kind::ArrayStart:
      return make(position, parseLiteralArray());
    case Kind::ByteArrayStart:
      return make(position, parseByteArray());
    case Kind::LeftParenthesis:
      return parseBracketed(Kind::RightParenthesis);
    case Kind::LeftBracket:
      take();
      return make(
          position,
          Block{std::make_shared<const BlockBody>(BlockBody{parseStatements(Kind::RightBracket)})});
    case Kind::LeftBrace:
      take();
      return make(position, Brace{parseStatements(Kind::RightBrace)});
    default:
      fail("an expression expected, not " + nameOf(current()));
  }
}

NodePtr Parser::parseIdentifier() {
  Token name = take();
  if (current().kind == Kind::LeftParenthesis && !current().startsLine) {
    return make(name.position, Call{name.text, parseArguments()});
  }
  Literal literal;
  if (name.text == "nil") return make(name.position, std::move(literal));
  if (name.text == "true" || name.text == "false") {
    literal.kind = name.text == "true" ? Literal::Kind::True : Literal::Kind::False;
    return make(name.position, std::move(literal));
  }
  return make(name.position, Variable{name.text});
}

NodePtr Parser::parseBracketed(Kind closer) {
  Surroundings outer = std::exchange(surroundings_, {true, false});
  take();
  NodePtr inner = parseExpression();
  expect(closer, "')'");
  surroundings_ = outer;
  return inner;
}

Literal Parser::parseNumber() {
  bool isNegative = current().kind == Kind::Binary;
  if (isNegative) take();
  Token number = take();
  if (number.magnitude63 && !isNegative) {
    throw SyntaxError("this integer does not fit in 64 bits", number.position, false);
  }
  // 2^63 has wrapped to the smallest integer already, which negates to itself.
  if (isNegative && !number.magnitude63) number.literal.integer = -number.literal.integer;
  return number.literal;
}

Literal Parser::parseLiteralArray() {
  take();
  Literal array;
  array.kind = Literal::Kind::Array;
  while (current().kind != Kind::RightParenthesis) array.elements.push_back(parseArrayElement());
  take();
  return array;
}

Literal Parser::parseArrayElement() {
  if (isNegativeNumber()) return parseNumber();
  Literal element;
  switch (current().kind) {
    case Kind::Literal:
      return current().literal.kind == Literal::Kind::Integer ? parseNumber() : take().literal;
    case Kind::ArrayStart:
    case Kind::LeftParenthesis:
      return parseLiteralArray();
    case Kind::ByteArrayStart:
      return parseByteArray();
    case Kind::Identifier:
      if (current().text == "true") element.kind = Literal::Kind::True;
      if (current().text == "false") element.kind = Literal::Kind::False;
      if (element.kind == Literal::Kind::Nil && current().text != "nil") {
        element.kind = Literal::Kind::Symbol;
        element.bytes = current().text;
      }
      take();
      return element;
    default:
      fail("a literal or ')' expected, not " + nameOf(current()));
  }
}

Literal Parser::parseByteArray() {
  take();
  Literal array;
  array.kind = Literal::Kind::ByteArray;
  while (current().kind != Kind::RightBracket) {
    bool isByte = current().kind == Kind::Literal &&
                  current().literal.kind == Literal::Kind::Integer &&
                  current().literal.integer >= 0 && current().literal.integer <= 255;
    if (!isByte) fail("an integer of 0 to 255 or ']' expected");
    array.bytes += static_cast<char>(take().literal.integer);
  }
  take();
  return array;
}

}  // namespace

Nodes parse(std::string_view source) { return Parser(source).parseProgram(); }

std::string describe(const SyntaxError& error, std::string_view name, std::string_view source) {
  std::vector<std::string> lines = splitLines(source);
  auto index = static_cast<size_t>(error.position.line - 1);
  std::string line = index < lines.size() ? lines[index] : "";
  std::string blanks;
  for (size_t i = 0; i + 1 < static_cast<size_t>(error.position.column) && i < line.size(); i++) {
    // Tabs stay, and bytes inside a UTF-8 character take no column.
    if (line[i] == '\t') {
      blanks += '\t';
    } else if ((static_cast<unsigned char>(line[i]) & 0xC0U) != 0x80U) {
      blanks += ' ';
    }
  }
  return fmt::format("{}:{}:{}: {}\n  {}\n  {}^\n", name, error.position.line,
                     error.position.column, error.what(), line, blanks);
}

}  // namespace shell
