// The lines that a user typed, kept in a file between runs.
#pragma once

#include <histedit.h>

#include <string>

namespace kvhost {

// The history of one line reader, at most 1000 lines, a line never twice in succession.
//
// Each line is appended to the file as soon as it is added, so that programs that run at once keep
// the lines of all, and a program that is killed keeps its own. Once the file has grown to twice the
// limit it is replaced by one with the newest 1000 lines, as a whole: a reader sees the old file or
// the new one. Writers lock the file while they do either.
class HistoryFile {
 public:
  // Takes over the lines of the file at `path`; an empty path, a missing file and one that is no
  // history begin without lines, and a file that is no history is never written to.
  explicit HistoryFile(const std::string& path);
  ~HistoryFile();
  HistoryFile(const HistoryFile&) = delete;
  HistoryFile& operator=(const HistoryFile&) = delete;

  // Null when there was no memory for it.
  History* handle() const { return history_; }

  // Adds a line without its newline; an empty one is not added. A line that cannot be written is kept
  // for this run only. May block for as long as another program writes to the file.
  void add(const std::string& line);

 private:
  bool isNewest(const std::string& line) const;

  std::string path_;
  History* history_;
  int linesInFile_ = 0;  // that this program knows of
};

}  // namespace kvhost
