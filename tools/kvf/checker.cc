#include "checker.h"

#include <kvfile/kvhost.h>

#include "files.h"
#include "interpreter.h"
#include "parser.h"
#include "runner.h"
#include "text.h"
#include "transcript.h"

#include <fmt/format.h>

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <sstream>

namespace shell {
namespace {

// A directory that is the current one while this lives, and is removed with all that it holds.
class FreshDirectory {
 public:
  FreshDirectory() : path_((std::filesystem::temp_directory_path() / "kvf-XXXXXX").string()) {
    if (mkdtemp(path_.data()) == nullptr) throw std::runtime_error("no directory can be made");
    std::filesystem::current_path(path_);
  }
  ~FreshDirectory() {
    std::error_code ignored;
    std::filesystem::current_path("/", ignored);
    std::filesystem::remove_all(path_, ignored);
  }
  FreshDirectory(const FreshDirectory&) = delete;
  FreshDirectory& operator=(const FreshDirectory&) = delete;

 private:
  std::string path_;
};

// Puts a nameless file in the place of a standard descriptor.
class StandInFile {
 public:
  explicit StandInFile(int descriptor) : file_(std::tmpfile()) {
    if (file_ == nullptr || dup2(fileno(file_), descriptor) < 0) {
      throw std::runtime_error("no file can stand in for a standard file");
    }
  }

  // Appends without moving the offset that the descriptor shares.
  void append(const std::string& text) {
    auto length = pwrite(fileno(file_), text.data(), text.size(), size_);
    if (length != static_cast<ssize_t>(text.size())) throw std::runtime_error("no space is left");
    size_ += length;
  }

  // What was written since it was last asked.
  std::string takeNew() {
    std::string text;
    char buffer[4096];
    ssize_t length = 0;
    while ((length = pread(fileno(file_), buffer, sizeof buffer, size_)) > 0) {
      text.append(buffer, static_cast<size_t>(length));
      size_ += length;
    }
    return text;
  }

 private:
  FILE* file_;  // until the process ends
  off_t size_ = 0;
};

// The text before an exchange, its statements, and what they answered.
void showExchange(const Exchange& exchange, const std::vector<std::string>& actual,
                  std::ostream& report) {
  for (const std::string& line : exchange.prose) report << line << '\n';
  for (const std::string& line : splitLines(exchange.source)) report << "> " << line << '\n';
  for (const std::string& line : actual) report << line << '\n';
}

// Runs the group here, and writes the hunks of what differs to `report`. Answers how many differ.
int replayGroup(const ExchangeGroup& group, const CheckOptions& checkOptions,
                const Instrumentation& instrumentation, std::ostream& report) {
  StandInFile input(STDIN_FILENO);
  StandInFile output(STDOUT_FILENO);
  Interpreter interpreter(std::cout);
  RunOptions options;
  options.keepGoing = true;
  options.places = false;
  Runner runner(interpreter, std::cout, options);
  instrumentation.apply();
  int differing = 0;
  for (const Exchange& exchange : group) {
    input.append(exchange.input);
    runner.run(exchange.source, "transcript");
    std::cout << std::flush;
    std::fflush(stdout);
    std::vector<std::string> actual = splitLines(output.takeNew());
    while (!actual.empty() && actual.back().empty()) actual.pop_back();
    if (checkOptions.show) showExchange(exchange, actual, report);
    if (matches(exchange.expected, actual)) continue;
    differing++;
    report << diffHunk(exchange, actual);
  }
  Instrumentation::remove();
  return differing;
}

// The process of one group; its exit code is 0 or 1. The report goes to `descriptor`.
[[noreturn]] void runGroupProcess(const ExchangeGroup& group, const CheckOptions& options,
                                  const Instrumentation& instrumentation, int descriptor) {
  std::ostringstream report;
  int code = 0;
  try {
    FreshDirectory directory;
    kvhost::setLogStream(stdout);
    code = replayGroup(group, options, instrumentation, report) == 0 ? 0 : 1;
  } catch (const QuitRequest&) {
    report << "the transcript left the shell\n";
    code = 1;
  } catch (const std::exception& error) {
    report << "the replay failed: " << error.what() << '\n';
    code = 1;
  }
  writeAll(descriptor, report.str());
  std::_Exit(code);
}

struct GroupResult {
  bool matched = false;
  std::string report;
};

GroupResult checkGroup(const ExchangeGroup& group, const CheckOptions& options,
                       const Instrumentation& instrumentation) {
  FILE* report = std::tmpfile();
  if (report == nullptr) return {false, "no temporary file can be made\n"};
  std::cout << std::flush;
  std::fflush(stdout);
  pid_t child = fork();
  if (child == 0) runGroupProcess(group, options, instrumentation, fileno(report));
  int status = 0;
  while (child > 0 && waitpid(child, &status, 0) < 0 && errno == EINTR) {
  }
  GroupResult result;
  result.matched = child > 0 && WIFEXITED(status) && WEXITSTATUS(status) == 0;
  result.report = contentsFrom(fileno(report));
  if (child > 0 && WIFSIGNALED(status)) {
    result.report += fmt::format("the replay was ended by signal {}\n", WTERMSIG(status));
  }
  std::fclose(report);
  return result;
}

int checkFile(const std::string& path, const std::string& text, const CheckOptions& options,
              const Instrumentation& instrumentation) {
  bool isMarkdown = path.ends_with(".md");
  size_t count = 0;
  bool matched = true;
  bool headerShown = false;
  for (const ExchangeGroup& group : readTranscript(text, isMarkdown)) {
    if (group.empty()) continue;
    count += group.size();
    GroupResult result = checkGroup(group, options, instrumentation);
    if (result.matched) {
      std::cout << result.report;
      continue;
    }
    matched = false;
    if (!headerShown) std::cout << "--- " << path << "\n+++ " << path << " (replayed)\n";
    headerShown = true;
    std::cout << result.report;
  }
  if (count == 0) throw TranscriptError{"there is no statement in it", 1};
  std::cout << fmt::format("{}: {} exchange{}, {}\n", path, count, count == 1 ? "" : "s",
                           matched ? "all as expected" : "with differences");
  return matched ? 0 : 1;
}

}  // namespace

int checkTranscripts(const std::vector<std::string>& files, const CheckOptions& options,
                     const Instrumentation& instrumentation) {
  int worst = 0;
  for (const std::string& path : files) {
    int code = 2;
    std::string text;
    std::string problem;
    try {
      if (readWholeFile(path, &text, &problem)) {
        code = checkFile(path, text, options, instrumentation);
      } else {
        std::cerr << "kvf: " << path << ": " << problem << '\n';
      }
    } catch (const TranscriptError& error) {
      std::cerr << fmt::format("kvf: {}:{}: {}\n", path, error.line, error.message);
    }
    worst = std::max(worst, code);
  }
  return worst;
}

}  // namespace shell
