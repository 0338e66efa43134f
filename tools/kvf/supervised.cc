#include "supervised.h"

#include "files.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <ctime>
#include <filesystem>

namespace shell {
namespace {

// Between the caller and the work stands a keeper: a process that only waits. It alone outlives a
// caller that is killed, and so can clear up.

std::string makeDirectory() {
  std::string path = (std::filesystem::temp_directory_path() / "kvf-XXXXXX").string();
  return mkdtemp(path.data()) != nullptr ? path : "";
}

// Asks for `signal` when the parent ends. The caller must have been its child already.
void endWithParent(pid_t parent, int signal) {
  prctl(PR_SET_PDEATHSIG, signal);
  if (getppid() != parent) std::raise(signal);
}

sigset_t watchedSignals() {
  sigset_t set;
  sigemptyset(&set);
  for (int signal : {SIGCHLD, SIGTERM, SIGINT, SIGHUP, SIGQUIT}) sigaddset(&set, signal);
  return set;
}

timespec timeUntil(const Deadline& deadline) {
  using namespace std::chrono;
  auto left = deadline ? *deadline - steady_clock::now() : hours(24);
  auto whole = duration_cast<nanoseconds>(std::max<steady_clock::duration>(left, nanoseconds(0)));
  return {static_cast<time_t>(whole.count() / 1'000'000'000), whole.count() % 1'000'000'000};
}

// Waits for the process until the deadline, or until this process is asked to end.
SupervisedEnd waitFor(pid_t process, const Deadline& deadline) {
  sigset_t watched = watchedSignals();
  while (true) {
    int status = 0;
    if (waitpid(process, &status, WNOHANG) == process) {
      if (WIFSIGNALED(status)) return {SupervisedEnd::Kind::Signalled, WTERMSIG(status)};
      return {SupervisedEnd::Kind::Exited, WEXITSTATUS(status)};
    }
    timespec left = timeUntil(deadline);
    int signal = sigtimedwait(&watched, nullptr, &left);
    if (signal < 0 && errno == EAGAIN && deadline) return {SupervisedEnd::Kind::TimedOut, 0};
    if (signal > 0 && signal != SIGCHLD) return {SupervisedEnd::Kind::NotStarted, 0};
  }
}

[[noreturn]] void beWorker(const std::function<int()>& work, const std::string& directory,
                           pid_t keeper, const sigset_t& signals, int answerTo) {
  close(answerTo);
  endWithParent(keeper, SIGKILL);
  setpgid(0, 0);
  sigprocmask(SIG_SETMASK, &signals, nullptr);
  std::_Exit(chdir(directory.c_str()) == 0 ? work() : EXIT_FAILURE);
}

// The keeper's whole life. The end is told through the pipe, for an exit code has no room for it.
[[noreturn]] void beKeeper(const std::function<int()>& work, const Deadline& deadline, pid_t caller,
                           int answerTo) {
  sigset_t watched = watchedSignals();
  sigset_t signals;
  std::signal(SIGCHLD, SIG_DFL);
  sigprocmask(SIG_BLOCK, &watched, &signals);
  endWithParent(caller, SIGTERM);
  SupervisedEnd end;
  std::string directory = makeDirectory();
  pid_t self = getpid();
  pid_t worker = directory.empty() ? -1 : fork();
  if (worker == 0) beWorker(work, directory, self, signals, answerTo);
  if (worker > 0) {
    setpgid(worker, worker);
    end = waitFor(worker, deadline);
    kill(-worker, SIGKILL);
    waitpid(worker, nullptr, 0);
  }
  std::error_code ignored;
  if (!directory.empty()) std::filesystem::remove_all(directory, ignored);
  writeAll(answerTo, {reinterpret_cast<const char*>(&end), sizeof end});
  std::_Exit(EXIT_SUCCESS);
}

}  // namespace

SupervisedEnd runSupervised(const std::function<int()>& work, const Deadline& deadline) {
  SupervisedEnd end;
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) return end;
  pid_t self = getpid();
  pid_t keeper = fork();
  if (keeper == 0) {
    close(ends[0]);
    beKeeper(work, deadline, self, ends[1]);
  }
  close(ends[1]);
  std::string answer;
  if (keeper > 0) readToEnd(ends[0], &answer);
  close(ends[0]);
  while (keeper > 0 && waitpid(keeper, nullptr, 0) < 0 && errno == EINTR) {
  }
  if (answer.size() == sizeof end)
    std::copy_n(answer.data(), sizeof end, reinterpret_cast<char*>(&end));
  return end;
}

}  // namespace shell
