// Compares the module with a second implementation of its rules on random sequences of steps.
//
//   model_test --operations N --seed S --size B
//
// B is the size of the module's read buffer, 16, 64 or 4096: each has a program of its own, which
// the one for 4096 starts. Without --size all three run at the same time, each a third of the steps.
// A seed that is not given is taken from the clock; either way it is printed.
#include "model/runner.h"

#include <CLI/CLI.hpp>

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <string>
#include <vector>

namespace {

constexpr model::int64 OWN_SIZE = MODEL_READ_BUF_SIZE;

struct Options : model::RunOptions {
  bool record = false;
};

// Starts the program for another size, which stands beside this one.
pid_t startOther(const Options& options) {
  const std::filesystem::path self = std::filesystem::read_symlink("/proc/self/exe");
  const std::string size = std::to_string(options.bufferSize);
  const std::string program = self.parent_path() / ("model_test_" + size);
  const std::vector<std::string> words = {program,
                                          "--operations",
                                          std::to_string(options.operations),
                                          "--seed",
                                          std::to_string(options.seed),
                                          "--first",
                                          std::to_string(options.firstSequence),
                                          "--transcript",
                                          options.transcript,
                                          "--size",
                                          size,
                                          options.record ? "--record" : "--compare"};
  std::vector<char*> arguments;
  for (const std::string& word : words) arguments.push_back(const_cast<char*>(word.c_str()));
  arguments.push_back(nullptr);
  const pid_t child = fork();
  if (child != 0) return child;
  execv(program.c_str(), arguments.data());
  std::perror(program.c_str());
  _exit(2);
}

// Exit code of a child.
int codeOf(pid_t child) {
  int status = 0;
  if (child < 0 || waitpid(child, &status, 0) < 0) return 2;
  return WIFEXITED(status) ? WEXITSTATUS(status) : 2;
}

int runOwn(const Options& options) {
  const model::RunResult result =
      options.record ? model::recordSequence(options) : model::runModel(options);
  if (options.record) {
    std::printf("%s%s: %lld steps\n", result.report.c_str(), options.transcript.c_str(),
                static_cast<long long>(result.operations));
    return result.passed ? 0 : 1;
  }
  std::printf("model: read buffer %lld, seed %llu, %lld steps in %.1f s (%.0f a second), %s\n",
              static_cast<long long>(options.bufferSize),
              static_cast<unsigned long long>(options.seed),
              static_cast<long long>(result.operations), result.seconds,
              static_cast<double>(result.operations) / result.seconds,
              result.passed ? "no difference" : "DIFFERENT");
  if (!result.passed) std::printf("%s", result.report.c_str());
  std::fflush(stdout);
  return result.passed ? 0 : 1;
}

int runAll(Options options) {
  const std::string transcript = options.transcript;
  options.operations = (options.operations + 2) / 3;
  std::vector<pid_t> others;
  for (const model::int64 size : {16, 64}) {
    options.bufferSize = size;
    options.transcript = transcript.empty() ? "" : transcript + "." + std::to_string(size);
    others.push_back(startOther(options));
  }
  options.bufferSize = OWN_SIZE;
  options.transcript = transcript;
  int worst = runOwn(options);
  for (const pid_t other : others) worst = std::max(worst, codeOf(other));
  return worst;
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app("Compares the file module with a model of it on random steps.");
  Options options;
  options.bufferSize = 0;
  options.seed = static_cast<uint64_t>(std::time(nullptr));
  app.add_option("--operations", options.operations, "steps to perform, over all sizes")
      ->check(CLI::PositiveNumber);
  app.add_option("--seed", options.seed, "what the sequences follow from");
  app.add_option("--first", options.firstSequence, "the sequence to begin with");
  app.add_option("--size", options.bufferSize, "the read buffer's size")
      ->check(CLI::IsMember({16, 64, 4096}));
  app.add_option("--transcript", options.transcript, "where the transcript of a failure goes");
  app.add_flag("--record,!--compare", options.record,
               "only write the sequence --first as a transcript, without standard files")
      ->needs("--transcript");
  CLI11_PARSE(app, argc, argv);
  if (options.bufferSize == 0) return runAll(options);
  return options.bufferSize == OWN_SIZE ? runOwn(options) : codeOf(startOther(options));
}
