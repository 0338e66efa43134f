#include "model/runner.h"

#include "model/comparison.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <numeric>
#include <stdexcept>

#if defined(__has_feature)
#if __has_feature(address_sanitizer)
#define MODEL_WITH_LEAK_CHECK 1
#endif
#endif
#ifdef MODEL_WITH_LEAK_CHECK
#include <sanitizer/common_interface_defs.h>
#include <sanitizer/lsan_interface.h>
#endif

namespace model {

namespace {

#ifdef MODEL_WITH_LEAK_CHECK
// Standard error is put on another file, which must not keep a report from its reader.
void keepReports() {
  const intptr_t descriptor = fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, PRIVATE_DESCRIPTORS);
  __sanitizer_set_report_fd(reinterpret_cast<void*>(descriptor));
}

bool hasLeaks() { return __lsan_do_recoverable_leak_check() != 0; }
#else
void keepReports() {}
bool hasLeaks() { return false; }
#endif

// What a child process tells its parent, even when it crashes.
struct Shared {
  uint64_t sequence;
  int64 operations;
  bool differed;
  size_t operation;
  char text[8192];
  char directory[256];
};

constexpr const char* LEAKED = "memory was leaked, here or before";
constexpr int64 LARGEST_TRANSFER = 1 << 20;  // that is asked of the shell

enum class Ending { Passed, Differed, Crashed };

class Child {
 public:
  explicit Child(int64 bufferSize) : bufferSize_(bufferSize) {
    void* memory =
        mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) throw std::runtime_error("no memory to share");
    shared_ = static_cast<Shared*>(memory);
  }
  ~Child() { munmap(shared_, sizeof(Shared)); }
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;

  // Runs `body` in a process of its own, which ends early at a difference.
  Ending run(const std::function<std::optional<Difference>(Comparison&, Shared&)>& body) {
    std::memset(shared_, 0, sizeof *shared_);
    std::fflush(nullptr);
    const pid_t child = fork();
    if (child < 0) throw std::runtime_error("fork failed");
    if (child == 0) runInChild(body);
    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    if (shared_->directory[0] != '\0') std::filesystem::remove_all(shared_->directory);
    if (WIFEXITED(status) && WEXITSTATUS(status) == 0)
      return shared_->differed ? Ending::Differed : Ending::Passed;
    if (!shared_->differed)
      std::snprintf(shared_->text, sizeof shared_->text, "the process ended with status %#x",
                    status);
    return Ending::Crashed;
  }

  const Shared& shared() const { return *shared_; }

 private:
  [[noreturn]] void runInChild(
      const std::function<std::optional<Difference>(Comparison&, Shared&)>& body) {
    int code = 0;
    try {
      keepReports();
      Comparison comparison(bufferSize_);
      std::snprintf(shared_->directory, sizeof shared_->directory, "%s",
                    comparison.directory().c_str());
      if (const auto difference = body(comparison, *shared_)) {
        shared_->differed = true;
        shared_->operation = difference->operation;
        std::snprintf(shared_->text, sizeof shared_->text, "%s", difference->text.c_str());
      }
      if (!shared_->differed && hasLeaks()) {
        shared_->differed = true;
        std::snprintf(shared_->text, sizeof shared_->text, "%s", LEAKED);
      }
    } catch (const std::exception& error) {
      std::snprintf(shared_->text, sizeof shared_->text, "%s", error.what());
      shared_->differed = true;
      code = 2;
    }
    _exit(code);
  }

  int64 bufferSize_;
  Shared* shared_;
};

// Leaves steps and starting files out as long as the sequence still fails.
class Shrinker {
 public:
  Shrinker(Child* child, Sequence sequence) : child_(child), sequence_(std::move(sequence)) {
    kept_.assign(sequence_.operations.size(), true);
  }

  void cutBehind(size_t last) {
    for (size_t i = last + 1; i < kept_.size(); ++i) kept_[i] = false;
  }

  void shrink() {
    const auto count = static_cast<size_t>(std::count(kept_.begin(), kept_.end(), true));
    for (size_t size = std::max<size_t>(count / 2, 1);; size /= 2) {
      while (leaveOut(size) && size == 1) {
      }
      if (size <= 1) break;
    }
    for (StartingFile& file : sequence_.files) {
      const std::string bytes = std::exchange(file.bytes, "");
      if (!fails()) file.bytes = bytes;
    }
  }

  // The sequence as it is now, in words.
  std::string writeTranscript(const std::string& path) {
    child_->run(
        [&](Comparison& comparison, Shared&) { return comparison.run(sequence_, kept_, path); });
    return child_->shared().text;
  }

  size_t steps() const { return static_cast<size_t>(std::count(kept_.begin(), kept_.end(), true)); }

 private:
  bool fails() {
    return child_->run([&](Comparison& comparison, Shared&) {
      return comparison.run(sequence_, kept_);
    }) != Ending::Passed;
  }

  // Tries to do without each run of `size` kept steps; true when one could be left out.
  bool leaveOut(size_t size) {
    bool any = false;
    for (size_t start = 0; start < kept_.size();) {
      std::vector<bool> before = kept_;
      size_t left = size;
      size_t at = start;
      for (; at < kept_.size() && left > 0; ++at) {
        if (kept_[at]) --left;
        kept_[at] = false;
      }
      if (before == kept_) break;
      if (fails()) {
        any = true;
      } else {
        kept_ = before;
      }
      start = at;
    }
    return any;
  }

  Child* child_;
  Sequence sequence_;
  std::vector<bool> kept_;
};

std::string reportFailure(const RunOptions& options, Child* child, Ending ending) {
  const Shared first = child->shared();
  std::string report = "sequence " + std::to_string(first.sequence) + " of seed " +
                       std::to_string(options.seed) + ", buffer size " +
                       std::to_string(options.bufferSize) + ", after " +
                       std::to_string(first.operations) + " steps:\n" + first.text + "\n";
  if (std::strcmp(first.text, LEAKED) == 0) return report;  // nobody knows in which sequence
  Shrinker shrinker(child, generate(options.seed, first.sequence, options.bufferSize));
  if (ending == Ending::Differed) shrinker.cutBehind(first.operation);
  shrinker.shrink();
  report += "shrunk to " + std::to_string(shrinker.steps()) + " steps:\n" +
            shrinker.writeTranscript(options.transcript) + "\n";
  if (!options.transcript.empty()) report += "transcript: " + options.transcript + "\n";
  return report;
}

RunResult resultOf(Ending ending, const Shared& shared) {
  RunResult result;
  result.passed = ending == Ending::Passed;
  result.operations = shared.operations;
  return result;
}

}  // namespace

RunResult recordSequence(const RunOptions& options) {
  Child child(options.bufferSize);
  const Ending ending = child.run([&](Comparison& comparison, Shared& shared) {
    const Sequence sequence = generate(options.seed, options.firstSequence, options.bufferSize);
    std::vector<bool> kept;
    for (const Operation& each : sequence.operations)
      kept.push_back(each.step != Step::KvfCreateStdFile && each.count >= 0 &&
                     each.count <= LARGEST_TRANSFER);
    auto difference = comparison.run(sequence, kept, options.transcript);
    shared.operations = comparison.performed();
    return difference;
  });
  RunResult result = resultOf(ending, child.shared());
  if (!result.passed) result.report = child.shared().text;
  return result;
}

RunResult runModel(const RunOptions& options) {
  const auto start = std::chrono::steady_clock::now();
  Child child(options.bufferSize);
  const Ending ending = child.run([&](Comparison& comparison, Shared& shared) {
    std::optional<Difference> difference;
    for (shared.sequence = options.firstSequence; !difference; ++shared.sequence) {
      shared.operations = comparison.performed();
      if (shared.operations >= options.operations) break;
      difference = comparison.run(generate(options.seed, shared.sequence, options.bufferSize), {});
      if (difference) break;
    }
    shared.operations = comparison.performed();
    return difference;
  });
  RunResult result = resultOf(ending, child.shared());
  result.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  if (!result.passed) result.report = reportFailure(options, &child, ending);
  return result;
}

}  // namespace model
