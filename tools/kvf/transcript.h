// Transcripts: statements with the answers expected of them, in plain files or in Markdown.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace shell {

// One statement of a transcript with what belongs to it.
struct Exchange {
  std::vector<std::string> prose;     // lines of text before it, to be shown and not replayed
  std::string source;                 // lines behind "> ", joined by newlines
  int sourceLine = 1;                 // of its first line
  std::string input;                  // lines behind "< ": what standard input gets
  std::vector<std::string> expected;  // the lines that follow
  int expectedLine = 1;               // of the first expected line
};

// Exchanges that share a workspace and a directory.
using ExchangeGroup = std::vector<Exchange>;

// A transcript that is not one: `what()` says why, `line` where.
struct TranscriptError {
  std::string message;
  int line;
};

// Reads a transcript: in Markdown (`isMarkdown`) the fenced blocks marked "kvf", where "kvf fresh"
// begins a new group; else the whole text. Throws TranscriptError.
std::vector<ExchangeGroup> readTranscript(std::string_view text, bool isMarkdown);

// True where `actual` is what `expected` says: "..." within a line stands for any text, a line of
// "..." alone for any number of lines.
bool matches(const std::vector<std::string>& expected, const std::vector<std::string>& actual);
bool lineMatches(std::string_view expected, std::string_view actual);

// The difference as one hunk of a unified diff, the statement's lines as its context.
std::string diffHunk(const Exchange& exchange, const std::vector<std::string>& actual);

}  // namespace shell
