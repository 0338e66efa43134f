#include "checker.h"

#include <kvfile/kvhost.h>

#include "files.h"
#include "interpreter.h"
#include "parser.h"
#include "runner.h"
#include "supervised.h"
#include "text.h"
#include "transcript.h"

#include <fmt/format.h>

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <iostream>
#include <new>
#include <stdexcept>

namespace shell {
namespace {

// What a replaying process tells while it runs, in memory that it shares with the one that waits.
class Progress {
 public:
  explicit Progress(size_t faults)
      : size_(sizeof(int) + faults * sizeof(FaultTally)), faults_(faults) {
    void* memory = mmap(nullptr, size_, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) throw std::bad_alloc();
    tallies_ = static_cast<FaultTally*>(memory);
    line_ = reinterpret_cast<int*>(tallies_ + faults);
  }
  ~Progress() { munmap(tallies_, size_); }
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  // The line of the statements that run now, or ran last; 0 before the first.
  void setLine(int line) { *line_ = line; }
  int line() const { return *line_; }

  void setTallies(const std::vector<FaultTally>& tallies) {
    std::copy(tallies.begin(), tallies.end(), tallies_);
  }
  void addTalliesTo(std::vector<FaultTally>* sums) const {
    sums->resize(faults_);
    for (size_t i = 0; i < faults_; i++) {
      (*sums)[i].seen += tallies_[i].seen;
      (*sums)[i].fired += tallies_[i].fired;
    }
  }

 private:
  size_t size_;
  size_t faults_;
  FaultTally* tallies_;
  int* line_;
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
std::string showExchange(const Exchange& exchange, const std::vector<std::string>& actual) {
  std::string out;
  for (const std::string& line : exchange.prose) out += line + '\n';
  for (const std::string& line : splitLines(exchange.source)) out += "> " + line + '\n';
  for (const std::string& line : actual) out += line + '\n';
  return out;
}

// What all groups of a run share.
struct Check {
  const CheckOptions& options;
  const Instrumentation& instrumentation;
  std::vector<FaultTally> tallies;  // of all groups so far
};

// Runs the group here, and writes the hunks of what differs to `report`. Answers how many differ.
int replayGroup(const ExchangeGroup& group, const Check& check, Progress& progress, int report) {
  StandInFile input(STDIN_FILENO);
  StandInFile output(STDOUT_FILENO);
  Interpreter interpreter(std::cout);
  RunOptions options;
  options.keepGoing = true;
  options.places = false;
  Runner runner(interpreter, std::cout, options);
  check.instrumentation.apply();
  int differing = 0;
  for (const Exchange& exchange : group) {
    progress.setLine(exchange.sourceLine);
    input.append(exchange.input);
    runner.run(exchange.source, "transcript");
    std::cout << std::flush;
    std::fflush(stdout);
    progress.setTallies(Instrumentation::tallies());
    std::vector<std::string> actual = splitLines(output.takeNew());
    while (!actual.empty() && actual.back().empty()) actual.pop_back();
    if (check.options.show) writeAll(report, showExchange(exchange, actual));
    if (matches(exchange.expected, actual)) continue;
    differing++;
    writeAll(report, diffHunk(exchange, actual));
  }
  Instrumentation::remove();
  return differing;
}

// The work of a group's process. The report goes to `report` piece by piece, so that it is there when
// the process is stopped.
int runGroup(const ExchangeGroup& group, const Check& check, Progress& progress, int report) {
  try {
    kvhost::setLogStream(stdout);
    return replayGroup(group, check, progress, report) == 0 ? 0 : 1;
  } catch (const QuitRequest&) {
    writeAll(report, "the transcript left the shell\n");
  } catch (const std::exception& error) {
    writeAll(report, fmt::format("the replay failed: {}\n", error.what()));
  }
  return 1;
}

std::string describeEnd(const SupervisedEnd& end, const Progress& progress, double timeout) {
  std::string place =
      progress.line() > 0 ? fmt::format(" in the statements at line {}", progress.line()) : "";
  switch (end.kind) {
    case SupervisedEnd::Kind::TimedOut:
      return fmt::format("the replay was stopped after {} seconds{}\n", timeout, place);
    case SupervisedEnd::Kind::Signalled:
      return fmt::format("the replay was ended by signal {}{}\n", end.number, place);
    case SupervisedEnd::Kind::NotStarted:
      return "no process or directory can be made for the replay\n";
    case SupervisedEnd::Kind::Exited:
      break;
  }
  return "";
}

struct GroupResult {
  bool matched = false;
  bool timedOut = false;
  std::string report;
};

GroupResult checkGroup(const ExchangeGroup& group, Check& check, const Deadline& deadline) {
  FILE* report = std::tmpfile();
  if (report == nullptr) return {false, false, "no temporary file can be made\n"};
  std::cout << std::flush;
  std::fflush(stdout);
  Progress progress(check.instrumentation.faults.size());
  SupervisedEnd end =
      runSupervised([&] { return runGroup(group, check, progress, fileno(report)); }, deadline);
  progress.addTalliesTo(&check.tallies);
  GroupResult result;
  result.matched = end.kind == SupervisedEnd::Kind::Exited && end.number == 0;
  result.timedOut = end.kind == SupervisedEnd::Kind::TimedOut;
  result.report = contentsFrom(fileno(report)) + describeEnd(end, progress, check.options.timeout);
  std::fclose(report);
  return result;
}

Deadline deadlineAfter(double seconds) {
  if (seconds == 0) return {};
  using Clock = std::chrono::steady_clock;
  return Clock::now() +
         std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds));
}

int checkFile(const std::string& path, const std::string& text, Check& check) {
  bool isMarkdown = path.ends_with(".md");
  std::vector<ExchangeGroup> groups = readTranscript(text, isMarkdown);
  std::erase_if(groups, [](const ExchangeGroup& group) { return group.empty(); });
  if (groups.empty()) throw TranscriptError{"there is no statement in it", 1};
  bool matched = true;
  Deadline deadline = deadlineAfter(check.options.timeout);
  size_t count = 0;
  for (const ExchangeGroup& group : groups) count += group.size();
  for (const ExchangeGroup& group : groups) {
    GroupResult result = checkGroup(group, check, deadline);
    if (!result.matched && matched) {
      std::cout << "--- " << path << "\n+++ " << path << " (replayed)\n";
    }
    matched = matched && result.matched;
    std::cout << result.report;
    if (result.timedOut) break;
  }
  std::cout << fmt::format("{}: {} exchange{}, {}\n", path, count, count == 1 ? "" : "s",
                           matched ? "all as expected" : "with differences");
  return matched ? 0 : 1;
}

}  // namespace

int checkTranscripts(const std::vector<std::string>& files, const CheckOptions& options,
                     const Instrumentation& instrumentation) {
  Check check{options, instrumentation, {}};
  int worst = 0;
  for (const std::string& path : files) {
    int code = 2;
    std::string text;
    std::string problem;
    try {
      if (readWholeFile(path, &text, &problem)) {
        code = checkFile(path, text, check);
      } else {
        std::cerr << "kvf: " << path << ": " << problem << '\n';
      }
    } catch (const TranscriptError& error) {
      std::cerr << fmt::format("kvf: {}:{}: {}\n", path, error.line, error.message);
    }
    worst = std::max(worst, code);
  }
  std::cerr << instrumentation.describeUnfired(check.tallies);
  return worst;
}

}  // namespace shell
