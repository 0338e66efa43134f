// Replays transcripts and compares the answers.
#pragma once

#include "instrumentation.h"

#include <string>
#include <vector>

namespace shell {

struct CheckOptions {
  bool show = false;  // print text, statements and answers as they are replayed
};

// Replays each file and prints the differences and one line per file to standard output. Every
// group of exchanges runs in a process of its own, in a fresh directory that is removed afterwards,
// with standard input and output on files, so that nothing carries over. Answers the exit code: 0
// where all matched, 1 for a difference, 2 for a file that cannot be read or is no transcript.
int checkTranscripts(const std::vector<std::string>& files, const CheckOptions& options,
                     const Instrumentation& instrumentation);

}  // namespace shell
