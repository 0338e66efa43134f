// Replays transcripts and compares the answers.
#pragma once

#include "instrumentation.h"

#include <string>
#include <vector>

namespace shell {

struct CheckOptions {
  bool show = false;    // print text, statements and answers as they are replayed
  double timeout = 60;  // seconds that a transcript may take; 0: any
};

// Replays each file and prints the differences and one line per file to standard output. Every
// group of exchanges runs in a process of its own, in a fresh directory that is removed afterwards,
// with standard input and output on files, so that nothing carries over; both go when this process
// is killed. Answers the exit code: 0 where all matched, 1 for a difference or a transcript that was
// stopped, 2 for a file that cannot be read or is no transcript. Faults that befell no call of any
// transcript are named on standard error.
int checkTranscripts(const std::vector<std::string>& files, const CheckOptions& options,
                     const Instrumentation& instrumentation);

}  // namespace shell
