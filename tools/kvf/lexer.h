// Splits a kvf program into tokens.
#pragma once

#include "syntax.h"

#include <string>
#include <string_view>
#include <vector>

namespace shell {

struct Token {
  enum class Kind {
    End,
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

// The tokens of `source`, the last of kind End. Throws SyntaxError.
std::vector<Token> tokenize(std::string_view source);

}  // namespace shell
