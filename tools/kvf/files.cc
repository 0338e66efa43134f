#include "files.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <stdexcept>

namespace shell {

namespace {

constexpr size_t PIECE_SIZE = 65536;
constexpr int LEAST_SCRIPT_DESCRIPTOR = 200;

// The descriptor under a high number, or as it is where the process may have none.
int movedUp(int descriptor) {
  int moved = fcntl(descriptor, F_DUPFD_CLOEXEC, LEAST_SCRIPT_DESCRIPTOR);
  if (moved < 0) return descriptor;
  close(descriptor);
  return moved;
}

// Standard input for the script alone; what takes its place has ended.
int takeStandardInput() {
  int taken = fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
  int nothing = open("/dev/null", O_RDONLY | O_CLOEXEC);
  if (taken >= 0 && nothing >= 0) dup2(nothing, STDIN_FILENO);
  if (nothing >= 0) close(nothing);
  return taken;
}

}  // namespace

ScriptFile::ScriptFile(const std::string& path)
    : descriptor_(path == "-" ? takeStandardInput() : open(path.c_str(), O_RDONLY | O_CLOEXEC)) {
  if (descriptor_ < 0) throw std::runtime_error(std::strerror(errno));
  descriptor_ = movedUp(descriptor_);
}

ScriptFile::~ScriptFile() {
  if (descriptor_ >= 0) close(descriptor_);
}

// A short piece of a regular file is taken for its end, which saves a small script its descriptor.
bool ScriptFile::readMore(std::string* text) {
  if (descriptor_ < 0) return false;
  size_t before = text->size();
  text->resize(before + PIECE_SIZE);
  ssize_t length = -1;
  do {
    length = read(descriptor_, text->data() + before, PIECE_SIZE);
  } while (length < 0 && errno == EINTR);
  int errNum = errno;
  text->resize(before + static_cast<size_t>(std::max<ssize_t>(length, 0)));
  if (length < 0) throw std::runtime_error(std::strerror(errNum));
  struct stat status = {};
  bool isRegular = fstat(descriptor_, &status) == 0 && S_ISREG(status.st_mode);
  if (length == 0 || (isRegular && static_cast<size_t>(length) < PIECE_SIZE)) {
    close(descriptor_);
    descriptor_ = -1;
  }
  return length > 0;
}

bool isReadable(const std::string& path, std::string* problem) {
  struct stat status = {};
  bool readable =
      path == "-" || (stat(path.c_str(), &status) == 0 && access(path.c_str(), R_OK) == 0);
  if (readable && S_ISDIR(status.st_mode)) {
    errno = EISDIR;
    readable = false;
  }
  if (!readable) *problem = std::strerror(errno);
  return readable;
}

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
