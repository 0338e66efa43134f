#include "parser.h"

#include <kvfile/kvhost.h>

#include "functions.h"
#include "lexer.h"
#include "messages.h"
#include "text.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

namespace shell {
namespace {

using Kind = Token::Kind;

int heightOf(const Nodes& nodes) {
  int height = 0;
  for (const NodePtr& node : nodes) height = std::max(height, node->height);
  return height;
}

int heightBelow(const Literal&) { return 0; }
int heightBelow(const Variable&) { return 0; }
int heightBelow(const Assignment& assignment) { return assignment.value->height; }
int heightBelow(const Send& send) { return send.receiver->height; }
int heightBelow(const Call& call) { return heightOf(call.arguments); }
int heightBelow(const Block& block) { return heightOf(block.body->statements); }
int heightBelow(const Brace& brace) { return heightOf(brace.elements); }

}  // namespace

class Parser {
 public:
  explicit Parser(SourceText& text) : text_(text), lexer_(text) {}

  NodePtr parseNextStatement();

 private:
  // What the surroundings of an expression mean for it.
  struct Surroundings {
    bool inBrackets = false;      // line ends are blanks
    bool commaSeparates = false;  // a comma ends an argument of a call
  };

  // Counts what is being parsed at one time, one within the other.
  class Nesting {
   public:
    explicit Nesting(Parser& parser) : parser_(parser) {
      if (++parser_.nesting_ > MAX_NESTING) parser_.failTooDeep(parser_.current().position);
    }
    ~Nesting() { parser_.nesting_--; }
    Nesting(const Nesting&) = delete;
    Nesting& operator=(const Nesting&) = delete;

   private:
    Parser& parser_;
  };

  // Tokens are read when they are asked for, because what stands around the last one decides what a
  // line end before the next one is.
  const Token& current() { return tokenAt(0); }
  const Token& ahead() {
    tokenAt(0);
    return tokenAt(1);
  }
  const Token& tokenAt(size_t index) {
    if (tokenCount_ <= index) lexer_.next(!surroundings_.inBrackets, &tokens_[tokenCount_++]);
    return tokens_[index];
  }
  Token take() {
    current();
    Token token = std::move(tokens_[0]);
    drop();
    return token;
  }
  void drop() {
    current();
    if (--tokenCount_ > 0) std::swap(tokens_[0], tokens_[1]);
  }
  void skipLineEnds() {
    while (current().kind == Kind::LineEnd) drop();
  }
  [[noreturn]] void fail(const std::string& message);
  [[noreturn]] static void failTooDeep(Position position);
  void expect(Kind kind, const std::string& what);

  // True when the expression may go on with the current token.
  bool continues(Kind kind);
  bool isBinary();
  bool isNegativeNumber();

  Nodes parseStatements(Kind closer);
  Nodes parseArguments();
  NodePtr parseExpression();
  NodePtr parseKeywordSend();
  NodePtr parseBinarySend();
  NodePtr parseUnarySend();
  static NodePtr send(NodePtr receiver, Message message);
  NodePtr parsePrimary();
  NodePtr parseIdentifier();
  NodePtr parseBracketed(Kind closer);
  Literal parseNumber();
  Literal parseArrayElement();
  Literal parseLiteralArray();
  Literal parseByteArray();

  template <typename Content>
  static NodePtr make(Position position, Content&& content) {
    int height = heightBelow(content) + 1;
    if (height > MAX_NESTING) failTooDeep(position);
    return std::make_unique<Node>(
        Node{position, std::forward<Content>(content), height, nullptr, {}});
  }

  SourceText& text_;
  Lexer lexer_;
  Token tokens_[2];
  size_t tokenCount_ = 0;
  int nesting_ = 0;
  Surroundings surroundings_;
};

namespace {

std::string nameOf(const Token& token) {
  switch (token.kind) {
    case Kind::End:
      return "the end";
    case Kind::LineEnd:
      return "the end of the line";
    case Kind::Literal:
      return "a literal";
    default:
      return "'" + token.text + "'";
  }
}

// What a variable must not hide: a name would then mean one thing in front of a parenthesis and
// another elsewhere.
void refuseReserved(const Token& name) {
  static constexpr std::string_view WORDS[] = {"nil", "true", "false", "Session", "Smalltalk"};
  bool isModules = name.text.starts_with("Kvf") || name.text.starts_with("KvFile");
  bool isReserved = isModules ||
                    std::find(std::begin(WORDS), std::end(WORDS), name.text) != std::end(WORDS) ||
                    kvhost::classNamed(name.text) != OOP_NIL;
  if (!isReserved) return;
  throw SyntaxError(fmt::format("'{}' cannot be assigned to{}", name.text,
                                isModules ? ": Kvf and KvFile begin names of the module" : ""),
                    name.position, false);
}

}  // namespace

void Parser::fail(const std::string& message) {
  throw SyntaxError(message, current().position, current().kind == Kind::End);
}

void Parser::failTooDeep(Position position) {
  throw SyntaxError(fmt::format("this is nested more than {} deep", MAX_NESTING), position, false);
}

void Parser::expect(Kind kind, const std::string& what) {
  if (current().kind != kind) fail(what + " expected, not " + nameOf(current()));
  drop();
}

bool Parser::continues(Kind kind) { return current().kind == kind; }

bool Parser::isBinary() {
  return continues(Kind::Binary) && !(surroundings_.commaSeparates && current().text == ",");
}

bool Parser::isNegativeNumber() {
  return current().kind == Kind::Binary && current().text == "-" && ahead().touchesLast &&
         ahead().kind == Kind::Literal && ahead().literal.kind == Literal::Kind::Integer;
}

NodePtr Parser::parseNextStatement() {
  while (current().kind == Kind::Period || current().kind == Kind::LineEnd) drop();
  if (current().kind == Kind::End) return nullptr;
  text_.forgetBefore(current().offset);
  NodePtr statement = parseExpression();
  bool ends = current().kind == Kind::Period || current().kind == Kind::End ||
              current().kind == Kind::LineEnd;
  if (!ends) fail("a message, a period or the end of the line expected, not " + nameOf(current()));
  return statement;
}

// Statements up to `closer`, which is taken.
Nodes Parser::parseStatements(Kind closer) {
  Surroundings outer = std::exchange(surroundings_, {true, false});
  Nodes statements;
  while (true) {
    while (current().kind == Kind::Period) drop();
    if (current().kind == closer) break;
    statements.push_back(parseExpression());
    if (current().kind != Kind::Period && current().kind != closer) {
      fail("a period or the closing bracket expected, not " + nameOf(current()));
    }
  }
  drop();
  surroundings_ = outer;
  return statements;
}

Nodes Parser::parseArguments() {
  Surroundings outer = std::exchange(surroundings_, {true, true});
  Nodes arguments;
  drop();
  if (current().kind != Kind::RightParenthesis) {
    arguments.push_back(parseExpression());
    while (current().kind == Kind::Binary && current().text == ",") {
      drop();
      arguments.push_back(parseExpression());
    }
  }
  expect(Kind::RightParenthesis, "a comma or ')'");
  surroundings_ = outer;
  return arguments;
}

NodePtr Parser::parseExpression() {
  Nesting nesting(*this);
  skipLineEnds();
  if (current().kind != Kind::Identifier || ahead().kind != Kind::Assign) return parseKeywordSend();
  Token name = take();
  drop();
  refuseReserved(name);
  return make(name.position, Assignment{name.text, parseExpression(), nullptr});
}

// Adds a message to those that the receiver is sent already.
NodePtr Parser::send(NodePtr receiver, Message message) {
  int height = heightOf(message.arguments) + 1;
  if (height > MAX_NESTING) failTooDeep(message.position);
  if (!std::holds_alternative<Send>(receiver->content)) {
    Position position = message.position;
    receiver = make(position, Send{std::move(receiver), {}});
  }
  receiver->height = std::max(receiver->height, height);
  message.method = findMethod(message.selector);
  std::get<Send>(receiver->content).messages.push_back(std::move(message));
  return receiver;
}

NodePtr Parser::parseKeywordSend() {
  NodePtr receiver = parseBinarySend();
  if (!continues(Kind::Keyword)) return receiver;
  Message message{current().position, "", {}, nullptr};
  while (continues(Kind::Keyword)) {
    message.selector += take().text;
    message.arguments.push_back(parseBinarySend());
  }
  return send(std::move(receiver), std::move(message));
}

NodePtr Parser::parseBinarySend() {
  NodePtr receiver = parseUnarySend();
  while (isBinary()) {
    Token operation = take();
    Message message{operation.position, operation.text, {}, nullptr};
    message.arguments.push_back(parseUnarySend());
    receiver = send(std::move(receiver), std::move(message));
  }
  return receiver;
}

NodePtr Parser::parseUnarySend() {
  NodePtr receiver = parsePrimary();
  while (continues(Kind::Identifier)) {
    Token selector = take();
    receiver = send(std::move(receiver), Message{selector.position, selector.text, {}, nullptr});
  }
  return receiver;
}

NodePtr Parser::parsePrimary() {
  skipLineEnds();
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
      drop();
      return make(
          position,
          Block{std::make_shared<const BlockBody>(BlockBody{parseStatements(Kind::RightBracket)})});
    case Kind::LeftBrace:
      drop();
      return make(position, Brace{parseStatements(Kind::RightBrace)});
    default:
      fail("an expression expected, not " + nameOf(current()));
  }
}

NodePtr Parser::parseIdentifier() {
  Token name = take();
  if (current().kind == Kind::LeftParenthesis && !current().startsLine) {
    Nodes arguments = parseArguments();
    return make(name.position, Call{name.text, std::move(arguments), findEntryPoint(name.text)});
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
  drop();
  NodePtr inner = parseExpression();
  expect(closer, "')'");
  surroundings_ = outer;
  return inner;
}

Literal Parser::parseNumber() {
  bool isNegative = current().kind == Kind::Binary;
  if (isNegative) drop();
  Token number = take();
  if (number.magnitude63 && !isNegative) {
    throw SyntaxError("this integer does not fit in 64 bits", number.position, false);
  }
  // 2^63 has wrapped to the smallest integer already, which negates to itself.
  if (isNegative && !number.magnitude63) number.literal.integer = -number.literal.integer;
  return number.literal;
}

Literal Parser::parseLiteralArray() {
  Nesting nesting(*this);
  Surroundings outer = std::exchange(surroundings_, {true, false});
  drop();
  Literal array;
  array.kind = Literal::Kind::Array;
  while (current().kind != Kind::RightParenthesis) array.elements.push_back(parseArrayElement());
  drop();
  surroundings_ = outer;
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
      drop();
      return element;
    default:
      fail("a literal or ')' expected, not " + nameOf(current()));
  }
}

Literal Parser::parseByteArray() {
  Surroundings outer = std::exchange(surroundings_, {true, false});
  drop();
  Literal array;
  array.kind = Literal::Kind::ByteArray;
  while (current().kind != Kind::RightBracket) {
    bool isByte = current().kind == Kind::Literal &&
                  current().literal.kind == Literal::Kind::Integer &&
                  current().literal.integer >= 0 && current().literal.integer <= 255;
    if (!isByte) fail("an integer of 0 to 255 or ']' expected");
    array.bytes += static_cast<char>(current().literal.integer);
    drop();
  }
  drop();
  surroundings_ = outer;
  return array;
}

namespace {

// The part of a line around a place, and the blanks that put a caret below the place.
struct Excerpt {
  std::string text;
  std::string blanks;
};

bool continuesCharacter(char byte) { return (static_cast<unsigned char>(byte) & 0xC0U) == 0x80U; }

Excerpt excerptOf(std::string_view line, size_t place) {
  static constexpr size_t SHOWN_EACH_SIDE = 60;
  place = std::min(place, line.size());
  size_t start = place > SHOWN_EACH_SIDE ? place - SHOWN_EACH_SIDE : 0;
  size_t end = std::min(line.size(), place + SHOWN_EACH_SIDE);
  while (start > 0 && continuesCharacter(line[start])) start--;
  while (end < line.size() && continuesCharacter(line[end])) end++;
  Excerpt excerpt;
  if (start > 0) excerpt = {"...", "   "};
  for (size_t i = start; i < end; i++) {
    auto byte = static_cast<unsigned char>(line[i]);
    bool isControl = (byte < 0x20 && byte != '\t') || byte == 0x7F;
    excerpt.text += isControl ? '?' : line[i];
    // Tabs stay, and bytes inside a UTF-8 character take no column.
    if (i < place && !continuesCharacter(line[i])) excerpt.blanks += byte == '\t' ? '\t' : ' ';
  }
  if (end < line.size()) excerpt.text += "...";
  return excerpt;
}

}  // namespace

StatementReader::StatementReader(SourceText& text) : parser_(std::make_unique<Parser>(text)) {}

StatementReader::~StatementReader() = default;

NodePtr StatementReader::next() { return parser_->parseNextStatement(); }

Nodes parse(std::string_view source) {
  SourceText text(source);
  StatementReader reader(text);
  Nodes statements;
  while (NodePtr statement = reader.next()) statements.push_back(std::move(statement));
  return statements;
}

std::string describe(const SyntaxError& error, std::string_view name, const SourceText& text) {
  std::string_view line = text.held();
  Position start = text.heldFrom();
  for (; start.line < error.position.line && !line.empty(); start = {start.line + 1, 1}) {
    line.remove_prefix(std::min(line.find('\n'), line.size() - 1) + 1);
  }
  line = line.substr(0, line.find('\n'));
  if (line.ends_with('\r')) line.remove_suffix(1);
  Excerpt excerpt = excerptOf(line, static_cast<size_t>(error.position.column - start.column));
  return fmt::format("{}:{}:{}: {}\n  {}\n  {}^\n", name, error.position.line,
                     error.position.column, error.what(), excerpt.text, excerpt.blanks);
}

}  // namespace shell
