// A folder of its own for a test. A process beside the test's waits for the end of that one, so that
// nothing stays behind of a test that is killed.
#pragma once

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <system_error>

namespace kvtest {

class ScratchFolder {
 public:
  explicit ScratchFolder(
      const std::filesystem::path& parent = std::filesystem::temp_directory_path())
      : path_((parent / "kvfile-test-XXXXXX").string()) {
    int life[2] = {-1, -1};
    int told[2] = {-1, -1};
    EXPECT_EQ(pipe2(life, O_CLOEXEC), 0);
    EXPECT_EQ(pipe2(told, O_CLOEXEC), 0);
    const pid_t between = fork();
    if (between == 0) {
      // The keeper is nobody's child, and is not found among those of the test.
      if (fork() == 0) keep(life[0], told[1]);
      _exit(0);
    }
    waitpid(between, nullptr, 0);
    close(life[0]);
    close(told[1]);
    EXPECT_EQ(read(told[0], path_.data(), path_.size()), static_cast<ssize_t>(path_.size()));
    close(told[0]);
    lifeline_ = life[1];
  }
  ~ScratchFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
    close(lifeline_);
  }
  ScratchFolder(const ScratchFolder&) = delete;
  ScratchFolder& operator=(const ScratchFolder&) = delete;

  const std::string& path() const { return path_; }
  std::string in(const std::string& name) const { return path_ + "/" + name; }

 private:
  // The keeper makes the folder, tells its name, and removes it when every process that could write
  // to the lifeline is gone: so there is no moment at which it would stay behind.
  [[noreturn]] void keep(int lifeline, int told) {
    setsid();
    for (const int signal : {SIGHUP, SIGINT, SIGTERM, SIGPIPE}) std::signal(signal, SIG_IGN);
    if (mkdtemp(path_.data()) == nullptr) _exit(1);
    const bool wasTold = write(told, path_.data(), path_.size()) > 0;
    dup2(lifeline, STDIN_FILENO);
    close_range(STDIN_FILENO + 1, ~0U, 0);
    char none = 0;
    while (wasTold && read(STDIN_FILENO, &none, 1) < 0 && errno == EINTR) continue;
    if (access(path_.c_str(), F_OK) == 0)
      execl("/bin/rm", "rm", "-rf", "--", path_.c_str(), static_cast<char*>(nullptr));
    _exit(0);
  }

  std::string path_;
  int lifeline_ = -1;
};

}  // namespace kvtest
