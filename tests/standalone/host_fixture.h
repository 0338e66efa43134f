// What the tests of the host layer share: a directory of their own, helper processes, signals.
#pragma once

#include <gtest/gtest.h>

#include <pthread.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <string>
#include <thread>

namespace hosttest {

using Clock = std::chrono::steady_clock;

inline double millisSince(Clock::time_point start) {
  return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

inline void writeFile(const std::string& path, const std::string& content) {
  FILE* file = std::fopen(path.c_str(), "w");
  ASSERT_NE(file, nullptr) << path;
  ASSERT_EQ(std::fwrite(content.data(), 1, content.size(), file), content.size());
  ASSERT_EQ(std::fclose(file), 0);
}

inline std::string readFile(const std::string& path) {
  std::string content;
  FILE* file = std::fopen(path.c_str(), "r");
  if (file == nullptr) return content;
  char piece[4096];
  size_t got = 0;
  while ((got = std::fread(piece, 1, sizeof piece, file)) > 0) content.append(piece, got);
  std::fclose(file);
  return content;
}

// A test with an empty directory of its own.
class InDirectory : public ::testing::Test {
 protected:
  void SetUp() override {
    std::string name = (std::filesystem::temp_directory_path() / "hostXXXXXX").string();
    ASSERT_NE(mkdtemp(name.data()), nullptr);
    directory = name;
  }
  void TearDown() override { std::filesystem::remove_all(directory); }

  std::string in(const std::string& name) const { return directory + "/" + name; }

  std::string directory;
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
