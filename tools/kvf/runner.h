// Runs program texts in a workspace and shows answers and errors.
#pragma once

#include "interpreter.h"
#include "source_text.h"

#include <ostream>
#include <string>
#include <string_view>

namespace shell {

struct RunOptions {
  bool keepGoing = false;    // go on after an error
  bool printAnswers = true;  // show the answer of each statement
  bool colour = false;       // errors in red
  bool places = true;        // name, line and column before an error
  size_t longestAnswer = 0;  // cut answers and errors shown to this many bytes; 0: never
};

enum class RunResult { Success, Failed, SyntaxFailed };

class Runner {
 public:
  // Answers go to the interpreter's stream, errors to `errors`.
  Runner(Interpreter& interpreter, std::ostream& errors, RunOptions options)
      : interpreter_(interpreter), errors_(errors), options_(options) {}

  // Runs the statements of `source`, called `name` in messages. Nothing is run where the text
  // breaks the grammar. Throws QuitRequest.
  RunResult run(std::string_view source, std::string_view name);

  // Runs each statement before the next is read, in memory that does not grow with the text. What
  // breaks the grammar is met where it stands. Throws also what `source` throws.
  RunResult runAsRead(TextSource& source, std::string_view name);

 private:
  bool runStatement(const Node& statement, std::string_view name);
  void showSyntaxError(const SyntaxError& error, std::string_view name, const SourceText& text);
  void showAnswer(const Value& value);
  void showError(const std::string& text);

  Interpreter& interpreter_;
  std::ostream& errors_;
  RunOptions options_;
};

// `text` cut to `longest` bytes at a character boundary, with a note of how much was left out; 0:
// never cut.
std::string cutForTerminal(const std::string& text, size_t longest);

}  // namespace shell
