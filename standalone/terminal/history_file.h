// The lines that a user typed, kept in a file between runs.
#pragma once

#include <histedit.h>

#include <string>

namespace kvhost {

// The history of one line reader, at most 1000 lines, a line never twice in succession.
class HistoryFile {
 public:
  // Takes over the lines of the file at `path`; an empty path, a missing file and one that is no
  // history begin without lines, and a file that is no history is never written over.
  explicit HistoryFile(const std::string& path);
  ~HistoryFile();
  HistoryFile(const HistoryFile&) = delete;
  HistoryFile& operator=(const HistoryFile&) = delete;

  // Null when there was no memory for it.
  History* handle() const { return history_; }

  // Adds a line without its newline; an empty one is not added.
  void add(const std::string& line);

  // Replaces the file as a whole, so that a reader sees the old lines or the new ones. False when
  // that failed; the old file is then as it was. Of two programs that end, the later one's lines
  // are kept.
  bool save() const;

 private:
  std::string path_;
  History* history_;
};

}  // namespace kvhost
