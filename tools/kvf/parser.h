// Builds the syntax tree of a kvf program. The grammar stands in docs/kvf.md.
#pragma once

#include "source_text.h"
#include "syntax.h"

#include <memory>
#include <string>
#include <string_view>

namespace shell {

// No tree is higher, and nothing nested deeper, so that walking a tree never exhausts the stack.
constexpr int MAX_NESTING = 500;

class Parser;

// Reads the statements of a program one by one, and of its text no more than each takes: one that
// ends with its line is answered before the next line is looked at.
class StatementReader {
 public:
  // `text` must outlive this.
  explicit StatementReader(SourceText& text);
  ~StatementReader();
  StatementReader(const StatementReader&) = delete;
  StatementReader& operator=(const StatementReader&) = delete;

  // The next statement, null at the end. Throws SyntaxError, behind which there is none.
  NodePtr next();

 private:
  std::unique_ptr<Parser> parser_;
};

// One statement per element, in order. Throws SyntaxError; its `incomplete` tells that the text
// ended within a bracket, a text, or an expression.
Nodes parse(std::string_view source);

// The error as a person reads it: "name:3:7: message", the line, and a caret below the place.
// Of a long line the part around the place is shown; bytes that would steer a terminal are not.
std::string describe(const SyntaxError& error, std::string_view name, const SourceText& text);

}  // namespace shell
