#include "transcript.h"

#include "text.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

namespace shell {
namespace {

constexpr std::string_view WILDCARD = "...";

// Collects the lines of a transcript into exchanges.
class ExchangeReader {
 public:
  explicit ExchangeReader(std::vector<ExchangeGroup>* groups) : groups_(groups) {}

  void beginGroup() { groups_->emplace_back(); }
  void beginBlock() { state_ = State::Outside; }
  void addProse(const std::string& line) { prose_.push_back(line); }
  void addLine(const std::string& line, int number);
  void endBlock();

 private:
  enum class State { Outside, Statement, Answer };

  void addStatement(std::string_view text, int number);
  Exchange& current() { return groups_->back().back(); }

  std::vector<ExchangeGroup>* groups_;
  State state_ = State::Outside;
  std::vector<std::string> prose_;  // of the exchange to come
};

// The text behind a mark such as "> ", or null where the line does not bear it.
bool stripMark(const std::string& line, char mark, std::string_view* text) {
  if (line.empty() || line[0] != mark || (line.size() > 1 && line[1] != ' ')) return false;
  *text = std::string_view(line).substr(std::min<size_t>(2, line.size()));
  return true;
}

void ExchangeReader::addLine(const std::string& line, int number) {
  std::string_view text;
  if (stripMark(line, '>', &text)) {
    addStatement(text, number);
  } else if (stripMark(line, '<', &text)) {
    if (state_ == State::Outside) throw TranscriptError{"input before any statement", number};
    current().input += std::string(text) + "\n";
  } else if (!line.empty() && line[0] == '"') {
    addProse(line);
  } else if (state_ == State::Outside) {
    if (!line.empty()) throw TranscriptError{"an answer before any statement", number};
  } else {
    if (state_ == State::Statement) current().expectedLine = number;
    state_ = State::Answer;
    current().expected.push_back(line);
  }
}

// Statement lines that follow each other are run together, and their answers follow in order.
void ExchangeReader::addStatement(std::string_view text, int number) {
  if (state_ == State::Statement) {
    current().source += "\n" + std::string(text);
  } else {
    endBlock();
    groups_->back().emplace_back();
    current().prose = std::exchange(prose_, {});
    current().source = text;
    current().sourceLine = number;
  }
  current().expectedLine = number + 1;
  state_ = State::Statement;
}

// Empty lines before the next statement, or before the end, are no part of an answer.
void ExchangeReader::endBlock() {
  if (groups_->back().empty()) return;
  std::vector<std::string>& expected = current().expected;
  while (!expected.empty() && expected.back().empty()) expected.pop_back();
}

bool isFence(const std::string& line) { return line.starts_with("```"); }

void readMarkdown(const std::vector<std::string>& lines, std::vector<ExchangeGroup>* groups) {
  ExchangeReader reader(groups);
  bool isOpen = false;
  bool isTranscript = false;
  int number = 0;
  for (const std::string& line : lines) {
    number++;
    if (isFence(line)) {
      if (isTranscript) reader.endBlock();
      isTranscript = !isOpen && (line == "```kvf" || line == "```kvf fresh");
      isOpen = !isOpen;
      if (isTranscript && line != "```kvf" && !groups->back().empty()) reader.beginGroup();
      if (isTranscript) reader.beginBlock();
    } else if (isTranscript) {
      reader.addLine(line, number);
    } else if (!isOpen) {
      reader.addProse(line);
    }
  }
  if (isTranscript) throw TranscriptError{"the last block is not closed", number};
}

// The lines of a transcript, also of one that was written with CR LF line ends.
std::vector<std::string> linesOf(std::string_view text) {
  std::vector<std::string> lines = splitLines(text);
  if (lines.empty() || !lines[0].ends_with('\r')) return lines;
  for (std::string& line : lines) {
    if (line.ends_with('\r')) line.pop_back();
  }
  return lines;
}

struct DiffLine {
  char mark;
  std::string text;
};

// The shortest edit from `expected` to `actual`, lines compared with wildcards.
std::vector<DiffLine> diffLines(const std::vector<std::string>& expected,
                                const std::vector<std::string>& actual) {
  size_t rows = expected.size();
  size_t columns = actual.size();
  // common[i][j]: lines that the parts from i and from j on have in common.
  std::vector<std::vector<size_t>> common(rows + 1, std::vector<size_t>(columns + 1));
  for (size_t i = rows; i-- > 0;) {
    for (size_t j = columns; j-- > 0;) {
      common[i][j] = lineMatches(expected[i], actual[j])
                         ? common[i + 1][j + 1] + 1
                         : std::max(common[i + 1][j], common[i][j + 1]);
    }
  }
  std::vector<DiffLine> out;
  size_t i = 0;
  size_t j = 0;
  while (i < rows || j < columns) {
    if (i < rows && j < columns && lineMatches(expected[i], actual[j])) {
      out.push_back({' ', expected[i++]});
      j++;
    } else if (j == columns || (i < rows && common[i + 1][j] >= common[i][j + 1])) {
      out.push_back({'-', expected[i++]});
    } else {
      out.push_back({'+', actual[j++]});
    }
  }
  return out;
}

}  // namespace

std::vector<ExchangeGroup> readTranscript(std::string_view text, bool isMarkdown) {
  std::vector<ExchangeGroup> groups(1);
  std::vector<std::string> lines = linesOf(text);
  if (isMarkdown) {
    readMarkdown(lines, &groups);
  } else {
    ExchangeReader reader(&groups);
    int number = 0;
    for (const std::string& line : lines) reader.addLine(line, ++number);
    reader.endBlock();
  }
  return groups;
}

// A piece between two wildcards is taken where it is found first, which leaves the most for those
// behind it. So nothing is ever tried twice.
bool lineMatches(std::string_view expected, std::string_view actual) {
  size_t end = expected.find(WILDCARD);
  if (end == std::string_view::npos) return expected == actual;
  if (!actual.starts_with(expected.substr(0, end))) return false;
  actual.remove_prefix(end);
  expected.remove_prefix(end + WILDCARD.size());
  while ((end = expected.find(WILDCARD)) != std::string_view::npos) {
    size_t at = actual.find(expected.substr(0, end));
    if (at == std::string_view::npos) return false;
    actual.remove_prefix(at + end);
    expected.remove_prefix(end + WILDCARD.size());
  }
  return actual.ends_with(expected);
}

bool matches(const std::vector<std::string>& expected, const std::vector<std::string>& actual) {
  // reached[j]: the expected lines so far can stand for the first j actual ones.
  std::vector<bool> reached(actual.size() + 1);
  reached[0] = true;
  for (const std::string& line : expected) {
    std::vector<bool> next(actual.size() + 1);
    if (line == WILDCARD) {
      auto first = std::find(reached.begin(), reached.end(), true);
      std::fill(next.begin() + (first - reached.begin()), next.end(), true);
    } else {
      for (size_t j = 0; j < actual.size(); j++) {
        next[j + 1] = reached[j] && lineMatches(line, actual[j]);
      }
    }
    reached = std::move(next);
  }
  return reached.back();
}

std::string diffHunk(const Exchange& exchange, const std::vector<std::string>& actual) {
  std::vector<std::string> source = splitLines(exchange.source);
  std::string out = fmt::format("@@ -{},{} +{},{} @@\n", exchange.sourceLine,
                                source.size() + exchange.expected.size(), exchange.sourceLine,
                                source.size() + actual.size());
  for (const std::string& line : source) out += fmt::format(" > {}\n", line);
  for (const DiffLine& line : diffLines(exchange.expected, actual)) {
    out += fmt::format("{}{}\n", line.mark, line.text);
  }
  return out;
}

}  // namespace shell
