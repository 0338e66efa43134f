// What the tests of the host layer share: a directory of their own, helper processes, signals.
#pragma once

#include "support/files.h"
#include "support/scratch_folder.h"

#include <gtest/gtest.h>

#include <pthread.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <iterator>
#include <optional>
#include <string>
#include <thread>

namespace hosttest {

using kvtest::readFile;
using kvtest::writeFile;
using Clock = std::chrono::steady_clock;

inline double millisSince(Clock::time_point start) {
  return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

// What a test waits for at most, on a machine with much else to do; far from what anything takes.
inline constexpr int PATIENCE_MILLIS = 300000;

// Waits until a thread, or the one of a process, sleeps: it is then in the call that is to block it.
inline void waitUntilAsleep(pid_t thread) {
  const auto begin = Clock::now();
  char state = 0;
  while (state != 'S' && millisSince(begin) < PATIENCE_MILLIS) {
    std::ifstream stat("/proc/" + std::to_string(thread) + "/stat");
    const std::string line{std::istreambuf_iterator<char>(stat), {}};
    const size_t name = line.rfind(')');  // which may hold anything
    if (name != std::string::npos && name + 2 < line.size()) state = line[name + 2];
    if (state != 'S') usleep(1000);
  }
}

// A test with an empty directory of its own.
class InDirectory : public ::testing::Test {
 protected:
  void SetUp() override {
    scratch_.emplace();
    directory = scratch_->path();
  }
  void TearDown() override { scratch_.reset(); }

  std::string in(const std::string& name) const { return directory + "/" + name; }

  std::string directory;

 private:
  std::optional<kvtest::ScratchFolder> scratch_;
};

// A pipe whose ends are closed with it.
struct Pipe {
  Pipe() {
    if (pipe(ends) != 0) std::abort();
  }
  ~Pipe() {
    closeReadEnd();
    closeWriteEnd();
  }
  Pipe(const Pipe&) = delete;
  Pipe& operator=(const Pipe&) = delete;

  int readEnd() const { return ends[0]; }
  int writeEnd() const { return ends[1]; }
  void closeReadEnd() { closeEnd(0); }
  void closeWriteEnd() { closeEnd(1); }

  int ends[2] = {-1, -1};

 private:
  void closeEnd(int index) {
    if (ends[index] >= 0) close(ends[index]);
    ends[index] = -1;
  }
};

// A process that runs `body` and ends with what it answers.
class Helper {
 public:
  explicit Helper(const std::function<int()>& body) : pid_(fork()) {
    if (pid_ == 0) _exit(body());
  }
  ~Helper() {
    if (pid_ <= 0) return;
    kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
  }
  Helper(const Helper&) = delete;
  Helper& operator=(const Helper&) = delete;

  pid_t pid() const { return pid_; }

  // Waits for the end; the exit code, or -1 when it ended otherwise.
  int exitCode() {
    int status = 0;
    waitpid(pid_, &status, 0);
    pid_ = 0;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }

 private:
  pid_t pid_;
};

// A thread that SIGALRM does not reach.
template <typename Body>
std::thread threadWithoutAlarms(Body body) {
  sigset_t alarms;
  sigset_t former;
  sigemptyset(&alarms);
  sigaddset(&alarms, SIGALRM);
  pthread_sigmask(SIG_BLOCK, &alarms, &former);
  std::thread thread(body);
  pthread_sigmask(SIG_SETMASK, &former, nullptr);
  return thread;
}

// Sends this process SIGALRM again and again, with a handler that does not restart system calls.
class AlarmStorm {
 public:
  explicit AlarmStorm(int everyMicros) {
    struct sigaction action = {};
    action.sa_handler = [](int) { count = count + 1; };
    sigaction(SIGALRM, &action, &former_);
    count = 0;
    const struct itimerval times = {{0, everyMicros}, {0, everyMicros}};
    setitimer(ITIMER_REAL, &times, nullptr);
  }
  ~AlarmStorm() {
    const struct itimerval none = {};
    setitimer(ITIMER_REAL, &none, nullptr);
    sigaction(SIGALRM, &former_, nullptr);
  }
  AlarmStorm(const AlarmStorm&) = delete;
  AlarmStorm& operator=(const AlarmStorm&) = delete;

  static inline volatile std::sig_atomic_t count = 0;

 private:
  struct sigaction former_ {};
};

}  // namespace hosttest
