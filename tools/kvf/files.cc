#include "files.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>

namespace shell {

bool readToEnd(int descriptor, std::string* text) {
  char buffer[65536];
  while (true) {
    ssize_t length = read(descriptor, buffer, sizeof buffer);
    if (length == 0) return true;
    if (length > 0) {
      text->append(buffer, static_cast<size_t>(length));
    } else if (errno != EINTR) {
      return false;
    }
  }
}

bool readWholeFile(const std::string& path, std::string* text, std::string* problem) {
  bool isStandardInput = path == "-";
  int descriptor = isStandardInput ? STDIN_FILENO : open(path.c_str(), O_RDONLY | O_CLOEXEC);
  bool succeeded = descriptor >= 0 && readToEnd(descriptor, text);
  if (!succeeded) *problem = std::strerror(errno);
  if (!isStandardInput && descriptor >= 0) close(descriptor);
  return succeeded;
}

std::string contentsFrom(int descriptor) {
  std::string text;
  lseek(descriptor, 0, SEEK_SET);
  return readToEnd(descriptor, &text) ? text : "";
}

bool writeAll(int descriptor, std::string_view text) {
  while (!text.empty()) {
    ssize_t length = write(descriptor, text.data(), text.size());
    if (length > 0) {
      text.remove_prefix(static_cast<size_t>(length));
    } else if (errno != EINTR) {
      return false;
    }
  }
  return true;
}

bool isReaderGone(int descriptor) {
  pollfd state{descriptor, POLLOUT, 0};
  return poll(&state, 1, 0) == 1 && (state.revents & POLLERR) != 0;
}

void occupyStandardDescriptors() {
  for (int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    if (fcntl(descriptor, F_GETFD) >= 0) continue;
    // The lowest free descriptor is this one, since those below it are open.
    if (open("/dev/null", descriptor == STDIN_FILENO ? O_WRONLY : O_RDONLY) < 0) return;
  }
}

std::string historyPath() {
  const char* state = std::getenv("XDG_STATE_HOME");
  const char* home = std::getenv("HOME");
  std::filesystem::path base;
  if (state != nullptr && state[0] == '/') {
    base = state;
  } else if (home != nullptr && home[0] == '/') {
    base = std::filesystem::path(home) / ".local" / "state";
  } else {
    return "";
  }
  std::error_code failed;
  std::filesystem::create_directories(base / "kvf", failed);
  if (failed) return "";
  // What was typed is nobody else's business.
  chmod((base / "kvf").c_str(), S_IRWXU);
  return (base / "kvf" / "history").string();
}

}  // namespace shell
