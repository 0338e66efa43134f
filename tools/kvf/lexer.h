// Splits a kvf program into tokens.
#pragma once

#include "source_text.h"
#include "syntax.h"

#include <string>
#include <string_view>
#include <vector>

namespace shell {

struct Token {
  enum class Kind {
    End,
    LineEnd,           // only where it is asked for
    Identifier,        // text
    Keyword,           // text, its colon included
    Binary,            // text: an operator, the comma included
    Assign,            // :=
    Literal,           // literal
    ArrayStart,        // #(
    ByteArrayStart,    // #[
    LeftParenthesis,   // (
    RightParenthesis,  // )
    LeftBracket,       // [
    RightBracket,      // ]
    LeftBrace,         // {
    RightBrace,        // }
    Period,            // .
  } kind = Kind::End;
  Position position;
  size_t offset = 0;         // of its first byte
  bool startsLine = false;   // a line end stands before it
  bool touchesLast = false;  // nothing stands between it and the token before
  bool magnitude63 = false;  // an integer literal of exactly 2^63, legal only behind a minus
  std::string text;
  shell::Literal literal;
};

// Reads one token after the other, and of the text no more than it takes.
class Lexer {
 public:
  explicit Lexer(SourceText& text) : text_(text) { skipIntroduction(); }

  // Fills `*token` with the next one; behind the last one always with one of kind End. A line end is
  // a token where `lineEnds` says so, and else a blank. Throws SyntaxError.
  void next(bool lineEnds, Token* token);

 private:
  char peek(size_t ahead = 0) { return text_.at(offset_ + ahead); }
  bool atEnd() { return text_.isEnd(offset_); }
  char take();
  [[noreturn]] void fail(const std::string& message) const;
  // For what more lines could complete.
  [[noreturn]] static void failOpen(const std::string& message, Position where);

  void skipIntroduction();
  bool skipBlanks(bool lineEnds);
  void skipComment();
  void scanToken();
  void scanWord();
  void scanNumber();
  uint64_t scanDigits(unsigned radix);
  void scanHash();
  void scanCharacter();
  void scanPunctuation();
  void scanPrefixedString(char prefix, Literal::Kind kind);
  std::string scanQuoted(bool escapes);
  void scanEscape(Position start, std::string* out);
  unsigned scanHex(int digits);
  void setText(Literal::Kind kind, std::string bytes);
  void setPunctuation(Token::Kind kind, size_t length);

  SourceText& text_;
  size_t offset_ = 0;
  size_t lastEnd_ = static_cast<size_t>(-1);
  Position position_;
  bool startsLine_ = true;
  Token* token_ = nullptr;  // that is being filled
};

// The tokens of `source`, line ends as blanks, the last of kind End. Throws SyntaxError.
std::vector<Token> tokenize(std::string_view source);

}  // namespace shell
