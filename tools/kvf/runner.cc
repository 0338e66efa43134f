#include "runner.h"

#include "parser.h"
#include "printer.h"

#include <fmt/format.h>

#include <algorithm>

namespace shell {

std::string cutForTerminal(const std::string& text, size_t longest) {
  if (longest == 0 || text.size() <= longest) return text;
  size_t end = longest;
  while (end > 0 && (static_cast<unsigned char>(text[end]) & 0xC0U) == 0x80U) end--;
  return fmt::format("{} ... ({} of {} bytes shown)", text.substr(0, end), end, text.size());
}

RunResult Runner::run(std::string_view source, std::string_view name) {
  Nodes statements;
  try {
    statements = parse(source);
  } catch (const SyntaxError& error) {
    showSyntaxError(error, name, SourceText(source));
    return RunResult::SyntaxFailed;
  }
  RunResult result = RunResult::Success;
  for (const NodePtr& statement : statements) {
    if (runStatement(*statement, name)) continue;
    result = RunResult::Failed;
    if (!options_.keepGoing) break;
  }
  return result;
}

RunResult Runner::runAsRead(TextSource& source, std::string_view name) {
  SourceText text(source);
  RunResult result = RunResult::Success;
  try {
    StatementReader reader(text);
    while (NodePtr statement = reader.next()) {
      if (runStatement(*statement, name)) continue;
      result = RunResult::Failed;
      if (!options_.keepGoing) break;
    }
  } catch (const SyntaxError& error) {
    showSyntaxError(error, name, text);
    return RunResult::SyntaxFailed;
  }
  return result;
}

bool Runner::runStatement(const Node& statement, std::string_view name) {
  bool succeeded = true;
  try {
    Value answer = interpreter_.evaluate(statement);
    if (options_.printAnswers) showAnswer(answer);
  } catch (const EvaluationError& error) {
    Position place = error.position.value_or(statement.position);
    std::string prefix =
        options_.places ? fmt::format("{}:{}:{}: ", name, place.line, place.column) : "";
    showError(prefix + cutForTerminal(error.what(), options_.longestAnswer) + "\n");
    succeeded = false;
  }
  interpreter_.safePointBetweenStatements();
  return succeeded;
}

void Runner::showSyntaxError(const SyntaxError& error, std::string_view name,
                             const SourceText& text) {
  showError("syntax error: " + describe(error, name, text));
}

void Runner::showAnswer(const Value& value) {
  // print() flushes, because the module may write to the same descriptor next.
  interpreter_.print(cutForTerminal(printString(interpreter_, value), options_.longestAnswer) +
                     "\n");
}

void Runner::showError(const std::string& text) {
  // The two streams may be one terminal, where the answers so far come first.
  interpreter_.print("");
  if (options_.colour) {
    errors_ << "\033[31m" << std::string_view(text).substr(0, text.size() - 1) << "\033[0m\n";
  } else {
    errors_ << text;
  }
  errors_ << std::flush;
}

}  // namespace shell
