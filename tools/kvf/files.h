// Reading whole files, and where the shell keeps its history.
#pragma once

#include "source_text.h"

#include <string>
#include <string_view>

namespace shell {

// A script that is read as it runs. Its descriptor is high, so that the files which the script opens
// get the low numbers that they would have without it, and is closed as soon as its end is read.
class ScriptFile : public TextSource {
 public:
  // The file, or standard input for "-", which is then at its end for everybody else. Throws
  // std::runtime_error where it cannot be opened.
  explicit ScriptFile(const std::string& path);
  ~ScriptFile() override;

  bool readMore(std::string* text) override;

 private:
  int descriptor_;
};

// False with a text where the file cannot be opened, as far as can be told without opening it.
bool isReadable(const std::string& path, std::string* problem);

// Reads the file, or standard input for "-". False with a text where it cannot be read.
bool readWholeFile(const std::string& path, std::string* text, std::string* problem);

// All that the descriptor's file holds, from its start on; "" where it cannot be read.
std::string contentsFrom(int descriptor);

// Reads to the end of the descriptor. False with errno.
bool readToEnd(int descriptor, std::string* text);

// Writes all of `text`. False with errno.
bool writeAll(int descriptor, std::string_view text);

// True where the descriptor is a pipe that nobody can read any more.
bool isReaderGone(int descriptor);

// Opens /dev/null, the wrong way, for each standard descriptor that is closed: it still fails when it
// is used, and no file that is opened later takes its place.
void occupyStandardDescriptors();

// The file that keeps the history, its directory made: $XDG_STATE_HOME/kvf/history, or below
// ~/.local/state. "" where there is no place for it.
std::string historyPath();

}  // namespace shell
