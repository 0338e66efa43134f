#include "lexer.h"

#include "text.h"

#include <cctype>
#include <limits>
#include <utility>

namespace shell {
namespace {

constexpr std::string_view BINARY_CHARACTERS = "+-*/\\<>=~&|,@%";

bool isIdentifierStart(char c) {
  return std::isalpha(static_cast<unsigned char>(c)) != 0 || c == '_';
}

bool isIdentifierPart(char c) {
  return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '_';
}

bool isUtf8Continuation(char c) { return (static_cast<unsigned char>(c) & 0xC0U) == 0x80U; }

bool isDigit(char c) { return c >= '0' && c <= '9'; }

}  // namespace

char Lexer::take() {
  char c = text_.at(offset_++);
  if (c == '\n') {
    position_.line++;
    position_.column = 1;
  } else {
    position_.column++;
  }
  return c;
}

void Lexer::fail(const std::string& message) const { throw SyntaxError(message, position_, false); }

void Lexer::failOpen(const std::string& message, Position where) {
  throw SyntaxError(message, where, true);
}

void Lexer::next(bool lineEnds, Token* token) {
  token_ = token;
  bool isLineEnd = skipBlanks(lineEnds);
  if (token->kind == Token::Kind::Literal) token->literal = Literal();
  token->kind = isLineEnd ? Token::Kind::LineEnd : Token::Kind::End;
  token->text.clear();
  token->position = position_;
  token->offset = offset_;
  token->magnitude63 = false;
  token->touchesLast = offset_ == lastEnd_;
  token->startsLine = startsLine_;
  if (isLineEnd) return;
  startsLine_ = false;
  if (!atEnd()) scanToken();
  lastEnd_ = offset_;
}

// Editors put a byte order mark before a script, and "#!" makes a file a program of its own.
void Lexer::skipIntroduction() {
  if (peek() == '\xEF' && peek(1) == '\xBB' && peek(2) == '\xBF') offset_ += 3;
  if (peek() != '#' || peek(1) != '!') return;
  while (!atEnd() && peek() != '\n') take();
}

// True where it has met a line end that counts, and stands behind it.
bool Lexer::skipBlanks(bool lineEnds) {
  while (!atEnd()) {
    char c = peek();
    if (c == '"') {
      skipComment();
    } else if (c == '\n') {
      take();
      startsLine_ = true;
      if (lineEnds) return true;
    } else if (std::isspace(static_cast<unsigned char>(c)) != 0) {
      take();
    } else {
      return false;
    }
  }
  return false;
}

void Lexer::skipComment() {
  Position start = position_;
  take();
  while (!atEnd()) {
    if (take() == '"') return;
  }
  failOpen("this comment is not closed", start);
}

void Lexer::scanToken() {
  char c = peek();
  if (peek(1) == '\'' && (c == 'e' || c == 'u' || c == 'w')) {
    scanPrefixedString(c, c == 'e' ? Literal::Kind::String
                                   : (c == 'u' ? Literal::Kind::Utf8 : Literal::Kind::Utf16));
  } else if (isIdentifierStart(c)) {
    scanWord();
  } else if (isDigit(c)) {
    scanNumber();
  } else if (c == '\'') {
    setText(Literal::Kind::String, scanQuoted(false));
  } else if (c == '$') {
    scanCharacter();
  } else if (c == '#') {
    scanHash();
  } else {
    scanPunctuation();
  }
}

void Lexer::scanWord() {
  token_->kind = Token::Kind::Identifier;
  while (isIdentifierPart(peek())) token_->text += take();
  if (peek() == ':' && peek(1) != '=') {
    token_->text += take();
    token_->kind = Token::Kind::Keyword;
  }
}

void Lexer::scanNumber() {
  uint64_t value = scanDigits(10);
  if (peek() == 'r' && value >= 2 && value <= 36) {
    take();
    value = scanDigits(static_cast<unsigned>(value));
  }
  if (isIdentifierStart(peek())) fail("a number cannot end in a letter");
  if (peek() == '.' && isDigit(peek(1))) {
    fail(
        "there are no fractions; where two statements are meant, a blank belongs behind the "
        "period");
  }
  constexpr uint64_t LIMIT = uint64_t{1} << 63U;
  if (value > LIMIT) fail("this integer does not fit in 64 bits");
  token_->kind = Token::Kind::Literal;
  token_->literal.kind = Literal::Kind::Integer;
  token_->literal.integer = static_cast<int64_t>(value);
  token_->magnitude63 = value == LIMIT;
}

uint64_t Lexer::scanDigits(unsigned radix) {
  uint64_t value = 0;
  bool any = false;
  while (true) {
    char c = peek();
    unsigned digit = radix;
    if (isDigit(c)) digit = static_cast<unsigned>(c - '0');
    // Only capitals are digits, so that the r of a radix is none.
    if (c >= 'A' && c <= 'Z') digit = static_cast<unsigned>(c - 'A') + 10U;
    if (digit >= radix) break;
    if (value > (std::numeric_limits<uint64_t>::max() - digit) / radix) {
      fail("this integer does not fit in 64 bits");
    }
    value = value * radix + digit;
    any = true;
    take();
  }
  if (!any) fail("digits expected after the radix");
  return value;
}

void Lexer::scanHash() {
  Position start = position_;
  take();
  if (peek() == '(') {
    setPunctuation(Token::Kind::ArrayStart, 1);
  } else if (peek() == '[') {
    setPunctuation(Token::Kind::ByteArrayStart, 1);
  } else if (peek() == '\'') {
    setText(Literal::Kind::Symbol, scanQuoted(false));
  } else if (peek() == 'e' && peek(1) == '\'') {
    take();
    setText(Literal::Kind::Symbol, scanQuoted(true));
  } else if (isIdentifierStart(peek())) {
    std::string name;
    while (isIdentifierPart(peek()) || peek() == ':') name += take();
    setText(Literal::Kind::Symbol, name);
  } else {
    throw SyntaxError("a Symbol, #( or #[ expected after #", start, false);
  }
}

void Lexer::scanCharacter() {
  take();
  if (atEnd()) failOpen("a character expected after $", position_);
  // A character of several bytes is read whole first.
  for (size_t ahead = 1; ahead < 4 && isUtf8Continuation(peek(ahead)); ahead++) {
  }
  size_t length = utf8Length(text_.from(offset_));
  token_->kind = Token::Kind::Literal;
  token_->literal.kind = Literal::Kind::Character;
  if (length > 1) {
    token_->literal.integer = utf8Decode(text_.from(offset_).substr(0, length));
    for (size_t i = 0; i < length; i++) take();
  } else {
    token_->literal.integer = static_cast<unsigned char>(take());
  }
}

void Lexer::scanPrefixedString(char prefix, Literal::Kind kind) {
  Position start = position_;
  take();
  std::string bytes = scanQuoted(true);
  if (prefix != 'w') {
    setText(kind, bytes);
    return;
  }
  token_->kind = Token::Kind::Literal;
  token_->literal.kind = kind;
  if (!utf16FromEscapedUtf8(bytes, &token_->literal.units)) {
    throw SyntaxError("this text is not valid UTF-8, so it has no UTF-16 form", start, false);
  }
}

std::string Lexer::scanQuoted(bool escapes) {
  Position start = position_;
  take();
  std::string bytes;
  while (!atEnd()) {
    char c = take();
    if (c == '\'') {
      if (peek() != '\'') return bytes;
      take();
      bytes += '\'';
    } else if (c == '\\' && escapes) {
      scanEscape(start, &bytes);
    } else {
      bytes += c;
    }
  }
  failOpen("this text is not closed", start);
}

void Lexer::scanEscape(Position start, std::string* out) {
  if (atEnd()) failOpen("this text is not closed", start);
  switch (take()) {
    case 'n':
      *out += '\n';
      return;
    case 'r':
      *out += '\r';
      return;
    case 't':
      *out += '\t';
      return;
    case '\\':
      *out += '\\';
      return;
    case 'x':
      *out += static_cast<char>(scanHex(2));
      return;
    case 'u':
      *out += utf8Encode(scanHex(4));
      return;
    default:
      fail("an escape is one of \\n \\r \\t \\\\ \\xHH \\uHHHH");
  }
}

unsigned Lexer::scanHex(int digits) {
  unsigned value = 0;
  for (int i = 0; i < digits; i++) {
    char c = peek();
    if (std::isxdigit(static_cast<unsigned char>(c)) == 0) fail("a hexadecimal digit expected");
    take();
    int low = isDigit(c) ? c - '0' : std::tolower(static_cast<unsigned char>(c)) - 'a' + 10;
    value = value * 16 + static_cast<unsigned>(low);
  }
  return value;
}

void Lexer::setText(Literal::Kind kind, std::string bytes) {
  token_->kind = Token::Kind::Literal;
  token_->literal.kind = kind;
  token_->literal.bytes = std::move(bytes);
}

void Lexer::setPunctuation(Token::Kind kind, size_t length) {
  for (size_t i = 0; i < length; i++) token_->text += take();
  token_->kind = kind;
}

void Lexer::scanPunctuation() {
  static constexpr std::string_view SINGLE = "()[]{}.";
  static constexpr Token::Kind KINDS[] = {
      Token::Kind::LeftParenthesis, Token::Kind::RightParenthesis, Token::Kind::LeftBracket,
      Token::Kind::RightBracket,    Token::Kind::LeftBrace,        Token::Kind::RightBrace,
      Token::Kind::Period};
  char c = peek();
  size_t index = SINGLE.find(c);
  if (index != std::string_view::npos) {
    setPunctuation(KINDS[index], 1);
  } else if (c == ':' && peek(1) == '=') {
    setPunctuation(Token::Kind::Assign, 2);
  } else if (BINARY_CHARACTERS.find(c) != std::string_view::npos) {
    // A minus never ends an operator, so that 3<-1 compares with minus one.
    char second = peek(1);
    bool isPair = c != ',' && second != '-' && second != ',' && second != '\0' &&
                  BINARY_CHARACTERS.find(second) != std::string_view::npos;
    setPunctuation(Token::Kind::Binary, isPair ? 2 : 1);
  } else {
    fail("unexpected character " + quotedCharacter(c));
  }
}

std::vector<Token> tokenize(std::string_view source) {
  SourceText text(source);
  Lexer lexer(text);
  std::vector<Token> tokens;
  do {
    lexer.next(false, &tokens.emplace_back());
  } while (tokens.back().kind != Token::Kind::End);
  return tokens;
}

}  // namespace shell
