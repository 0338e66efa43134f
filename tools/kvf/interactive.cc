#include "interactive.h"

#include <kvfile/kvfile.h>
#include <kvfile/kvhost.h>

#include "completion.h"
#include "files.h"
#include "parser.h"
#include "terminal/line_reader.h"

#include <cstdio>
#include <iostream>

namespace shell {
namespace {

constexpr const char* PROMPT = "kvf> ";
constexpr const char* CONTINUATION_PROMPT = "...> ";

// The completer is a plain function, so what it completes for stands here.
Interpreter* completing = nullptr;

std::vector<std::string> complete(std::string_view line, size_t cursor, size_t* wordStart) {
  if (completing == nullptr) return {};
  return completionsAt(line, cursor, wordStart, completing->variableNames());
}

// The line readers of a terminal session: one for statements, with history and completion, and one
// for the module, so that what a program reads is not mixed into the history.
class TerminalReaders {
 public:
  explicit TerminalReaders(Interpreter& interpreter)
      : statements_(kvhost::lineReaderCreate("kvf", historyPath().c_str())) {
    completing = &interpreter;
    kvhost::lineReaderSetCompleter(statements_, complete);
    KvFileSetLineReader(kvhost::lineReaderCreate("kvf", ""));
  }
  ~TerminalReaders() {
    KvFileShutdownLineReader();
    if (statements_ != nullptr) LineReadShutdown(statements_);
    completing = nullptr;
  }
  TerminalReaders(const TerminalReaders&) = delete;
  TerminalReaders& operator=(const TerminalReaders&) = delete;

  // One whole line with its newline; the answer is as that of LrSupReadLine.
  int readLine(const char* prompt, std::string* line);

 private:
  int readPiece(const char* prompt, char* buffer, size_t size);

  LineReaderStateType* statements_;
};

int TerminalReaders::readPiece(const char* prompt, char* buffer, size_t size) {
  if (statements_ != nullptr) return LrSupReadLine(statements_, stdin, buffer, size, prompt, TRUE);
  std::fputs(prompt, stdout);
  std::fflush(stdout);
  if (std::fgets(buffer, static_cast<int>(size), stdin) != nullptr) return 0;
  bool interrupted = kvhost::takeInterrupt();
  std::clearerr(stdin);
  return interrupted ? -2 : -1;
}

int TerminalReaders::readLine(const char* prompt, std::string* line) {
  char buffer[4096];
  line->clear();
  do {
    int status = readPiece(line->empty() ? prompt : "", buffer, sizeof buffer);
    if (status != 0) return status;
    *line += buffer;
  } while (!line->ends_with('\n') && line->size() % (sizeof buffer - 1) == 0);
  return 0;
}

bool isIncomplete(const std::string& source) {
  try {
    parse(source);
  } catch (const SyntaxError& error) {
    return error.incomplete;
  }
  return false;
}

}  // namespace

int runInteractively(Interpreter& interpreter, const RunOptions& options) {
  kvhost::enableInterrupts();
  TerminalReaders readers(interpreter);
  Runner runner(interpreter, std::cerr, options);
  std::string source;
  std::string line;
  while (true) {
    int status = readers.readLine(source.empty() ? PROMPT : CONTINUATION_PROMPT, &line);
    if (status == -2) {
      source.clear();
      kvhost::takeInterrupt();
      continue;
    }
    if (status != 0) break;
    source += line;
    if (isIncomplete(source)) continue;
    kvhost::takeInterrupt();
    try {
      runner.run(source, "input");
    } catch (const QuitRequest& request) {
      return request.exitCode;
    }
    std::cout << std::flush;
    source.clear();
  }
  std::cout << '\n' << std::flush;
  return 0;
}

}  // namespace shell
