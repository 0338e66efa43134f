// A process that is bound to end: with its work, with this process, or after a time.
#pragma once

#include <chrono>
#include <functional>
#include <optional>
#include <string>

namespace shell {

using Deadline = std::optional<std::chrono::steady_clock::time_point>;

// How a supervised process ended.
struct SupervisedEnd {
  enum class Kind { Exited, Signalled, TimedOut, NotStarted } kind = Kind::NotStarted;
  int number = 0;  // exit code, or signal
};

// Runs `work` in a process of its own, in a process group of its own and a fresh empty directory, and
// waits for it; `work` answers the exit code. Whatever ends it, and also where this process is killed
// meanwhile, its process group is killed and the directory removed. Blocks until `deadline` at most.
SupervisedEnd runSupervised(const std::function<int()>& work, const Deadline& deadline);

}  // namespace shell
