// The process's standard streams, put on other files for the time of a test.
#pragma once

#include <fcntl.h>
#include <stdio_ext.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>
#include <string_view>

namespace kvtest {

// Standard input comes from another descriptor; what the stream had read ahead is forgotten at both
// ends of the redirection.
class StandardInputFrom {
 public:
  explicit StandardInputFrom(int fd) : saved_(::dup(STDIN_FILENO)) { replace(fd); }

  // From a regular file with this content, made in the current directory.
  explicit StandardInputFrom(std::string_view content) : saved_(::dup(STDIN_FILENO)) {
    std::ofstream("standard-input", std::ios::binary | std::ios::trunc)
        .write(content.data(), static_cast<std::streamsize>(content.size()));
    const int fd = ::open("standard-input", O_RDONLY | O_CLOEXEC);
    replace(fd);
    ::close(fd);
  }

  ~StandardInputFrom() {
    if (saved_ >= 0) {
      replace(saved_);
      ::close(saved_);
    } else {
      ::close(STDIN_FILENO);
    }
  }

  StandardInputFrom(const StandardInputFrom&) = delete;
  StandardInputFrom& operator=(const StandardInputFrom&) = delete;

 private:
  static void replace(int fd) {
    __fpurge(stdin);
    ::dup2(fd, STDIN_FILENO);
    clearerr(stdin);
  }

  int saved_;
};

// What `body` wrote to standard output or standard error, through the stream or the descriptor.
// Assertions belong behind it, where their text can be seen.
template <typename Body>
std::string writtenTo(int standardDescriptor, Body body) {
  FILE* stream = standardDescriptor == STDOUT_FILENO ? stdout : stderr;
  std::fflush(stream);
  const int saved = ::dup(standardDescriptor);
  const int target = ::open("captured", O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  ::dup2(target, standardDescriptor);
  ::close(target);
  body();
  std::fflush(stream);
  ::dup2(saved, standardDescriptor);
  ::close(saved);
  std::ifstream in("captured", std::ios::binary);
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

}  // namespace kvtest
