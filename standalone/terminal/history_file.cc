#include "terminal/history_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

namespace kvhost {

namespace {

constexpr int MAX_LINES = 1000;

bool hasContent(const std::string& path) {
  struct stat status = {};
  return stat(path.c_str(), &status) == 0 && status.st_size > 0;
}

// Writes the history to a new file beside `path`, readable by the user alone; its name, or empty.
std::string writeBeside(const std::string& path, History* history) {
  std::string name = path + ".XXXXXX";
  const int fd = mkostemp(name.data(), O_CLOEXEC);
  if (fd < 0) return {};
  FILE* file = fdopen(fd, "w");
  HistEvent event;
  const bool written = file != nullptr && ::history(history, &event, H_SAVE_FP, file) >= 0;
  const bool closed = file != nullptr ? std::fclose(file) == 0 : close(fd) == 0;
  if (written && closed) return name;
  unlink(name.c_str());
  return {};
}

}  // namespace

HistoryFile::HistoryFile(const std::string& path) : path_(path), history_(history_init()) {
  if (history_ == nullptr) return;
  HistEvent event;
  history(history_, &event, H_SETSIZE, MAX_LINES);
  history(history_, &event, H_SETUNIQUE, 1);
  if (path_.empty() || !hasContent(path_)) return;
  if (history(history_, &event, H_LOAD, path_.c_str()) < 0) path_.clear();
}

HistoryFile::~HistoryFile() {
  if (history_ != nullptr) history_end(history_);
}

void HistoryFile::add(const std::string& line) {
  HistEvent event;
  if (history_ != nullptr && !line.empty()) history(history_, &event, H_ENTER, line.c_str());
}

bool HistoryFile::save() const {
  if (history_ == nullptr || path_.empty()) return true;
  const std::string written = writeBeside(path_, history_);
  if (written.empty()) return false;
  if (std::rename(written.c_str(), path_.c_str()) == 0) return true;
  unlink(written.c_str());
  return false;
}

}  // namespace kvhost
