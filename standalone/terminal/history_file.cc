#include "terminal/history_file.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string_view>

namespace kvhost {

namespace {

constexpr int MAX_LINES = 1000;

// What the library's own histories begin with.
constexpr std::string_view FILE_MARK = "_HiStOrY_V2_\n";

bool hasContent(const std::string& path) {
  struct stat status = {};
  return stat(path.c_str(), &status) == 0 && status.st_size > 0;
}

// A line of the file, as the library reads it: all but visible ASCII as a backslash with three octal
// digits.
std::string encoded(const std::string& line) {
  std::string out;
  for (const char character : line) {
    const auto byte = static_cast<unsigned char>(character);
    if (byte > ' ' && byte < 0x7F) {
      if (character == '\\') out += '\\';
      out += character;
    } else {
      char octal[5];
      std::snprintf(octal, sizeof octal, "\\%03o", byte);
      out += octal;
    }
  }
  return out + '\n';
}

bool writeAll(int fd, std::string_view text) {
  while (!text.empty()) {
    const ssize_t written = write(fd, text.data(), text.size());
    if (written <= 0) return false;
    text.remove_prefix(static_cast<size_t>(written));
  }
  return true;
}

// The file, locked for this program until it is closed.
class LockedFile {
 public:
  explicit LockedFile(const std::string& path) {
    // Whoever replaced the file while this one waited for the lock has left a name for another.
    while (open(path) && !isAt(path)) close();
  }
  ~LockedFile() { close(); }
  LockedFile(const LockedFile&) = delete;
  LockedFile& operator=(const LockedFile&) = delete;

  int descriptor() const { return fd_; }  // -1 when it cannot be opened

 private:
  // A file system without locks does not keep the lines from being written.
  bool open(const std::string& path) {
    fd_ = ::open(path.c_str(), O_RDWR | O_APPEND | O_CREAT | O_CLOEXEC, S_IRUSR | S_IWUSR);
    if (fd_ >= 0) flock(fd_, LOCK_EX);
    return fd_ >= 0;
  }
  bool isAt(const std::string& path) const {
    struct stat opened = {};
    struct stat named = {};
    return fstat(fd_, &opened) != 0 || stat(path.c_str(), &named) != 0 ||
           (opened.st_ino == named.st_ino && opened.st_dev == named.st_dev);
  }
  void close() {
    if (fd_ >= 0) ::close(fd_);
    fd_ = -1;
  }

  int fd_ = -1;
};

bool appendTo(const std::string& path, const std::string& line) {
  const LockedFile file(path);
  if (file.descriptor() < 0) return false;
  const bool isNew = lseek(file.descriptor(), 0, SEEK_END) == 0;
  return writeAll(file.descriptor(), (isNew ? std::string(FILE_MARK) : "") + encoded(line));
}

std::string contentsOf(int fd) {
  std::string text;
  char piece[4096];
  ssize_t length = 0;
  lseek(fd, 0, SEEK_SET);
  while ((length = read(fd, piece, sizeof piece)) > 0) {
    text.append(piece, static_cast<size_t>(length));
  }
  return text;
}

// The newest lines of a history's text, behind its mark.
std::string newestLines(const std::string& text) {
  size_t start = text.size();
  for (int lines = 0; lines <= MAX_LINES && start > FILE_MARK.size(); ++lines) {
    const size_t end = text.rfind('\n', start - 1);
    if (end == std::string::npos) break;
    if (lines == MAX_LINES) return std::string(FILE_MARK) + text.substr(end + 1);
    start = end;
  }
  return text;
}

// Replaces the file by one, readable by the user alone, that holds its newest lines only.
void shorten(const std::string& path) {
  const LockedFile file(path);
  if (file.descriptor() < 0) return;
  std::string name = path + ".XXXXXX";
  const int fd = mkostemp(name.data(), O_CLOEXEC);
  if (fd < 0) return;
  const bool written = writeAll(fd, newestLines(contentsOf(file.descriptor())));
  const bool closed = close(fd) == 0;
  if (!written || !closed || std::rename(name.c_str(), path.c_str()) != 0) unlink(name.c_str());
}

}  // namespace

HistoryFile::HistoryFile(const std::string& path) : path_(path), history_(history_init()) {
  if (history_ == nullptr) return;
  HistEvent event;
  history(history_, &event, H_SETSIZE, MAX_LINES);
  history(history_, &event, H_SETUNIQUE, 1);
  if (path_.empty() || !hasContent(path_)) return;
  linesInFile_ = history(history_, &event, H_LOAD, path_.c_str());
  if (linesInFile_ < 0) path_.clear();
}

HistoryFile::~HistoryFile() {
  if (history_ != nullptr) history_end(history_);
}

bool HistoryFile::isNewest(const std::string& line) const {
  HistEvent event;
  return history(history_, &event, H_FIRST) >= 0 && line == event.str;
}

void HistoryFile::add(const std::string& line) {
  if (history_ == nullptr || line.empty() || isNewest(line)) return;
  HistEvent event;
  history(history_, &event, H_ENTER, line.c_str());
  if (path_.empty() || !appendTo(path_, line)) return;
  if (++linesInFile_ < 2 * MAX_LINES) return;
  shorten(path_);
  linesInFile_ = MAX_LINES;
}

}  // namespace kvhost
